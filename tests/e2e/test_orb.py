"""The backup product's section of a diagnostics run against a fake of the product's local REST
service: the whole "BRIMWELL IRONKEEP ORB" block compared with the block rendered from the same
fixtures, every kind of service failure, the connection parameters, the thread dump and the
dependency list in the archive."""
import datetime
import json
import os
import re
import shutil
import subprocess
import tarfile
from pathlib import Path

import pytest

import orb_expect
from conftest import LOGS, OUTPUT
from fakes.orb_rest import orb_certificate, orb_service  # noqa: F401 (fixtures)

RULE = "-" * 80
BANNER = "BRIMWELL IRONKEEP ORB"
ORB_EXE = "/opt/Brimwell/orb/bin/orb_service"
ORB_CONFIG = "/etc/opt/Brimwell/orb/orb_config.json"
KERNEL_MODULE_FILE = "/opt/Brimwell/orb/kmod/brwvsm.ko"
FIXTURES = Path(__file__).parent / "fixtures" / "orb"
TOKEN = "5f0c8a1e-2b7d-4c39-orb-admin"
PACKAGE = "orb-2.1.0-7.el8.x86_64\n"
DEPLIST = ("package: orb.x86_64 2.1.0-7.el8\n"
           "  dependency: kmod-brwvsm\n"
           "   provider: kmod-brwvsm-4.18.0-305.el8.x86_64.x86_64 2.1.0-7.el8\n")
MODINFO = [("filename:", KERNEL_MODULE_FILE),
           ("version:", "2.1.0.7"),
           ("description:", "Brimwell volume snapshot module"),
           ("license:", "Proprietary")]
ENDPOINTS = ("notify", "smtp", "system", "volume", "destination", "backup")
THREADS_FILE = str(LOGS / "gatr_orb-threadsdump.log")
DEPLIST_FILE = str(LOGS / "gatr_orb-deplist.log")


def answers(fixture):
    return {name: json.loads((Path(fixture) / f"{name}.json").read_text())
            for name in ENDPOINTS + ("threads",)}


def first_group(size):
    # In the C locale the thousands separator is the NUL character, which ends the text.
    digits = str(size)
    return digits[:len(digits) % 3 or 3]


def stamp(path):
    info = os.stat(path)
    date = datetime.datetime.fromtimestamp(int(info.st_mtime), datetime.timezone.utc)
    return f"{date:%Y-%m-%dT%H:%M:%SZ}", first_group(info.st_size)


def probe_lines(pid):
    date, size = stamp(ORB_EXE)
    out = f"{'Daemon:':<20}  orb_service running, process ID {pid}\n\n"
    out += (f"Daemon module: orb_service\n"
            f"  {'filename:':<18}  {ORB_EXE}\n"
            f"  {'date:':<18}  {date}\n"
            f"  {'size:':<18}  {size} bytes\n\n")
    out += "Kernel module: brwvsm\n"
    out += "".join(f"  {key:<18}  {value}\n" for key, value in MODINFO)
    date, size = stamp(KERNEL_MODULE_FILE)
    out += f"  {'date:':<18}  {date}\n  {'size:':<18}  {size} bytes\n"
    out += f"  {'status:':<18}  loaded\n\n"
    return out


def expected_block(pid, configuration):
    return (f"{RULE}\n{BANNER}\n\n"
            f"{'Installed:':<20}  yes\n\n"
            "\n"
            f"{'Package:':<20}  {PACKAGE}"
            + probe_lines(pid) + configuration)


def section(main_log):
    start = main_log.index(f"{RULE}\n{BANNER}\n\n")
    end = main_log.find(f"{RULE}\n", start + len(RULE) + 1)
    return main_log[start:end]


def archive_members(run):
    with tarfile.open(run.settings["last_archive_file"]) as archive:
        return {m.name: archive.extractfile(m).read().decode() if m.isfile() else None
                for m in archive.getmembers()}


class Product:
    """The backup product laid out in the sandbox: its service program running, its
    configuration file, and stand-ins for the package tools and the kernel module tools."""

    def __init__(self, sandbox):
        self.sandbox = sandbox
        self.process = None

    def install(self, config):
        self.sandbox.write(ORB_EXE, Path(shutil.which("sleep")).read_bytes(), 0o755)
        self.sandbox.write(KERNEL_MODULE_FILE, b"\x7fELF" + b"\0" * 60000)
        if config is not None:
            self.sandbox.write(ORB_CONFIG, config if isinstance(config, str) else json.dumps(config))
        self.sandbox.tool("rpm", '#!/bin/sh\nif [ "$*" = "-q orb" ]; then printf "%s"\n'
                          '  exit 0\nfi\nexec /usr/bin/rpm "$@"\n' % PACKAGE.replace("\n", "\\n"))
        self.sandbox.tool("yum", '#!/bin/sh\n[ "$1" = deplist ] || exit 1\nprintf "%s"\n'
                          % DEPLIST.replace("\n", "\\n"))
        modinfo = "".join(f"{k:<16}{v}\\n" for k, v in MODINFO)
        self.sandbox.tool("modinfo", '#!/bin/sh\nif [ "$1" = brwvsm ]; then printf "%s"; exit 0; '
                          'fi\nexec /usr/sbin/modinfo "$@"\n' % modinfo)
        self.sandbox.tool("lsmod", "#!/bin/sh\n/usr/sbin/lsmod\necho 'brwvsm  45056  2'\n")
        self.process = subprocess.Popen([ORB_EXE, "600"])
        return self.process.pid

    def stop(self):
        if self.process is not None:
            self.process.kill()
            self.process.wait()


@pytest.fixture
def product(sandbox):
    p = Product(sandbox)
    yield p
    p.stop()


def rich_config(port=13581, token=TOKEN):
    return {"rest_port": port, "admin_token": token, "log_level": 3}


def test_rich_fixture_gives_the_whole_block(gatr, product, orb_service):
    service = orb_service(FIXTURES / "rich", TOKEN, 20443)
    pid = product.install(rich_config(20443))
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    expected = expected_block(pid, orb_expect.configuration_of(answers(FIXTURES / "rich")))
    assert section(run.main_log) == expected
    assert run.settings["products"]["orb"] == {"installed": True, "package": PACKAGE}
    assert service.paths() == ["/orb/version/"] + [
        f"/orb/v2.1/{name}/" for name in ("notify", "smtp", "system", "volume", "destination",
                                          "backup", "destination")]
    # The token goes with every report's request and nowhere else.
    assert [auth for _, auth in service.requests] == [None] + [f"Token {TOKEN}"] * 7
    messages = run.messages()
    assert f"{BANNER} section commenced" in messages
    assert f"{BANNER} section completed" in messages
    assert "[1]->volumes[2]->vol_id returned empty string" in messages
    members = archive_members(run)
    assert members[DEPLIST_FILE] == "ORB Dependency List\n\n" + DEPLIST
    assert THREADS_FILE not in members
    assert not [m for m in members if m.endswith(".json") and "_orb-" in m]
    assert "/orb/threads/" not in service.paths()


def test_sparse_fixture_gives_the_short_block(gatr, product, orb_service):
    orb_service(FIXTURES / "sparse", TOKEN)
    pid = product.install({"admin_token": TOKEN})
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    configuration = orb_expect.configuration_of(answers(FIXTURES / "sparse"))
    assert configuration == (
        "Configuration:      \n"
        "  Notification settings:\n"
        "    [ ]  Notify using email (SMTP)\n"
        "\n"
        "    [ ]  Notify using text messaging (SMS)\n"
        "\n"
        "  Jobs:\n"
        "\n"
        "  Destinations:\n"
        "    Type                  Description                               Destination      "
        "                         User Name\n"
        "\n")
    assert section(run.main_log) == expected_block(pid, configuration)


FAILURES = [
    ("version", "500", False),
    ("version", "close", False),
    ("notify", "not-json", False),
    ("notify", "close", False),
    ("smtp", "500", False),
    ("smtp", "too-large", False),
    ("smtp", "not-json", True),
    ("system", "not-json", False),
    ("volume", "too-large", False),
    ("destination", "500", False),
    ("backup", "close", False),
]


@pytest.mark.parametrize("endpoint,mode,unparsable", FAILURES,
                         ids=[f"{e}-{m}" for e, m, _ in FAILURES])
def test_a_failing_endpoint_prints_the_failure_line_and_the_section_goes_on(
        gatr, product, orb_service, endpoint, mode, unparsable):
    service = orb_service(FIXTURES / "rich", TOKEN)
    service.fail(endpoint, mode)
    pid = product.install(rich_config())
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    failed = () if unparsable else (endpoint,)
    expected = orb_expect.configuration_of(answers(FIXTURES / "rich"), failed, unparsable)
    assert section(run.main_log) == expected_block(pid, expected)
    assert orb_expect.FAILURE in expected
    if endpoint == "version":
        # Without a version every report asks a path the service does not know.
        assert "/orb//notify/" in service.paths()
    assert f"{BANNER} section completed" in run.messages()
    assert archive_members(run)[DEPLIST_FILE] == "ORB Dependency List\n\n" + DEPLIST


@pytest.mark.parametrize("config,what", [
    (None, "missing"),
    ("{ not json", "broken"),
    ({"rest_port": 13581, "admin_token": ""}, "empty token"),
    ({"rest_port": 13581, "admin_token": "wrong-token"}, "wrong token"),
    ({"rest_port": 13582, "admin_token": TOKEN}, "wrong port"),
])
def test_without_usable_parameters_every_report_fails_and_the_run_ends_well(
        gatr, product, orb_service, config, what):
    service = orb_service(FIXTURES / "rich", TOKEN)
    pid = product.install(config)
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    expected = orb_expect.configuration_of(answers(FIXTURES / "rich"), ENDPOINTS)
    assert section(run.main_log) == expected_block(pid, expected), what
    assert archive_members(run)[DEPLIST_FILE] == "ORB Dependency List\n\n" + DEPLIST
    assert f"{BANNER} section completed" in run.messages()
    if config is None:
        assert f"fopen on {ORB_CONFIG} failed: No such file or directory" in run.messages()
        assert service.requests == []
    if what in ("empty token", "wrong token"):
        # The version needs no token; every report is refused.
        assert service.paths()[0] == "/orb/version/"
        assert [a for _, a in service.requests[1:]] == [
            "Token " + config["admin_token"]] * (len(service.requests) - 1)


def test_default_port_and_cut_token_and_api_version(gatr, product, orb_service, sandbox):
    # A token of 80 characters is cut to 63, an API version of 20 to 15: the service here
    # knows only the cut values, so a complete block shows both cuts were made.
    fixture = sandbox.scratch / "long-version"
    shutil.copytree(FIXTURES / "rich", fixture)
    (fixture / "version.json").write_text(json.dumps({"api_version": "v2.1-preview-build7"}))
    long_token = "t" * 63 + "IGNORED-TAIL-17"
    service = orb_service(fixture, long_token[:63], 13581)
    pid = product.install({"admin_token": long_token, "rest_port": 0})
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    assert section(run.main_log) == expected_block(
        pid, orb_expect.configuration_of(answers(fixture)))
    assert "/orb/v2.1-preview-bu/notify/" in service.paths()


def test_slow_answers_within_the_limit_are_waited_for(gatr, product, orb_service):
    # The 60-second limit itself is proved against a silent peer with a one-second limit in
    # the unit tests; waiting it out here would cost a minute a run.
    service = orb_service(FIXTURES / "rich", TOKEN)
    service.fail("backup", ("slow", 3))
    pid = product.install(rich_config())
    run = gatr("-s")
    assert run.rc == 0, run.stderr
    assert section(run.main_log) == expected_block(
        pid, orb_expect.configuration_of(answers(FIXTURES / "rich")))


ITERATION = re.compile(r"^iteration (\d) \[(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)\]$", re.M)


def test_orb_threads_archives_three_iterations_five_seconds_apart(gatr, product, orb_service):
    service = orb_service(FIXTURES / "rich", TOKEN)
    product.install(rich_config())
    run = gatr("-s", "--orb-threads")
    assert run.rc == 0, run.stderr
    text = archive_members(run)[THREADS_FILE]
    assert text.startswith("ORB Threads Dump\n\n")
    iterations = ITERATION.findall(text)
    assert [n for n, _ in iterations] == ["1", "2", "3"]
    times = [datetime.datetime.strptime(t, "%Y-%m-%d %H:%M:%S") for _, t in iterations]
    assert all((b - a).total_seconds() >= 5 for a, b in zip(times, times[1:])), times
    # Each iteration holds the service's answer, written out again as JSON.
    bodies = ITERATION.split(text)[3::3]
    assert len(bodies) == 3
    for body in bodies:
        assert json.loads(body) == answers(FIXTURES / "rich")["threads"]
    assert service.paths().count("/orb/threads/") == 3
    assert ("--orb-threads option specified: ORB threads dump will be generated"
            in run.messages())
    # The admin token is written nowhere, the thread dump included.
    for path in OUTPUT.rglob("*"):
        if path.is_file():
            assert TOKEN.encode() not in path.read_bytes(), path
    for name, text in archive_members(run).items():
        if name != ORB_CONFIG:
            assert text is None or TOKEN not in text, name


def test_orb_threads_with_the_service_failing_keeps_only_the_iteration_lines(
        gatr, product, orb_service):
    service = orb_service(FIXTURES / "rich", TOKEN)
    service.fail("threads", "not-json")
    product.install(rich_config())
    run = gatr("-s", "--orb-threads")
    assert run.rc == 0, run.stderr
    text = archive_members(run)[THREADS_FILE]
    lines = text.split("\n")
    assert lines[:2] == ["ORB Threads Dump", ""]
    assert [ITERATION.match(l).group(1) for l in lines[2:5]] == ["1", "2", "3"]
    assert lines[5:] == [""]


def test_not_installed_product_asks_the_service_nothing(gatr, sandbox, orb_service):
    service = orb_service(FIXTURES / "rich", TOKEN)
    sandbox.write(ORB_CONFIG, json.dumps(rich_config()))
    run = gatr("-s", "--orb-threads")
    assert run.rc == 0, run.stderr
    assert section(run.main_log) == f"{RULE}\n{BANNER}\n\n{'Installed:':<20}  no\n\n"
    assert run.settings["products"]["orb"] == {"installed": False, "package": None}
    assert service.requests == []
    assert not (LOGS / "gatr_orb-deplist.log").exists()
    assert not Path(THREADS_FILE).exists()
