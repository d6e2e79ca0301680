"""The diagnostics run as a user meets it: console output, the main log block by block, the
error log, the settings file and the archive, on a machine built from fixtures and real tools."""
import calendar
import json
import os
import re
import subprocess
import time
from pathlib import Path

import pytest

from conftest import ERROR_LOG, LOGS, MAIN_LOG, OUTPUT, STAGE
from fixtures_system import (
    BOOT_LINE, CENTOS_7, CPUINFO_TWO_SOCKETS, DMI_EXPECTED, HOSTNAME, KERNELS_BLOCK, MEMORY_LINE,
    PROGRESS_POINTS, TWO_SOCKETS_BLOCK, UBUNTU_LSB, UPTIME_LINE, YUM_ERROR_LINE,
    YUM_EXPECTED_BLOCK, bracketed, complete_lines, copied_block, cpu_block, install_boot,
    install_dmidecode, install_yum, memory_text, place_file, progress, run_diagnostics, shell,
    split_sections, standard_machine, tool_env, upload_instructions)

INVENTORY = ["SYSTEM", "ENVIRONMENT", "SERVER TUNING", "DEVICES", "STORAGE", "NETWORKING",
             "PACKAGES"]
NETSTAT_LOG = str(LOGS / "gatr_netstat.log")
PACKAGES_LOG = str(LOGS / "gatr_packages.log")
RPM_QUERY = ("rpm --query -all --queryformat '%-40{NAME} %30{VERSION} %30{INSTALLTIME:date}  "
             "%{PACKAGER}\n' | sort -u")
PACKAGES_RULE = ("======================================== ============================== "
                 "==============================  ==============================")
ARCHIVE_NAME = re.compile(r"^/var/opt/Brimwell/gatr/gatr_(.+)_(\d{8}T\d{4}Z)\.tar\.gz$")


# ---------------------------------------------------------------------------------- helpers

def sections_of(run):
    header, sections, footer = split_sections(run.main_log)
    assert header.startswith("=" * 80 + "\nSupport Data Gatherer (gatr) 2.3.3 ")
    assert re.fullmatch(r"-{80}\nlog generated on .+\n-{80}\n", footer), footer
    return sections


def inventory(run):
    """The seven inventory sections by title, checked to come first and in order."""
    sections = sections_of(run)
    assert [title for title, _ in sections[:7]] == INVENTORY
    return dict(sections[:7])


def archive_members(path):
    done = subprocess.run(["tar", "--quoting-style=literal", "-tzf", path],
                          capture_output=True, check=True,
                          env={"LC_ALL": "C", "PATH": "/usr/bin:/bin"})
    return done.stdout.decode().splitlines()


def archive_member_text(path, member):
    done = subprocess.run(["tar", "-xzOPf", path, member], capture_output=True, check=True)
    return done.stdout.decode()


def system_body(release_text, dmi_text, cpu_text, kernels=KERNELS_BLOCK, host=HOSTNAME,
                zone="UTC (UTC+0000)"):
    """The SYSTEM block with the memory, uptime and boot lines left as placeholders."""
    names = os.uname()
    return (f"Host Name:            {host}\n\n"
            f"Operating System:     {release_text}\n"
            f"Version:              {names.version}\n"
            f"Kernel:               {names.release}\n"
            f"Platform:             {names.machine}\n\n"
            + dmi_text + cpu_text +
            "<memory>\n\n"
            "Locale:               C\n"
            f"Time zone:            {zone}\n\n"
            "<uptime>\n<boot>\n\n"
            + kernels + "\n")


def check_system(run, body, expected, offset_hours=0):
    """Compares a SYSTEM block with the expectation. The lines whose values move on their own
    are checked against the kernel's readings just before and just after the run: the memory
    total, the uptime in minutes, and the boot time, whose local and UTC forms must also name
    the same instant."""
    before, after = run.machine
    lines = body.split("\n")
    memory = [i for i, line in enumerate(lines) if MEMORY_LINE.match(line)]
    uptime = [i for i, line in enumerate(lines) if line.startswith("System uptime:")]
    assert len(memory) == 1 and len(uptime) == 1, body
    m_mem = MEMORY_LINE.match(lines[memory[0]])
    i = uptime[0]
    m_up, m_boot = UPTIME_LINE.match(lines[i]), BOOT_LINE.match(lines[i + 1])
    assert m_up and m_boot, (lines[i], lines[i + 1])
    lines[memory[0]], lines[i], lines[i + 1] = "<memory>", "<uptime>", "<boot>"
    assert "\n".join(lines) == expected

    # Exactly the text of one total between the two readings (the same total, nearly always).
    low, high = sorted((before.memory >> 20, after.memory >> 20))
    assert m_mem.group(1) in {memory_text(mib << 20) for mib in range(low, high + 1)}, \
        (m_mem.group(1), before.memory, after.memory)

    days, hours, minutes = (int(g) for g in m_up.groups())
    assert hours < 24 and minutes < 60
    # sysinfo counts a second that has begun as a whole one, so the run may be a second ahead
    # of the later reading of /proc/uptime, and so a minute ahead just before a minute turns.
    shown = days * 1440 + hours * 60 + minutes
    assert int(before.uptime) // 60 <= shown <= (int(after.uptime) + 1) // 60, \
        (shown, before.uptime, after.uptime)

    local = calendar.timegm(time.strptime(m_boot.group(1), "%Y-%m-%dT%H:%M:%S"))
    utc = calendar.timegm(time.strptime(m_boot.group(3), "%Y-%m-%dT%H:%M:%S"))
    sign = 1 if m_boot.group(2)[0] == "+" else -1
    offset = sign * (int(m_boot.group(2)[1:3]) * 3600 + int(m_boot.group(2)[3:5]) * 60)
    assert offset == offset_hours * 3600
    assert local - utc == offset
    # Whole seconds of the clock and of the uptime (rounded up) put the boot time within a
    # second of the kernel's; the time the run took between its two readings can only make it
    # later.
    low = min(before.btime, after.btime) - 1
    high = max(before.btime, after.btime) + 1 + int(after.monotonic - before.monotonic)
    assert low <= utc <= high, (m_boot.group(0), before.btime, after.btime)


def real_cpu_block():
    with open("/proc/cpuinfo") as f:
        return cpu_block(f.read())


def expected_console(archive=None):
    text = "gatr: diagnostics generation commenced\n"
    text += "".join(progress(p) for p in PROGRESS_POINTS)
    text += "gatr: diagnostics generation completed\n"
    return text + (upload_instructions(archive) if archive else "")


def archive_complaints(run):
    return [e for e in run.error_lines if e.source == "archive.cpp" and e.status != "information"]


def errors_with(run, status):
    return [(line.source, line.message) for line in run.error_lines if line.status == status]


# ----------------------------------------------------------------------- the complete run

def test_full_run_console_main_log_settings_and_archive(gatr, sandbox):
    standard_machine(sandbox)
    place_file(sandbox, "/etc/environment",
               "LANG=en_US.UTF-8\nhttp_proxy=http://proxy.example.net:3128\n")
    run = run_diagnostics(gatr, sandbox)
    assert run.rc == 0, run.stderr

    archive = run.settings["last_archive_file"]
    m = ARCHIVE_NAME.match(archive)
    assert m and m.group(1) == HOSTNAME, archive
    assert run.stdout == expected_console(archive)

    blocks = inventory(run)
    check_system(run, blocks["SYSTEM"], system_body(CENTOS_7.rstrip("\n"),
                                                    DMI_EXPECTED["vmware"], real_cpu_block()))

    environment = blocks["ENVIRONMENT"]
    assert environment.endswith("\n\n")
    want_env = {f"  {k}={v}" for k, v in tool_env(sandbox).items()} | {f"  PWD={STAGE}"}
    assert set(environment[:-2].split("\n")) == want_env

    assert blocks["SERVER TUNING"] == copied_block(shell("ulimit -a", sandbox),
                                                   "ulimit:" + " " * 13)[0]

    devices, device_errors = "", []
    for heading, command in [
            ("SCSI devices:", "cat /proc/scsi/scsi 2>&1"),
            ("Block devices:", "lsblk -io KNAME,TYPE,MOUNTPOINT,FSTYPE,SIZE,MODEL,LOG-SEC,"
                               "PHY-SEC,RM,RO,OWNER,GROUP,MODE,STATE,UUID 2>&1"),
            ("Loop devices:", "losetup -a 2>&1")]:
        block, errors = copied_block(shell(command, sandbox), heading, filter_errors=True)
        devices += block
        device_errors += errors
    assert blocks["DEVICES"] == devices

    # Sizes move while the run writes; the table's shape and its mounts must not.
    storage = blocks["STORAGE"].split("\n")
    fresh = shell("df --print-type -h 2>&1", sandbox).split("\n")
    assert storage[0] == "  " + fresh[0]
    assert [l.split()[0::6] for l in storage[1:-2]] == [l.split()[0::6] for l in fresh[1:-1]]
    assert storage[-2:] == ["", ""]

    adapters = "Adapters:\n"
    for line in complete_lines(shell(
            'lspci | grep -e "Ethernet controller" -e "Network controller"', sandbox)):
        detail = shell(f'lspci -v -s "{line.split(" ")[0]}"', sandbox)
        adapters += "".join("  " + l for l in complete_lines(detail))
    assert blocks["NETWORKING"] == (
        adapters + "\n"
        + copied_block(shell("ip addr show", sandbox), "Interfaces:")[0]
        + "Proxy settings:\n  http_proxy=http://proxy.example.net:3128\n\n"
        + "Network statistics:\n\n"
        + f"  network statistics are listed in the file {NETSTAT_LOG}\n\n")
    assert Path(NETSTAT_LOG).read_text() == (
        "Network statistics\n\n" + shell("netstat -atup 2>&1", sandbox))

    assert blocks["PACKAGES"] == (
        YUM_EXPECTED_BLOCK + f"installed packages are listed in the file {PACKAGES_LOG}\n\n")
    assert Path(PACKAGES_LOG).read_text() == (
        "Installed RPM packages\n\n" + PACKAGES_RULE + "\n"
        + "%-40s %30s %30s  %-30s\n" % ("Package", "Version", "Time Installed", "Maintainer")
        + PACKAGES_RULE + "\n" + shell(RPM_QUERY, sandbox))

    messages = run.messages()
    order = [messages.index(f"{title} section {state}")
             for title in INVENTORY for state in ("commenced", "completed")]
    assert order == sorted(order)
    assert ("linux.cpp", YUM_ERROR_LINE) in errors_with(run, "ERROR")
    assert all(("linux.cpp", e) in errors_with(run, "ERROR") for e in device_errors)
    tail = messages[messages.index("archive creation commenced"):]
    assert tail == ["archive creation commenced", "logging suspended", "logging resumed",
                    "archive creation completed", "logging disabled"]

    assert run.settings["version"] == 1
    assert run.settings["system"] == {
        "operating_system": CENTOS_7.rstrip("\n"), "version": os.uname().version,
        "kernel": os.uname().release, "platform": os.uname().machine, "role": None}
    assert isinstance(run.settings["products"], dict)

    members = archive_members(archive)
    messages_log = ["/var/log/messages"] if os.path.exists("/var/log/messages") else []
    assert members == messages_log + ["/etc/fstab", "/etc/hosts", str(MAIN_LOG), str(ERROR_LOG),
                                      NETSTAT_LOG, PACKAGES_LOG]
    packed_errors = archive_member_text(archive, str(ERROR_LOG))
    assert packed_errors.rstrip("\n").split("\n")[-1].endswith(" logging suspended")
    assert run.error_log.startswith(packed_errors)
    assert archive_member_text(archive, str(MAIN_LOG)) == run.main_log


def test_installed_package_is_listed_in_the_packages_file(gatr, sandbox, tmp_path):
    spec = tmp_path / "t.spec"
    spec.write_text("Name: brimwell-testpkg\nVersion: 1.2.3\nRelease: 1\nSummary: t\n"
                    "License: MIT\nPackager: Brimwell Build <build@brimwell.example>\n"
                    "BuildArch: noarch\n%description\nt\n%files\n")
    env = tool_env(sandbox)
    subprocess.run(["rpmbuild", "-bb", "--define", f"_topdir {tmp_path}/top",
                    "--define", f"_rpmdir {tmp_path}/out", str(spec)],
                   env=env, check=True, capture_output=True)
    subprocess.run(["rpm", "-i", "--nodeps",
                    str(tmp_path / "out/noarch/brimwell-testpkg-1.2.3-1.noarch.rpm")],
                   env=env, check=True, capture_output=True)
    run = run_diagnostics(gatr, sandbox, "-s", "-A")
    assert run.rc == 0
    listed = Path(PACKAGES_LOG).read_text().split("\n")[5:]
    # "-all" reads as -a -l -l: the file lists join the records, sorted in among them.
    assert listed[-1] == "" and "(contains no files)" in listed
    package = [l for l in listed if l.startswith("brimwell-testpkg")]
    assert len(package) == 1
    assert package[0].startswith("%-40s %30s " % ("brimwell-testpkg", "1.2.3"))
    assert package[0].endswith("  Brimwell Build <build@brimwell.example>")


# --------------------------------------------------------------------- the system section

@pytest.mark.parametrize("release, release_text, dmi", [
    (CENTOS_7, "CentOS Linux release 7.9.2009 (Core)", "physical"),
    (UBUNTU_LSB, "Ubuntu 22.04.4 LTS", "hyperv"),
    (None, "", "missing"),
], ids=["centos-physical", "ubuntu-hyperv", "no-release-no-dmidecode"])
def test_system_block_for_release_and_firmware(gatr, sandbox, release, release_text, dmi):
    if release is not None:
        place_file(sandbox, "/etc/system-release", release)
    if dmi != "missing":
        install_dmidecode(sandbox, dmi)
    install_boot(sandbox)
    run = run_diagnostics(gatr, sandbox, "-s", "-A")
    assert (run.rc, run.stdout) == (0, "")
    check_system(run, inventory(run)["SYSTEM"],
                 system_body(release_text, DMI_EXPECTED[dmi], real_cpu_block()))
    assert run.settings["system"]["operating_system"] == release_text
    warning = ("linux.cpp", "cannot enumerate BIOS as dmidecode is not installed: "
                            "run yum install dmidecode")
    assert (warning in errors_with(run, "warning")) == (dmi == "missing")
    if release is None:
        assert "cat: /etc/system-release: No such file or directory" in run.stderr


def test_interleaved_sockets_are_listed_at_every_change(gatr, sandbox):
    sandbox.bind_file("/proc/cpuinfo", CPUINFO_TWO_SOCKETS)
    standard_machine(sandbox)
    run = run_diagnostics(gatr, sandbox, "-s", "-A")
    assert cpu_block(CPUINFO_TWO_SOCKETS) == TWO_SOCKETS_BLOCK
    check_system(run, inventory(run)["SYSTEM"],
                 system_body(CENTOS_7.rstrip("\n"), DMI_EXPECTED["vmware"], TWO_SOCKETS_BLOCK))


def test_time_zone_and_boot_time_follow_the_local_zone(gatr, sandbox):
    standard_machine(sandbox)
    run = run_diagnostics(gatr, sandbox, "-s", "-A", env={"TZ": "CET-1"})
    check_system(run, inventory(run)["SYSTEM"],
                 system_body(CENTOS_7.rstrip("\n"), DMI_EXPECTED["vmware"], real_cpu_block(),
                             zone="CET (UTC+0100)"),
                 offset_hours=1)


def test_kernel_names_lose_eight_characters_whatever_they_are(gatr, sandbox):
    standard_machine(sandbox)
    sandbox.write("/boot/vmlinuz", "short name\n")
    run = run_diagnostics(gatr, sandbox, "-s", "-A")
    # "vmlinuz" plus its newline is all of the first eight characters: nothing is left, not
    # even the newline, so the block's closing empty line ends that entry.
    want = KERNELS_BLOCK + "  "
    check_system(run, inventory(run)["SYSTEM"],
                 system_body(CENTOS_7.rstrip("\n"), DMI_EXPECTED["vmware"], real_cpu_block(),
                             kernels=want))


def test_upper_case_node_name_is_lowered_for_the_archive_only(gatr, sandbox):
    standard_machine(sandbox)
    run = run_diagnostics(gatr, sandbox, "-s", hostname="WEB01")
    assert run.rc == 0
    assert inventory(run)["SYSTEM"].startswith("Host Name:            WEB01\n\n")
    archive = run.settings["last_archive_file"]
    m = ARCHIVE_NAME.match(archive)
    assert m and m.group(1) == "web01", archive
    assert Path(archive).is_file()
    # The minute the archive was made in: between the minute the run began in and its end.
    stamp = calendar.timegm(time.strptime(m.group(2), "%Y%m%dT%H%MZ"))
    before, after = run.machine
    assert int(before.wall) // 60 * 60 <= stamp <= after.wall, (stamp, before.wall, after.wall)


# --------------------------------------------------------------------------- run variants

def test_silent_run_prints_nothing_and_still_archives(gatr, sandbox):
    standard_machine(sandbox)
    run = run_diagnostics(gatr, sandbox, "-s")
    assert (run.rc, run.stdout) == (0, "")
    archive = run.settings["last_archive_file"]
    assert Path(archive).is_file()
    assert str(MAIN_LOG) in archive_members(archive)


def test_no_archive_run_prints_completion_without_instructions(gatr, sandbox):
    standard_machine(sandbox)
    run = run_diagnostics(gatr, sandbox, "-A")
    assert run.rc == 0
    assert run.stdout == expected_console()
    assert not [p for p in run.files() if p.endswith(".tar.gz")]
    assert run.settings["last_archive_file"] is None
    messages = run.messages()
    start = messages.index("archive creation commenced")
    assert messages[start:] == [
        "archive creation commenced",
        "--no-archive option specified: no archive file will be generated",
        "archive creation completed", "logging disabled"]
    assert inventory(run)


def test_second_run_keeps_earlier_settings_and_rewrites_what_it_sets(gatr, sandbox):
    standard_machine(sandbox)
    first = run_diagnostics(gatr, sandbox, "-s")
    archive = first.settings["last_archive_file"]
    settings = first.settings
    settings["system"]["kernel"] = "2.6.32-old"
    settings["system"]["custom"] = "kept from before"
    settings["products"] = {"orb": {"installed": True}, "legacy": {"installed": True}}
    sandbox.write(str(OUTPUT / ".settings"), json.dumps(settings))
    second = run_diagnostics(gatr, sandbox, "-s", "-A")
    assert second.settings["version"] == 1
    assert second.settings["last_archive_file"] == archive
    assert second.settings["system"]["kernel"] == os.uname().release
    assert second.settings["system"]["custom"] == "kept from before"
    assert second.settings["products"]["legacy"] == {"installed": True}
    # The backup product's section records its facts afresh on every run.
    assert second.settings["products"]["orb"] == {"installed": False, "package": None}


def test_progress_bar_in_a_terminal(sandbox):
    standard_machine(sandbox)
    socket = str(sandbox.scratch / "tmux.sock")
    env = tool_env(sandbox, {"TERM": "xterm"})
    # Tools' own complaints on standard error would land between the redraws; only the
    # program's standard output is on the terminal.
    errors = sandbox.scratch / "stderr.txt"
    command = (f'unshare --uts sh -c \'hostname {HOSTNAME} && "$0" 2>"$1"; echo "[exit $?]"; '
               f'sleep 120\' {STAGE}/gatr {errors}')
    subprocess.run(["tmux", "-S", socket, "new-session", "-d", "-x", "100", "-y", "40",
                    command], env=env, check=True)
    try:
        # As long as any other run may take (the gatr fixture's limit), however busy the machine.
        screen, deadline = "", time.monotonic() + 120
        while time.monotonic() < deadline:
            screen = subprocess.run(["tmux", "-S", socket, "capture-pane", "-p"], env=env,
                                    capture_output=True, check=True).stdout.decode()
            if "[exit " in screen:
                break
            time.sleep(0.5)
    finally:
        subprocess.run(["tmux", "-S", socket, "kill-server"], env=env, check=False)
    lines = screen.rstrip("\n").split("\n")
    archive = next(l.strip() for l in lines if l.strip().startswith("/var/opt/Brimwell/gatr/"))
    # Every redraw returned to the start of one line: only the full bar is left on screen.
    want = (["gatr: diagnostics generation commenced", "100% [" + "*" * 70 + "]",
             "gatr: diagnostics generation completed"]
            + upload_instructions(archive).rstrip("\n").split("\n") + ["[exit 0]"])
    assert [l.rstrip() for l in lines] == [l.rstrip() for l in want]


# ------------------------------------------------------------------------------ the archive

def test_archive_members_in_order_with_message_log_first(gatr, sandbox):
    standard_machine(sandbox)
    place_file(sandbox, "/var/log/messages", "Jul  4 11:25:01 web01 systemd[1]: Started.\n")
    sandbox.write("/var/opt/inst/brwinst.log", "installer\n")
    sandbox.write("/var/opt/inst/orb_gui.log", "console\n")
    sandbox.write("/var/opt/inst/b.txt", "b\n")
    run = run_diagnostics(gatr, sandbox, "-s", "-i", "/var/opt/inst/b.txt",
                          "-i", "/var/opt/inst/brwinst.log", "-i/var/opt/inst/orb_gui.log",
                          "-i", "/var/opt/inst/b.txt", "-i", "/var/opt/inst/missing.txt")
    assert run.rc == 0
    archive = run.settings["last_archive_file"]
    assert archive_members(archive) == [
        "/var/log/messages", "/var/opt/inst/orb_gui.log", "/var/opt/inst/brwinst.log",
        "/etc/fstab", "/etc/hosts", str(MAIN_LOG), str(ERROR_LOG), NETSTAT_LOG,
        PACKAGES_LOG, "/var/opt/inst/b.txt"]
    assert archive_member_text(archive, "/var/log/messages").startswith("Jul  4 11:25:01")
    # A path that cannot be read is passed over by tar; the run does not count it a failure.
    assert not archive_complaints(run)


def test_unreadable_folder_is_passed_over_and_the_archive_offered(gatr, sandbox):
    standard_machine(sandbox)
    sandbox.write("/var/opt/secret/inside.txt", "hidden\n")
    sandbox.write("/var/opt/open/visible.txt", "shown\n")
    os.chmod("/var/opt/secret", 0)
    run = run_diagnostics(gatr, sandbox, "-i", "/var/opt/secret", "-i", "/var/opt/open",
                          without_dac=True)
    assert run.rc == 0
    archive = run.settings["last_archive_file"]
    assert run.stdout == expected_console(archive)
    members = archive_members(archive)
    assert "/var/opt/open/visible.txt" in members
    assert not [m for m in members if m.startswith("/var/opt/secret")]
    assert not archive_complaints(run)


def test_debug_archive_logs_the_whole_tar_command(gatr, sandbox):
    standard_machine(sandbox)
    run = run_diagnostics(gatr, sandbox, "-s", "--debug-archive", "-i", "/etc/hostname")
    archive = run.settings["last_archive_file"]
    debug = errors_with(run, "debug")
    assert debug[-1] == ("archive.cpp", (
        f'tar czPf "{archive}" --ignore-failed-read "/var/log/messages" "/etc/fstab" '
        f'"/etc/hostname" "/etc/hosts" "{MAIN_LOG}" "{ERROR_LOG}" "{NETSTAT_LOG}" '
        f'"{PACKAGES_LOG}" 1>/dev/null 2>&1'))


def test_hostile_file_names_are_packed_and_nothing_runs(gatr, sandbox):
    standard_machine(sandbox)
    hostile = ["/var/opt/gathered/app$(touch /var/opt/pwned1).log",
               "/var/opt/gathered/app`touch /var/opt/pwned2`.log",
               '/var/opt/gathered/x"; touch /var/opt/pwned3; "y',
               "/var/opt/gathered/back\\slash$HOME.log"]
    for path in hostile:
        sandbox.write(path, "payload\n")
    run = run_diagnostics(gatr, sandbox, "-s", "-i", "/var/opt/gathered",
                          *[a for p in hostile for a in ("-i", p)])
    assert run.rc == 0
    for n in (1, 2, 3):
        assert not Path(f"/var/opt/pwned{n}").exists()
    members = archive_members(run.settings["last_archive_file"])
    for path in hostile:
        assert path in members
        assert members.count(path) == 2  # once by itself, once inside its folder
    assert "/var/opt/gathered/" in members


def test_read_only_output_folder_makes_tar_fail_and_the_run_goes_on(gatr, sandbox):
    standard_machine(sandbox)
    LOGS.mkdir(parents=True)
    writable_logs = sandbox.scratch / "logs"
    writable_logs.mkdir()
    for args in (["--bind", str(OUTPUT), str(OUTPUT)],
                 ["-o", "remount,bind,ro", str(OUTPUT)],
                 ["--bind", str(writable_logs), str(LOGS)]):
        subprocess.run(["mount", *args], check=True)
    sandbox.mounts += [str(OUTPUT), str(LOGS)]
    run = run_diagnostics(gatr, sandbox)
    assert run.rc == 0
    # The completion message, but no upload instructions for a failed archive.
    assert run.stdout == expected_console()
    messages = run.messages()
    start = messages.index("archive creation commenced")
    assert messages[start:start + 5] == [
        "archive creation commenced", "logging suspended", "logging resumed",
        "tar returned an error: exit code is 512", "archive creation completed"]
    # The settings file cannot be written into the read-only folder either.
    assert messages[-2:] == ["failed to write the settings file", "logging disabled"]
    assert ("archive.cpp", "tar returned an error: exit code is 512") in errors_with(run, "ERROR")
    assert not [p for p in run.files() if p.endswith(".tar.gz")]


# ------------------------------------------------------------------- failures in sections

def test_commands_that_cannot_be_started(gatr, sandbox):
    place_file(sandbox, "/etc/system-release", CENTOS_7)
    install_dmidecode(sandbox, "vmware")
    place_file(sandbox, "/etc/environment", "HTTPS_PROXY=http://proxy:8080\n")
    # Without the shell no command can be started at all.
    sandbox.hide("/bin/sh")
    assert not os.path.exists("/bin/sh")
    run = bracketed(gatr, env={"HOME": str(sandbox.home)})
    assert run.rc == 0, run.stderr
    assert run.stdout == expected_console()

    sections = sections_of(run)
    titles = [t for t, _ in sections]
    assert titles[:7] == INVENTORY
    blocks = dict(sections)
    names = os.uname()
    empty_record = ("Provisioning:         Physical\n\n"
                    "System:                , version \n"
                    "UUID:                 \n"
                    "Motherboard:           , version \n\n"
                    "Firmware mode:        BIOS\n"
                    "Firmware:             , , \n\n")
    check_system(run, blocks["SYSTEM"], system_body(
        names.sysname, empty_record, "Sockets:              n/a\n\n",
        kernels="Installed kernels:\n", host=names.nodename))
    assert blocks["ENVIRONMENT"] == ""
    assert blocks["SERVER TUNING"] == ""
    assert blocks["DEVICES"] == ""
    assert blocks["STORAGE"] == ""
    assert blocks["NETWORKING"] == ("Proxy settings:\n  HTTPS_PROXY=http://proxy:8080\n\n"
                                    "Network statistics:\n\n")
    assert blocks["PACKAGES"] == ""
    assert Path(NETSTAT_LOG).read_text() == "Network statistics\n\n"
    assert Path(PACKAGES_LOG).read_text().startswith("Installed RPM packages\n\n")

    messages = run.messages()
    inventory_end = messages.index("PACKAGES section completed")
    failures = [(l.source, l.message) for l in run.error_lines[:inventory_end]
                if l.status == "ERROR"]
    # The reason is whatever the C library gives when the shell cannot be spawned.
    reason = failures[0][1].split(": ", 1)[1]
    assert reason
    assert failures == [("linux.cpp", f"popen to {word} failed: {reason}")
                        for word in ["cat", "cat", "dmidecode", "grep", "ls", "printenv",
                                     "ulimit", "cat", "df", "lspci", "ifconfig", "netstat",
                                     "yum", "rpm"]]
    for title in INVENTORY:
        assert f"{title} section commenced" in messages
    completed = [m for m in messages if m.endswith("section completed")][:3]
    assert completed == ["SYSTEM section completed", "NETWORKING section completed",
                         "PACKAGES section completed"]
    tail = messages[messages.index("archive creation commenced"):]
    assert tail == ["archive creation commenced", "logging suspended", "logging resumed",
                    f"popen to tar failed: {reason}",
                    "archive creation completed", "logging disabled"]
    assert run.settings["last_archive_file"] is None
    assert run.settings["system"]["operating_system"] == names.sysname


def test_error_lines_unterminated_last_lines_and_failing_exits(gatr, sandbox):
    standard_machine(sandbox, release="CentOS Linux release 7.9.2009 (Core)")
    sandbox.tool("lsblk", "#!/bin/sh\n"
                          "printf 'lsblk: /dev/sdz: read ERROR\\nKNAME TYPE\\nsda   disk\\n"
                          "sdb   disk'\nexit 32\n")
    sandbox.tool("losetup", "#!/bin/sh\necho 'losetup: /dev/loop7: failed to use device: "
                            "I/O error' >&2\nexit 1\n")
    sandbox.tool("df", "#!/bin/sh\nprintf 'Filesystem Type Size\\n/dev/sda1 xfs 50G\\n'\n"
                       "exit 1\n")
    install_yum(sandbox, "Repo-id      : base/7/x86_64\n\nRepo-id      : updates/7/x86_64")
    run = run_diagnostics(gatr, sandbox, "-s")
    assert run.rc == 0
    blocks = inventory(run)
    # The release file's only line has no newline: it is dropped, so the name is empty.
    assert "Operating System:     \n" in blocks["SYSTEM"]
    assert run.settings["system"]["operating_system"] == ""
    assert blocks["DEVICES"].endswith(
        "Block devices:\n  KNAME TYPE\n  sda   disk\n\nLoop devices:\n\n")
    assert blocks["STORAGE"] == "  Filesystem Type Size\n  /dev/sda1 xfs 50G\n\n"
    assert blocks["PACKAGES"] == (
        "Enabled repositories:\n  Repo-id      : base/7/x86_64\n  \n\n"
        f"installed packages are listed in the file {PACKAGES_LOG}\n\n")
    errors = errors_with(run, "ERROR")
    assert ("linux.cpp", "lsblk: /dev/sdz: read ERROR") in errors
    assert ("linux.cpp", "losetup: /dev/loop7: failed to use device: I/O error") in errors
    assert "/etc/fstab" in archive_members(run.settings["last_archive_file"])


@pytest.mark.parametrize("environment, block", [
    ("HTTPS_PROXY=http://proxy.example.net:3128\nhttp_proxy = http://p:80\n"
     "no_proxy_list=a,b\nno_proxy=localhost\nPATH=/usr/bin\nFtp_Proxy=ftp://p:21",
     "  HTTPS_PROXY=http://proxy.example.net:3128\n  http_proxy = http://p:80\n"
     "  no_proxy=localhost\n\n"),
    ("LANG=C\n", "  no proxy settings in effect\n\n"),
    ("", "  no proxy settings in effect\n\n"),
], ids=["mixed-case-and-unterminated", "none", "empty-file"])
def test_proxy_lines_are_matched_without_regard_to_case(gatr, sandbox, environment, block):
    standard_machine(sandbox)
    place_file(sandbox, "/etc/environment", environment)
    run = run_diagnostics(gatr, sandbox, "-s", "-A")
    networking = inventory(run)["NETWORKING"]
    assert "Proxy settings:\n" + block + "Network statistics:\n" in networking


def test_missing_environment_file(gatr, sandbox):
    standard_machine(sandbox)
    sandbox.hide("/etc/environment")
    run = run_diagnostics(gatr, sandbox, "-s", "-A")
    assert run.rc == 0
    assert "Proxy settings:\n  no data is available\n\nNetwork statistics:\n" in \
        inventory(run)["NETWORKING"]
    assert ("linux.cpp", "fopen on /etc/environment failed: No such file or directory") in \
        errors_with(run, "ERROR")


def test_report_files_that_cannot_be_created(gatr, sandbox):
    standard_machine(sandbox)
    # Folders that are not empty survive the emptying of the logs folder and block the files.
    for path in (NETSTAT_LOG, PACKAGES_LOG):
        sandbox.write(path + "/keep", "x\n")
    run = run_diagnostics(gatr, sandbox, "-s")
    assert run.rc == 0
    blocks = inventory(run)
    assert blocks["NETWORKING"].endswith("Network statistics:\n\n")
    assert blocks["PACKAGES"] == YUM_EXPECTED_BLOCK
    errors = errors_with(run, "ERROR")
    for path in (NETSTAT_LOG, PACKAGES_LOG):
        assert ("linux.cpp", f"fopen on {path} failed: Is a directory") in errors
    members = archive_members(run.settings["last_archive_file"])
    assert NETSTAT_LOG not in members and PACKAGES_LOG not in members
    assert "/etc/hosts" in members
