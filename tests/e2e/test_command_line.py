"""The command line as a user meets it: usage, versions, clusters and every error."""
import pytest

USAGE = (
    "Support Data Gatherer\n"
    "\n"
    "Usage: gatr [-i <file or folder>] [-A|--no-archive] [-C|--no-check] [-s|--silent]\n"
    "           [--orb-threads]\n"
    "\n"
    "       gatr --hash sha256 <file or folder>\n"
    "       gatr --hash sha1 <file or folder>\n"
    "       gatr --hash md5 <file or folder>\n"
    "\n"
    "       gatr -h|--help\n"
    "\n"
    "       gatr -u|--upload-ftp <support region> <case number> <archive file>\n"
    "           [-v|--verbose]\n"
    "\n"
    "       gatr [-V|--version]|[-X|--extended-version]\n"
    "\n"
)


@pytest.mark.parametrize("args", [["-h"], ["--help"], ["-C", "--help"], ["-s", "-h"]])
def test_usage_text_byte_for_byte(gatr, args):
    run = gatr(*args)
    assert (run.rc, run.stdout, run.stderr) == (0, USAGE, "")


@pytest.mark.parametrize("args", [["-V"], ["--version"], ["-s", "-V"]])
def test_version_prints_only_the_number(gatr, args):
    run = gatr(*args)
    assert (run.rc, run.stdout, run.stderr) == (0, "2.3.3\n", "")


def test_extended_version_names_the_build_compiler(gatr):
    run = gatr("-X")
    assert run.rc == 0
    first, second, rest = run.stdout.split("\n", 2)
    assert first == "gatr 2.3.3 2024-07-04T11:25:28Z"
    assert second.startswith("Built with GCC ") and len(second) > len("Built with GCC ")
    assert rest == ""


@pytest.mark.parametrize("args, message", [
    (["-x"], "gatr: invalid option argument specified: -x\n"),
    (["-sV"], "gatr: invalid option argument specified: -V\n"),
    (["-hs"], "gatr: invalid option argument specified: -h\n"),
    (["-svAx"], "gatr: invalid option argument specified: -x\n"),
    (["--nothing"], "gatr: invalid option argument specified: --nothing\n"),
    (["-i"], "gatr: option -i missing required argument\n"),
    (["-A", "-i"], "gatr: option -i missing required argument\n"),
    (["-u", "eu", "01234567"],
     "gatr: option --upload-ftp missing the arguments support region, case number and archive file to upload\n"),
    (["--hash", "sha256"],
     "gatr: option --hash missing the arguments message digest algorithm and file or folder to hash\n"),
    (["--hash", "SHA256", "f"], "gatr: invalid message digest algorithm specified: SHA256\n"),
    (["--", "-s"], "gatr: invalid non-option argument specified: -s\n"),
    (["file"], "gatr: invalid non-option argument specified: file\n"),
    (["-"], "gatr: invalid non-option argument specified: -\n"),
    (["-x", "--help"], "gatr: invalid option argument specified: -x\n"),
])
def test_command_line_errors_exit_1_before_anything_happens(gatr, args, message):
    run = gatr(*args)
    assert (run.rc, run.stdout, run.stderr) == (1, "", message)
    assert run.error_log is None, "nothing may be written after a command-line error"


def test_errors_are_found_before_the_root_check(gatr):
    run = gatr("-x", user="nobody")
    assert (run.rc, run.stderr) == (1, "gatr: invalid option argument specified: -x\n")


@pytest.mark.parametrize("args", [["-h"], ["-V"], ["-X"]])
def test_help_and_versions_need_no_root(gatr, args):
    run = gatr(*args, user="nobody")
    assert run.rc == 0 and run.stderr == ""


@pytest.mark.parametrize("args", [[], ["-A"], ["--hash", "md5", "/etc/hostname"]])
def test_a_normal_user_is_refused_after_parsing(gatr, args):
    run = gatr(*args, user="nobody")
    assert (run.rc, run.stdout) == (1, "")
    assert run.stderr == "gatr: you need to be root or invoke with sudo to run this application\n"
    assert run.error_log is None


@pytest.mark.parametrize("args, record", [
    (["-svA"], "command line: -svA "),
    (["-C", "--", "--"], "command line: -C -- -- "),
    (["--hash", "sha256", "/etc/hostname"], "command line: --hash sha256 /etc/hostname "),
    (["-i/tmp/a.txt", "-i", "/tmp/b.txt", "--dry-run", "--debug-archive"],
     "command line: -i/tmp/a.txt -i /tmp/b.txt --dry-run --debug-archive "),
])
def test_accepted_command_lines_are_recorded_with_a_trailing_space(gatr, args, record):
    run = gatr(*args)
    assert run.rc == 0, run.stderr
    assert record in run.messages()
