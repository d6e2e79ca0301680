"""End-to-end harness: the staged gatr binary run as a user would, inside a sandbox.

run.sh starts the whole pytest session inside `unshare --mount --net --fork` with loopback up;
every test here refuses to run anywhere else (GATR_E2E_SANDBOX).

Fixtures
- `sandbox`: fresh tmpfs over /var/opt, /opt, /etc/opt and /root for the test, and helpers to
  change the machine inside the namespace, all undone after the test:
    sandbox.write(path, text, mode=0o644)      create a file (parents made) under the tmpfs trees
    sandbox.bind_file(path, text, mode=0o644)  bind-mount a file with `text` over an existing path
                                               (e.g. /etc/system-release, /usr/sbin/dmidecode)
    sandbox.hide(path)                         make an existing file or folder look absent
    sandbox.tool(name, script)                 put an executable script `name` first on PATH
    sandbox.tmpfs(path)                        another fresh tmpfs (e.g. /var/lib/rpm)
    sandbox.mount_overlay(path)                writable overlay over a system folder; returns the
                                               upper folder
- `gatr`: run the staged binary. gatr(*args, env=None, user=None, stdin=None, timeout=120)
  returns a Run with .rc, .stdout, .stderr (text), .error_log (text or None), .error_lines
  (parsed ErrorLine list), .main_log, .settings (parsed JSON or None) and .files() (the paths
  under the output folder). user="nobody" runs it as uid/gid 65534 through setpriv.
- Services: add a fake service as a fixture in its own module (tests/e2e/fakes/...) that starts a
  server on 127.0.0.1 inside this namespace and stops it at teardown; nothing else is needed.
"""
import json
import os
import re
import shutil
import subprocess
import tempfile
from dataclasses import dataclass, field
from pathlib import Path
from typing import List, Optional

import pytest

STAGE = Path(os.environ.get("GATR_STAGE", "")).resolve() if os.environ.get("GATR_STAGE") else None
OUTPUT = Path("/var/opt/Brimwell/gatr")
LOGS = OUTPUT / "logs"
ERROR_LOG = LOGS / "gatr_errors.log"
MAIN_LOG = LOGS / "gatr.log"
SETTINGS = OUTPUT / ".settings"

ERROR_LINE = re.compile(
    r"^(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d) (.{16}) \[([ \d]{5})\] (.{20}) (.*)$")


@dataclass
class ErrorLine:
    stamp: str
    source: str
    line: int
    status: str
    message: str


def parse_error_log(text: str) -> List[ErrorLine]:
    """Every non-empty line must have the error-log layout; an empty line may follow a message
    that itself ended in a line feed."""
    lines = []
    for raw in text.split("\n"):
        if raw == "":
            continue
        m = ERROR_LINE.match(raw)
        assert m, f"error-log line out of format: {raw!r}"
        lines.append(ErrorLine(m.group(1), m.group(2).rstrip(), int(m.group(3)),
                               m.group(4).rstrip(), m.group(5)))
    return lines


@dataclass
class Run:
    rc: int
    stdout: str
    stderr: str
    error_log: Optional[str] = None
    main_log: Optional[str] = None
    settings_text: Optional[str] = None
    error_lines: List[ErrorLine] = field(default_factory=list)

    @property
    def settings(self):
        return json.loads(self.settings_text) if self.settings_text else None

    def files(self):
        if not OUTPUT.exists():
            return []
        return sorted(str(p) for p in OUTPUT.rglob("*"))

    def messages(self):
        return [l.message for l in self.error_lines]


def _read(path: Path) -> Optional[str]:
    try:
        return path.read_bytes().decode("utf-8", "replace")
    except OSError:
        return None


def _mount(*args):
    subprocess.run(["mount", *args], check=True)


class Sandbox:
    def __init__(self, scratch: Path):
        self.scratch = scratch
        self.mounts: List[str] = []
        self.bin = scratch / "bin"
        self.bin.mkdir()
        self.home = scratch / "home"
        self.home.mkdir()

    def tmpfs(self, path: str):
        Path(path).mkdir(parents=True, exist_ok=True)
        _mount("-t", "tmpfs", "tmpfs", path)
        self.mounts.append(path)

    def write(self, path: str, text, mode: int = 0o644) -> Path:
        p = Path(path)
        p.parent.mkdir(parents=True, exist_ok=True)
        if isinstance(text, bytes):
            p.write_bytes(text)
        else:
            p.write_text(text)
        p.chmod(mode)
        return p

    def bind_file(self, path: str, text, mode: int = 0o644):
        source = self.scratch / ("bind" + str(len(self.mounts)))
        self.write(str(source), text, mode)
        if not Path(path).exists():
            raise FileNotFoundError(f"bind_file needs an existing target: {path}")
        _mount("--bind", str(source), path)
        self.mounts.append(path)

    def hide(self, path: str):
        p = Path(path)
        if p.is_dir():
            empty = self.scratch / ("empty" + str(len(self.mounts)))
            empty.mkdir()
            _mount("--bind", str(empty), path)
            self.mounts.append(path)
        else:
            # A file cannot be removed from a read-only lower system; cover its folder instead.
            self.mount_overlay(str(p.parent))
            os.remove(path)

    def mount_overlay(self, path: str) -> Path:
        base = self.scratch / ("overlay" + str(len(self.mounts)))
        upper, workdir = base / "upper", base / "work"
        upper.mkdir(parents=True)
        workdir.mkdir()
        _mount("-t", "overlay", "overlay", "-o",
               f"lowerdir={path},upperdir={upper},workdir={workdir}", path)
        self.mounts.append(path)
        return upper

    def tool(self, name: str, script: str):
        self.write(str(self.bin / name), script, 0o755)

    def teardown(self):
        for path in reversed(self.mounts):
            subprocess.run(["umount", "-l", path], check=False)
        self.mounts.clear()


@pytest.fixture
def sandbox():
    if os.environ.get("GATR_E2E_SANDBOX") != "1":
        pytest.fail("end-to-end tests run only inside tests/e2e/run.sh's namespace")
    scratch = Path(tempfile.mkdtemp(prefix="gatr-e2e-"))
    os.chmod(scratch, 0o755)
    box = Sandbox(scratch)
    try:
        # /root too: the diagnostics run's rpm query keeps its database under $HOME.
        for path in ("/var/opt", "/opt", "/etc/opt", "/root"):
            box.tmpfs(path)
        yield box
    finally:
        box.teardown()
        shutil.rmtree(scratch, ignore_errors=True)


@pytest.fixture
def gatr(sandbox):
    assert STAGE is not None and (STAGE / "gatr").exists(), "GATR_STAGE must name the staged folder"

    def run(*args, env=None, user=None, stdin=None, timeout=120, program=None, cwd=None):
        environment = {
            "PATH": f"{sandbox.bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
            "HOME": "/root",
            "LC_ALL": "C",
            "TZ": "UTC",
        }
        if env:
            environment.update(env)
        command = [str(program or STAGE / "gatr"), *args]
        if user == "nobody":
            command = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", *command]
        completed = subprocess.run(command, env=environment, input=stdin, capture_output=True,
                                   timeout=timeout, cwd=cwd or str(sandbox.scratch))
        out = Run(completed.returncode,
                  completed.stdout.decode("utf-8", "replace"),
                  completed.stderr.decode("utf-8", "replace"),
                  _read(ERROR_LOG), _read(MAIN_LOG), _read(SETTINGS))
        if out.error_log is not None:
            out.error_lines = parse_error_log(out.error_log)
        return out

    return run
