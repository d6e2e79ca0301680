"""The archive as support receives it: every listed name packed as the file it names, a free name
beside its checksum, nothing left half written, one run at a time, with pigz or with gzip."""
import json
import os
import random
import subprocess
import threading
import time
from pathlib import Path

import pytest

from conftest import LOGS, OUTPUT, PROGRAM, SETTINGS

FAILED = "gatr: the archive could not be created - refer to the gatr_errors.log for details\n"
RUN_FILES = [str(LOGS / "gatr.log"), str(LOGS / "gatr_errors.log")]


def long_names(sandbox):
    return [str(sandbox.write(f"/var/opt/many/{i:04d}" + "n" * 196, f"{i}\n")) for i in range(1000)]


def option_like_names(sandbox):
    # Relative names, so they stand where gatr runs (its program folder) and begin with "--".
    names = ["--checkpoint=1", "--checkpoint-action=exec=id >/var/opt/pwned", "--remove-files"]
    for name in names:
        sandbox.write(PROGRAM / name, "not an option\n")
    return names


@pytest.mark.parametrize("make", [long_names, option_like_names])
def test_every_listed_name_is_packed_as_the_file_it_names(gatr, sandbox, machine, make):
    names = make(sandbox)
    run = gatr("-s", *[a for n in names for a in ("-i", n)])
    assert (run.rc, run.stderr) == (0, "")
    assert set(names + RUN_FILES) <= set(run.members())
    assert not Path("/var/opt/pwned").exists() and all(Path(p).exists() for p in RUN_FILES)


def test_a_full_disk_leaves_no_archive_and_the_previous_one_named(gatr, sandbox, machine):
    sandbox.tmpfs(OUTPUT, "size=1m,mode=0755")
    previous = str(OUTPUT / "gatr_backup01_20240101T0000Z.tar.gz")
    sandbox.write(SETTINGS, json.dumps({"version": 1, "last_archive_file": previous}))
    sandbox.write("/var/opt/random.bin", os.urandom(3 << 20))
    run = gatr("-s", "-i", "/var/opt/random.bin")
    assert (run.rc, run.stdout, run.stderr) == (1, "", FAILED)
    assert [p.name for p in OUTPUT.iterdir() if ".tar.gz" in p.name or p.suffix == ".tmp"] == []
    assert run.settings["last_archive_file"] == previous
    assert "No space left on device" in run.error_log


def test_a_second_run_refuses_while_the_first_holds_the_folder(gatr, sandbox, machine):
    started = sandbox.scratch / "df-started"
    sandbox.tool("df", f"#!/bin/sh\ntouch {started}\nsleep 5\nexec cat {machine}/df.txt\n")
    first = []
    runner = threading.Thread(target=lambda: first.append(gatr("-s", "-i", "/etc/hostname")))
    runner.start()
    while not started.exists() and runner.is_alive():
        time.sleep(0.05)
    before = sorted((p.name, p.stat().st_size) for p in [SETTINGS, *LOGS.iterdir()] if p.exists())
    holder = int((OUTPUT / ".lock").read_text())
    holder_program = os.readlink(f"/proc/{holder}/exe")
    second = gatr("-A")
    after = sorted((p.name, p.stat().st_size) for p in [SETTINGS, *LOGS.iterdir()] if p.exists())
    runner.join()
    assert (second.rc, second.stdout) == (1, "")
    assert second.stderr == f"gatr: another gatr run is in progress (process {holder})\n"
    assert before == after and holder_program == str(PROGRAM / "gatr")
    assert first[0].rc == 0 and "/etc/hostname" in first[0].members()


@pytest.mark.parametrize("pigz", [True, False], ids=["pigz", "gzip"])
def test_runs_in_one_minute_get_free_names_with_checksums(gatr, sandbox, machine, pigz):
    if not pigz:
        sandbox.overlay("/usr/bin")  # the search path keeps every other tool
        os.remove("/usr/bin/pigz")
    if time.time() % 60 > 45:  # both runs in one UTC minute
        time.sleep(61 - time.time() % 60)
    runs = [gatr("-s", "--debug-archive") for _ in range(2)]
    assert [r.rc for r in runs] == [0, 0]
    first, second = (r.archive for r in runs)
    assert second.name == first.name.replace(".tar.gz", "-2.tar.gz")
    for run, archive in zip(runs, (first, second)):
        check = subprocess.run(["sha256sum", "-c", archive.name + ".sha256"], cwd=OUTPUT,
                               capture_output=True, text=True)
        assert (check.returncode, check.stdout) == (0, f"{archive.name}: OK\n")
        assert set(RUN_FILES) <= set(run.members())
        assert ("compressed by pigz" in run.error_log) == pigz


def test_a_run_killed_at_any_moment_leaves_valid_settings_and_only_complete_archives(
        gatr, sandbox, machine):
    sandbox.write("/var/opt/random.bin", os.urandom(16 << 20))
    sandbox.write(SETTINGS, '{"version": 1, "last_archive_file": null}')
    delays = [round((i + random.random()) / 10, 2) for i in range(20)]  # one in each 0.1 s of 2 s
    checked = set()
    for delay in delays:
        run = gatr("-s", "-i", "/var/opt/random.bin",
                   command=["timeout", "-s", "KILL", str(delay), str(PROGRAM / "gatr")])
        assert run.settings is not None, delays  # valid JSON: Run parses it
        assert run.archive is None or run.archive.exists(), (delay, delays)
        for archive in set(OUTPUT.glob("*.tar.gz")) - checked:  # each complete, with its checksum
            assert run.members(archive), (delay, delays)
            subprocess.run(["sha256sum", "-c", archive.name + ".sha256"], cwd=OUTPUT, check=True,
                           capture_output=True)
            checked.add(archive)
    assert checked and len(checked) < len(delays), delays  # some runs finished, some did not
