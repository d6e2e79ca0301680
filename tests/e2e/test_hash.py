"""The hash mode: every printed line compared with what the common checksum tools print for the
same files, and the mode's edges, one table each."""
import os
import random
import socket
import subprocess

import pytest


TOOLS = {"sha256": "sha256sum", "sha1": "sha1sum", "md5": "md5sum"}
DATA = "/opt/data"
# A log folder like a product's: rotated logs, a big file, an empty one, a hidden one, folders.
RANDOM = random.Random(4242)
TREE = {"brwinst.log": b"install started\n", "brwinst.log.1": b"older install\n", "uninst.txt": b"gone\n",
        "messages": RANDOM.randbytes(3 * 1024 * 1024 + 5), "exact-block.bin": RANDOM.randbytes(65536),
        "empty": b"", ".hidden": b"dot file\n", "journal/inside.log": b"below\n", "cabin": b"no dot\n",
        "brwjournal.log/deeper.log": b"a folder named like a log\n", "q" * 255: b"longest name\n"}


def tools(algorithm, *paths, shown=None):
    """The checksum tool's lines for the files, each path as gatr shows it."""
    done = subprocess.run([TOOLS[algorithm], *paths], capture_output=True, check=True).stdout.decode()
    return done.replace(paths[0], shown) if shown else done


def listed(pattern):
    """The plain files of DATA that pattern's walk meets, in directory order."""
    names = [n for n in os.listdir(DATA) if os.path.isfile(f"{DATA}/{n}")]
    match = {"*": lambda n: True, "brw*.log": lambda n: n.startswith("brw") and n.endswith(".log"),
             "*inst*": lambda n: "inst" in n, "brw*": lambda n: n.startswith("brw"),
             "*.bin": lambda n: n.endswith(".bin"), "*nothing*": lambda n: False}[pattern]
    return [f"{DATA}/{n}" for n in names if match(n)]


@pytest.fixture
def tree(sandbox):
    for name, data in TREE.items():
        sandbox.write(f"{DATA}/{name}", data)


@pytest.mark.parametrize("algorithm", sorted(TOOLS))
@pytest.mark.parametrize("pattern", ["*", "brw*.log", "*inst*", "brw*", "*.bin", "*nothing*", ""])
def test_lines_match_the_checksum_tools(gatr, tree, algorithm, pattern):
    run = gatr("--hash", algorithm, f"{DATA}/{pattern}")  # "" is the folder itself, ending in "/"
    files = listed(pattern or "*")
    assert (run.rc, run.stderr) == (0, "")
    assert run.stdout == (tools(algorithm, *files) if files else "")
    # Subfolders are not walked: each costs one line in the error log, nothing on the console.
    folders = ["journal", "brwjournal.log"] if pattern in ("", "*") else \
        ["brwjournal.log"] if pattern in ("brw*.log", "brw*") else []
    assert sorted(f for f in folders if f"fread on file {DATA}/{f} failed: Is a directory" in run.error_log) == sorted(folders)


EDGES = [  # arguments, status, what is printed (a function of nothing), standard error
    (["sha256", f"{DATA}/brwinst.log"], 0, lambda: tools("sha256", f"{DATA}/brwinst.log"), ""),
    (["md5", f"{DATA}/missing"], 1, lambda: "", "gatr: file does not exist\n"),
    (["sha1", "/opt/missing/"], 0, lambda: "", ""),
    (["sha1", "/opt/missing/*.log"], 0, lambda: "", ""),
    (["sha256", "-A"], 1, lambda: "", "gatr: file does not exist\n"),  # an option after it is the path
    (["sha256", DATA], 0, lambda: "", ""),  # a folder named without "/" cannot be read as a file
    (["md5", "/opt/" + "a" * 5000], 1, lambda: "", "gatr: file does not exist\n"),  # cut, so missing
    (["sha256", f"{DATA}/{'q' * 300}*"], 0, lambda: tools("sha256", f"{DATA}/{'q' * 255}"), ""),
    (["sha256", f"{DATA}/*{'z' * 300}"], 0, lambda: "", ""),
    (["sha1", "/op*"], 0, lambda: "", ""),  # the root folder's /opt, a folder
    (["md5", f"{DATA}/empty", "--hash", "sha256", f"{DATA}/empty"], 0,
     lambda: tools("sha256", f"{DATA}/empty"), ""),  # SHA-256 wins
]


@pytest.mark.parametrize("args, status, printed, stderr", EDGES, ids=[" ".join(e[0])[:40] for e in EDGES])
def test_edges_of_the_hash_mode(gatr, tree, args, status, printed, stderr):
    run = gatr("--hash", *args)
    assert (run.rc, run.stdout, run.stderr) == (status, printed(), stderr)


SPECIAL = ["fifo", "socket", "zero"]  # a FIFO, a socket and a link to /dev/zero, each never opened


@pytest.fixture
def odd_folder(sandbox):
    folder = "/opt/odd"
    for name, data in {"plain.log": b"x\n", "new\nline.log": b"forged?\n", "back\\slash": b"b\n", "empty": b""}.items():
        sandbox.write(f"{folder}/{name}", data)
    os.mkfifo(f"{folder}/fifo")
    socket.socket(socket.AF_UNIX).bind(f"{folder}/socket")  # the name stays when the socket goes
    os.symlink("/dev/zero", f"{folder}/zero")
    return folder


@pytest.mark.parametrize("algorithm", ["sha256", "md5"])
@pytest.mark.parametrize("target", ["", "*", *SPECIAL])
def test_only_regular_files_are_read_and_odd_names_are_escaped(gatr, odd_folder, algorithm, target):
    run = gatr("--hash", algorithm, f"{odd_folder}/{target}", timeout=60)
    walked = target in ("", "*")
    files = [f"{odd_folder}/{n}" for n in os.listdir(odd_folder) if walked and os.path.isfile(f"{odd_folder}/{n}")]
    assert (run.rc, run.stderr) == (0, "")
    assert run.stdout == (tools(algorithm, *files) if files else "")
    if files:
        check = subprocess.run([TOOLS[algorithm], "-c", "--strict"], input=run.stdout.encode(), capture_output=True)
        assert (check.returncode, check.stderr) == (0, b"")
    skipped = [line.split(" ERROR ", 1)[1].strip() for line in run.error_log.splitlines()
               if line.endswith(" is not a regular file: skipped")]
    assert sorted(skipped) == [f"{odd_folder}/{n} is not a regular file: skipped" for n in SPECIAL
                               if walked or n == target]
