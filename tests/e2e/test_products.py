"""The management agent (Watchpost) and companion service (Tallyhub) sections of a diagnostics
run, against real peers: packages built with rpmbuild and installed into a private rpm database,
real processes, real manifests, and the archive read back with tar."""
import datetime
import os
import shutil
import subprocess
import tarfile
import tempfile
from pathlib import Path

import pytest

from conftest import LOGS

RULE = "-" * 80
WATCHPOST_HOME = "/opt/Brimwell/watchpost-agent"
WATCHPOST_EXE = WATCHPOST_HOME + "/bin/watchpost-agent"
TALLYHUB_EXE = "/opt/Brimwell/tallyhub-service/bin/tallyhub-proxy"
TALLYHUB_HOME = "/var/opt/Brimwell/tallyhub-service"

WATCHPOST_MANIFEST = """{
    "Linux": {
        "archive": {
            "files": [
                "%INSTALL%/logs/*.log",
                "/var/log/watchpost/agent*",
                "%INSTALL%/etc/agent.conf"
            ],
            "commands": [
                {"command": "%INSTALL%/bin/watchpost-agent --version",
                 "file": "./logs/gatr_cmd-version.log", "mode": "w"},
                {"command": "cat %INSTALL%/etc/agent.conf",
                 "file": "./logs/gatr_cmd-config.log", "mode": "w"}
            ]
        }
    }
}
"""

TALLYHUB_MANIFEST = """{
    "Linux": {
        "archive": {
            "files": ["%INSTALL%/logs/proxy*"],
            "commands": [
                {"command": "ls %INSTALL%/logs", "file": "./logs/gatr_thb-listing.log",
                 "mode": "w"}
            ]
        }
    }
}
"""

SPEC = """Name: {name}
Version: {version}
Release: 1
Summary: Brimwell {name} (test build)
License: Proprietary
AutoReqProv: no
%define debug_package %{{nil}}
%define __os_install_post %{{nil}}
%define _build_id_links none
%description
Test build of {name}.
%install
mkdir -p %{{buildroot}}{bindir} %{{buildroot}}{manifestdir}
cp %{{_sourcedir}}/program %{{buildroot}}{executable}
cp %{{_sourcedir}}/manifest.json %{{buildroot}}{manifestdir}/gatr_manifest.json
%files
{executable}
{manifestdir}/gatr_manifest.json
"""


def _build_rpm(top: Path, name: str, version: str, executable: str, manifestdir: str,
               manifest: str) -> Path:
    sources = top / "SOURCES"
    sources.mkdir(parents=True, exist_ok=True)
    # The product's program is a copy of sleep: it runs for as long as a test wants it to.
    shutil.copy(shutil.which("sleep"), sources / "program")
    (sources / "manifest.json").write_text(manifest)
    spec = top / f"{name}.spec"
    spec.write_text(SPEC.format(name=name, version=version, executable=executable,
                                bindir=os.path.dirname(executable), manifestdir=manifestdir))
    subprocess.run(["rpmbuild", "-bb", "--define", f"_topdir {top}", str(spec)], check=True,
                   capture_output=True)
    built = list((top / "RPMS").rglob(f"{name}-{version}-1.*.rpm"))
    assert len(built) == 1, built
    # Installing must touch only the sandbox's own tmpfs trees, never the machine's /usr.
    listed = subprocess.run(["rpm", "-qlp", str(built[0])], capture_output=True, text=True,
                            check=True).stdout.split()
    assert sorted(listed) == sorted([executable, manifestdir + "/gatr_manifest.json"]), listed
    return built[0]


@pytest.fixture(scope="module")
def packages():
    top = Path(tempfile.mkdtemp(prefix="gatr-rpm-"))
    try:
        yield {
            "watchpost-agent": _build_rpm(top, "watchpost-agent", "4.1.2", WATCHPOST_EXE,
                                          WATCHPOST_HOME, WATCHPOST_MANIFEST),
            "tallyhub-service": _build_rpm(top, "tallyhub-service", "2.0.7", TALLYHUB_EXE,
                                           TALLYHUB_HOME, TALLYHUB_MANIFEST),
        }
    finally:
        shutil.rmtree(top, ignore_errors=True)


@pytest.fixture
def rpmdb(sandbox, packages):
    """A private, empty rpm database at the path RPM-based systems use; returns an installer."""
    sandbox.mount_overlay("/etc")
    sandbox.write("/etc/rpm/macros", "%_dbpath /var/lib/rpm\n")
    sandbox.tmpfs("/var/lib/rpm")
    subprocess.run(["rpm", "--initdb"], check=True)

    def install(name):
        done = subprocess.run(["rpm", "-i", "--nodeps", str(packages[name])],
                              capture_output=True, text=True)
        assert done.returncode == 0, done.stderr
        return subprocess.run(["rpm", "-q", name], capture_output=True, text=True).stdout

    return install


@pytest.fixture
def processes():
    """Starts programs that stand for running services; all are killed after the test."""
    started = []

    def start(path):
        process = subprocess.Popen([path, "600"])
        started.append(process)
        return process.pid

    yield start
    for process in started:
        process.kill()
        process.wait()


@pytest.fixture
def var_log(sandbox):
    """/var/log as a fresh empty folder, so product log files can be placed there."""
    sandbox.tmpfs("/var/log")


def first_group(size: int) -> str:
    # In the C locale the separator is the NUL character, which ends the grouped text.
    digits = str(size)
    return digits[:len(digits) % 3 or 3]


def module_lines(name: str, path: str) -> str:
    info = os.stat(path)
    date = datetime.datetime.fromtimestamp(int(info.st_mtime), datetime.timezone.utc)
    return (f"Daemon module: {name}\n"
            f"  {'filename:':<18}  {path}\n"
            f"  {'date:':<18}  {date:%Y-%m-%dT%H:%M:%SZ}\n"
            f"  {'size:':<18}  {first_group(info.st_size)} bytes\n\n")


def installed_block(banner: str, package: str, daemon: str, exe: str, pid=None) -> str:
    state = f"running, process ID {pid}" if pid else "not running"
    return (f"{RULE}\n{banner}\n\n"
            f"{'Installed:':<20}  yes\n\n"
            f"\n"
            f"{'Package:':<20}  {package}"
            f"{'Daemon:':<20}  {daemon} {state}\n\n"
            + module_lines(daemon, exe))


def not_installed_block(banner: str) -> str:
    return f"{RULE}\n{banner}\n\n{'Installed:':<20}  no\n\n"


def section(main_log: str, banner: str) -> str:
    """The block of one section: from its rule to the next rule or the log's footer rule."""
    start = main_log.index(f"{RULE}\n{banner}\n\n")
    end = main_log.find(f"{RULE}\n", start + len(RULE) + 1)
    return main_log[start:end]


def archive_members(run):
    path = run.settings["last_archive_file"]
    with tarfile.open(path) as archive:
        return {m.name: archive.extractfile(m).read().decode() if m.isfile() else None
                for m in archive.getmembers()}


def test_neither_product_installed_gives_two_installed_no_blocks(gatr):
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    blocks = not_installed_block("BRIMWELL TALLYHUB SERVICE") + \
        not_installed_block("BRIMWELL WATCHPOST")
    assert blocks in run.main_log
    products = run.settings["products"]
    assert products["thb"] == {"installed": False, "package": None}
    assert products["cmd"] == {"installed": False, "package": None}
    messages = run.messages()
    for banner in ("BRIMWELL TALLYHUB SERVICE", "BRIMWELL WATCHPOST"):
        assert f"{banner} section commenced" in messages
        assert f"{banner} section completed" in messages
    assert not any("application manifest" in m for m in messages)


def test_both_products_installed_and_running(gatr, sandbox, rpmdb, processes, var_log):
    watchpost_package = rpmdb("watchpost-agent")
    tallyhub_package = rpmdb("tallyhub-service")
    assert watchpost_package.startswith("watchpost-agent-4.1.2-1.")
    sandbox.write(WATCHPOST_HOME + "/logs/agent.log", "agent started\n")
    sandbox.write(WATCHPOST_HOME + "/logs/upgrade.log", "upgraded to 4.1.2\n")
    sandbox.write(WATCHPOST_HOME + "/logs/agent.log.gz", "not matched\n")
    sandbox.write(WATCHPOST_HOME + "/etc/agent.conf", "server=console.example\n")
    sandbox.write("/var/log/watchpost/agent-install.log", "installed\n")
    sandbox.write(TALLYHUB_HOME + "/logs/proxy.log", "proxy up\n")
    sandbox.write(TALLYHUB_HOME + "/logs/service.log", "not matched\n")
    watchpost_pid = processes(WATCHPOST_EXE)
    tallyhub_pid = processes(TALLYHUB_EXE)

    run = gatr("-s")
    assert run.rc == 0, run.stderr

    assert section(run.main_log, "BRIMWELL WATCHPOST") == installed_block(
        "BRIMWELL WATCHPOST", watchpost_package, "watchpost-agent", WATCHPOST_EXE, watchpost_pid)
    assert section(run.main_log, "BRIMWELL TALLYHUB SERVICE") == installed_block(
        "BRIMWELL TALLYHUB SERVICE", tallyhub_package, "tallyhub-proxy", TALLYHUB_EXE,
        tallyhub_pid)

    products = run.settings["products"]
    assert products["cmd"] == {"installed": True, "package": watchpost_package}
    assert products["thb"] == {"installed": True, "package": tallyhub_package}

    members = archive_members(run)
    assert members[WATCHPOST_HOME + "/logs/agent.log"] == "agent started\n"
    assert members[WATCHPOST_HOME + "/logs/upgrade.log"] == "upgraded to 4.1.2\n"
    assert WATCHPOST_HOME + "/logs/agent.log.gz" not in members
    assert members["/var/log/watchpost/agent-install.log"] == "installed\n"
    assert members[WATCHPOST_HOME + "/etc/agent.conf"] == "server=console.example\n"
    version = subprocess.run([WATCHPOST_EXE, "--version"], capture_output=True, text=True).stdout
    assert members[str(LOGS / "gatr_cmd-version.log")] == version
    assert members[str(LOGS / "gatr_cmd-config.log")] == "server=console.example\n"
    assert members[TALLYHUB_HOME + "/logs/proxy.log"] == "proxy up\n"
    assert TALLYHUB_HOME + "/logs/service.log" not in members
    assert members[str(LOGS / "gatr_thb-listing.log")] == "proxy.log\nservice.log\n"
    ours = ("agent_section.cpp", "manifest.cpp", "probes.cpp", "spawn.cpp")
    assert not [l for l in run.error_lines if l.status == "ERROR" and l.source in ours], \
        run.error_log


def test_installed_but_not_running_still_gathers_its_manifest(gatr, sandbox, rpmdb):
    package = rpmdb("watchpost-agent")
    sandbox.write(WATCHPOST_HOME + "/logs/agent.log", "agent stopped\n")
    sandbox.write(WATCHPOST_HOME + "/etc/agent.conf", "x=1\n")
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    assert section(run.main_log, "BRIMWELL WATCHPOST") == installed_block(
        "BRIMWELL WATCHPOST", package, "watchpost-agent", WATCHPOST_EXE)
    members = archive_members(run)
    assert members[WATCHPOST_HOME + "/logs/agent.log"] == "agent stopped\n"
    assert str(LOGS / "gatr_cmd-version.log") in members


def test_executable_without_package_shows_rpms_own_answer(gatr, sandbox, rpmdb, processes):
    # The program is there (copied by hand), but the package database does not know it.
    sandbox.write(TALLYHUB_EXE, Path(shutil.which("sleep")).read_bytes(), 0o755)
    pid = processes(TALLYHUB_EXE)
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    answer = "package tallyhub-service is not installed\n"
    assert section(run.main_log, "BRIMWELL TALLYHUB SERVICE") == installed_block(
        "BRIMWELL TALLYHUB SERVICE", answer, "tallyhub-proxy", TALLYHUB_EXE, pid)
    assert run.settings["products"]["thb"] == {"installed": True, "package": answer}
    assert run.settings["products"]["cmd"] == {"installed": False, "package": None}
    # With no manifest in its /var/opt home, the one shipped with the program is used.
    assert "no application manifests found no log gathering will occur" not in run.messages()
    members = archive_members(run)
    assert str(LOGS / "gatr_thb-version.log") in members


def test_tallyhub_manifest_beside_the_executable_is_not_used(gatr, sandbox, rpmdb):
    rpmdb("tallyhub-service")
    sandbox.write(TALLYHUB_HOME + "/logs/proxy.log", "from the data folder\n")
    sandbox.write("/opt/Brimwell/tallyhub-service/gatr_manifest.json",
                  '{"Linux": {"archive": {"files": ["/opt/Brimwell/tallyhub-service/bin/*"]}}}')
    run = gatr("-s")
    members = archive_members(run)
    assert members[TALLYHUB_HOME + "/logs/proxy.log"] == "from the data folder\n"
    assert TALLYHUB_EXE not in members


def test_bad_manifests_are_logged_and_the_run_goes_on(gatr, sandbox, rpmdb, var_log):
    package = rpmdb("watchpost-agent")
    rpmdb("tallyhub-service")
    manifest = WATCHPOST_HOME + "/gatr_manifest.json"
    sandbox.write(manifest, """{"Linux": {"archive": {
        "files": ["no-folder*.log", "/var/log/missing-folder/*.log", "%INSTALL%/etc/*.conf"],
        "commands": [
            {"command": "echo no-mode", "file": "./logs/gatr_cmd-no-mode.log"},
            {"command": "echo no-file", "mode": "w"},
            {"command": "ls /nonexistent-gatr", "file": "./logs/gatr_cmd-fails.log", "mode": "w"},
            {"command": "echo kept", "file": "./logs/gatr_cmd-kept.log", "mode": "w"}
        ]}}}""")
    sandbox.write(WATCHPOST_HOME + "/etc/agent.conf", "a=1\n")
    sandbox.write(TALLYHUB_HOME + "/gatr_manifest.json", '{"Linux": {"archive": nil}}')
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    assert section(run.main_log, "BRIMWELL WATCHPOST") == installed_block(
        "BRIMWELL WATCHPOST", package, "watchpost-agent", WATCHPOST_EXE)

    messages = run.messages()
    prefix = f"application manifest {manifest}: Linux->archive->commands"
    assert "file pattern no-folder*.log has no folder part - pattern skipped" in messages
    assert "Invalid Handle for file /var/log/missing-folder" in messages
    assert f"{prefix}[0]->mode is missing or not a string - entry skipped" in messages
    assert f"{prefix}[1]->file is missing or not a string - entry skipped" in messages
    assert "call to ls failed: exit code is 512" in messages
    assert ("application manifest /var/opt/Brimwell/tallyhub-service/gatr_manifest.json "
            "could not be loaded - no log gathering will occur") in messages
    for banner in ("BRIMWELL TALLYHUB SERVICE", "BRIMWELL WATCHPOST"):
        assert f"{banner} section completed" in messages

    members = archive_members(run)
    assert members[WATCHPOST_HOME + "/etc/agent.conf"] == "a=1\n"
    assert members[str(LOGS / "gatr_cmd-kept.log")] == "kept\n"
    assert str(LOGS / "gatr_cmd-fails.log") not in members
    assert not (LOGS / "gatr_cmd-no-mode.log").exists()


def test_hostile_file_names_in_a_gathered_folder_run_nothing(gatr, sandbox, rpmdb):
    rpmdb("watchpost-agent")
    # A name cannot hold a '/', so the marker is made relative to where the shell would run.
    names = ["x$(touch pwned-dollar).log", "y`touch pwned-backtick`.log", 'quote".log',
             "back\\slash.log"]
    for name in names:
        sandbox.write(f"{WATCHPOST_HOME}/logs/{name}", name + "\n")
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    for folder in (Path(os.environ["GATR_STAGE"]), sandbox.scratch):
        assert not list(folder.glob("pwned*")), folder
    members = archive_members(run)
    for name in names:
        assert members[f"{WATCHPOST_HOME}/logs/{name}"] == name + "\n"
