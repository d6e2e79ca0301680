"""Obfuscation end to end: an archive of a server's names, addresses, users and customer words that
holds none of them, in its members, their names or its own name, each replaced alike everywhere and
by the same stand-in on the next run; the mapping kept in the output folder root's alone, 0600,
reused across runs, and a kept file that is damaged, planted through a link or owned by someone else
set aside, never read."""
import ipaddress
import json
import os
import re
import subprocess
import tarfile
from pathlib import Path

import pytest

from conftest import DATA, LOGS, OUTPUT, expect

KEPT = OUTPUT / ".obfuscation.json"
ASIDE = OUTPUT / ".obfuscation.json.bad"
VICTIM = "/var/opt/victim/notes"
MAPPING = ('{"format": "gatr-obfuscation-map", "version": 1, "hosts": {"backup01": "host7"}, "domains": {}, '
           '"ipv4": {}, "ipv6": {}, "mac": {}, "users": {}, "keywords": {}}')


def as_nobody(*command):
    subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", *command], check=True)


def plant(kind):
    OUTPUT.mkdir(parents=True)
    if kind == "damaged":
        KEPT.write_text(MAPPING[:40])
    elif kind == "a link another user planted":
        OUTPUT.chmod(0o1777)  # a careless machine: anyone may write into the output folder
        os.makedirs(os.path.dirname(VICTIM))
        os.chmod(os.path.dirname(VICTIM), 0o777)
        as_nobody("sh", "-c", f"echo mine > {VICTIM}; ln -s {VICTIM} {KEPT}")
    else:
        KEPT.write_text(MAPPING)
        os.chown(KEPT, 65534, 65534)


def test_a_first_run_keeps_a_private_mapping_that_the_next_run_reuses(gatr, machine):
    for _ in range(2):
        run = gatr("-s", "-A", "--obfuscate")
        assert run.rc == 0 and run.stderr == ""
        info = os.lstat(KEPT)
        assert (info.st_mode & 0o7777, info.st_uid, json.loads(KEPT.read_text())["format"]) == \
            (0o600, 0, "gatr-obfuscation-map")
        assert "obfuscation on: values replaced: hosts 0, domains 0, ipv4 0, ipv6 0, mac 0, users 0, keywords 0" \
            in run.error_log
    assert not ASIDE.exists()


@pytest.mark.parametrize("kind, reason", [
    ("damaged", "damaged"),
    ("a link another user planted", "a symbolic link that root does not own"),
    ("owned by another user", "owned by another user"),
])
def test_a_kept_mapping_that_cannot_be_trusted_is_set_aside_and_a_new_one_begins(gatr, machine, kind, reason):
    plant(kind)
    before = os.lstat(KEPT)
    run = gatr("-s", "-A", "--obfuscate")
    assert run.rc == 0
    assert f"{KEPT} was {reason}: kept aside as {ASIDE} and a new mapping begins" in run.error_log
    aside = os.lstat(ASIDE)
    assert (aside.st_ino, aside.st_uid) == (before.st_ino, before.st_uid)
    assert "host7" not in KEPT.read_text() and not KEPT.is_symlink() and os.stat(KEPT).st_mode & 0o777 == 0o600
    if kind == "a link another user planted":
        assert open(VICTIM).read() == "mine\n"


def test_without_the_option_no_mapping_is_kept(gatr, machine):
    assert gatr("-s", "-A").rc == 0
    assert not KEPT.exists()


# A database server, DB01, whose FQDN the hosts file gives, with its peers, a user and a customer
# in its files: each original as the tree spells it, looked for in any case in what leaves.
TREE = DATA / "obfuscation"
REMOTE = "/var/opt/remote/var/log/remote/db01.corp.example.com"
ROTATED = 2000
ORIGINALS = ["db01", "db02", "replica", "vault", "corp.example", "globex", "partner.example", "alice", "dbadmin",
             "john.smith", "10.20.30.", "192.0.2.", "2001:db8:", "2001:0db8:", "fe80:", "52:54:00:12:34:56",
             "52-54-00-12-34-56", "5254.0012.3456", "00:1b:21:ab:cd:ef", "fe12:3456", "feab:cdef"]
LEAK = re.compile("|".join(rf"(?<![0-9a-z]){re.escape(v)}" + (r"(?![0-9a-z])" if v[-1].isalnum() else "")
                           for v in ORIGINALS), re.I)
WORDS = {"hosts": r"host\d+", "domains": r"domain\d+\.example", "users": r"user\d+", "keywords": r"keyword\d+"}
# What the expected members name, by the original the mapping holds it under.
NAMES = {"db01": ("hosts", "db01"), "db02": ("hosts", "db02"), "replica": ("hosts", "replica"),
         "vault": ("hosts", "vault"), "corp": ("domains", "corp.example.com"),
         "globexin": ("domains", "globex.internal"), "partner": ("domains", "partner.example.net"),
         "ip40": ("ipv4", "10.20.30.40"), "ip41": ("ipv4", "10.20.30.41"), "net30": ("ipv4", "10.20.30.0"),
         "brd30": ("ipv4", "10.20.30.255"), "ip17": ("ipv4", "192.0.2.17"), "brd2": ("ipv4", "192.0.2.255"),
         "v6_5": ("ipv6", "2001:db8:0:1::5"), "v6_6": ("ipv6", "2001:db8:0:1::6"), "v6_1": ("ipv6", "2001:db8:0:1::1"),
         "v6_net": ("ipv6", "2001:db8:0:1::"), "ll_net": ("ipv6", "fe80::"),
         "ll_1": ("ipv6", "fe80::5054:ff:fe12:3456"), "ll_2": ("ipv6", "fe80::21b:21ff:feab:cdef"),
         "mac1": ("mac", "52:54:00:12:34:56"), "mac2": ("mac", "00:1b:21:ab:cd:ef"),
         "alice": ("users", "alice"), "jsmith": ("users", "john.smith"), "dbadmin": ("users", "dbadmin"),
         "globex": ("keywords", "globex")}


@pytest.fixture
def server(sandbox, machine, program):
    for name in ("hosts", "passwd"):  # alice and john.smith: UIDs 1000 and 1001
        sandbox.place(f"/etc/{name}", (TREE / name).read_text())
    sandbox.tool("ip", f'#!/bin/sh\n[ "$*" = "addr show" ] && exec cat {TREE}/ip-addr.txt\nexit 1\n')
    sandbox.tool("netstat", f'#!/bin/sh\n[ "$*" = "-atup" ] && exec cat {TREE}/netstat.txt\nexit 1\n')
    for name in ("app.log", "globex-billing.log", "ip-6-route.txt"):
        sandbox.write(f"{REMOTE}/{name}", (TREE / name).read_text())
    # alice's rotated log, long enough that names and addresses straddle every read, and a link to the live one
    os.chown(sandbox.write(f"{REMOTE}/app.log.1", (TREE / "app.log").read_text() * ROTATED), 1000, 1000)
    os.symlink(f"{REMOTE}/app.log", f"{REMOTE}/current")
    config = json.loads((program / "etc/gatr_config.json").read_text())
    config["obfuscation"] = {"domains": ["partner.example.net"], "users": ["dbadmin"], "keywords": ["Globex"]}
    (program / "etc/gatr_config.json").write_text(json.dumps(config))


def obfuscated_run(gatr, *more):
    """A run over the tree, with its archive's record of replacements and every member's text by name."""
    run = gatr("-s", "--obfuscate", "-i", REMOTE, *more, hostname="DB01")
    assert (run.rc, run.stderr) == (0, "")
    run.record = Path(f"{run.archive}.map.json")
    run.mapping = json.loads(run.record.read_text())
    with tarfile.open(run.archive) as tar:
        run.packed = {m.name: m.uname + m.gname + (tar.extractfile(m).read().decode("latin-1") if m.isfile()
                                                   else m.linkname) for m in tar}
    return run


def test_an_obfuscated_archive_holds_no_original_and_names_each_alike_everywhere(gatr, server):
    run = obfuscated_run(gatr)
    # Nothing of the server leaves: not in a member, a member's name, the archive's name or its checksum.
    checksum = Path(f"{run.archive}.sha256").read_text()
    leaks = {name: LEAK.findall(name + "\n" + text) for name, text in run.packed.items()}
    assert {name: found for name, found in leaks.items() if found} == {}
    assert LEAK.findall(run.archive.name + checksum) == []
    assert {str(LOGS / n) for n in ("gatr.log", "gatr_errors.log", "gatr_run.json")} <= set(run.packed)
    m = run.mapping
    v = {key: m[kind][original] for key, (kind, original) in NAMES.items()}
    # Each stand-in is of its kind's form, distinct, and keeps what support reads from the original.
    for kind, form in WORDS.items():
        assert all(re.fullmatch(form, r) for r in m[kind].values()) and len(set(m[kind].values())) == len(m[kind])
    for kind, network in (("ipv4", "100.64.0.0/10"), ("ipv6", "fd00::/8")):
        assert all(ipaddress.ip_address(r) in ipaddress.ip_network(network) for r in m[kind].values())
        assert len(set(m[kind].values())) == len(m[kind])
    assert all(r[:9] == o[:9] for o, r in m["mac"].items()) and len(set(m["mac"].values())) == len(m["mac"])
    net = lambda address, bits: ipaddress.ip_interface(f"{address}/{bits}").network  # noqa: E731
    assert {net(v[k], 24) for k in ("ip40", "ip41", "net30", "brd30")} == {net(v["net30"], 24)} != {net(v["ip17"], 24)}
    assert {net(v[k], 64) for k in ("v6_5", "v6_6", "v6_1", "v6_net")} == {net(v["v6_net"], 64)} != \
        {net(v["ll_net"], 64)}
    # The same stand-in in every member and name; loopback, masks and dotted numbers as they were.
    v.update(mac1_hyphen=v["mac1"].replace(":", "-"), mac2_upper=v["mac2"].upper(),
             mac1_dotted=".".join(v["mac1"].replace(":", "")[i:i + 4] for i in (0, 4, 8)))
    remote = f"/var/opt/remote/var/log/remote/{v['db01']}.{v['corp']}"
    assert sorted(n for n in run.packed if n.startswith(remote)) == [remote] + [f"{remote}/{name}" for name in (
        "app.log", "app.log.1", "current", "ip-6-route.txt", f"{v['globex']}-billing.log")]
    assert (run.packed[f"{remote}/current"], run.packed[f"{remote}/app.log.1"]) == \
        (f"{remote}/app.log", run.packed[f"{remote}/app.log"] * ROTATED)
    for member, name in (("/etc/hosts", "hosts"), (f"{remote}/app.log", "app.log"),
                         (f"{remote}/{v['globex']}-billing.log", "billing.log"),
                         (f"{remote}/ip-6-route.txt", "ip-6-route.txt")):
        expect(run.packed[member], f"obfuscation/{name}", **v)
    expect(run.packed[str(LOGS / "gatr_netstat.log")], "obfuscation/netstat", **v)
    main_log = run.packed[str(LOGS / "gatr.log")]
    interfaces = main_log.index("Interfaces:\n")
    expect(main_log[interfaces:main_log.index("\n\n", interfaces) + 2], "obfuscation/interfaces", **v)
    assert re.fullmatch(rf"gatr_{v['db01']}_\d{{8}}T\d{{4}}Z\.tar\.gz", run.archive.name)
    assert checksum.endswith(f"  {run.archive.name}\n")
    subprocess.run(["sha256sum", "-c", run.archive.name + ".sha256"], cwd=OUTPUT, check=True, capture_output=True)


def test_a_second_run_replaces_alike_and_no_mapping_leaves(gatr, server):
    # The second run is given a folder that holds the output folder, with the first run's mappings.
    runs = [obfuscated_run(gatr), obfuscated_run(gatr, "-i", "/var/opt")]
    assert runs[0].archive != runs[1].archive and runs[0].mapping == runs[1].mapping
    assert runs[0].mapping["hosts"]["db01"] in runs[1].archive.name
    for run in runs:
        assert os.stat(run.record).st_mode & 0o7777 == 0o600
        assert [n for n in run.packed if n.endswith((".map.json", ".obfuscation.json"))] == []
    # Nor does a run that does not obfuscate pack them: they hold every original as it is.
    plain = gatr("-s", "-i", "/var/opt", hostname="DB01")
    assert [n for n in plain.members() if n.endswith((".map.json", ".obfuscation.json"))] == []
    assert "/var/opt/Brimwell/gatr/.obfuscation.json: not gathered: an obfuscation mapping, which stays with the " \
        "customer" in plain.error_log
