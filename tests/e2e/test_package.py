"""The manual page, and the RPM as scripts/build-rpm.sh makes it from this checkout: its files,
rpmlint, and the package installed in the sandbox, run through /usr/sbin/gatr and upgraded."""
import os
import re
import subprocess
import textwrap
from pathlib import Path

import pytest

from conftest import OUTPUT, PROGRAM, Sandbox

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


def build(out, **env):
    made = subprocess.run(["bash", TREE / "scripts/build-rpm.sh", out], env={**os.environ, **env},
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    assert made.returncode == 0, made.stdout[-4000:]
    return next(Path(out).glob("gatr-2.3.3-*.x86_64.rpm"))


@pytest.fixture(scope="module")
def packages(tmp_path_factory):
    """Release 1 of this checkout, and a release 2 whose gatr_config.json names another region."""
    scratch = tmp_path_factory.mktemp("rpm")
    first = build(scratch / "1")
    tree = Sandbox(scratch)  # the checkout is read-only in the sandbox
    try:
        tree.overlay(TREE)
        config = TREE / "etc/gatr_config.json"
        config.write_text(config.read_text().replace('"AU"', '"AP"'))
        return first, build(scratch / "2", GATR_RELEASE="2")
    finally:
        tree.teardown()


def test_the_package_installs_runs_from_anywhere_and_keeps_an_edited_configuration(
        packages, sandbox, machine, gatr):
    listing = subprocess.run(["rpm", "-qpl", packages[0]], capture_output=True, text=True,
                             check=True).stdout.split()
    var = [TREE / "var", *(TREE / "var").rglob("*")]
    assert {p for p in listing if not p.startswith("/usr/lib/.build-id")} == {
        "/opt/Brimwell", "/usr/sbin/gatr", "/usr/share/man/man8/gatr.8.gz", "/var/opt/Brimwell",
        str(OUTPUT), *(str(PROGRAM / p.relative_to(TREE)) for p in var),
        *(str(PROGRAM / p) for p in ("", "gatr", "etc", "etc/gatr_config.json", "locale",
                                     "locale/en", "locale/en/LC_MESSAGES",
                                     "locale/en/LC_MESSAGES/gatr.mo"))}
    lint = subprocess.run(["rpmlint", "-r", TREE / "packaging/gatr.rpmlintrc", packages[0]],
                          capture_output=True, text=True)
    assert lint.returncode == 0 and " 0 errors" in lint.stdout, lint.stdout
    sandbox.tmpfs("/opt/Brimwell")  # hides the staged program: only the package's files count
    for folder in ("/usr/sbin", "/usr/share/man", "/usr/lib"):
        if folder not in sandbox.overlays:
            sandbox.overlay(folder)
    rpm = ["rpm", "--nodeps", "--dbpath", "/root/rpmdb"]
    subprocess.run([*rpm, "-i", packages[0]], check=True, capture_output=True)
    assert OUTPUT.stat().st_mode & 0o7777 == 0o700

    wrapper = ["/usr/sbin/gatr"]
    assert gatr("-V", command=wrapper, cwd="/").stdout == "2.3.3\n"
    run = gatr("-s", command=wrapper, cwd="/root")
    assert run.rc == 0 and run.archive.is_file(), run.stderr
    sandbox.write("/opt/x y/f", "one file\n")
    run = gatr("--hash", "sha256", "/opt/x y/f", command=wrapper, cwd="/tmp")
    assert (run.rc, run.stdout) == (0, subprocess.run(["sha256sum", "/opt/x y/f"],
                                                      capture_output=True, text=True).stdout)
    run = gatr("-s", "", command=wrapper)
    assert (run.rc, run.stderr) == (1, "gatr: invalid non-option argument specified: \n")

    CONFIG.write_text('{"ftp_servers": [], "edited": true}\n')
    subprocess.run([*rpm, "-U", packages[1]], check=True, capture_output=True)
    assert CONFIG.read_text() == '{"ftp_servers": [], "edited": true}\n'
    assert '"AP"' in Path(f"{CONFIG}.rpmnew").read_text()
