"""Collecting from a fleet with the brimwell.gatr collection, installed from the tarball
ansible-galaxy builds: three real hosts, each an sshd on its own loopback address with a host
name, /opt, /var/opt, /etc/opt, /root and /run of its own, logged into as root or as an
ordinary user who becomes root with sudo; the archives and the fleet summary checked on the
controller."""
import contextlib
import csv
import json
import os
import re
import signal
import socket
import subprocess
import time
from pathlib import Path

import pytest

from conftest import STAGE

COLLECTION = Path(__file__).resolve().parents[2] / "deploy" / "ansible" / "brimwell" / "gatr"
HOSTS = {"host11": "127.0.0.11", "host12": "127.0.0.12", "host13": "127.0.0.13"}
USER = "gatradm"
MAIN_LOG = "/var/opt/Brimwell/gatr/logs/gatr.log"
SSHD = """ListenAddress {address}
HostKey {folder}/host_key
AuthorizedKeysFile {folder}/client_key.pub
PermitRootLogin prohibit-password
PasswordAuthentication no
UsePAM no
StrictModes no
Subsystem sftp {folder}/sftp
"""
# A host with /run/corrupt serves every archive by sftp with one byte changed: corruption in
# transit, while the file on the host stays whole.
SFTP = """#!/bin/sh
[ -e /run/corrupt ] || exec /usr/lib/openssh/sftp-server
exec unshare --mount sh -c 'for f in /var/opt/Brimwell/gatr/*.tar.gz; do b=/run/$(basename $f); cp $f $b &&
  printf X | dd of=$b bs=1 seek=2048 conv=notrunc 2>/dev/null && mount --bind $b $f; done
  exec /usr/lib/openssh/sftp-server'
"""
# /run as well: sshd needs /run/sshd, and the sandbox's /run is read-only, as is its /dev/pts,
# where sudo makes its terminal. Files are named by address, not host name, since every host's
# process probes see the others' command lines.
HOST = ("hostname {name} && for m in /opt /var/opt /etc/opt /root /run; do mount -t tmpfs tmpfs $m;"
        " done && mount -t devpts -o newinstance,ptmxmode=0666 devpts /dev/pts && mount --bind /dev/pts/ptmx"
        " /dev/ptmx && mkdir -m 0755 /run/sshd && install -d -m 0700 -o 4242 /run/home && "
        "exec /usr/sbin/sshd -D -e -f {folder}/{address}.conf")


@contextlib.contextmanager
def started_hosts(folder, hosts):
    """sshd hosts (name: address) in namespaces of their own, and the collection installed
    for the controller; yields the host processes."""
    for key in ("host_key", "client_key"):
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", folder / key], check=True)
    (folder / "sftp").write_text(SFTP)
    (folder / "sftp").chmod(0o755)
    folder.chmod(0o755)  # the ordinary user's sshd reads client_key.pub here
    subprocess.run(["ansible-galaxy", "collection", "build", COLLECTION, "--output-path", folder],
                   check=True, capture_output=True)
    subprocess.run(["ansible-galaxy", "collection", "install", "-p", folder / "collections",
                    *folder.glob("brimwell-gatr-*.tar.gz")], check=True, capture_output=True)
    processes = {}
    try:
        for name, address in hosts.items():
            (folder / f"{address}.conf").write_text(SSHD.format(address=address, folder=folder))
            with open(folder / f"{address}.log", "wb") as log:
                processes[name] = subprocess.Popen(["unshare", "--mount", "--uts", "--propagation", "private",
                                                    "sh", "-c", HOST.format(name=name, address=address,
                                                                            folder=folder)], stderr=log)
        for name, address in hosts.items():
            while socket.socket().connect_ex((address, 22)) != 0:
                assert processes[name].poll() is None, (folder / f"{address}.log").read_text()
                time.sleep(0.1)
        (folder / "inventory").write_text("".join(f"{n} ansible_host={a}\n" for n, a in hosts.items()))
        (folder / "ansible.cfg").write_text("")  # none of the machine's settings
        yield processes
    finally:
        for process in processes.values():
            process.terminate()
            process.wait()


def play(folder, name, *args, user="root", forks=3):
    """ansible-playbook brimwell.gatr.collect into folder/name; returns the run, its recap
    ({host: {"ok": "5", "changed": ...}}) and the fetch folder."""
    env = dict(os.environ, ANSIBLE_CONFIG=str(folder / "ansible.cfg"), ANSIBLE_FORKS=str(forks),
               ANSIBLE_HOST_KEY_CHECKING="False", ANSIBLE_REMOTE_USER=user, ANSIBLE_NOCOLOR="1",
               ANSIBLE_PRIVATE_KEY_FILE=str(folder / "client_key"), ANSIBLE_LOCAL_TEMP=str(folder / "tmp"),
               ANSIBLE_PYTHON_INTERPRETER="/usr/bin/python3", ANSIBLE_COLLECTIONS_PATH=str(folder / "collections"),
               # Masters of this test only, gone soon after it: an earlier run's must never
               # carry commands to these hosts.
               ANSIBLE_SSH_CONTROL_PATH_DIR=str(folder / "cp"),
               ANSIBLE_SSH_ARGS="-o ControlMaster=auto -o ControlPersist=5s -o UserKnownHostsFile=/dev/null")
    run = subprocess.run(["ansible-playbook", "-i", folder / "inventory", "brimwell.gatr.collect", "-e",
                          f"gatr_bundle={STAGE.parent / 'gatr-bundle.tar.gz'}", "-e", f"gatr_fetch_dir={folder / name}",
                          "-e", "gatr_poll_interval=1", *args], env=env, capture_output=True, text=True)
    recap = {m[1]: dict(re.findall(r"(\w+)=(\d+)", m[2]))
             for m in re.finditer(r"^(\S+)\s+: (ok=.*)$", run.stdout, re.M)}
    return run, recap, folder / name


def check_collected(fetched, outcomes, extra=None):
    """The summary lists every host with its outcome ({host: "collected", "unreachable" or a
    failure's "step: reason" pattern}) in JSON and CSV alike; each collected archive is whole, holds
    its own host's main log (and extra), and nothing is kept of a failed host's archive."""
    rows = json.loads((fetched / "fleet-summary.json").read_text())
    with open(fetched / "fleet-summary.csv", newline="") as table:
        assert list(csv.DictReader(table)) == [{k: "" if v is None else str(v) for k, v in r.items()} for r in rows]
    assert [r["host"] for r in rows] == list(outcomes)
    for row in rows:
        host, archive = row["host"], fetched / row["host"] / str(row["archive"])
        if outcomes[host] != "collected":
            kind = "unreachable" if outcomes[host] == "unreachable" else "failed"
            assert (row["outcome"], row["archive"], row["sha256_verified"]) == (kind, None, "no")
            assert kind == "unreachable" or re.fullmatch(outcomes[host], f"{row['step']}: {row['reason']}"), row
            assert not list((fetched / host).glob("*"))
            continue
        assert (row["outcome"], row["sha256_verified"], row["size"]) == ("collected", "yes", archive.stat().st_size)
        assert row["seconds"] > 0 and re.fullmatch(rf"gatr_{host}_\d{{8}}T\d{{4}}Z(-\d+)?\.tar\.gz", row["archive"])
        assert sorted(p.name for p in archive.parent.iterdir()) == [archive.name, archive.name + ".sha256"]
        subprocess.run(["sha256sum", "--quiet", "-c", archive.name + ".sha256"], cwd=archive.parent, check=True)
        members = subprocess.run(["tar", "-tzPf", archive], capture_output=True, text=True, check=True).stdout
        assert {MAIN_LOG, *([str(extra)] if extra else [])} <= set(members.splitlines())
        log = subprocess.run(["tar", "-xzPOf", archive, MAIN_LOG], capture_output=True, text=True, check=True).stdout
        assert re.search(rf"^Host Name:\s+{host}$", log, re.M)
        assert not any(other in log for other in HOSTS if other != host)


@pytest.fixture
def fleet(sandbox):
    previous = signal.signal(signal.SIGALRM, lambda *_: pytest.fail("the fleet test ran over 900 s"))
    signal.alarm(900)
    # The ordinary user may become root without a password; /etc is an overlay of the test's.
    sandbox.place("/etc/hosts", "".join(f"{a} {n}\n" for n, a in HOSTS.items()))
    sandbox.place("/etc/passwd", Path("/etc/passwd").read_text() + f"{USER}:x:4242:4242::/run/home:/bin/sh\n")
    sandbox.place("/etc/shadow", Path("/etc/shadow").read_text() + f"{USER}:*:19000:0:99999:7:::\n", 0o640)
    sandbox.place(f"/etc/sudoers.d/{USER}", f"{USER} ALL=(ALL) NOPASSWD: ALL\n", 0o440)
    with started_hosts(sandbox.scratch, HOSTS) as processes:
        yield sandbox.scratch, processes
    signal.alarm(0)
    signal.signal(signal.SIGALRM, previous)


def on_host(process, command):
    return subprocess.run(["nsenter", "-t", str(process.pid), "-m", "sh", "-c", command], check=False).returncode


FULL = (r"Judge the diagnostics run: gatr -s exited with status 1: gatr: not enough free space in "
        r"/var/opt/Brimwell/gatr for the archive: about [\d,]+ bytes needed, [\d,]+ free "
        r"gatr: the archive could not be created - refer to the gatr_errors.log for details")


@pytest.mark.parametrize("user", ["root", USER])
def test_check_mode_changes_nothing_then_every_good_host_is_collected_once_per_run(fleet, user):
    folder, hosts = fleet
    on_host(hosts["host13"], "mount -t tmpfs -o size=64k tmpfs /var/opt && dd if=/dev/zero of=/var/opt/fill 2>&-")
    options = {"gatr_obfuscate": True, "gatr_since": "30", "gatr_max_log_size": 100}
    run, recap, fetched = play(folder, "check", "--check", "-e", json.dumps(options), user=user)
    assert run.returncode == 0, run.stdout[-4000:] + run.stderr[-2000:]
    for name in HOSTS:
        assert re.search(rf'"{name} +checked .* would unpack gatr-bundle.tar.gz, run /opt/Brimwell/gatr/gatr -s '
                         rf'--obfuscate --since 30 --max-log-size 100, '
                         rf'fetch the archive into {fetched}/{name}/"', run.stdout), run.stdout
        assert on_host(hosts[name], "test -e /opt/Brimwell || test -e /var/opt/Brimwell") == 1
    assert not fetched.exists()

    extra = folder / "extra.log"
    extra.write_text("asked for by support\n")
    # install, run, fetch; the second run only runs and fetches (host13 fails after its run)
    for name, changed in (("first", 4), ("second", 2)):
        run, recap, fetched = play(folder, name, "-e", json.dumps({"gatr_include_paths": [str(extra)]}), user=user)
        assert run.returncode != 0
        assert [(int(recap[n]["changed"]), recap[n]["failed"]) for n in HOSTS] == [(changed, "0")] * 2 + [
            (changed - 1, "1")]
        assert re.search(r"fatal: \[host13\]: FAILED! .*gatr collection failed on host13 at '"
                         + FULL.replace("run:", "run':"), run.stdout)
        check_collected(fetched, {"host11": "collected", "host12": "collected", "host13": FULL}, extra)
    assert not list(Path("/tmp").glob("gatr.*"))  # the hosts' private folders are gone


def test_an_archive_corrupted_in_transit_is_not_kept_and_an_unreachable_host_is_listed(fleet):
    folder, hosts = fleet
    on_host(hosts["host12"], "touch /run/corrupt")
    with open(folder / "inventory", "a") as inventory:
        inventory.write("host14 ansible_host=127.0.0.14\n")  # no sshd there
    run, recap, fetched = play(folder, "corrupt")
    assert run.returncode != 0 and [recap[n]["failed"] for n in HOSTS] == ["0", "1", "0"], run.stdout
    assert recap["host14"]["unreachable"] == "1"
    check_collected(fetched, {"host11": "collected", "host12": r"Fetch the archive and its checksum: checksum mismatch",
                              "host13": "collected", "host14": "unreachable"})


@pytest.mark.parametrize("variables, named", [
    ("gatr_run_timeout=ten", r"argument 'gatr_run_timeout' is of type <class 'str'> and we were unable to convert"),
    ("gatr_rpm=/srv/gatr.rpm", r"give at most one of gatr_rpm and gatr_bundle")])
def test_bad_variables_stop_the_play_before_any_host_is_contacted(fleet, variables, named):
    folder, _ = fleet
    run, recap, fetched = play(folder, "bad", "-e", variables)
    assert run.returncode != 0 and re.search(named, run.stdout), run.stdout[-4000:]
    assert [recap[n]["failed"] for n in HOSTS] == ["1"] * 3
    assert not fetched.exists()
    assert not any("Accepted" in (folder / f"{a}.log").read_text() for a in HOSTS.values())


def test_a_diagnostics_option_reaches_gatr_whose_refusal_fails_every_host(fleet):
    folder, _ = fleet
    run, recap, fetched = play(folder, "future", "-e", "gatr_since=2999-01-01")
    assert run.returncode != 0 and [recap[n]["failed"] for n in HOSTS] == ["1"] * 3
    check_collected(fetched, dict.fromkeys(HOSTS, r"Judge the diagnostics run: gatr -s exited with status 1: gatr: invalid "
                                                  r"--since value specified, expected .*: 2999-01-01"))
