"""End-to-end harness: the built gatr, in its place as /opt/Brimwell/gatr, run as a user runs it
on a server made deterministic inside the test sandbox.

run.sh starts pytest inside tests/sandbox.sh (the machine read-only; private mount, network,
process and host-name namespaces); every test refuses to run anywhere else.

Fixtures
- sandbox: fresh tmpfs over /var/opt, /opt, /etc/opt and /root for each test, and
    write(path, data, mode)   a file in a writable tree (parents made)
    place(path, data, mode)   a file anywhere, written into a writable overlay of its folder
                              (bound over it under /proc); os.remove(path) then hides it
    tool(name, script)        an executable first on PATH
    tmpfs(path), overlay(path)
- program: the staged program folder as /opt/Brimwell/gatr (an overlay: a test may change its
  etc/ or add files); `program / "etc/gatr_config.json"`.
- machine: the recorded server of data/machine: release file, firmware (dmidecode), CPUs, kernels
  in /boot, disks, adapters, repositories, /etc/environment, /var/log/messages.
- gatr: gatr(*args, env=None, user=None, stdin=None, hostname="BACKUP01", timeout=120) -> Run.
- expect(text, name, upto=None, **values): compares text whole with the expected file
  expected/<name> (or its beginning, to the end of upto), or with "" when name is "".
- pattern(template, **values): the regular expression a text with those placeholders stands for.
"""
import base64
import difflib
import json
import os
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import pytest

pytest_plugins = ["fakes"]
HERE = Path(__file__).parent
DATA = HERE / "data"
STAGE = Path(os.environ.get("GATR_STAGE", "/nonexistent"))
PROGRAM = Path("/opt/Brimwell/gatr")
OUTPUT = Path("/var/opt/Brimwell/gatr")
LOGS = OUTPUT / "logs"
SETTINGS = OUTPUT / ".settings"
# The connector key the build was made with, handed over by CTest as hexadecimal text.
CONNECTOR_KEY = bytes.fromhex(os.environ.get("GATR_CONNECTOR_KEY_HEX", ""))

# Fixed resource limits, so that "ulimit -a" reads the same on every machine.
LIMITS = {resource.RLIMIT_CORE: 0, resource.RLIMIT_STACK: 8192 * 1024,
          resource.RLIMIT_MEMLOCK: 64 * 1024, resource.RLIMIT_NOFILE: 1024,
          resource.RLIMIT_NPROC: 4096, resource.RLIMIT_RTPRIO: 0}
RLIMIT_LOCKS = 10  # Linux's number; Python's resource module does not name it
for _limit in (resource.RLIMIT_CPU, resource.RLIMIT_FSIZE, resource.RLIMIT_DATA,
               resource.RLIMIT_RSS, resource.RLIMIT_AS, RLIMIT_LOCKS):
    LIMITS[_limit] = resource.RLIM_INFINITY

# Placeholders of expected files that stand for what no test can fix in advance.
PATTERNS = {"*": r"[^\n]*", "time": r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d", "line": r"[ \d]{5}",
            "stamp": r"\d{8}T\d{4}Z"}


def expect(text, name, upto=None, **values):
    """Compares text whole with expected/<name>, or with its beginning to the end of the first
    upto in it: what a run cut short there has written. In the file, {*} stands for any text
    within a line, {time} for an error-log time stamp, {line} for its source line number,
    {stamp} for an archive's time stamp, and {key} for values[key]. Cases whose output must be
    the same name the same file; an output that must be empty is named ""."""
    if name == "":
        if text != "":
            pytest.fail(f"output differs from the empty one expected:\n{text}", pytrace=False)
        return
    if not (HERE / "expected" / name).exists():
        # Shown whole, so that a new case's output can be reviewed against the format it
        # must follow before it becomes the expected file.
        encoded = base64.b64encode((text or "").encode()).decode()
        pytest.fail(f"expected/{name} is missing; the output was:\nMISSING {name} {encoded}")
    template = (HERE / "expected" / name).read_bytes().decode()
    if upto is not None:
        template = template[:template.index(upto) + len(upto)]
    parts = re.split(r"\{(\w+|\*)\}", template)
    if re.fullmatch(pattern(template, **values), text) is None:
        shown = "".join(str(values.get(p, "{" + p + "}")) if i % 2 else p
                        for i, p in enumerate(parts))
        diff = "".join(difflib.unified_diff(shown.splitlines(True), text.splitlines(True),
                                            f"expected/{name}", "actual"))
        pytest.fail(f"output differs from expected/{name}:\n{diff}", pytrace=False)


def pattern(template, **values):
    """The regular expression that template stands for, its placeholders read as expect reads them."""
    parts = re.split(r"\{(\w+|\*)\}", template)
    return "".join(re.escape(part) if i % 2 == 0 else re.escape(str(values[part])) if part in values
                   else PATTERNS.get(part, re.escape("{" + part + "}")) for i, part in enumerate(parts))


def section(main_log, title):
    """One block of the main log: from its title to the rule of the next one."""
    start = main_log.index(title + "\n\n")
    return main_log[start:main_log.index("-" * 80 + "\n", start)]


def _mount(*args):
    subprocess.run(["mount", *args], check=True)


class Sandbox:
    def __init__(self, scratch: Path):
        self.scratch = scratch
        self.mounts = []
        self.overlays = {}

    def tmpfs(self, path, options="mode=0755"):
        Path(path).mkdir(parents=True, exist_ok=True)
        _mount("-t", "tmpfs", "-o", options, "tmpfs", str(path))
        self.mounts.append(str(path))

    def overlay(self, path, lower=None):
        """A writable overlay over the folder path (of lower, when given); returns path."""
        base = Path(tempfile.mkdtemp(dir=self.scratch))
        (base / "upper").mkdir()
        (base / "work").mkdir()
        if not Path(path).exists():
            # A folder this machine lacks (/lib/modules in a container) is made in an overlay
            # of its parent: the machine itself is read-only.
            if str(Path(path).parent) not in self.overlays:
                self.overlay(Path(path).parent)
            Path(path).mkdir()
        _mount("-t", "overlay", "overlay", "-o",
               f"lowerdir={lower or path},upperdir={base}/upper,workdir={base}/work", str(path))
        self.mounts.append(str(path))
        self.overlays[str(path)] = base
        return Path(path)

    def write(self, path, data, mode=0o644):
        p = Path(path)
        p.parent.mkdir(parents=True, exist_ok=True)
        p.write_bytes(data if isinstance(data, bytes) else data.encode())
        p.chmod(mode)
        return p

    def place(self, path, data, mode=0o644):
        p = Path(path)
        if str(p).startswith("/proc/"):
            source = self.write(tempfile.mktemp(dir=self.scratch), data, mode)
            _mount("--bind", str(source), str(p))
            self.mounts.append(str(p))
            return p
        if str(p.parent) not in self.overlays:
            self.overlay(p.parent)
        return self.write(p, data, mode)

    def tool(self, name, script):
        """A stand-in for a system tool, in /usr/local/bin: first on root's search path."""
        return self.place(f"/usr/local/bin/{name}", script, 0o755)

    def teardown(self):
        for path in reversed(self.mounts):
            subprocess.run(["umount", "-l", path], check=False)


@pytest.fixture
def sandbox():
    if os.environ.get("GATR_E2E_SANDBOX") != "1":
        pytest.fail("end-to-end tests run only inside tests/e2e/run.sh's sandbox")
    box = Sandbox(Path(tempfile.mkdtemp(prefix="gatr-e2e-")))
    try:
        for path in ("/var/opt", "/opt", "/etc/opt", "/root"):
            box.tmpfs(path)
        yield box
    finally:
        box.teardown()
        shutil.rmtree(box.scratch, ignore_errors=True)


@pytest.fixture
def program(sandbox):
    return sandbox.overlay(PROGRAM, lower=STAGE)


@pytest.fixture
def machine(sandbox):
    """The recorded server: a two-socket physical machine running CentOS 7."""
    m = DATA / "machine"
    sandbox.place("/etc/system-release", (m / "system-release").read_text())
    sandbox.place("/etc/environment", (m / "environment").read_text())
    sandbox.place("/var/log/messages", (m / "messages").read_text())
    sandbox.place("/proc/cpuinfo", (m / "cpuinfo").read_text())
    sandbox.tmpfs("/boot")
    for name in (m / "boot.txt").read_text().split():
        sandbox.write(f"/boot/{name}", "")
    if Path("/proc/scsi").exists():
        sandbox.tmpfs("/proc/scsi")  # a machine without SCSI devices, whatever this one has
    for name in ("lsblk", "losetup", "df", "yum"):
        sandbox.tool(name, f"#!/bin/sh\nexec cat {m}/{name}.txt\n")
    sandbox.tool("lspci", '#!/bin/sh\ncase "$1" in -v) exec cat "%s/lspci-v-$3.txt" ;; '
                          '*) exec cat %s/lspci.txt ;; esac\n' % (m, m))
    set_firmware(sandbox, "physical")
    return m


def set_firmware(sandbox, kind):
    """dmidecode as the machine of that kind prints it ("vmware", "physical", "hyperv")."""
    sandbox.place("/usr/sbin/dmidecode", f"#!/bin/sh\nexec cat {DATA}/machine/dmidecode-{kind}.txt\n",
                  0o755)


class Run:
    def __init__(self, completed, started, ended):
        self.rc = completed.returncode
        self.stdout = completed.stdout.decode("utf-8", "replace")
        self.stderr = completed.stderr.decode("utf-8", "replace")
        self.started, self.ended = started, ended
        self.main_log = _read(LOGS / "gatr.log")
        self.error_log = _read(LOGS / "gatr_errors.log")
        text = _read(SETTINGS)
        self.settings = json.loads(text) if text else None

    @property
    def archive(self):
        path = self.settings.get("last_archive_file") if self.settings else None
        return Path(path) if path else None

    def members(self, archive=None):
        listing = subprocess.run(["tar", "-tzPf", str(archive or self.archive)],
                                 capture_output=True, text=True, check=True)
        return listing.stdout.splitlines()

    def member(self, name, archive=None):
        return subprocess.run(["tar", "-xzPOf", str(archive or self.archive), name],
                              capture_output=True, check=True).stdout.decode("utf-8", "replace")


def _read(path):
    try:
        return Path(path).read_bytes().decode("utf-8", "replace")
    except OSError:
        return None


def _fixed_limits():
    for limit, value in LIMITS.items():
        resource.setrlimit(limit, (value, value))


@pytest.fixture
def gatr(sandbox, program):
    def run(*args, env=None, user=None, stdin=None, hostname="BACKUP01", timeout=120,
            command=None, cwd=None):
        environment = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                       "HOME": "/root", "LC_ALL": "C", "TZ": "UTC"}
        environment.update(env or {})
        environment = {k: v for k, v in environment.items() if v is not None}
        line = [*(command or [str(PROGRAM / "gatr")]), *args]
        if user == "nobody":
            line = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", *line]
        line = ["unshare", "--uts", sys.executable, "-c", "import os, socket, sys; socket.sethostn"
                "ame(sys.argv[1]); os.execvp(sys.argv[2], sys.argv[2:])", hostname, *line]
        started = time.time()
        completed = subprocess.run(line, env=environment, input=stdin, capture_output=True,
                                   timeout=timeout, cwd=cwd or "/root",
                                   preexec_fn=_fixed_limits)
        return Run(completed, started, time.time())

    return run
