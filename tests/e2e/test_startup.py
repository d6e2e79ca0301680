"""Start-up and the end of a run: output folder, error log lifecycle, fatal start-up failures."""
import os

import pytest
from pathlib import Path

from conftest import LOGS, OUTPUT


def test_error_log_opens_records_and_closes(gatr):
    run = gatr("--hash", "sha256", "/etc/../etc/hostname")
    lines = run.error_lines
    assert lines[0].message == "logging enabled"
    assert lines[0].status == "information"
    assert lines[0].source == "logging.cpp"
    assert lines[1].message == "command line: --hash sha256 /etc/../etc/hostname "
    assert lines[-1].message == "logging disabled"


def test_no_arguments_records_only_the_label(gatr):
    run = gatr()
    assert run.rc == 0
    assert "command line: " in run.messages()


def test_debug_archive_logs_the_working_directory_of_the_program(gatr):
    run = gatr("--debug-archive", "-s", "-A")
    messages = run.messages()
    assert "--debug-archive option specified: debug mode is enabled for archive creation" in messages
    debug = [l for l in run.error_lines if l.status == "debug"]
    assert debug and debug[0].message == f"current working directory: {os.environ['GATR_STAGE']}"


def test_old_logs_are_emptied_but_full_subfolders_survive(gatr, sandbox):
    sandbox.write(str(LOGS / "stale.log"), "old\n")
    sandbox.write(str(LOGS / "keep" / "inner.txt"), "x\n")
    (LOGS / "empty").mkdir()
    run = gatr("-s", "-A")
    assert run.rc == 0
    assert not (LOGS / "stale.log").exists()
    assert not (LOGS / "empty").exists()
    assert (LOGS / "keep" / "inner.txt").exists()


def test_output_folder_blocked_by_a_file(gatr, sandbox):
    sandbox.write("/var/opt/Brimwell", "not a folder\n")
    run = gatr("-s", "-A")
    assert run.rc == 1
    # The helper reports through the error log, which does not exist yet: its raw text shows.
    assert run.stderr == ("gatr: mkdir on %s failed: %s\n\n"
                          "gatr: failed to create folder /var/opt/Brimwell/gatr: Not a directory\n")
    assert run.stdout == ""


def test_logs_folder_blocked_by_a_file(gatr, sandbox):
    # A file of that name counts as an existing folder; the error log then cannot be made in it.
    sandbox.write(str(OUTPUT / "logs"), "not a folder\n")
    run = gatr("-s", "-A")
    assert run.rc == 1
    assert run.stderr.endswith(
        "gatr: unable to open file /var/opt/Brimwell/gatr/logs/gatr_errors.log: Not a directory\n")


def test_error_log_that_cannot_be_opened(gatr, sandbox):
    (LOGS / "gatr_errors.log").mkdir(parents=True)
    (LOGS / "gatr_errors.log" / "x").write_text("keeps the folder from being removed")
    run = gatr("-s", "-A")
    assert run.rc == 1
    assert run.stderr == \
        "gatr: unable to open file /var/opt/Brimwell/gatr/logs/gatr_errors.log: Is a directory\n"


def test_program_started_through_the_search_path_keeps_the_working_directory(gatr, sandbox):
    stage = Path(os.environ["GATR_STAGE"])
    run = gatr("--debug-archive", "-s", "-A", program="gatr",
               env={"PATH": f"{stage}:/usr/sbin:/usr/bin:/sbin:/bin"}, cwd="/tmp")
    assert run.rc == 0, run.stderr
    assert "current working directory: /tmp" in run.messages()


def test_settings_file_is_written_whole_and_nothing_else_is_left(gatr):
    run = gatr("-s", "-A")
    assert run.rc == 0
    assert run.settings["version"] == 1
    assert run.settings_text.startswith("{\n    \"version\": 1,\n    \"last_archive_file\": null,\n")
    leftovers = [p for p in OUTPUT.iterdir() if p.name not in ("logs", ".settings")]
    assert leftovers == []


@pytest.mark.parametrize("broken, stderr", [
    # Rejected for its shape: no message at all.
    ("{\"version\": 1", ""),
    # Rejected by the parser before the error log exists: the raw text shows on standard error.
    ("{\"version\" 1}", "gatr: %s: %s\n"),
    ("", ""),
])
def test_corrupted_settings_file_is_replaced(gatr, sandbox, broken, stderr):
    sandbox.write(str(OUTPUT / ".settings"), broken)
    run = gatr("-s", "-A")
    assert run.rc == 0
    assert run.stderr.startswith(stderr)
    assert run.settings["version"] == 1
    assert run.settings["last_archive_file"] is None


def test_a_readable_settings_file_is_kept(gatr, sandbox):
    sandbox.write(str(OUTPUT / ".settings"),
                  '{"version": 1, "last_archive_file": "/var/opt/Brimwell/gatr/old.tar.gz",'
                  ' "custom": [1, 2, 3]}')
    run = gatr("-s", "-A")
    assert run.rc == 0
    assert run.settings["last_archive_file"] == "/var/opt/Brimwell/gatr/old.tar.gz"
    assert run.settings["custom"] == [1, 2, 3]
