"""The product sections of a diagnostics run, compared whole with expected files: the backup
product against a fake of its local REST service (HTTPS, token checked), the management agent
and the companion service installed with the real rpm, and the manifests that decide what each
product's run gathers."""
import json
import os
import re
import socket
import subprocess
import time
from datetime import datetime
from pathlib import Path

import pytest

from conftest import DATA, LOGS, OUTPUT, expect, pattern

ORB, ORB_CONFIG = "/opt/Brimwell/orb", "/etc/opt/Brimwell/orb/orb_config.json"
TOKEN = "5f0c8a1e-2b7d-4c39-orb-admin"
AGENT, AGENT_EXE = "/opt/Brimwell/watchpost-agent", "/opt/Brimwell/watchpost-agent/bin/watchpost-agent"
HUB_EXE, HUB_DATA = "/opt/Brimwell/tallyhub-service/bin/tallyhub-proxy", "/var/opt/Brimwell/tallyhub-service"
STAMP = 1720092328  # the modification time of every product file, so that its date line is fixed
# A service program: a shell keeps its own name in the process listing while it sleeps; asked
# for its version, as the fallback manifests do, it answers.
PROGRAM = '#!/bin/sh\n[ "$1" = --version ] && echo "version 4.1.2" && exit 0\nsleep 600\n'
FAILURES = {"500": ('{"detail": "internal error"}', 500, 0), "not-json": ("<html>maintenance</html>", 200, 0),
            "too-large": (json.dumps([{"uuid": "x" * 64, "pad": "y" * 1000}] * 20), 200, 0),
            "close": (None, 200, 0), "slow": (None, 200, 3)}


def products(main_log):
    """The three product sections, from the first one's rule to the footer's."""
    start = main_log.index("-" * 80 + "\nBRIMWELL IRONKEEP ORB\n")
    return main_log[start:main_log.rindex("-" * 80 + "\nlog generated on")]


def place(sandbox, path, text, mode=0o644):
    sandbox.write(path, text, mode)
    os.utime(path, (STAMP, STAMP))


@pytest.fixture
def services(sandbox):
    started = []
    yield lambda path: started.append(subprocess.Popen([path])) or started[-1].pid
    for process in started:
        process.kill()
        process.wait()


@pytest.fixture
def orb(sandbox, http_service, services):
    """Installs the backup product (its service running, its kernel module loaded, its package
    known to rpm and yum) against a REST service answering from data/orb/<fixture>."""
    rest = http_service(tls=True, port=13581)
    rest.public = {"/orb/version/"}

    def install(fixture="rich", config=None, token=TOKEN, version=None, fail=()):
        rest.token = "Token " + token
        answers = {p.stem: p.read_text() for p in (DATA / "orb" / fixture).glob("*.json")}
        answers["version"] = version or answers["version"]
        api = json.loads(answers["version"]).get("api_version", "")[:15]
        for name, text in answers.items():
            path = f"/orb/{name}/" if name in ("version", "threads") else f"/orb/{api}/{name}/"
            body, status, delay = FAILURES[fail[1]] if fail and fail[0] == name else (text, 200, 0)
            rest.answer(path, text if body is None and delay else body, status, delay)
        place(sandbox, f"{ORB}/bin/orb_service", PROGRAM, 0o755)
        place(sandbox, f"{ORB}/kmod/brwvsm.ko", b"\x7fELF" + bytes(60000))
        if config is not None:
            sandbox.write(ORB_CONFIG, config if isinstance(config, str) else json.dumps(config))
        sandbox.tool("rpm", '#!/bin/sh\n[ "$*" = "-q orb" ] && echo orb-2.1.0-7.el8.x86_64 && exit 0\n'
                            'exec /usr/bin/rpm "$@"\n')
        sandbox.tool("yum", f"#!/bin/sh\n[ \"$1\" = deplist ] && cat {DATA}/orb/deplist.txt\n")
        sandbox.tool("modinfo", f'#!/bin/sh\n[ "$1" = brwvsm ] && cat {DATA}/orb/modinfo.txt && exit 0\n'
                                'exec /usr/sbin/modinfo "$@"\n')
        sandbox.tool("lsmod", "#!/bin/sh\n/usr/sbin/lsmod\necho 'brwvsm  45056  2'\n")
        return services(f"{ORB}/bin/orb_service")

    install.rest = rest
    return install


CONFIG = {"rest_port": 13581, "admin_token": TOKEN, "log_level": 3}


def logged(message, source="transfer.cpp"):
    """A whole line of the error log that reports an error."""
    return f"{{time}} {source:<16} [{{line}}] ERROR                {message}"


def failed(reason, path, port=13581):
    return logged(f"call to curl_easy_perform() failed: {reason} : https://localhost:{port}/orb/{path}")


def answered(status, path):
    return logged(f"https://localhost:13581/orb/{path} returned exit code: {status}")


INTERNAL, INVALID = '(500) {"detail": "internal error"}', '(401) {"detail": "Invalid token."}'
CLOSED, TOO_LARGE = "(52) Server returned nothing (no headers, no data)", \
    "(23) Failed writing received data to disk/application"
UNREACHABLE = "(7) Couldn't connect to server"
ORB_CASES = {  # name: (how the product is installed, the cases whose expected section and requests
    # it compares with ("": nothing asked), the first line its REST client logs ("": not one))
    "rich": ({}, "rich", "rich", ""),
    "sparse": ({"fixture": "sparse", "config": {"admin_token": TOKEN}}, "sparse", "sparse", ""),  # default port
    "version-500": ({"fail": ("version", "500")}, "version-500", "version-500", answered(INTERNAL, "version/")),
    "version-close": ({"fail": ("version", "close")}, "version-500", "version-500", failed(CLOSED, "version/")),
    # An answer that is not JSON is not reported: the section's failure line says it all.
    "notify-not-json": ({"fail": ("notify", "not-json")}, "notify-not-json", "notify-not-json", ""),
    "notify-close": ({"fail": ("notify", "close")}, "notify-not-json", "notify-not-json",
                     failed(CLOSED, "v2.1/notify/")),
    "smtp-500": ({"fail": ("smtp", "500")}, "notify-not-json", "rich", answered(INTERNAL, "v2.1/smtp/")),
    "smtp-too-large": ({"fail": ("smtp", "too-large")}, "notify-not-json", "rich",
                       failed(TOO_LARGE, "v2.1/smtp/")),
    "smtp-not-json": ({"fail": ("smtp", "not-json")}, "smtp-not-json", "rich", ""),
    "system-not-json": ({"fail": ("system", "not-json")}, "system-not-json", "system-not-json", ""),
    "volume-too-large": ({"fail": ("volume", "too-large")}, "system-not-json", "volume-too-large",
                         failed(TOO_LARGE, "v2.1/volume/")),
    "destination-500": ({"fail": ("destination", "500")}, "destination-500", "destination-500",
                        answered(INTERNAL, "v2.1/destination/")),
    "backup-close": ({"fail": ("backup", "close")}, "system-not-json", "rich", failed(CLOSED, "v2.1/backup/")),
    "backup-slow": ({"fail": ("backup", "slow")}, "rich", "rich", ""),
    "no-configuration": ({"config": None}, "version-500", "",
                         logged(f"fopen on {ORB_CONFIG} failed: No such file or directory", "jsonparser")),
    # A configuration that is not JSON is not itself reported: the reports then ask port 0.
    "broken-configuration": ({"config": "{ not json"}, "version-500", "", failed(UNREACHABLE, "/notify/", 0)),
    "empty-token": ({"config": dict(CONFIG, admin_token="")}, "version-500", "empty-token",
                    answered(INVALID, "v2.1/notify/")),
    "wrong-token": ({"config": dict(CONFIG, admin_token="wrong-token")}, "version-500", "wrong-token",
                    answered(INVALID, "v2.1/notify/")),
    "wrong-port": ({"config": dict(CONFIG, rest_port=13582)}, "version-500", "",
                   failed(UNREACHABLE, "version/", 13582)),
    # A token of 80 characters is used cut to 63, an API version of 19 cut to 15.
    "long-token-and-version": ({"config": {"admin_token": "t" * 63 + "IGNORED-TAIL-17", "rest_port": 0},
                                "token": "t" * 63, "version": '{"api_version": "v2.1-preview-build7"}'},
                               "rich", "long-token-and-version", ""),
}


@pytest.mark.parametrize("name", ORB_CASES)
def test_backup_product_section(gatr, machine, orb, name):
    case, section, requests, first_error = ORB_CASES[name]
    pid = orb(**dict({"config": CONFIG}, **case))
    run = gatr("-s")
    assert run.rc == 0
    expect(products(run.main_log), f"products/orb-{section}", pid=pid)
    expect("".join(f"{r.path} {r.headers.get('Authorization')}\n" for r in orb.rest.requests),
           requests and f"products/orb-{requests}.requests")
    client = [line for line in run.error_log.splitlines()
              if re.match(r"(transfer|jsonparser)\b", line[20:36])]  # what the REST client logged
    assert re.fullmatch(pattern(first_error), (client or [""])[0]), (client[:1], first_error)
    assert run.member(f"{LOGS}/gatr_orb-deplist.log") == "ORB Dependency List\n\n" + \
        (DATA / "orb/deplist.txt").read_text()
    assert not [p for p in OUTPUT.rglob("*") if p.is_file() and TOKEN.encode() in p.read_bytes()]


@pytest.mark.parametrize("threads", ["rich", "failing"])
def test_thread_dump_takes_three_answers_five_seconds_apart(gatr, machine, orb, threads):
    orb(config=CONFIG, fail=("threads", "not-json") if threads == "failing" else ())
    run = gatr("-s", "--orb-threads")
    dump = run.member(f"{LOGS}/gatr_orb-threadsdump.log")
    expect(dump, f"products/orb-threads-{threads}")
    times = [datetime.strptime(t, "%Y-%m-%d %H:%M:%S") for t in re.findall(r"\[(.{19})\]", dump)]
    assert len(times) == 3 and all((b - a).total_seconds() >= 5 for a, b in zip(times, times[1:]))
    assert "--orb-threads option specified: ORB threads dump will be generated" in run.error_log


@pytest.fixture(scope="module")
def packages(tmp_path_factory):
    """The agent and the service as RPMs built with rpmbuild, holding their programs."""
    top = tmp_path_factory.mktemp("rpm")
    (top / "program").write_text(PROGRAM)
    built = {}
    for name, version, exe in (("watchpost-agent", "4.1.2", AGENT_EXE), ("tallyhub-service", "2.0.7", HUB_EXE)):
        spec = (DATA / "products/package.spec").read_text()
        spec = spec.replace("@NAME@", name).replace("@VERSION@", version).replace("@EXE@", exe)
        (top / f"{name}.spec").write_text(spec)
        subprocess.run(["rpmbuild", "-bb", "--define", f"_topdir {top}", "--define", f"_sourcedir {top}",
                        top / f"{name}.spec"], check=True, capture_output=True)
        built[name] = next((top / "RPMS").rglob(f"{name}-{version}-1.*.rpm"))
    return built


AGENT_CASES = {  # name: the case whose expected settings it shares
    "running": "running", "stopped": "running", "without-package": "without-package",
    "not-installed": "not-installed"}


@pytest.mark.parametrize("name", AGENT_CASES)
def test_agent_and_service_sections(gatr, machine, sandbox, packages, services, http_service, name):
    rest = http_service(tls=True, port=13581)  # a backup product's service, not installed: never asked
    for package, exe in (("watchpost-agent", AGENT_EXE), ("tallyhub-service", HUB_EXE)):
        if name in ("running", "stopped"):
            subprocess.run(["rpm", "-i", "--nodeps", packages[package]], check=True, capture_output=True)
            os.utime(exe, (STAMP, STAMP))
        elif name == "without-package":
            place(sandbox, exe, PROGRAM, 0o755)
    pids = {"agent": services(AGENT_EXE), "hub": services(HUB_EXE)} if name == "running" else {}
    run = gatr("-s")
    assert (run.rc, rest.requests) == (0, [])
    expect(products(run.main_log), f"products/agents-{name}", **pids)
    expect(json.dumps(run.settings["products"], indent=1) + "\n",
           f"products/agents-{AGENT_CASES[name]}.settings")


MANIFESTS = {  # name: the cases whose expected members and errors it shares ("": no errors)
    **{n: (n, n) for n in ("patterns", "commands", "not-json", "bad-entries")},
    "no-linux": ("not-json", "no-linux"), "hostile-names": ("hostile-names", "")}


@pytest.mark.parametrize("name", MANIFESTS)
def test_the_agent_manifest_decides_what_is_gathered(gatr, machine, sandbox, name):
    place(sandbox, AGENT_EXE, "#!/bin/sh\necho 'watchpost-agent 4.1.2'\n", 0o755)
    for path in (DATA / "products/tree.txt").read_text().splitlines():
        sandbox.write(path, "x\n")
    sandbox.write(f"{AGENT}/gatr_manifest.json", (DATA / f"products/manifest-{name}.json").read_text())
    sandbox.write("/opt/fallback-must-not-be-used", "")
    run = gatr("-s", env={"AGENT_LOGS": "/var/opt/agent-logs"})
    members, errors = MANIFESTS[name]
    gathered = [m for m in run.members() if "agent" in m or "pwned" in m or "gatr_cmd" in m]
    expect("\n".join(gathered) + "\n", f"products/manifest-{members}.members")
    lines = [line for line in run.error_log.splitlines(True)
             if re.match(r"(manifest|spawn|folders|jsonparser)\b", line[20:36])]
    expect("".join(lines), errors and f"products/manifest-{errors}.errors")
    assert not Path("/var/opt/pwned").exists()
    if name == "commands":
        expect(run.member(f"{LOGS}/gatr_cmd-both.log"), "products/manifest-commands.output")


UNINSTALLS = {  # distribution: the case whose expected calls it shares ("": none are made)
    "CENTOS-6": "CENTOS-6", "CENTOS-7": "CENTOS-7", "CENTOS-8": "CENTOS-7", "UBUNTU": "", "%DISTRIBUTION%": ""}


@pytest.mark.parametrize("distribution", UNINSTALLS)
def test_the_shipped_uninstall_script_removes_the_product_and_only_it(machine, sandbox, services, distribution):
    """The script the manual uninstall fills in, run with stand-ins that record every call that
    would change the machine."""
    for tool in ("systemctl", "service", "chkconfig", "rmmod", "depmod", "shutdown", "reboot", "rpm"):
        sandbox.tool(tool, f'#!/bin/sh\necho "$(basename $0) $*" >> /var/opt/calls\n'
                           f'[ "$1" = -qa ] && printf "orb\\norb-console\\nkmod-brwvsm-4.18.0\\nbash\\norbit\\n"\n'
                           'exit 0\n')
    sandbox.tool("lsmod", "#!/bin/sh\necho 'brwvsm 45056 2'\n")
    sandbox.overlay("/lib/modules")
    kept = ["/root/keep.txt", "/opt/Brimwell/other/x"]
    removed = [f"{ORB}/x", "/etc/opt/Brimwell/orb/x", "/var/opt/Brimwell/orb/x", "/root/.Brimwell/orb/x",
               "/lib/modules/4.18.0/extra/brwvsm.ko.xz"]
    for path in kept + removed:
        sandbox.write(path, "x\n")
    place(sandbox, f"{ORB}/bin/orb_service", PROGRAM, 0o755)
    pid = services(f"{ORB}/bin/orb_service")
    script = (Path(__file__).parents[2] / "var/orb/uninstall_orb.sh.templ").read_text()
    Path("/var/opt/uninstall.sh").write_text(script.replace("%DISTRIBUTION%", distribution).replace("%HOME%", "/root"))
    done = subprocess.run(["sh", "/var/opt/uninstall.sh"], capture_output=True, text=True, timeout=60,
                          env={"PATH": "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"})
    known = distribution.startswith("CENTOS")
    assert done.returncode == (0 if known else 1)
    expect(done.stdout, f"products/uninstall-{distribution.strip('%')}", pid=pid)
    calls = Path("/var/opt/calls").read_text() if Path("/var/opt/calls").exists() else ""
    expect(calls, UNINSTALLS[distribution] and f"products/uninstall-{UNINSTALLS[distribution]}.calls")
    assert [p for p in removed + kept if Path(p).exists()] == (kept if known else removed + kept)


def test_the_local_service_is_asked_directly_whatever_proxy_the_environment_names(gatr, machine, orb):
    pid = orb(config=CONFIG)
    with socket.create_server(("127.0.0.1", 0)) as proxy:
        proxy.setblocking(False)
        url = f"http://127.0.0.1:{proxy.getsockname()[1]}"
        run = gatr("-s", env=dict.fromkeys(("https_proxy", "HTTPS_PROXY", "all_proxy", "http_proxy"), url))
        with pytest.raises(BlockingIOError):
            proxy.accept()  # nobody ever called
    expect(products(run.main_log), "products/orb-rich", pid=pid)
