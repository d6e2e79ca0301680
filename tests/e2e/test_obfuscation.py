"""The obfuscation mapping kept in the output folder: root's alone, 0600, reused across runs, and a
kept file that is damaged, planted through a link or owned by someone else set aside, never read."""
import json
import os
import subprocess

import pytest

from conftest import OUTPUT

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
