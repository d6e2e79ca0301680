"""Machine fixtures for the diagnostics run: release files, dmidecode and yum stand-ins, CPU
tables, boot folders, and the expected main-log blocks built from them and from the real tools
that run inside the sandbox."""
import os
import re
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

from conftest import STAGE

RULE = "-" * 80
EQUALS = "=" * 80

CENTOS_7 = "CentOS Linux release 7.9.2009 (Core)\n"
UBUNTU_LSB = ('DISTRIB_ID=Ubuntu\nDISTRIB_RELEASE=22.04\nDISTRIB_CODENAME=jammy\n'
              'DISTRIB_DESCRIPTION="Ubuntu 22.04.4 LTS"\n')

# dmidecode -t 0,1,2 as three kinds of machine print it.
DMI_VMWARE = """\
# dmidecode 3.2
Getting SMBIOS data from sysfs.
SMBIOS 2.7 present.

Handle 0x0000, DMI type 0, 24 bytes
BIOS Information
	Vendor: Phoenix Technologies LTD
	Version: 6.00
	Release Date: 11/12/2020
	Address: 0xEA490
	Runtime Size: 88944 bytes
	ROM Size: 64 kB
	Characteristics:
		ISA is supported
		PCI is supported
		PC Card (PCMCIA) is supported
		PNP is supported
		APM is supported
		BIOS is upgradeable
		BIOS shadowing is allowed
		ESCD support is available
		Boot from CD is supported
		Selectable boot is supported
		EDD is supported
		Print screen service is supported (int 5h)
		8042 keyboard services are supported (int 9h)
		Serial services are supported (int 14h)
		Printer services are supported (int 17h)
		CGA/mono video services are supported (int 10h)
		ACPI is supported
		Smart battery is supported
		Function key-initiated network boot is supported
		Targeted content distribution is supported
	BIOS Revision: 4.6
	Firmware Revision: 0.0

Handle 0x0001, DMI type 1, 27 bytes
System Information
	Manufacturer: VMware, Inc.
	Product Name: VMware Virtual Platform
	Version: None
	Serial Number: VMware-42 1d 6c 3f 8a 0e 9b 55-71 2c 0d 4e 3a 61 88 f2
	UUID: 3f6c1d42-0e8a-559b-712c-0d4e3a6188f2
	Wake-up Type: Power Switch
	SKU Number: Not Specified
	Family: Not Specified

Handle 0x0002, DMI type 2, 15 bytes
Base Board Information
	Manufacturer: Intel Corporation
	Product Name: 440BX Desktop Reference Platform
	Version: None
	Serial Number: None
	Asset Tag: Not Specified
	Features: None
	Location In Chassis: Not Specified
	Chassis Handle: 0x0000
	Type: Unknown
	Contained Object Handles: 0

"""

DMI_PHYSICAL = """\
# dmidecode 3.3
Getting SMBIOS data from sysfs.
SMBIOS 3.2.0 present.
# SMBIOS implementations newer than version 3.1.1 are not
# fully supported by this version of dmidecode.

Handle 0x0000, DMI type 0, 26 bytes
BIOS Information
	Vendor: Dell Inc.
	Version: 2.12.2
	Release Date: 07/09/2021
	Address: 0xF0000
	Runtime Size: 64 kB
	ROM Size: 32 MB
	Characteristics:
		ISA is supported
		PCI is supported
		PNP is supported
		BIOS is upgradeable
		BIOS shadowing is allowed
		Boot from CD is supported
		Selectable boot is supported
		EDD is supported
		Japanese floppy for Toshiba 1.2 MB is supported (int 13h)
		5.25"/360 kB floppy services are supported (int 13h)
		5.25"/1.2 MB floppy services are supported (int 13h)
		3.5"/720 kB floppy services are supported (int 13h)
		8042 keyboard services are supported (int 9h)
		Serial services are supported (int 14h)
		CGA/mono video services are supported (int 10h)
		ACPI is supported
		USB legacy is supported
		Function key-initiated network boot is supported
		Targeted content distribution is supported
		UEFI is supported
	BIOS Revision: 2.12

Handle 0x0100, DMI type 1, 27 bytes
System Information
	Manufacturer: Dell Inc.
	Product Name: PowerEdge R740
	Version: Not Specified
	Serial Number: 7XK2Q53
	UUID: 4c4c4544-0058-4b10-8032-b7c04f513533
	Wake-up Type: Power Switch
	SKU Number: SKU=NotProvided;ModelName=PowerEdge R740
	Family: PowerEdge

Handle 0x0200, DMI type 2, 8 bytes
Base Board Information
	Manufacturer: Dell Inc.
	Product Name: 0WGD1
	Version: A09
	Serial Number: .7XK2Q53.CNFCP0019S00A7.
	Asset Tag: Not Specified

"""

DMI_HYPERV = """\
# dmidecode 3.3
Getting SMBIOS data from sysfs.
SMBIOS 3.1.0 present.

Handle 0x0000, DMI type 0, 26 bytes
BIOS Information
	Vendor: Microsoft Corporation
	Version: Hyper-V UEFI Release v4.1
	Release Date: 04/06/2022
	Address: 0xE8000
	Runtime Size: 96 kB
	ROM Size: 64 kB
	Characteristics:
		BIOS characteristics not supported
		ACPI is supported
		Targeted content distribution is supported
		UEFI is supported
		System is a virtual machine
	BIOS Revision: 4.1

Handle 0x0001, DMI type 1, 27 bytes
System Information
	Manufacturer: Microsoft Corporation
	Product Name: Virtual Machine
	Version: Hyper-V UEFI Release v4.1
	Serial Number: 0923-4560-1234-5678-9012-3456-78
	UUID: 6b1a5c2e-43d0-4f8a-9c1e-27d0b3f4a511
	Wake-up Type: Power Switch
	SKU Number: None
	Family: Virtual Machine

Handle 0x0002, DMI type 2, 15 bytes
Base Board Information
	Manufacturer: Microsoft Corporation
	Product Name: Virtual Machine
	Version: Hyper-V UEFI Release v4.1
	Serial Number: 0000-0017-4223-2146-8123-9931-31
	Asset Tag: None

"""

# What each dmidecode text gives in the SYSTEM block.
DMI_EXPECTED = {
    "vmware": (
        "Provisioning:         Virtualised\n\n"
        "System:               VMware, Inc. VMware Virtual Platform, version None\n"
        "UUID:                 3f6c1d42-0e8a-559b-712c-0d4e3a6188f2\n"
        "Motherboard:          Intel Corporation 440BX Desktop Reference Platform, version None\n\n"
        "Firmware mode:        BIOS\n"
        "Firmware:             Phoenix Technologies LTD, 6.00, 11/12/2020\n\n"),
    "physical": (
        "Provisioning:         Physical\n\n"
        "System:               Dell Inc. PowerEdge R740, version Not Specified\n"
        "UUID:                 4c4c4544-0058-4b10-8032-b7c04f513533\n"
        "Motherboard:          Dell Inc. 0WGD1, version A09\n\n"
        "Firmware mode:        UEFI\n"
        "Firmware:             Dell Inc., 2.12.2, 07/09/2021\n\n"),
    "hyperv": (
        "Provisioning:         Virtualised\n\n"
        "System:               Microsoft Corporation Virtual Machine, "
        "version Hyper-V UEFI Release v4.1\n"
        "UUID:                 6b1a5c2e-43d0-4f8a-9c1e-27d0b3f4a511\n"
        "Motherboard:          Microsoft Corporation Virtual Machine, "
        "version Hyper-V UEFI Release v4.1\n\n"
        "Firmware mode:        UEFI\n"
        "Firmware:             Microsoft Corporation, Hyper-V UEFI Release v4.1, 04/06/2022\n\n"),
    "missing": (
        "Provisioning:         n/a\n\n"
        "System:               n/a\n"
        "UUID:                 n/a\n"
        "Motherboard:          n/a\n\n"
        "Firmware:             n/a\n\n"),
}
DMI_TEXTS = {"vmware": DMI_VMWARE, "physical": DMI_PHYSICAL, "hyperv": DMI_HYPERV}

# yum -v repolist enabled on a CentOS 7 machine with one unreachable mirror list.
YUM_REPOLIST = """\
Loading "fastestmirror" plugin
Config time: 0.006
Yum version: 3.4.3
Loading mirror speeds from cached hostfile
 * base: mirror.example.net
 * extras: mirror.example.net
 * updates: mirror.example.net
Could not retrieve mirrorlist http://mirrorlist.centos.org/?release=7&arch=x86_64&repo=centosplus error was
14: curl#6 - "Could not resolve host: mirrorlist.centos.org; Unknown error"
Setting up Package Sacks
pkgsack time: 0.012
Repo-id      : base/7/x86_64
Repo-name    : CentOS-7 - Base
Repo-revision: 1604001756
Repo-updated : Thu Oct 29 19:03:00 2020
Repo-pkgs    : 10,072
Repo-size    : 8.9 G
Repo-mirrors : http://mirrorlist.centos.org/?release=7&arch=x86_64&repo=os&infra=stock
Repo-baseurl : http://mirror.example.net/centos/7.9.2009/os/x86_64/ (9 more)
Repo-expire  : 21,600 second(s) (last: Thu Jul  4 10:12:31 2024)
  Filter     : read-only:present
Repo-filename: /etc/yum.repos.d/CentOS-Base.repo

Repo-id      : extras/7/x86_64
Repo-name    : CentOS-7 - Extras
Repo-revision: 1716565045
Repo-updated : Fri May 24 16:37:25 2024
Repo-pkgs    : 526
Repo-size    : 1.1 G
Repo-mirrors : http://mirrorlist.centos.org/?release=7&arch=x86_64&repo=extras&infra=stock
Repo-baseurl : http://mirror.example.net/centos/7.9.2009/extras/x86_64/ (9 more)
Repo-expire  : 21,600 second(s) (last: Thu Jul  4 10:12:32 2024)
  Filter     : read-only:present
Repo-filename: /etc/yum.repos.d/CentOS-Base.repo

repolist: 10,598
"""

YUM_EXPECTED_BLOCK = (
    "Enabled repositories:\n"
    "  Repo-id      : base/7/x86_64\n"
    "  Repo-name    : CentOS-7 - Base\n"
    "  Repo-revision: 1604001756\n"
    "  Repo-updated : Thu Oct 29 19:03:00 2020\n"
    "  Repo-pkgs    : 10,072\n"
    "  Repo-size    : 8.9 G\n"
    "  Repo-mirrors : http://mirrorlist.centos.org/?release=7&arch=x86_64&repo=os&infra=stock\n"
    "  Repo-baseurl : http://mirror.example.net/centos/7.9.2009/os/x86_64/ (9 more)\n"
    "  Repo-expire  : 21,600 second(s) (last: Thu Jul  4 10:12:31 2024)\n"
    "  Repo-filename: /etc/yum.repos.d/CentOS-Base.repo\n"
    "  \n"
    "  Repo-id      : extras/7/x86_64\n"
    "  Repo-name    : CentOS-7 - Extras\n"
    "  Repo-revision: 1716565045\n"
    "  Repo-updated : Fri May 24 16:37:25 2024\n"
    "  Repo-pkgs    : 526\n"
    "  Repo-size    : 1.1 G\n"
    "  Repo-mirrors : http://mirrorlist.centos.org/?release=7&arch=x86_64&repo=extras&infra=stock\n"
    "  Repo-baseurl : http://mirror.example.net/centos/7.9.2009/extras/x86_64/ (9 more)\n"
    "  Repo-expire  : 21,600 second(s) (last: Thu Jul  4 10:12:32 2024)\n"
    "  Repo-filename: /etc/yum.repos.d/CentOS-Base.repo\n"
    "  \n"
    "\n")
YUM_ERROR_LINE = ("Could not retrieve mirrorlist "
                  "http://mirrorlist.centos.org/?release=7&arch=x86_64&repo=centosplus error was")

# Two sockets whose processors interleave, as some firmware numbers them.
CPUINFO_TWO_SOCKETS = "".join(
    f"processor\t: {n}\nvendor_id\t: GenuineIntel\ncpu family\t: 6\nmodel\t\t: 85\n"
    f"model name\t: Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz\nstepping\t: 4\n"
    f"physical id\t: {pid}\nsiblings\t: 2\ncore id\t\t: {core}\ncpu cores\t: 2\n"
    f"apicid\t\t: {n}\nflags\t\t: fpu vme de pse\n\n"
    for n, (pid, core) in enumerate([(0, 0), (1, 0), (0, 1), (1, 1)]))
TWO_SOCKETS_BLOCK = (
    "Sockets:              4\n"
    "  Socket 0:           Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz, 2 cores\n"
    "  Socket 1:           Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz, 2 cores\n"
    "  Socket 0:           Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz, 2 cores\n"
    "  Socket 1:           Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz, 2 cores\n"
    "\n")

BOOT_FILES = [
    "config-3.10.0-1160.el7.x86_64",
    "initramfs-3.10.0-1160.el7.x86_64.img",
    "vmlinuz-0-rescue-5c0e2a8f14d64f6e9a0c8f7b2d1e3a4b",
    "vmlinuz-3.10.0-1160.el7.x86_64",
    "vmlinuz-3.10.0-1160.119.1.el7.x86_64",
    "symvers-3.10.0-1160.el7.x86_64.gz",
]
KERNELS_BLOCK = (
    "Installed kernels:\n"
    "  3.10.0-1160.el7.x86_64\n"
    "  3.10.0-1160.119.1.el7.x86_64\n"
    "  0-rescue-5c0e2a8f14d64f6e9a0c8f7b2d1e3a4b\n")

HOSTNAME = "testhost"


def place_file(sandbox, path: str, text, mode: int = 0o644):
    """Puts text at path for this test: bound over an existing file, or written into a writable
    overlay of its folder when the machine lacks it."""
    if Path(path).exists():
        sandbox.bind_file(path, text, mode)
        return
    folder = str(Path(path).parent)
    overlays = sandbox.__dict__.setdefault("system_overlays", set())
    if folder not in overlays:
        sandbox.mount_overlay(folder)
        overlays.add(folder)
    sandbox.write(path, text, mode)


def install_dmidecode(sandbox, kind: str):
    """A dmidecode at /usr/sbin/dmidecode that answers only the arguments gatr must use."""
    text = DMI_TEXTS[kind]
    script = ('#!/bin/sh\n'
              'if [ "$*" != "-t 0,1,2" ]; then echo "unexpected arguments: $*" >&2; exit 2; fi\n'
              "cat <<'DMI_END'\n" + text + "DMI_END\n")
    place_file(sandbox, "/usr/sbin/dmidecode", script, 0o755)


def install_yum(sandbox, text: str = YUM_REPOLIST):
    """yum on PATH printing text (as it stands, a missing last newline included)."""
    output = sandbox.write(str(sandbox.scratch / "yum.out"), text)
    sandbox.tool("yum", '#!/bin/sh\n'
                        'if [ "$*" != "-v repolist enabled" ]; then echo "bad: $*"; exit 1; fi\n'
                        f'cat "{output}"\n')


def install_boot(sandbox, names=BOOT_FILES):
    sandbox.tmpfs("/boot")
    for name in names:
        sandbox.write(f"/boot/{name}", "kernel\n")


def standard_machine(sandbox, release=CENTOS_7, dmi="vmware"):
    """A CentOS 7 VMware guest with kernels in /boot, yum, and an empty rpm database."""
    place_file(sandbox, "/etc/system-release", release)
    if dmi != "missing":
        install_dmidecode(sandbox, dmi)
    install_yum(sandbox)
    install_boot(sandbox)


@dataclass
class MachineReading:
    """What the kernel says at one moment about the values the SYSTEM block shows and that move
    on their own: the uptime, the boot instant (moved by clock corrections), the total memory
    (moved by ballooning and memory hot-plug) and the clocks."""
    uptime: float
    btime: int
    memory: int
    wall: float
    monotonic: float


def read_machine() -> MachineReading:
    with open("/proc/uptime") as f:
        uptime = float(f.read().split()[0])
    with open("/proc/stat") as f:
        btime = int(next(line for line in f if line.startswith("btime")).split()[1])
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE")
    return MachineReading(uptime, btime, memory, time.time(), time.monotonic())


def bracketed(call, *args, **kwargs):
    """Calls gatr and keeps, as run.machine, the machine read just before and just after: what
    the run saw lies between the two, however long a busy machine made it take."""
    before = read_machine()
    run = call(*args, **kwargs)
    run.machine = (before, read_machine())
    return run


def run_diagnostics(gatr, sandbox, *args, hostname=HOSTNAME, env=None, without_dac=False):
    """Runs gatr in a UTS namespace of its own, so that the node name is known. without_dac
    takes from root the power to read and enter what its modes forbid, as on a machine whose
    security policy confines it. The run carries the machine readings around it."""
    environment = {"HOME": str(sandbox.home)}
    environment.update(env or {})
    command = ["/usr/bin/unshare", "--uts", "sh", "-c", 'hostname "$0" && exec "$@"', hostname,
               str(STAGE / "gatr"), *args]
    if without_dac:
        command = ["/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search",
                   *command]
    return bracketed(gatr, *command[1:], program=command[0], env=environment)


def tool_env(sandbox, env=None):
    """The environment gatr's commands see, for running the same commands in a test."""
    environment = {
        "PATH": f"{sandbox.bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
        "HOME": str(sandbox.home), "LC_ALL": "C", "TZ": "UTC"}
    environment.update(env or {})
    return environment


def shell(command: str, sandbox, env=None) -> str:
    """Standard output of a shell command as gatr's popen sees it."""
    done = subprocess.run(["/bin/sh", "-c", command], env=tool_env(sandbox, env),
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, cwd=str(STAGE))
    return done.stdout.decode("utf-8", "replace")


def complete_lines(text: str):
    """The lines gatr copies: each with its newline; a last line without one is dropped."""
    lines = text.split("\n")
    return [line + "\n" for line in lines[:-1]]


def copied_block(text: str, heading=None, filter_errors=False):
    """The main-log block for a command's output and the lines it sends to the error log."""
    out = "" if heading is None else heading + "\n"
    errors = []
    for line in complete_lines(text):
        if filter_errors and ("error" in line or "ERROR" in line):
            errors.append(line.rstrip("\n"))
            continue
        out += "  " + line
    return out + "\n", errors


def progress(percent: int) -> str:
    filled = int(percent * 0.7)
    spinner = "/-\\|"[percent % 4]
    cells = "".join("*" if c < filled else spinner if c == filled else " " for c in range(70))
    return "\r%3d%% [%s]" % (percent, cells) + ("\n" if percent == 100 else "")


PROGRESS_POINTS = [2, 10, 15, 20, 30, 40, 50, 60, 67, 74, 81, 88, 100]
SUPPORT_ARTICLE = "https://support.brimwell.com/s/article/upload-diagnostics-to-a-support-case"


def upload_instructions(archive: str) -> str:
    return ("\n"
            "     upload the generated archive:\n"
            "\n"
            f"     {archive}\n"
            "\n"
            "     to the Brimwell Support FTP servers using the gatr --upload-ftp\n"
            "     argument or alternatively, refer to the article at\n"
            f"     {SUPPORT_ARTICLE}\n"
            "     for details on how to upload the generated archive to the Brimwell \n"
            "     Support FTP servers in your region\n")


def split_sections(main_log: str):
    """Returns (header, [(title, body)], footer) of a main log. The first section follows the
    header's closing '=' rule directly; every later one opens with the '-' rule."""
    header_end = main_log.index(EQUALS + "\n", len(EQUALS) + 1) + len(EQUALS) + 1
    header, rest = main_log[:header_end], main_log[header_end:]
    footer_start = rest.rindex(RULE + "\nlog generated on ")
    footer, rest = rest[footer_start:], rest[:footer_start]
    sections = []
    for chunk in rest.split(RULE + "\n"):
        if chunk == "":
            continue
        title, separator, body = chunk.partition("\n\n")
        assert separator, f"section without its blank line after the title: {chunk[:80]!r}"
        sections.append((title, body))
    return header, sections, footer


def memory_text(total: int) -> str:
    """The Memory: value for a total RAM of `total` bytes."""
    mib = total >> 20
    return "%0.1f GB" % (mib * 0.0009765625) if mib > 1024 else "%0.0f MB" % mib


def cpu_block(cpuinfo: str) -> str:
    """What the two /proc/cpuinfo pipelines give: uniq'd physical-id lines counted, then one
    socket line at every change of physical id."""
    ids = [line for line in cpuinfo.split("\n") if "physical id" in line]
    sockets = sum(1 for i, line in enumerate(ids) if i == 0 or line != ids[i - 1])
    out = "Sockets:              %d\n" % sockets
    keys = ("model name", "physical id", "core id", "cpu cores")
    values = [line.split(":", 1)[1].lstrip(" \t") for line in cpuinfo.split("\n")
              if any(k in line for k in keys)]
    previous = -1
    for i in range(0, len(values) - 3, 4):
        model, pid, cores = values[i], int(values[i + 1]), int(values[i + 3])
        if pid != previous:
            previous = pid
            out += "  %-18s  %s, %d %s\n" % ("Socket %d:" % pid, model, cores, "cores")
    return out + "\n"


MEMORY_LINE = re.compile(r"^Memory:               (.+)$")
UPTIME_LINE = re.compile(r"^System uptime:        (\d+) days (\d+) hours (\d+) minutes$")
BOOT_LINE = re.compile(r"^Boot time:            (\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)([+-]\d{4}) "
                       r"\((\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)Z\)$")
