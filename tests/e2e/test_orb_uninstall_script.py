"""The shipped uninstall script template of the backup product, filled in as the manual
uninstall fills it and run in the sandbox with stand-ins for every tool that would change the
machine (services, packages, kernel modules, reboot), each recording how it was called."""
import subprocess
from pathlib import Path

import pytest

from conftest import STAGE

TEMPLATE = Path(__file__).resolve().parents[2] / "var" / "orb" / "uninstall_orb.sh.templ"
ORB_EXE = "/opt/Brimwell/orb/bin/orb_service"
PRODUCT_FOLDERS = ("/opt/Brimwell/orb", "/etc/opt/Brimwell/orb", "/var/opt/Brimwell/orb")
STAND_INS = ("systemctl", "service", "chkconfig", "rmmod", "depmod", "shutdown", "reboot")
INSTALLED = "orb\norb-console\nkmod-brwvsm-4.18.0-305.el8.x86_64\nbash\norbit-tools\n"


def fill(distribution: str, home: str) -> str:
    return TEMPLATE.read_text().replace("%DISTRIBUTION%", distribution).replace("%HOME%", home)


@pytest.fixture
def machine(sandbox):
    """A machine with the product installed, its service running and its module loaded."""
    calls = sandbox.scratch / "calls"
    calls.touch()
    record = f'#!/bin/sh\necho "$(basename "$0") $*" >> {calls}\n'
    for name in STAND_INS:
        sandbox.tool(name, record)
    listing = sandbox.scratch / "rpm-qa"
    listing.write_text(INSTALLED)
    sandbox.tool("rpm", record + f'[ "$1" = -qa ] && cat {listing}\nexit 0\n')
    sandbox.tool("lsmod", "#!/bin/sh\necho 'Module Size Used by'\necho 'brwvsm 45056 2'\n")
    # The files the script may delete outside the tmpfs trees sit in overlays of their own.
    sandbox.mount_overlay("/etc")
    sandbox.tmpfs("/var/log")
    modules = Path("/lib/modules")
    sandbox.tmpfs(str(modules))
    module_file = modules / "4.18.0-305.el8.x86_64" / "extra" / "brwvsm.ko.xz"
    sandbox.write(str(module_file), b"module")
    sandbox.write("/etc/systemd/system/orb_service.service", "[Service]\n")
    sandbox.write(ORB_EXE, Path("/bin/sleep").read_bytes(), 0o755)
    for folder in PRODUCT_FOLDERS:
        sandbox.write(folder + "/marker", "x\n")
    sandbox.write("/var/log/Brimwell/orb/service.log", "log\n")
    home = sandbox.home / "alice"
    sandbox.write(str(home / ".Brimwell" / "orb" / "console.ini"), "x=1\n")
    sandbox.write(str(home / "keep.txt"), "mine\n")
    service = subprocess.Popen([ORB_EXE, "600"])
    yield {"calls": calls, "home": home, "module": module_file, "service": service}
    service.kill()
    service.wait()


def run_script(sandbox, distribution, home):
    script = sandbox.scratch / "uninstall_orb.sh"
    script.write_text(fill(distribution, str(home)))
    env = {"PATH": f"{sandbox.bin}:/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root"}
    return subprocess.run(["sh", str(script)], env=env, capture_output=True, text=True,
                          timeout=60)


def test_template_is_a_shell_script_using_both_placeholders():
    text = TEMPLATE.read_text()
    assert text.startswith("#!/bin/sh\n")
    assert "%DISTRIBUTION%" in text and "%HOME%" in text
    assert subprocess.run(["sh", "-n", str(TEMPLATE)]).returncode == 0
    # The staged program folder carries the template where the uninstall looks for it.
    if STAGE is not None:
        assert (STAGE / "var" / "orb" / "uninstall_orb.sh.templ").read_text() == text


@pytest.mark.parametrize("distribution,stop,reboot", [
    ("CENTOS-6", ["service orb_service stop", "chkconfig --del orb_service"],
     "shutdown -r now"),
    ("CENTOS-7", ["systemctl stop orb_service.service", "systemctl disable orb_service.service",
                  "systemctl daemon-reload"], "systemctl reboot"),
    ("CENTOS-8", ["systemctl stop orb_service.service", "systemctl disable orb_service.service",
                  "systemctl daemon-reload"], "systemctl reboot"),
])
def test_script_removes_the_product_and_reboots(sandbox, machine, distribution, stop, reboot):
    done = run_script(sandbox, distribution, machine["home"])
    assert done.returncode == 0, done.stdout + done.stderr
    calls = machine["calls"].read_text().splitlines()
    removals = [c for c in calls if c.startswith("rpm -e")]
    assert removals == [f"rpm -e --noscripts --nodeps --allmatches {p}"
                        for p in ("orb", "orb-console", "kmod-brwvsm-4.18.0-305.el8.x86_64")]
    assert calls[:len(stop)] == stop
    assert "rmmod brwvsm" in calls and "depmod -a" in calls
    assert calls[-1] == reboot
    assert machine["service"].wait(timeout=10) == -9
    for folder in PRODUCT_FOLDERS + ("/var/log/Brimwell/orb",):
        assert not Path(folder).exists(), folder
    assert not (machine["home"] / ".Brimwell").exists()
    assert (machine["home"] / "keep.txt").read_text() == "mine\n"
    assert not machine["module"].exists()
    assert not Path("/etc/systemd/system/orb_service.service").exists() or distribution == "CENTOS-6"
    assert f"manual uninstall of Ironkeep ORB on {distribution}" in done.stdout


@pytest.mark.parametrize("distribution", ["", "UBUNTU", "%DISTRIBUTION%"])
def test_script_for_an_unknown_distribution_touches_nothing(sandbox, machine, distribution):
    done = run_script(sandbox, distribution, machine["home"])
    assert done.returncode == 1
    assert "nothing removed" in done.stdout
    assert machine["calls"].read_text() == ""
    assert machine["service"].poll() is None
    for folder in PRODUCT_FOLDERS:
        assert Path(folder, "marker").exists()
    assert machine["module"].exists()
