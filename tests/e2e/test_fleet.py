"""Collecting from a fleet with deploy/ansible/collect.yml: three real hosts, each an sshd on its
own loopback address with a host name, /opt, /var/opt, /etc/opt, /root and /run of its own, gatr
unpacked on each from the bundle, the archives fetched over ssh and checked on the controller."""
import os
import re
import signal
import socket
import subprocess
import time
from pathlib import Path

import pytest

from conftest import STAGE

PLAYBOOK = Path(__file__).resolve().parents[2] / "deploy" / "ansible" / "collect.yml"
HOSTS = {"host11": "127.0.0.11", "host12": "127.0.0.12", "host13": "127.0.0.13"}
MAIN_LOG = "/var/opt/Brimwell/gatr/logs/gatr.log"
SSHD = """ListenAddress {address}
HostKey {folder}/host_key
AuthorizedKeysFile {folder}/client_key.pub
PermitRootLogin prohibit-password
PasswordAuthentication no
UsePAM no
StrictModes no
Subsystem sftp internal-sftp
"""
# /run as well: sshd needs /run/sshd, and the sandbox's /run is read-only. Files are named by
# address, not host name, since every host's process probes see the others' command lines.
HOST = ("hostname {name} && for m in /opt /var/opt /etc/opt /root /run; do mount -t tmpfs tmpfs $m;"
        " done && mkdir -m 0755 /run/sshd && exec /usr/sbin/sshd -D -e -f {folder}/{address}.conf")


@pytest.fixture
def deadline():
    previous = signal.signal(signal.SIGALRM, lambda *_: pytest.fail("the fleet test ran over 900 s"))
    signal.alarm(900)
    yield
    signal.alarm(0)
    signal.signal(signal.SIGALRM, previous)


@pytest.fixture
def fleet(sandbox, deadline):
    folder = sandbox.scratch
    for key in ("host_key", "client_key"):
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", folder / key], check=True)
    hosts = {}
    try:
        for name, address in HOSTS.items():
            (folder / f"{address}.conf").write_text(SSHD.format(address=address, folder=folder))
            with open(folder / f"{address}.log", "wb") as log:
                hosts[name] = subprocess.Popen(["unshare", "--mount", "--uts", "--propagation", "private",
                                                "sh", "-c", HOST.format(name=name, address=address,
                                                                        folder=folder)], stderr=log)
        for name, address in HOSTS.items():
            while socket.socket().connect_ex((address, 22)) != 0:
                assert hosts[name].poll() is None, (folder / f"{address}.log").read_text()
                time.sleep(0.1)
        (folder / "inventory").write_text("".join(f"{n} ansible_host={a}\n" for n, a in HOSTS.items()))
        (folder / "ansible.cfg").write_text("")  # none of the machine's settings
        yield folder, hosts
    finally:
        for process in hosts.values():
            process.terminate()
            process.wait()


def bundle(folder):
    built = STAGE.parent / "gatr-bundle.tar.gz"
    if not built.exists():
        built = folder / "gatr-bundle.tar.gz"
        subprocess.run(["tar", "czf", built, "-C", STAGE, "gatr", "etc", "var", "locale"], check=True)
    return built


def collect(folder, name, forks):
    fetched = folder / name
    env = dict(os.environ, ANSIBLE_CONFIG=str(folder / "ansible.cfg"), ANSIBLE_FORKS=str(forks),
               ANSIBLE_HOST_KEY_CHECKING="False", ANSIBLE_REMOTE_USER="root", ANSIBLE_NOCOLOR="1",
               ANSIBLE_PRIVATE_KEY_FILE=str(folder / "client_key"), ANSIBLE_LOCAL_TEMP=str(folder / "tmp"),
               ANSIBLE_PYTHON_INTERPRETER="/usr/bin/python3",
               # Masters of this test only, gone soon after it: an earlier run's must never
               # carry commands to these hosts.
               ANSIBLE_SSH_CONTROL_PATH_DIR=str(folder / "cp"),
               ANSIBLE_SSH_ARGS="-o ControlMaster=auto -o ControlPersist=5s -o UserKnownHostsFile=/dev/null")
    started = time.monotonic()
    run = subprocess.run(["ansible-playbook", "-i", folder / "inventory", PLAYBOOK, "-e",
                          f"gatr_bundle={bundle(folder)}", "-e", f"gatr_fetch_dir={fetched}", "-e",
                          "gatr_poll_interval=1"], env=env, capture_output=True, text=True)
    seconds = time.monotonic() - started
    recap = {m[1]: dict(re.findall(r"(\w+)=(\d+)", m[2]))
             for m in re.finditer(r"^(host1\d)\s+: (.*)$", run.stdout, re.M)}
    return run, recap, fetched, seconds


def check_collected(fetched, names):
    assert sorted(p.name for p in fetched.iterdir()) == sorted(names)
    for name in names:
        archive, = (fetched / name).glob(f"gatr_{name}_*.tar.gz")
        assert sorted(p.name for p in (fetched / name).iterdir()) == [archive.name, archive.name + ".sha256"]
        subprocess.run(["sha256sum", "--quiet", "-c", archive.name + ".sha256"], cwd=fetched / name, check=True)
        members = subprocess.run(["tar", "-tzPf", archive], capture_output=True, text=True, check=True).stdout
        assert MAIN_LOG in members.splitlines()
        log = subprocess.run(["tar", "-xzPOf", archive, MAIN_LOG], capture_output=True, text=True,
                             check=True).stdout
        assert re.search(rf"^Host Name:\s+{name}$", log, re.M)
        assert not any(other in log for other in HOSTS if other != name)


def test_a_fleet_is_collected_and_a_failing_host_reported_while_the_others_go_on(fleet):
    folder, hosts = fleet
    seconds = {}
    for name, forks in (("at-once", 3), ("one-after-the-other", 1)):
        run, recap, fetched, seconds[name] = collect(folder, name, forks)
        assert run.returncode == 0, run.stdout[-4000:] + run.stderr[-2000:]
        assert all(recap[n]["failed"] == recap[n]["unreachable"] == "0" for n in HOSTS)
        check_collected(fetched, list(HOSTS))
    print(f"\nfleet of three: {seconds['at-once']:.1f} s at once (forks=3), "
          f"{seconds['one-after-the-other']:.1f} s one after the other (forks=1)")

    subprocess.run(["nsenter", "-t", str(hosts["host13"].pid), "-m", "sh", "-c", "mount -t tmpfs -o "
                    "size=64k tmpfs /var/opt && { dd if=/dev/zero of=/var/opt/fill 2>/dev/null; true; }"],
                   check=True)
    run, recap, fetched, _ = collect(folder, "host13-full", 3)
    assert run.returncode != 0
    assert [recap[n]["failed"] for n in HOSTS] == ["0", "0", "1"]
    assert re.search(r"fatal: \[host13\]: FAILED! .*gatr collection failed on host13 at 'Judge the diagnos"
                     r"tics run': gatr -s exited with status 1: gatr: the archive could not be created",
                     run.stdout)
    check_collected(fetched, ["host11", "host12"])
