"""The command line and start-up as a user meets them: usage, versions, every error, the root
check, the error log's first lines, and the output folder and settings file at start."""
import subprocess
from pathlib import Path

import pytest

from conftest import LOGS, OUTPUT, PROGRAM, SETTINGS, expect

ERRORS = [  # arguments, standard error
    (["-x"], "invalid option argument specified: -x"),
    (["-sV"], "invalid option argument specified: -V"),
    (["-hs"], "invalid option argument specified: -h"),
    (["-svAx"], "invalid option argument specified: -x"),
    (["--nothing"], "invalid option argument specified: --nothing"),
    (["-i"], "option -i missing required argument"),
    (["-A", "-i"], "option -i missing required argument"),
    (["-u", "eu", "01234567"], "option --upload-ftp missing the arguments support region, case "
                               "number and archive file to upload"),
    (["--hash", "sha256"], "option --hash missing the arguments message digest algorithm and "
                           "file or folder to hash"),
    (["--hash", "SHA256", "f"], "invalid message digest algorithm specified: SHA256"),
    (["--", "-s"], "invalid non-option argument specified: -s"),
    (["file"], "invalid non-option argument specified: file"),
    (["-"], "invalid non-option argument specified: -"),
    (["-x", "--help"], "invalid option argument specified: -x"),
    *[(["--since", value], "invalid --since value specified, expected a number of days or a date "
                           f"YYYY-MM-DD not in the future: {value}")
      for value in ("0", "-3", "2999-01-01", "2026-13-45", "2026-1-5", "7days", "")],
    *[(["--max-log-size", value], f"invalid --max-log-size value specified, expected a whole number of MiB: {value}")
      for value in ("-1", "1.5", "x")],
    (["-s", "--since"], "option missing required argument: --since"),
]


@pytest.mark.parametrize("args, message", ERRORS, ids=[" ".join(a) for a, _ in ERRORS])
def test_command_line_errors_exit_1_before_anything_happens(gatr, args, message):
    run = gatr(*args)
    assert (run.rc, run.stdout, run.stderr, run.error_log) == (1, "", f"gatr: {message}\n", None)


@pytest.mark.parametrize("args, user", [(["-h"], None), (["--help"], None), (["-C", "--help"], None),
                                        (["-s", "-h"], "nobody")])
def test_usage_text(gatr, args, user):
    run = gatr(*args, user=user)
    assert (run.rc, run.stderr) == (0, "")
    expect(run.stdout, "command_line/usage")


def test_versions_need_no_root(gatr):
    assert (gatr("-s", "-V", user="nobody").stdout, gatr("--version").stdout) == ("2.3.3\n",) * 2
    extended = gatr("-X", user="nobody")
    assert extended.rc == 0
    first, second, rest = extended.stdout.split("\n", 2)
    assert (first, rest) == ("gatr 2.3.3 2024-07-04T11:25:28Z", "")
    assert second.startswith("Built with GCC ") and len(second) > len("Built with GCC ")


@pytest.mark.parametrize("args", [[], ["-A"], ["--hash", "md5", "/etc/hostname"], ["-x"]])
def test_a_normal_user_is_refused_after_parsing(gatr, args):
    run = gatr(*args, user="nobody")
    refusal = "you need to be root or invoke with sudo to run this application"
    assert (run.rc, run.stdout, run.error_log) == (1, "", None)
    assert run.stderr == "gatr: %s\n" % (refusal if args != ["-x"] else ERRORS[0][1])


@pytest.mark.parametrize("args, record", [
    (["-svA"], "-svA "),
    (["-C", "--", "--"], "-C -- -- "),
    (["--hash", "sha256", "/etc/../etc/hostname"], "--hash sha256 /etc/../etc/hostname "),
    (["-sA", "-i/tmp/a", "-i", "/tmp/b", "--dry-run", "--debug-archive"],
     "-sA -i/tmp/a -i /tmp/b --dry-run --debug-archive "),
])
def test_error_log_begins_with_the_command_line_and_a_trailing_space(gatr, args, record):
    run = gatr(*args)
    debug = "--debug-archive" in args
    assert run.rc == 0 and run.error_log.endswith(" logging disabled\n")
    expect("".join(run.error_log.splitlines(True)[:2 + 2 * debug]),
           "command_line/errors-debug" if debug else "command_line/errors", record=record)


STARTS = {"search path": ["gatr"], "link": ["/root/bin/gatr"], "full path": [str(PROGRAM / "gatr")]}


@pytest.mark.parametrize("start", STARTS)
def test_paths_typed_on_the_command_line_are_the_callers_however_gatr_is_started(gatr, machine, start):
    case = Path("/root/case")
    (case / "sub").mkdir(parents=True)
    for name, text in (("f", "one\n"), ("notes.txt", "two\n"), ("sub/a", "three\n"), ("sub/b", "")):
        (case / name).write_text(text)
    Path("/root/bin").mkdir()
    Path("/root/bin/gatr").symlink_to(PROGRAM / "gatr")
    run = lambda *args: gatr(*args, command=STARTS[start], cwd=case,
                             env={"PATH": f"{PROGRAM}:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"})
    tool = lambda *args: subprocess.run(args, cwd=case, capture_output=True, text=True).stdout
    assert run("--hash", "sha256", "./f").stdout == tool("sha256sum", "./f")
    assert sorted(run("--hash", "md5", "sub/").stdout.splitlines()) == sorted(tool("md5sum", "sub/a", "sub/b").splitlines())
    collected = run("--debug-archive", "-s", "-i", "./notes.txt")
    assert f"current working directory: {case}\n" in collected.error_log
    assert collected.member(f"{case}/notes.txt") == "two\n"


STARTUP_FAILURES = [  # what stands in the way, standard error
    ("/var/opt/Brimwell", "gatr: mkdir on /var/opt/Brimwell/gatr failed: Not a directory\n\n"
                          "gatr: failed to create folder /var/opt/Brimwell/gatr: Not a directory\n"),
    (OUTPUT / "logs", f"gatr: Invalid Handle for file {LOGS}\n\n"  # cannot be emptied; no error log yet
                      f"gatr: unable to open file {LOGS}/gatr_errors.log: Not a directory\n"),
    (LOGS / "gatr_errors.log/x", f"gatr: unable to open file {LOGS}/gatr_errors.log: Is a directory\n"),
]


@pytest.mark.parametrize("blocker, stderr", STARTUP_FAILURES)
def test_output_folder_and_error_log_that_cannot_be_made(gatr, sandbox, blocker, stderr):
    sandbox.write(blocker, "in the way\n")
    run = gatr("-s", "-A")
    assert (run.rc, run.stdout, run.stderr) == (1, "", stderr)


def test_old_logs_are_emptied_but_full_subfolders_and_a_readable_settings_file_survive(gatr, sandbox,
                                                                                    machine):
    for path in ("stale.log", "keep/inner.txt", "../gatr_b_20240101T0000Z.tar.gz.tmp"):
        sandbox.write(LOGS / path, "old\n")
    (LOGS / "empty").mkdir()
    sandbox.write(SETTINGS, '{"version": 1, "last_archive_file": "/var/opt/old.tar.gz", "custom": [1]}')
    run = gatr("-s", "-A")
    assert sorted(p.name for p in LOGS.iterdir()) == ["gatr.log", "gatr_errors.log", "gatr_netstat.log",
                                                     "gatr_packages.log", "gatr_run.json", "gatr_stderr.log", "keep"]
    assert (run.settings["last_archive_file"], run.settings["custom"]) == ("/var/opt/old.tar.gz", [1])
    assert sorted(p.name for p in OUTPUT.iterdir()) == [".lock", ".settings", "logs"]


@pytest.mark.parametrize("broken, stderr", [
    ('{"version": 1', ""),  # refused for its shape, without a word
    ('{"version" 1}', "gatr: exception caught: JsonDocument::JsonNode::makeNode(): malformed document: "
                      "missing a colon between the name/value pair\n"),  # before the error log exists
    ("", ""),
])
def test_corrupted_settings_file_is_replaced(gatr, sandbox, machine, broken, stderr):
    sandbox.write(SETTINGS, broken)
    run = gatr("-s", "-A")
    assert run.rc == 0 and run.stderr == stderr
    assert SETTINGS.read_text().startswith('{\n    "version": 1,\n    "last_archive_file": null,\n')
