"""The upload mode: an archive to a real FTP server, the connector file from the control server,
then the OAuth token and the case record at the fake support services, all on loopback."""
import base64
import json
import os
import re
import socket
import subprocess
from pathlib import Path

import pytest

from conftest import CONNECTOR_KEY, OUTPUT, PROGRAM, SETTINGS, STAGE, expect

CASE = "01234567"
ARCHIVE = OUTPUT / "gatr_node1_20240704T1125Z.tar.gz"
TOKEN_PATH, CASE_PATH = "/services/oauth2/token", f"/services/apexrest/case/gatr/v1/{CASE}"
ACCESS_TOKEN = "00D5e000000Tok!AQ4AQGd.tEsT_t0ken"
# Characters a form encoder would change: the request must carry them unchanged.
CREDENTIALS = {"client_id": "3MVG9gatrTestClient.Id_0123456789",
               "client_secret": "s3cr&t+value/with=odd chars",
               "username": "support.api@brimwell.example", "password": "P@ss w0rd%21"}
SECRETS = [CREDENTIALS["client_secret"], CREDENTIALS["password"], ACCESS_TOKEN, CONNECTOR_KEY.decode()]
UPDATE_FAILED = "gatr: failed to update the case in the Brimwell Support system\n"
AUTHENTICATION_FAILED = ("gatr: failed to authenticate with the Brimwell Support system: refer to the "
                         "gatr_errors.log for details\n")
NOT_JSON = "gatr: failed to load the returned JSON document\n"


def encipher(plain: bytes, key: bytes = CONNECTOR_KEY, iv: bytes = None) -> str:
    """As the support service's operator does it: openssl's AES-256-CBC, the vector in front."""
    iv = iv if iv is not None else os.urandom(16)
    cipher = subprocess.run(["openssl", "enc", "-aes-256-cbc", "-K", key.hex(), "-iv", iv.hex()],
                            input=plain, capture_output=True, check=True).stdout
    return base64.b64encode(iv + cipher).decode()


class Setup:
    """EU and US on one FTP server, AU the control server, the support services, an archive and
    the settings a diagnostics run left."""

    def __init__(self, sandbox, gatr, ftp_service, http_service):
        self.gatr, self.ftp_service = gatr, ftp_service
        self.region, self.control, self.oauth = ftp_service("region"), ftp_service("control"), http_service()
        self.servers = [self.server("EU", self.region), self.server("US", self.region),
                        self.server("AU", self.control)]
        self.configure(self.servers)
        self.connector()
        self.oauth.answer(TOKEN_PATH, json.dumps({"access_token": ACCESS_TOKEN, "token_type": "Bearer",
                                                  "instance_url": self.oauth.url}))
        self.oauth.answer(CASE_PATH, '{"status": 0}')
        self.content = os.urandom(300_000)
        sandbox.write(ARCHIVE, self.content)
        sandbox.write(SETTINGS, json.dumps({"version": 1, "system": {
                          "operating_system": "CentOS Linux release 7.9.2009 (Core)", "version": "7.9.2009",
                          "kernel": "3.10.0-1160.el7.x86_64", "platform": "x86_64"}, "products": {
                          "orb": {"installed": True, "package": "orb-10.0.2-1234.el7.x86_64"},
                          "thb": {"installed": False, "package": ""},
                          "cmd": {"installed": True, "package": "watchpost-agent-5.0.0-1.x86_64"}}}))

    @staticmethod
    def server(region, ftp, url="ftp://127.0.0.1"):
        return {"region": region, "url": url, "port": ftp.port, "use_secure": False}

    def configure(self, servers, control=2, stall=None):
        limits = {"limits": {"transfer_stall_seconds": stall}} if stall else {}
        (PROGRAM / "etc/gatr_config.json").write_text(
            json.dumps({"ftp_servers": servers, "control_ftp_server": control, **limits}))

    def connector(self, url=None, key=CONNECTOR_KEY, **overrides):
        document = {"authentication_url": url or self.oauth.url + TOKEN_PATH, "grant_type": "password"}
        document.update({name: encipher(value.encode(), key) for name, value in CREDENTIALS.items()})
        document.update(overrides)
        (self.control.control / ".connector").write_text(json.dumps(document))

    def upload(self, *args, region="eu", case=CASE, archive=ARCHIVE, env=None):
        run = self.gatr(*args, "-u", region, case, str(archive), env=env)
        for text in (run.stdout, run.stderr, run.error_log or ""):
            assert not [s for s in SECRETS if s in text]
        return run

    def uploaded(self, name=f"{CASE}_{ARCHIVE.name}", server=None):
        path = (server or self.region).upload / name
        return path.read_bytes() if path.exists() else None


@pytest.fixture
def setup(sandbox, gatr, ftp_service, http_service):
    return Setup(sandbox, gatr, ftp_service, http_service)


def test_upload_sends_the_archive_and_records_it_in_the_case(setup):
    run = setup.upload()
    assert (run.rc, run.stderr) == (0, "")
    # Under LC_ALL=C the locale does not group digits: the figures stand whole.
    expect(run.stdout, "upload/stdout", archive=ARCHIVE)
    assert setup.uploaded() == setup.content
    token, record = setup.oauth.requests
    assert (token.path, token.headers["Content-Type"]) == (TOKEN_PATH, "application/x-www-form-urlencoded")
    expect(token.body.decode() + "\n", "upload/token-form")
    assert (record.path, record.headers["Authorization"], record.headers["Content-Type"]) == (
        CASE_PATH, "Bearer " + ACCESS_TOKEN, "application/json")
    expect(record.body.decode() + "\n", "upload/case-record")
    assert re.search(f"completed upload of {ARCHIVE} to EU FTP server - sent 300000 bytes in ", run.error_log)
    assert f"completed update of case number {CASE}\n" in run.error_log


def test_verbose_upload_traces_the_exchange_without_the_token(setup):
    run = setup.upload("-v")
    assert run.rc == 0
    for line in ("> USER anonymous\r\n", f"> POST {CASE_PATH} HTTP/1.1\r\n", "\r\nAuthorization: Bearer ********\r\n"):
        assert line in run.stderr


def test_statistics_are_grouped_and_the_rate_is_in_kibibytes(setup, sandbox, ftp_service, tmp_path):
    subprocess.run(["localedef", "-i", "en_US", "-f", "UTF-8", tmp_path / "en_US.UTF-8"], check=True,
                   capture_output=True)
    # The C library keeps the LOCPATH text it splits for the process's life: not a leak of ours.
    (tmp_path / "lsan.supp").write_text("leak:argz_add_sep\n")
    slow = ftp_service("slow", read_limit=1 << 20)
    setup.configure([setup.server("EU", slow)] + setup.servers[1:])
    sandbox.write(ARCHIVE, os.urandom(3 << 20))
    run = setup.upload(env={"LC_ALL": "en_US.UTF-8", "LOCPATH": str(tmp_path),
                            "LSAN_OPTIONS": f"suppressions={tmp_path}/lsan.supp"})
    size, seconds, rate = re.search(r"sent ([\d,]+) bytes in ([\d,.]+) seconds \(([\d,.]+) KB/s\)",
                                    run.stdout).groups()
    number = lambda text: float(text.replace(",", ""))
    assert size == "3,145,728" and number(seconds) > 2
    # The rate is over the transfer alone, the seconds over the whole exchange: it can only be
    # the higher, by the few milliseconds of the closing exchange; kilobytes of 1000 would put it
    # 2.4 % higher still.
    assert 0.999 < number(rate) / (number(size) / number(seconds) / 1024) < 1.02


@pytest.mark.parametrize("region, name", [("eU", None), ("us", "./gatr_x.tar.gz")])
def test_region_in_any_case_and_an_archive_named_from_the_callers_folder(setup, sandbox, region, name):
    if name:
        Path("/root", name).write_bytes(b"abc")  # where the user started gatr
    run = setup.upload(region=region, archive=name or ARCHIVE)
    assert run.rc == 0
    base = Path(name or ARCHIVE).name
    shown = Path("/root", base) if name else ARCHIVE
    assert f"completed upload of {shown} to {region.upper()} FTP server - " in run.error_log
    assert setup.uploaded(f"{CASE}_{base}") == (b"abc" if name else setup.content)
    description = json.loads(setup.oauth.requests[1].body)["description"]
    assert description.endswith(f"ftp://127.0.0.1/{CASE}_{base}")


def test_the_last_server_listed_for_a_region_wins(setup, ftp_service):
    later = ftp_service("later")
    setup.configure(setup.servers + [setup.server("EU", later)])
    assert setup.upload().rc == 0
    assert (setup.uploaded(server=later), setup.uploaded()) == (setup.content, None)


CHECKS = [  # what is wrong, arguments, standard error
    ("no configuration", {}, "gatr: failed to load the gatr_config file\n"),
    ("configuration not JSON", {}, "gatr: failed to load the gatr_config file\n"),
    ("no servers", {}, "gatr: support region must be one of \n"),
    ("unknown region", {"region": "xx"}, "gatr: support region must be one of EU, US or AU\n"),
    ("region before case number", {"region": "xx", "case": "123"}, "gatr: support region must be one of EU, US or AU\n"),
    *[("case number " + c, {"case": c}, "gatr: case number must be eight digits (including leading zeroes)\n")
      for c in ("1234567", "123456789", "0123456A")],
    ("case number before archive", {"case": "123", "archive": "/none"},
     "gatr: case number must be eight digits (including leading zeroes)\n"),
    ("archive missing", {"archive": "/var/opt/none.tar.gz"}, "gatr: archive file does not exist\n"),
    *[("archive a " + k, {"archive": a}, "gatr: archive file does not exist\n")  # not a plain file, so none
      for k, a in (("folder", "/var/opt"), ("socket", "/var/opt/archive.sock"), ("device", "/dev/zero"))],
    *[("archive a mapping " + k, {"archive": a}, "gatr: archive file is an obfuscation mapping, which stays with "
       "the customer\n") for k, a in (("by name", "/var/opt/a.tar.gz.map.json"), ("by content", "/var/opt/a.tar.gz"))],
]


@pytest.mark.parametrize("wrong, args, stderr", CHECKS, ids=[c[0] for c in CHECKS])
def test_each_check_fails_with_its_line_before_anything_is_sent(setup, wrong, args, stderr):
    config = PROGRAM / "etc/gatr_config.json"
    if wrong == "no configuration":
        config.unlink()
    elif wrong == "configuration not JSON":
        config.write_text('{"ftp_servers": [')
    elif wrong == "no servers":
        setup.configure([])
    elif wrong == "archive a socket":
        socket.socket(socket.AF_UNIX).bind(args["archive"])  # the name stays when the socket goes
    elif wrong.startswith("archive a mapping"):
        Path(args["archive"]).write_text('{\n  "format": "gatr-obfuscation-map",\n  "version": 1' if "content" in wrong
                                         else "gzip bytes")
    run = setup.upload(**args)
    assert (run.rc, run.stdout, run.stderr) == (1, "", stderr)
    assert (list(setup.region.upload.iterdir()), setup.oauth.requests) == ([], [])


FAILURES = [  # what goes wrong, standard error, the error-log line that says why ({url}: the peer)
    ("ftp down", f"gatr: upload of {ARCHIVE} to EU FTP server failed - refer to the gatr_errors.log for details\n",
     "call to curl_easy_perform() failed: (7) Couldn't connect to server : {url}"),
    ("ftp refusing", f"gatr: upload of {ARCHIVE} to EU FTP server failed - refer to the gatr_errors.log for details\n",
     "call to curl_easy_perform() failed: (25) Upload failed (at start/before it took off) : {url}"),
    *[(f"ftp as {scheme}", f"gatr: upload of {ARCHIVE} to EU FTP server failed - refer to the gatr_errors.log for "
       "details\n", "call to curl_easy_perform() failed: (1) Unsupported protocol : {url}")
      for scheme in ("file:///var/opt/sink", "scp://127.0.0.1", "dict://127.0.0.1")],
    ("connector missing", "gatr: failed to retrieve the connector configuration file\n" + UPDATE_FAILED,
     "call to curl_easy_perform() failed: (78) Remote file not found : {url}"),
    ("control down", "gatr: failed to retrieve the connector configuration file\n" + UPDATE_FAILED, None),
    ("connector not JSON", NOT_JSON + UPDATE_FAILED, None),
    ("value of only a vector", "gatr: failed to decrypt JSON values\n" + UPDATE_FAILED, None),
    ("value too short", "gatr: failed to decrypt JSON values\n" + UPDATE_FAILED, None),
    ("value not base64", "gatr: failed to decrypt JSON values\n" + UPDATE_FAILED, None),
    # libcrypto's own account of the failure comes first, in the words of its version.
    ("another key", "...gatr: failed to decrypt JSON values\n" + UPDATE_FAILED, None),
    ("token failing", AUTHENTICATION_FAILED, '{url} returned exit code: (500) {{"error": "invalid_grant"}}'),
    ("token down", AUTHENTICATION_FAILED,
     "call to curl_easy_perform() failed: (7) Couldn't connect to server : http://127.0.0.1:1/token"),
    ("token not JSON", NOT_JSON, None),
    ("token peer unproven", AUTHENTICATION_FAILED, None),  # a self-signed certificate
    ("case failing", "gatr: failed to update the case in the Brimwell Support system : refer to the "
                     "gatr_errors.log for details\n", '{url} returned exit code: (500) {{"message": "internal"}}'),
    ("case refused", f"gatr: update of case number {CASE} failed: Case {CASE} is closed\n",
     f"update of case number {CASE} failed: Case {CASE} is closed"),
    ("case not JSON", NOT_JSON, None),
]


def break_peer(setup, wrong, ftp_service, http_service):
    """Makes the one thing go wrong; returns the URL the error log names."""
    vector = base64.b64encode(bytes(16)).decode()
    oauth, token, case = setup.oauth, setup.oauth.url + TOKEN_PATH, setup.oauth.url + CASE_PATH
    if wrong.startswith("ftp as "):
        setup.configure([dict(setup.servers[0], url=wrong[7:])] + setup.servers[1:])
        return f"{wrong[7:]}:{setup.region.port}/{CASE}_{ARCHIVE.name}"
    if wrong == "token peer unproven":
        setup.secure = http_service(tls=True)
        setup.connector(url=setup.secure.url + TOKEN_PATH)
    elif wrong == "ftp down":
        setup.region.stop()
    elif wrong == "ftp refusing":
        refusing = ftp_service("refusing", read_only=True)
        setup.configure([setup.server("EU", refusing)] + setup.servers[1:])
        return f"ftp://127.0.0.1:{refusing.port}/{CASE}_{ARCHIVE.name}"
    elif wrong == "connector missing":
        (setup.control.control / ".connector").unlink()
        return f"ftp://127.0.0.1:{setup.control.port}/.connector"
    elif wrong == "control down":
        setup.control.stop()
    elif wrong == "connector not JSON":
        (setup.control.control / ".connector").write_text("authentication_url=http://x\n")
    else:
        {"value of only a vector": lambda: setup.connector(client_id=vector),
         "value too short": lambda: setup.connector(username="c2hvcnQ="),
         "value not base64": lambda: setup.connector(client_secret="!!!!"),
         "another key": lambda: setup.connector(key=b"0123456789abcdef" * 2),
         "token failing": lambda: oauth.answer(TOKEN_PATH, '{"error": "invalid_grant"}', 500),
         "token down": lambda: setup.connector(url="http://127.0.0.1:1/token"),
         "token not JSON": lambda: oauth.answer(TOKEN_PATH, "<html>maintenance</html>"),
         "case failing": lambda: oauth.answer(CASE_PATH, '{"message": "internal"}', 500),
         "case refused": lambda: oauth.answer(CASE_PATH, json.dumps(
             {"status": 1, "status_message": f"Case {CASE} is closed"})),
         "case not JSON": lambda: oauth.answer(CASE_PATH, "case updated")}[wrong]()
    return token if wrong.startswith("token") else case if wrong.startswith("case") else \
        f"ftp://127.0.0.1:{setup.region.port}/{CASE}_{ARCHIVE.name}"


@pytest.mark.parametrize("wrong, stderr, logged", FAILURES, ids=[f[0] for f in FAILURES])
def test_each_failure_ends_with_its_line_and_status_1(setup, ftp_service, http_service, wrong, stderr, logged):
    url = break_peer(setup, wrong, ftp_service, http_service)
    run = setup.upload()
    assert run.rc == 1
    assert run.stderr.endswith(stderr[3:]) if stderr.startswith("...") else run.stderr == stderr
    if logged:
        assert logged.format(url=url) + "\n" in run.error_log
    uploaded = not wrong.startswith("ftp")
    assert setup.uploaded() == (setup.content if uploaded else None)
    assert run.stdout.endswith(f"commencing update of case number {CASE} in the Brimwell Support system\n"
                               if uploaded else "FTP server\n")
    asked = 0 if not uploaded or wrong.startswith(("connector", "control", "value", "another", "token down",
                                                   "token peer")) else 1 if wrong.startswith("token") else 2
    assert len(setup.oauth.requests) == asked
    assert getattr(setup, "secure", setup.oauth).requests == setup.oauth.requests  # the form never left
    assert not list(Path("/var/opt").glob("sink*"))


STALL_SECONDS = 3


@pytest.mark.parametrize("stalling, stderr", [
    ("ftp", f"gatr: upload of {ARCHIVE} to EU FTP server failed - refer to the gatr_errors.log for details\n"),
    ("token", AUTHENTICATION_FAILED)])
def test_a_peer_that_stops_midway_ends_the_upload_within_the_stall_limit(setup, sandbox, ftp_service, stalling,
                                                                         stderr):
    if stalling == "ftp":
        stuck = ftp_service("stuck", stall_after=64 << 10)
        setup.configure([setup.server("EU", stuck)] + setup.servers[1:], stall=STALL_SECONDS)
        sandbox.write(ARCHIVE, os.urandom(32 << 20))  # more than loopback's socket buffers take in
    else:
        setup.configure(setup.servers, stall=STALL_SECONDS)
        setup.oauth.answer(TOKEN_PATH, "{}", delay=600)
    run = setup.upload()
    assert (run.rc, run.stderr) == (1, stderr)
    assert "call to curl_easy_perform() failed: (28) " in run.error_log
    assert run.ended - run.started < STALL_SECONDS + 20  # a bound on the wait, not a speed


def test_a_case_answer_with_status_zero_is_success_whatever_else_it_holds(setup):
    setup.oauth.answer(CASE_PATH, '{"status": 0, "status_message": "ignored", "warnings": [1, 2]}')
    run = setup.upload()
    assert (run.rc, run.stderr) == (0, "") and run.stdout.endswith("gatr: \n")


def test_the_connector_key_never_stands_whole_in_the_program():
    binary = (STAGE / "gatr").read_bytes()
    assert CONNECTOR_KEY not in binary
    assert all(CONNECTOR_KEY[i:i + 8] in binary for i in range(0, 32, 8))  # the search sees the right bytes
