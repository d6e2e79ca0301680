"""The archive as support receives it: every listed name packed as the file it names, a free name
beside its checksum, nothing left half written, one run at a time, with pigz or with gzip; text
masked whatever its name or size, the kernel's own trees left out, files that change while packed
cut cleanly."""
import json
import os
import random
import re
import socket
import subprocess
import threading
import time
from pathlib import Path

import pytest

from conftest import LOGS, OUTPUT, PROGRAM, SETTINGS
from test_privacy import install_agent

FAILED = "gatr: the archive could not be created - refer to the gatr_errors.log for details\n"
RUN_FILES = [str(LOGS / "gatr.log"), str(LOGS / "gatr_errors.log")]


def long_names(sandbox):
    return [str(sandbox.write(f"/var/opt/many/{i:04d}" + "n" * 196, f"{i}\n")) for i in range(1000)]


def option_like_names(sandbox):
    # Relative names, typed where the user stands, that begin with "--".
    names = ["--checkpoint=1", "--checkpoint-action=exec=id >/var/opt/pwned", "--remove-files"]
    for name in names:
        sandbox.write(f"/root/{name}", "not an option\n")
    return names


@pytest.mark.parametrize("make", [long_names, option_like_names])
def test_every_listed_name_is_packed_as_the_file_it_names(gatr, sandbox, machine, make):
    names = make(sandbox)
    run = gatr("-s", *[a for n in names for a in ("-i", n)])
    assert (run.rc, run.stderr) == (0, "")
    assert {n if n.startswith("/") else f"/root/{n}" for n in names + RUN_FILES} <= set(run.members())
    assert not Path("/var/opt/pwned").exists() and all(Path(p).exists() for p in RUN_FILES)


def checked(run):
    """The run, once its archive passed sha256sum -c and GNU tar read it to its end."""
    assert (run.rc, run.stderr) == (0, "")
    subprocess.run(["sha256sum", "-c", run.archive.name + ".sha256"], cwd=OUTPUT, check=True,
                   capture_output=True)
    run.listed = subprocess.run(["tar", "-tvzPf", str(run.archive)], capture_output=True, text=True,
                                check=True).stdout.splitlines()
    return run


def warnings(run):
    return [line[66:] for line in run.error_log.splitlines() if line[45:65].strip() == "warning"]


def without_pigz(sandbox):
    sandbox.overlay("/usr/bin")  # the search path keeps every other tool
    os.remove("/usr/bin/pigz")


@pytest.mark.parametrize("how", ["-i folder", "manifest pattern"])
def test_two_thousand_configuration_files_below_a_folder_are_all_packed_masked(gatr, sandbox, machine,
                                                                              how):
    files = [str(sandbox.write(f"/etc/opt/many/{i % 7}/{i % 3}/{i:04d}.conf", f"user=u\npassword=pw{i}x\n"))
             for i in range(2000)]
    if how == "manifest pattern":
        install_agent(sandbox, "/etc/opt/many/*")
    run = checked(gatr(*(["-i", "/etc/opt/many"] if how == "-i folder" else [])))
    packed = subprocess.run(["tar", "-xzPOf", run.archive], capture_output=True, check=True).stdout
    assert set(files) <= set(run.members()) and packed.count(b"\npassword=********\n") == 2000
    assert re.search(rb"pw\d+x", packed) is None
    assert sum(line.endswith(".conf: secret values masked: 1 (named-value 1)")
               for line in run.error_log.splitlines()) == 2000
    shown = [int(p) for p in re.findall(r"(\d+)% \[", run.stdout)]
    assert shown == sorted(shown) and [p for p in shown if 88 < p < 100]  # the bar moves as it packs


def test_the_kernels_trees_and_the_root_are_left_out_and_the_rest_packed(gatr, sandbox, machine):
    sandbox.write("/var/opt/app/a.log", "ok\n")
    install_agent(sandbox, "/", "/proc", "/sys/kernel", "/etc/opt/../../proc/self/environ",
                  "/proc/1/mem", "/proc/meminfo", "/var/opt//app/./a.log")
    run = checked(gatr("-s", "-i", "/run", timeout=60))
    assert warnings(run) == [
        "/: not gathered: the root folder", "/proc: not gathered: a folder of the running system",
        "/proc/1/mem: not gathered: a process's environment or memory",
        "/proc/self/environ: not gathered: a process's environment or memory",
        "/run: not gathered: a folder of the running system",
        "/sys/kernel: not gathered: a folder of the running system"]
    assert {"/proc/meminfo", "/var/opt/app/a.log"} <= set(run.members())
    assert run.member("/proc/meminfo").startswith("MemTotal:")


def test_fifos_and_devices_are_recorded_never_read_and_sockets_left_out(gatr, sandbox, machine):
    os.mkfifo("/var/opt/fifo")  # no writer: a read would wait for ever
    with socket.socket(socket.AF_UNIX) as listening:
        listening.bind("/var/opt/sock")
        run = checked(gatr("-s", *[a for p in ("/var/opt/fifo", "/dev/zero", "/var/opt/sock") for a in ("-i", p)],
                           timeout=60))
    kinds = {line.split(None, 5)[5]: line[0] for line in run.listed}
    assert (kinds["/var/opt/fifo"], kinds["/dev/zero"], "/var/opt/sock" in kinds) == ("p", "c", False)
    assert warnings(run) == ["/var/opt/sock: not gathered: a socket, which a tar archive cannot hold"]


# A compressor that takes the first 2 MiB of the stream, changes the files, then compresses it all:
# gatr is then inside the first large member, its header written, blocked on the full pipe.
STAND_IN = "#!/bin/sh\ndd bs=2097152 count=1 iflag=fullblock of={part} 2>/dev/null\n{change}\n" \
           "{{ cat {part}; cat; }} | exec /usr/bin/pigz -c\n"


@pytest.mark.parametrize("change", ["truncate -s 1M /var/opt/a.bin", "head -c 4M /dev/urandom >> /var/opt/a.bin",
                                    "rm /var/opt/b.bin"], ids=["shrinks", "grows", "vanishes"])
def test_a_file_that_changes_while_packed_is_cut_cleanly(gatr, sandbox, machine, change):
    data = b"\0" + os.urandom((8 << 20) - 1)  # binary: streamed as read, not held
    sandbox.write("/var/opt/a.bin", data)
    sandbox.write("/var/opt/b.bin", "b\n")
    sandbox.tool("pigz", STAND_IN.format(part=sandbox.scratch / "part", change=change))
    run = checked(gatr("-s", "-i", "/var/opt/a.bin", "-i", "/var/opt/b.bin"))
    packed = subprocess.run(["tar", "-xzPOf", run.archive, "/var/opt/a.bin"], capture_output=True,
                            check=True).stdout
    if "truncate" in change:
        [warning] = warnings(run)
        kept = int(re.fullmatch(r"/var/opt/a.bin: shrank while packed after (\d+) of 8388608 bytes; "
                                r"the rest is zeros", warning).group(1))
        assert 1 << 20 < kept < len(data) and packed == data[:kept] + bytes(len(data) - kept)
    else:
        assert packed == data  # as large as when opened
        assert warnings(run) == (["/var/opt/b.bin: not gathered: No such file or directory"]
                                 if "rm" in change else [])


# read() as a disk that fails: every read of /var/opt/a.bin from its third MiB on is an I/O error.
FAILING_READ = r"""#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
ssize_t read(int fd, void* buffer, size_t size) {
    static ssize_t (*real)(int, void*, size_t);
    if (real == NULL) real = (ssize_t (*)(int, void*, size_t))dlsym(RTLD_NEXT, "read");
    char link[64], target[64] = "";
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    if (readlink(link, target, sizeof target - 1) > 0 && strcmp(target, "/var/opt/a.bin") == 0 &&
        lseek(fd, 0, SEEK_CUR) >= 2 << 20) {
        errno = EIO;
        return -1;
    }
    return real(fd, buffer, size);
}
"""


def test_a_read_that_fails_halfway_keeps_what_was_read_and_warns(gatr, sandbox, machine):
    data = b"\0" + os.urandom((8 << 20) - 1)
    sandbox.write("/var/opt/a.bin", data)
    (sandbox.scratch / "failing_read.c").write_text(FAILING_READ)
    subprocess.run(["cc", "-shared", "-fPIC", "-o", sandbox.scratch / "failing_read.so",
                    sandbox.scratch / "failing_read.c", "-ldl"], check=True)
    run = checked(gatr("-s", "-i", "/var/opt/a.bin", env={"LD_PRELOAD": str(sandbox.scratch / "failing_read.so")}))
    packed = subprocess.run(["tar", "-xzPOf", run.archive, "/var/opt/a.bin"], capture_output=True,
                            check=True).stdout
    assert warnings(run) == ["/var/opt/a.bin: read failed after 2097152 of 8388608 bytes: Input/output error; "
                             "the rest is zeros"]
    assert packed == data[:2 << 20] + bytes(len(data) - (2 << 20))


def large_log(path):
    block = b"".join(b"2024-07-01 12:00:%02d orbd[42]: block %06d written\n" % (i % 60, i) for i in range(20000))
    with open(path, "wb") as out:
        for _ in range((2 << 30) // len(block)):
            out.write(block)
        out.write(b"password=hunter2\n")


@pytest.mark.parametrize("text", ["2 GiB log", b"x" * 10_000_000 + b"\npassword=hunter2\n",
                                  b"a=1\npassword=hunter2"], ids=["2GiB-log", "10MB-line", "no-newline"])
def test_long_texts_are_packed_whole_with_their_secrets_masked(gatr, sandbox, machine, text):
    path = Path("/var/opt/big.log")
    large_log(path) if text == "2 GiB log" else path.write_bytes(text)
    size = path.stat().st_size
    try:
        run = checked(gatr("-s", "-i", str(path), timeout=1200))
    finally:
        path.unlink()
    tar = subprocess.Popen(["tar", "-xzPOf", run.archive, str(path)], stdout=subprocess.PIPE)
    length, tail = 0, b""
    for piece in iter(lambda: tar.stdout.read(1 << 20), b""):
        length, tail = length + len(piece), (tail + piece)[-64:]
    assert tar.wait() == 0 and length == size - len("hunter2") + len("********")
    assert tail.endswith(b"password=********" + (b"" if text == b"a=1\npassword=hunter2" else b"\n"))


@pytest.mark.parametrize("pigz", [True, False], ids=["pigz", "zlib"])
def test_a_full_disk_leaves_no_archive_and_the_previous_one_named(gatr, sandbox, machine, pigz):
    if not pigz:
        without_pigz(sandbox)
    sandbox.tmpfs(OUTPUT, "size=1m,mode=0755")
    previous = str(OUTPUT / "gatr_backup01_20240101T0000Z.tar.gz")
    sandbox.write(SETTINGS, json.dumps({"version": 1, "last_archive_file": previous}))
    # Its start compresses to nothing, so the estimate lets it in; the rest fills the disk.
    sandbox.write("/var/opt/random.bin", b"a" * (512 << 10) + os.urandom(3 << 20))
    run = gatr("-s", "-i", "/var/opt/random.bin")
    assert (run.rc, run.stdout, run.stderr) == (1, "", FAILED)
    assert [p.name for p in OUTPUT.iterdir() if ".tar.gz" in p.name or p.suffix == ".tmp"] == []
    assert run.settings["last_archive_file"] == previous
    assert "No space left on device" in run.error_log


def test_a_stuck_compressor_is_stopped_at_the_archive_time_limit(gatr, sandbox, machine, program):
    config = json.loads((program / "etc/gatr_config.json").read_text())
    config["limits"]["archive_seconds"] = 2
    (program / "etc/gatr_config.json").write_text(json.dumps(config))
    sandbox.tool("pigz", "#!/bin/sh\nexec sleep 600\n")  # reads nothing: the pipe fills
    sandbox.write("/var/opt/random.bin", os.urandom(1 << 20))
    run = gatr("-s", "-i", "/var/opt/random.bin", timeout=60)
    assert (run.rc, run.stderr, run.ended - run.started < 20) == (1, FAILED, True)
    assert "archive not finished in 2 seconds: time limit reached" in run.error_log
    assert list(OUTPUT.glob("*.tar.gz*")) == [] and run.settings.get("last_archive_file") is None


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
        without_pigz(sandbox)
    runs = [gatr("-s", "--debug-archive") for _ in range(2)]  # the numbering has its unit test
    assert [r.rc for r in runs] == [0, 0]
    first, second = (r.archive for r in runs)
    assert first != second
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
    # One in each 0.1 s of the first 2 s, then one that lets the run end: a slow build (the
    # sanitizers) only moves the points within the run.
    chance = random.Random(20)
    delays = [round((i + chance.random()) / 10, 2) for i in range(20)] + [120]
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
