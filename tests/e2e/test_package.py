"""The manual page, and the RPM as scripts/build-rpm.sh makes it from this checkout: its files,
rpmlint, and the package installed in the sandbox, run through /usr/sbin/gatr and upgraded."""
import os
import re
import subprocess
import textwrap
from pathlib import Path

import pytest

from conftest import OUTPUT, PROGRAM

TREE = Path(__file__).resolve().parents[2]
CONFIG = PROGRAM / "etc/gatr_config.json"


def test_manual_page_lints_clean_and_shows_the_usage_and_every_option(gatr):
    lint = subprocess.run(["mandoc", "-Tlint", TREE / "man/gatr.8"], capture_output=True, text=True)
    assert (lint.returncode, lint.stdout + lint.stderr) == (0, "")
    page = subprocess.run(["mandoc", "-Tascii", "-Owidth=200", TREE / "man/gatr.8"],
                          capture_output=True, text=True, check=True).stdout
    page = re.sub(".\b", "", page)  # bold and underline as overstrikes
    usage = gatr("-h").stdout
    usage = usage[usage.index("Usage:"):].rstrip()
    synopsis = page[page.index("\nSYNOPSIS\n") + 10:page.index("\nDESCRIPTION\n")]
    assert textwrap.dedent(synopsis).strip("\n") == usage
    tags = " ".join(re.findall(r"^ {7}(\S.*)$", page[page.index("\nOPTIONS\n"):
                                                     page.index("\nCONFIGURATION\n")], re.M))
    named = set(re.findall(r"(?<![\w-])--?\w[\w-]*", usage))
    named |= set(re.findall(r'"(--?\w[\w-]*)"', (TREE / "src/frame/cmdline.cpp").read_text()))
    assert len(named) > 20
    assert {o for o in named if not re.search(rf"(?<![\w-]){o}(?![\w-])", tags)} == set()


def build(tree, out, **env):
    made = subprocess.run(["bash", tree / "scripts/build-rpm.sh", out], env={**os.environ, **env},
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    assert made.returncode == 0, made.stdout[-4000:]
    return next(Path(out).glob("gatr-2.3.3-*.x86_64.rpm"))


@pytest.fixture(scope="module")
def packages(tmp_path_factory):
    """Release 1 of this checkout, and a release 2 from its files without git, as a release
    tarball holds them, whose gatr_config.json names another region."""
    scratch = tmp_path_factory.mktemp("rpm")
    first = build(TREE, scratch / "1")
    export = scratch / "export"
    export.mkdir()
    subprocess.run(f"git ls-files -z | tar --null -T - -cf - | tar -xf - -C {export}", shell=True,
                   cwd=TREE, check=True)
    config = export / "etc/gatr_config.json"
    config.write_text(config.read_text().replace('"AU"', '"AP"'))
    exported = sorted(export.rglob("*"))
    second = build(export, scratch / "2", GATR_RELEASE="2")
    assert sorted(export.rglob("*")) == exported  # the build wrote nothing into the tree
    return first, second


def leftovers(sandbox):
    """What /opt and /var/opt hold, and the files the folders the package writes into have gained
    (their folders are copied up whenever written in)."""
    found = {*Path("/opt").rglob("*"), *Path("/var/opt").rglob("*")}
    for folder in ("/usr/sbin", "/usr/share/man", "/usr/lib"):
        upper = sandbox.overlays[folder] / "upper"
        found |= {folder / p.relative_to(upper) for p in upper.rglob("*") if not p.is_dir()}
    return {p for p in found if os.path.lexists(p)}  # not the marks of removed files


def test_the_package_installs_runs_from_anywhere_and_keeps_an_edited_configuration(
        packages, sandbox, machine, gatr):
    listing = subprocess.run(["rpm", "-qpl", packages[0]], capture_output=True, text=True,
                             check=True).stdout.split()
    var = [TREE / "var", *(TREE / "var").rglob("*")]
    assert {p for p in listing if not p.startswith("/usr/lib/.build-id")} == {
        "/opt/Brimwell", "/usr/sbin/gatr", "/usr/share/man/man8/gatr.8.gz", "/var/opt/Brimwell",
        str(OUTPUT), *(str(PROGRAM / p.relative_to(TREE)) for p in var),
        *(str(PROGRAM / p) for p in ("", "gatr", "etc", "etc/gatr_config.json", "etc/gatr_run.schema.json", "locale",
                                     "locale/en", "locale/en/LC_MESSAGES",
                                     "locale/en/LC_MESSAGES/gatr.mo", "scripts",
                                     "scripts/uninstall_orb.sh"))}
    lint = subprocess.run(["rpmlint", "-r", TREE / "packaging/gatr.rpmlintrc", packages[0].parent],
                          capture_output=True, text=True)
    assert lint.returncode == 0 and " 0 errors, 0 warnings" in lint.stdout, lint.stdout
    sandbox.tmpfs("/opt")  # hides the staged program: only the package's files count
    for folder in ("/usr/sbin", "/usr/share/man", "/usr/lib"):
        if folder not in sandbox.overlays:
            sandbox.overlay(folder)
    rpm = ["rpm", "--dbpath", "/root/rpmdb", "--nodeps"]
    sandbox.write("/opt/x y/f", "one file\n")
    before = leftovers(sandbox)
    subprocess.run([*rpm, "-i", packages[0]], check=True, capture_output=True)
    assert OUTPUT.stat().st_mode & 0o7777 == 0o700
    query = lambda tag: set(subprocess.run([*rpm[:3], "-q", tag, "gatr"], capture_output=True,
                                           text=True, check=True).stdout.splitlines())
    assert {"tar", "gzip", "coreutils", "util-linux", "procps-ng"} <= query("--requires")
    assert query("--recommends") == {"net-tools", "pciutils", "pigz", "dmidecode"}
    kind = subprocess.run(["file", "-b", PROGRAM / "gatr"], capture_output=True, text=True).stdout
    assert kind.startswith("ELF ") and kind.endswith(", stripped\n"), kind

    wrapper = ["/usr/sbin/gatr"]
    assert gatr("-V", command=wrapper, cwd="/").stdout == "2.3.3\n"
    run = gatr("-s", command=wrapper, cwd="/root")
    archive = run.archive
    assert run.rc == 0 and archive.is_file(), run.stderr
    run = gatr("--hash", "sha256", "/opt/x y/f", command=wrapper, cwd="/tmp")
    assert (run.rc, run.stdout) == (0, subprocess.run(["sha256sum", "/opt/x y/f"],
                                                      capture_output=True, text=True).stdout)
    run = gatr("-s", "", command=wrapper)
    assert (run.rc, run.stderr) == (1, "gatr: invalid non-option argument specified: \n")
    sandbox.write(PROGRAM / "scripts/uninstall_orb.sh", "as gatr writes it when asked\n")
    subprocess.run([*rpm, "-e", "gatr"], check=True, capture_output=True)
    assert leftovers(sandbox) - before == {OUTPUT.parent, OUTPUT, *OUTPUT.rglob("*")}
    assert [p for p in listing if os.path.lexists(p)] == [str(OUTPUT.parent), str(OUTPUT)]
    assert archive.is_file()

    subprocess.run([*rpm, "-i", packages[0]], check=True, capture_output=True)

    CONFIG.write_text('{"ftp_servers": [], "edited": true}\n')
    subprocess.run([*rpm, "-U", packages[1]], check=True, capture_output=True)
    assert CONFIG.read_text() == '{"ftp_servers": [], "edited": true}\n'
    assert '"AP"' in Path(f"{CONFIG}.rpmnew").read_text()
