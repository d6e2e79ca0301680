"""The hash mode: every printed line compared with what coreutils prints for the same file."""
import os
import random
import subprocess
from pathlib import Path

import pytest

TOOLS = {"sha256": "sha256sum", "sha1": "sha1sum", "md5": "md5sum"}
DATA = "/opt/data"


def coreutils_line(algorithm, path):
    """The checksum tool's line for the file, path exactly as given."""
    done = subprocess.run([TOOLS[algorithm], path], capture_output=True, check=True)
    return done.stdout.decode()


def expected_walk(algorithm, folder, names, shown_folder=None):
    """Lines for the plain files among `names`, in the order the folder lists its entries."""
    shown = folder if shown_folder is None else shown_folder
    lines = []
    for name in os.listdir(folder):
        if name in names and Path(folder, name).is_file():
            lines.append(coreutils_line(algorithm, f"{shown}/{name}"))
    return "".join(lines)


def make_tree(sandbox, folder):
    """A log folder like a product's: rotated logs, a big file, an empty one, a subfolder."""
    rng = random.Random(4242)
    sandbox.write(f"{folder}/brwinst.log", "install started\ninstall done\n")
    sandbox.write(f"{folder}/brwinst.log.1", "older install\n")
    sandbox.write(f"{folder}/uninst.txt", "removed\n")
    sandbox.write(f"{folder}/messages", bytes(rng.getrandbits(8) for _ in range(3 * 1024 * 1024 + 5)))
    sandbox.write(f"{folder}/exact-block.bin", bytes(rng.getrandbits(8) for _ in range(65536)))
    sandbox.write(f"{folder}/empty", "")
    sandbox.write(f"{folder}/.hidden", "dot file\n")
    sandbox.write(f"{folder}/journal/inside.log", "in a subfolder\n")
    sandbox.write(f"{folder}/brwjournal.log/deeper.log", "a folder that looks like a log\n")


PLAIN = ["brwinst.log", "brwinst.log.1", "uninst.txt", "messages", "exact-block.bin", "empty",
         ".hidden"]

PATTERNS = [
    ("*", PLAIN),
    ("brw*.log", ["brwinst.log"]),
    ("*inst*", ["brwinst.log", "brwinst.log.1", "uninst.txt"]),
    ("brw*", ["brwinst.log", "brwinst.log.1"]),
    ("*.bin", ["exact-block.bin"]),
    ("*.log", ["brwinst.log"]),
    ("*nothing*", []),
]


@pytest.mark.parametrize("algorithm", sorted(TOOLS))
@pytest.mark.parametrize("pattern, names", PATTERNS, ids=[p for p, _ in PATTERNS])
def test_pattern_lines_match_coreutils(gatr, sandbox, algorithm, pattern, names):
    make_tree(sandbox, DATA)
    run = gatr("--hash", algorithm, f"{DATA}/{pattern}")
    assert run.rc == 0, run.stderr
    assert run.stderr == ""
    assert run.stdout == expected_walk(algorithm, DATA, names)
    assert run.stdout.count("\n") == len(names)


@pytest.mark.parametrize("algorithm", sorted(TOOLS))
def test_single_file_line_matches_coreutils(gatr, sandbox, algorithm):
    make_tree(sandbox, DATA)
    for name in ("messages", "empty", "exact-block.bin"):
        run = gatr("--hash", algorithm, f"{DATA}/{name}")
        assert (run.rc, run.stderr) == (0, "")
        assert run.stdout == coreutils_line(algorithm, f"{DATA}/{name}"), name


@pytest.mark.parametrize("algorithm", sorted(TOOLS))
def test_var_log_folder_is_the_same_as_var_log_star(gatr, sandbox, algorithm):
    sandbox.tmpfs("/var/log")
    make_tree(sandbox, "/var/log")
    by_folder = gatr("--hash", algorithm, "/var/log/")
    by_star = gatr("--hash", algorithm, "/var/log/*")
    assert by_folder.rc == by_star.rc == 0
    assert by_folder.stdout == by_star.stdout == expected_walk(algorithm, "/var/log", PLAIN)


def test_subfolders_are_not_walked_and_their_failure_is_logged(gatr, sandbox):
    make_tree(sandbox, DATA)
    run = gatr("--hash", "sha256", f"{DATA}/*journal*")
    assert (run.rc, run.stdout, run.stderr) == (0, "", "")
    failures = [l for l in run.error_lines if l.source == "crypto.cpp"]
    assert sorted(l.message for l in failures) == [
        f"fread on file {DATA}/brwjournal.log failed: Is a directory",
        f"fread on file {DATA}/journal failed: Is a directory",
    ]
    assert all(l.status == "ERROR" for l in failures)
    assert run.error_lines[-1].message == "logging disabled"


def test_folder_given_without_slash_prints_nothing(gatr, sandbox):
    make_tree(sandbox, DATA)
    run = gatr("--hash", "md5", DATA)
    assert (run.rc, run.stdout, run.stderr) == (0, "", "")
    assert f"fread on file {DATA} failed: Is a directory" in run.messages()


@pytest.mark.parametrize("argument", ["/opt/missing/", "/opt/missing/*.log"])
def test_missing_folder_prints_nothing_and_ends_normally(gatr, sandbox, argument):
    run = gatr("--hash", "sha1", argument)
    assert (run.rc, run.stdout, run.stderr) == (0, "", "")
    assert any(m.startswith("Invalid Handle for file /opt/missing") for m in run.messages())


@pytest.mark.parametrize("algorithm", sorted(TOOLS))
def test_missing_file_exits_with_status_one(gatr, sandbox, algorithm):
    run = gatr("--hash", algorithm, "/opt/missing.log")
    assert (run.rc, run.stdout, run.stderr) == (1, "", "gatr: file does not exist\n")
    messages = run.messages()
    assert messages[0] == "logging enabled"
    assert f"command line: --hash {algorithm} /opt/missing.log " in messages
    # The process ends where the file is found missing: no normal end of the log.
    assert "logging disabled" not in messages


def test_an_option_after_the_algorithm_is_taken_as_the_path(gatr, sandbox):
    run = gatr("--hash", "sha256", "-A")
    assert (run.rc, run.stderr) == (1, "gatr: file does not exist\n")
    assert "command line: --hash sha256 -A " in run.messages()


def test_pattern_part_longer_than_255_characters_is_cut(gatr, sandbox):
    name = "q" * 255
    sandbox.write(f"{DATA}/{name}", "a file with the longest name\n")
    sandbox.write(f"{DATA}/other", "x\n")
    run = gatr("--hash", "sha256", f"{DATA}/{'q' * 300}*")
    assert (run.rc, run.stderr) == (0, "")
    assert run.stdout == coreutils_line("sha256", f"{DATA}/{name}")
    # A 300-character suffix cannot match any name, cut or not; the walk still ends normally.
    run = gatr("--hash", "sha256", f"{DATA}/*{'z' * 300}")
    assert (run.rc, run.stdout, run.stderr) == (0, "", "")


def test_overlong_plain_path_is_cut_and_reported_missing(gatr, sandbox):
    run = gatr("--hash", "md5", "/opt/" + "a" * 5000)
    assert (run.rc, run.stdout, run.stderr) == (1, "", "gatr: file does not exist\n")


def test_pattern_without_folder_searches_the_program_folder(gatr, sandbox):
    # The program works in its own folder, so a bare pattern names entries beside the binary.
    run = gatr("--hash", "md5", "gat*")
    assert (run.rc, run.stderr) == (0, "")
    stage = os.environ["GATR_STAGE"]
    expected = coreutils_line("md5", f"{stage}/gatr").replace(f"{stage}/gatr", "./gatr")
    assert run.stdout == expected


def test_root_folder_pattern_lists_the_root(gatr, sandbox):
    sandbox.write("/opt/marker-file", "under /opt\n")
    run = gatr("--hash", "sha1", "/op*")
    # /opt is a folder: nothing printed, and its read failure names the path under the root.
    assert (run.rc, run.stdout) == (0, "")
    assert "fread on file /opt failed: Is a directory" in run.messages()


def test_sha256_wins_over_md5_when_both_are_given(gatr, sandbox):
    sandbox.write(f"{DATA}/f", "both\n")
    run = gatr("--hash", "md5", f"{DATA}/f", "--hash", "sha256", f"{DATA}/f")
    assert run.rc == 0
    assert run.stdout == coreutils_line("sha256", f"{DATA}/f")
