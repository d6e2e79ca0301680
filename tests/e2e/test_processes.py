"""Nothing a run starts outlives it: a run stopped by KILL or TERM at any point, while a stuck
pipeline, a slow compressor or the archive are under way, leaves no process behind."""
import json
import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest

from conftest import PROGRAM, _fixed_limits

POINTS = [round(0.3 + 0.45 * i, 2) for i in range(10)]  # from the first section to the archive


def survivors(before):
    """Processes of this namespace that were not there before the run, zombies reaped."""
    while True:  # pytest is the namespace's first process: orphans come to it
        try:
            if os.waitpid(-1, os.WNOHANG)[0] == 0:
                break
        except ChildProcessError:
            break
    left = []
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit() and int(entry.name) not in before:
            try:
                stat = (entry / "stat").read_text()
            except OSError:
                continue
            if stat[stat.rindex(")") + 2] != "Z":
                left.append((entry / "cmdline").read_bytes().replace(b"\0", b" ").decode())
    return left


@pytest.mark.parametrize("point", POINTS)
@pytest.mark.parametrize("stop", [signal.SIGKILL, signal.SIGTERM], ids=["KILL", "TERM"])
def test_a_stopped_run_leaves_no_process_within_5_seconds(sandbox, machine, program, stop, point):
    sandbox.tool("lspci", "#!/bin/sh\nsleep 100000 | grep never\n")  # a pipeline stuck for good
    sandbox.tool("pigz", '#!/bin/sh\nsleep 2\nexec /usr/bin/pigz "$@"\n')  # a slow compressor
    sandbox.write("/var/opt/big.log", "line of a product log\n" * 400000)
    config = json.loads((program / "etc/gatr_config.json").read_text())
    config["limits"]["command_seconds"] = 2
    (program / "etc/gatr_config.json").write_text(json.dumps(config))
    before = {int(p.name) for p in Path("/proc").iterdir() if p.name.isdigit()}
    run = subprocess.Popen(
        ["unshare", "--uts", sys.executable, "-c", "import os, socket, sys; socket.sethostname('b01');"
         " os.execv(sys.argv[1], sys.argv[1:])", str(PROGRAM / "gatr"), "-s", "-i", "/var/opt/big.log"],
        env={"PATH": "/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LC_ALL": "C"},
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, preexec_fn=_fixed_limits)
    time.sleep(point)
    run.send_signal(stop)
    run.wait(timeout=10)
    deadline = time.monotonic() + 5
    while survivors(before) and time.monotonic() < deadline:
        time.sleep(0.1)
    assert survivors(before) == []


@pytest.mark.parametrize("args, config, shown", [
    ([], {}, "10 best-effort: prio 7"),
    (["--normal-priority"], {}, "0 none: prio 0"),
    ([], {"low_priority": False}, "0 none: prio 0"),
], ids=["default", "option", "configuration"])
def test_the_run_and_its_programs_yield_to_the_server_unless_asked_not_to(gatr, sandbox, machine, program,
                                                                         args, config, shown):
    sandbox.tool("lspci", "#!/bin/sh\necho \"$(ps -o ni= -p $$ | tr -d ' ') $(ionice -p $$)\""
                          " > /var/opt/priority\n")
    settings = json.loads((program / "etc/gatr_config.json").read_text())
    settings["limits"].update(config)
    (program / "etc/gatr_config.json").write_text(json.dumps(settings))
    assert gatr("-s", "-A", *args).rc == 0
    assert Path("/var/opt/priority").read_text() == shown + "\n"
