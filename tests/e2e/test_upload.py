"""The upload mode: `gatr -u <region> <case> <archive>` against a real FTP server, the control
server's connector file and a fake OAuth token endpoint and case service, all on loopback."""
import base64
import json
import os
import re
import socket
import subprocess

import pytest

from conftest import OUTPUT, SETTINGS, STAGE
from fakes.connector import CREDENTIALS, build_key, connector_text, encipher, write_connector
from fakes.ftp import ftp_server  # noqa: F401 (fixture)
from fakes.oauth import ACCESS_TOKEN, CASE_FAILURE, CASE_PATH, TOKEN_PATH, oauth_service  # noqa: F401
from fakes.program import copy_program, server, write_config

CASE = "01234567"
# Numbers of four digits or more show only their first group under LC_ALL=C (see below).
STATISTICS = r"sent [\d,]+ bytes in [\d,]+(\.\d{3})? seconds \([\d,]+(\.\d\d)? KB/s\)"
SYSTEM = {"operating_system": "CentOS Linux release 7.9.2009 (Core)", "version": "7.9.2009",
          "kernel": "3.10.0-1160.el7.x86_64", "platform": "VMware, Inc. VMware Virtual Platform"}
UPDATE_FAILED = "gatr: failed to update the case in the Brimwell Support system\n"


class Setup:
    """One program folder, an EU/US server, a separate control server (the AU entry) and the
    OAuth service, with an archive and the settings a diagnostics run left behind."""

    def __init__(self, sandbox, gatr, ftp_server, oauth_service):
        self.sandbox, self.gatr, self.oauth = sandbox, gatr, oauth_service
        self.program = copy_program(sandbox.scratch)
        self.region = ftp_server("region")
        self.control = ftp_server("control")
        self.servers = [server("EU", self.region.port), server("US", self.region.port),
                        server("AU", self.control.port)]
        write_config(self.program, self.servers, control=2)
        write_connector(self.control.control, connector_text(oauth_service.url + TOKEN_PATH))
        self.archive = OUTPUT / "gatr_node1_20240704T1125Z.tar.gz"
        self.content = os.urandom(300_000)
        sandbox.write(str(self.archive), self.content)
        settings = {"version": 1, "last_archive_file": str(self.archive), "system": SYSTEM,
                    "products": {"orb": {"installed": True, "package": "orb-10.0.2-1234.el7.x86_64"},
                                 "thb": {"installed": False, "package": ""},
                                 "cmd": {"installed": True, "package": "watchpost-agent-5.0.0-1.x86_64"}}}
        sandbox.write(str(SETTINGS), json.dumps(settings, indent=2))

    def run(self, *args):
        return self.gatr(*args, program=self.program / "gatr")

    def upload(self, region="eu", case=CASE, archive=None):
        return self.run("-u", region, case, str(archive or self.archive))

    def uploaded(self, name=None):
        return (self.region.upload / (name or f"{CASE}_{self.archive.name}")).read_bytes()


@pytest.fixture
def setup(sandbox, gatr, ftp_server, oauth_service):
    return Setup(sandbox, gatr, ftp_server, oauth_service)


def expected_record(archive_name, server_url="ftp://127.0.0.1"):
    description = (f"gatr archive file {archive_name} was uploaded to the EU FTP server.\n\n"
                   f"Download URL: {server_url}/{CASE}_{archive_name}")
    system = ("Operating system:    CentOS Linux release 7.9.2009 (Core)\n"
              "Version:             7.9.2009\n"
              "Kernel:              3.10.0-1160.el7.x86_64\n"
              "Platform:            VMware, Inc. VMware Virtual Platform\n\n")
    installed = ("BACKUP:\n    Ironkeep ORB for Linux orb-10.0.2-1234.el7.x86_64\n\n"
                 "CLOUD:\n\n"
                 "MANAGE:\n    Watchpost endpoint watchpost-agent-5.0.0-1.x86_64\n\n"
                 "RECOVERY:\n\nREPLICATE:\n\n")
    return {"case_number": CASE, "description": description, "system_block": system,
            "installed_block": installed}


def assert_no_secret(*texts):
    for text in texts:
        for secret in (CREDENTIALS["client_secret"], CREDENTIALS["password"], ACCESS_TOKEN,
                       build_key()):
            assert secret not in (text or "")


def test_upload_sends_the_archive_and_updates_the_case(setup):
    run = setup.upload()
    archive = str(setup.archive)
    assert run.stderr == ""
    assert run.rc == 0
    assert re.fullmatch(
        f"gatr: commencing upload of {re.escape(archive)} to EU FTP server\n"
        f"gatr: completed upload of {re.escape(archive)} to EU FTP server - {STATISTICS}\n"
        f"gatr: commencing update of case number {CASE} in the Brimwell Support system\n"
        "gatr: \n", run.stdout), run.stdout
    # Under LC_ALL=C the separator is the NUL character, so a grouped number reads as its
    # first group only: 300000 bytes show as 300.
    assert " - sent 300 bytes in " in run.stdout
    assert setup.uploaded() == setup.content

    token, record = setup.oauth.requests
    assert token.path == TOKEN_PATH
    assert token.headers["Content-Type"] == "application/x-www-form-urlencoded"
    assert token.body.decode() == (
        "grant_type=password&client_id=3MVG9gatrTestClient.Id_0123456789"
        "&client_secret=s3cr&t+value/with=odd chars&username=support.api@brimwell.example"
        "&password=P@ss w0rd%21&scope=")
    assert record.path == CASE_PATH + CASE
    assert record.headers["Authorization"] == "Bearer " + ACCESS_TOKEN
    assert record.headers["Content-Type"] == "application/json"
    assert json.loads(record.body) == expected_record(setup.archive.name)
    assert record.body.decode() == json.dumps(expected_record(setup.archive.name),
                                              separators=(",", ":"))

    messages = run.messages()
    completed = [m for m in messages if m.startswith("completed upload of")]
    assert len(completed) == 1
    assert re.fullmatch(f"completed upload of {re.escape(archive)} to EU FTP server - {STATISTICS}",
                        completed[0])
    assert f"completed update of case number {CASE}" in messages
    assert_no_secret(run.error_log, run.stdout, run.stderr)


def test_verbose_upload_traces_the_exchange_without_the_token(setup):
    run = setup.run("-v", "-u", "eu", CASE, str(setup.archive))
    assert run.rc == 0, run.stderr
    assert "> USER anonymous\r\n" in run.stderr
    assert f"> POST /services/apexrest/case/gatr/v1/{CASE} HTTP/1.1\r\n" in run.stderr
    assert "\r\nAuthorization: Bearer ********\r\n" in run.stderr
    assert setup.oauth.requests[1].headers["Authorization"] == "Bearer " + ACCESS_TOKEN
    assert_no_secret(run.stderr, run.stdout, run.error_log)


def test_statistics_are_grouped_in_a_locale_with_a_separator(setup, sandbox):
    locales = sandbox.scratch / "locales"
    locales.mkdir()
    subprocess.run(["localedef", "-i", "en_US", "-f", "UTF-8", str(locales / "en_US.UTF-8")],
                   check=True, capture_output=True)
    # The C library keeps the LOCPATH text it splits for the process's lifetime; a sanitizer
    # build would report that as a leak of ours.
    suppressions = sandbox.scratch / "lsan.supp"
    suppressions.write_text("leak:argz_add_sep\n")
    run = setup.gatr("-u", "eu", CASE, str(setup.archive), program=setup.program / "gatr",
                     env={"LC_ALL": "en_US.UTF-8", "LOCPATH": str(locales),
                          "LSAN_OPTIONS": f"suppressions={suppressions}"})
    assert run.rc == 0, run.stderr
    assert " - sent 300,000 bytes in " in run.stdout


def test_region_is_matched_without_case_and_shown_upper_case(setup):
    run = setup.upload(region="eU")
    assert run.rc == 0, run.stderr
    assert f"to EU FTP server - " in run.stdout
    assert setup.uploaded() == setup.content


def test_last_server_of_a_region_wins(setup, ftp_server):
    later = ftp_server("later")
    write_config(setup.program, setup.servers + [server("EU", later.port)], control=2)
    run = setup.upload()
    assert run.rc == 0, run.stderr
    assert (later.upload / f"{CASE}_{setup.archive.name}").read_bytes() == setup.content
    assert not (setup.region.upload / f"{CASE}_{setup.archive.name}").exists()


def test_archive_without_folder_is_named_whole(setup):
    name = "node_2024.tar.gz"
    # gatr works in its own folder, so a relative name is found there.
    (setup.program / name).write_bytes(b"abc")
    run = setup.run("-u", "us", CASE, name)
    assert run.rc == 0, run.stderr
    assert setup.uploaded(f"{CASE}_{name}") == b"abc"
    assert json.loads(setup.oauth.requests[1].body)["description"].endswith(
        f"ftp://127.0.0.1/{CASE}_{name}")


@pytest.mark.parametrize("case,args,change,stderr", [
    ("configuration missing", ("eu", CASE, None), "no config",
     "gatr: failed to load the gatr_config file\n"),
    ("configuration not JSON", ("eu", CASE, None), "bad config",
     "gatr: failed to load the gatr_config file\n"),
    ("unknown region", ("xx", CASE, None), None,
     "gatr: support region must be one of EU, US or AU\n"),
    ("no servers", ("eu", CASE, None), "empty servers",
     "gatr: support region must be one of \n"),
    ("seven digits", ("eu", "1234567", None), None,
     "gatr: case number must be eight digits (including leading zeroes)\n"),
    ("letter in case", ("eu", "0123456A", None), None,
     "gatr: case number must be eight digits (including leading zeroes)\n"),
    ("region before case number", ("xx", "123", None), None,
     "gatr: support region must be one of EU, US or AU\n"),
    ("case number before archive", ("eu", "123", "/nonexistent.tar.gz"), None,
     "gatr: case number must be eight digits (including leading zeroes)\n"),
    ("archive missing", ("eu", CASE, "/var/opt/none.tar.gz"), None,
     "gatr: archive file does not exist\n"),
])
def test_each_check_fails_with_its_line(setup, case, args, change, stderr):
    config = setup.program / "etc" / "gatr_config.json"
    if change == "no config":
        config.unlink()
    elif change == "bad config":
        config.write_text('{"ftp_servers": [')
    elif change == "empty servers":
        write_config(setup.program, [])
    region, number, archive = args
    run = setup.run("-u", region, number, archive or str(setup.archive))
    assert (run.rc, run.stderr, run.stdout) == (1, stderr, ""), case
    assert list(setup.region.upload.iterdir()) == [], case
    assert setup.oauth.requests == [], case


def test_archive_that_cannot_be_opened(setup):
    # A socket exists for stat but cannot be opened as a file, even by root.
    path = str(setup.sandbox.scratch / "archive.sock")
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path)
    try:
        run = setup.upload(archive=path)
    finally:
        listener.close()
    assert run.rc == 1
    assert run.stderr == f"gatr: unable to open file {path}: No such device or address\n"
    assert run.stdout == f"gatr: commencing upload of {path} to EU FTP server\n"


def upload_failed(setup):
    return (f"gatr: upload of {setup.archive} to EU FTP server failed - "
            "refer to the gatr_errors.log for details\n")


def test_ftp_server_down(setup):
    setup.region.stop()
    run = setup.upload()
    assert (run.rc, run.stderr) == (1, upload_failed(setup))
    url = f"ftp://127.0.0.1:{setup.region.port}/{CASE}_{setup.archive.name}"
    assert f"call to curl_easy_perform() failed: (7) Couldn't connect to server : {url}" in run.messages()
    assert setup.oauth.requests == []


def test_ftp_server_refusing_the_upload(setup, ftp_server):
    refusing = ftp_server("refusing", read_only=True)
    write_config(setup.program, [server("EU", refusing.port)] + setup.servers[1:], control=2)
    run = setup.upload()
    assert (run.rc, run.stderr) == (1, upload_failed(setup))
    url = f"ftp://127.0.0.1:{refusing.port}/{CASE}_{setup.archive.name}"
    assert ("call to curl_easy_perform() failed: (25) Upload failed (at start/before it took off) : "
            + url) in run.messages()
    assert list(refusing.upload.iterdir()) == []


def assert_case_update_failed(run, setup, stderr):
    """The upload went through; the case update ended with the given line(s) and status 1."""
    assert run.rc == 1
    assert run.stderr.endswith(stderr), run.stderr
    assert run.stdout.endswith(
        f"gatr: commencing update of case number {CASE} in the Brimwell Support system\n")
    assert setup.uploaded() == setup.content
    assert_no_secret(run.error_log, run.stdout, run.stderr)


def test_connector_missing(setup):
    (setup.control.control / ".connector").unlink()
    run = setup.upload()
    assert run.stderr == "gatr: failed to retrieve the connector configuration file\n" + UPDATE_FAILED
    assert_case_update_failed(run, setup, UPDATE_FAILED)
    url = f"ftp://127.0.0.1:{setup.control.port}/.connector"
    assert [m for m in run.messages() if m.startswith("call to curl_easy_perform() failed: (78)")] == [
        f"call to curl_easy_perform() failed: (78) Remote file not found : {url}"]
    assert setup.oauth.requests == []


def test_control_server_down(setup):
    setup.control.stop()
    run = setup.upload()
    assert run.stderr == "gatr: failed to retrieve the connector configuration file\n" + UPDATE_FAILED
    assert_case_update_failed(run, setup, UPDATE_FAILED)


def test_connector_not_json(setup):
    write_connector(setup.control.control, "authentication_url=http://x\n")
    run = setup.upload()
    assert run.stderr.endswith("gatr: failed to load the returned JSON document\n" + UPDATE_FAILED)
    assert_case_update_failed(run, setup, UPDATE_FAILED)


@pytest.mark.parametrize("case,override", [
    ("value of only a vector", {"client_id": base64.b64encode(bytes(16)).decode()}),
    ("value too short", {"username": "c2hvcnQ="}),
    ("value not base64", {"client_secret": "!!!!"}),
    ("wrong key", {"password": encipher(b"P@ss w0rd%21", "W" * 32, iv=bytes(range(16)))}),
])
def test_connector_value_that_does_not_decipher(setup, case, override):
    write_connector(setup.control.control,
                    connector_text(setup.oauth.url + TOKEN_PATH, **override))
    run = setup.upload()
    assert run.stderr.endswith("gatr: failed to decrypt JSON values\n" + UPDATE_FAILED), case
    assert_case_update_failed(run, setup, UPDATE_FAILED)
    assert setup.oauth.requests == []


def test_connector_made_with_another_key(setup):
    write_connector(setup.control.control,
                    connector_text(setup.oauth.url + TOKEN_PATH, key="0123456789abcdef" * 2))
    run = setup.upload()
    assert run.rc == 1
    assert run.stderr.endswith(UPDATE_FAILED)
    assert setup.oauth.requests == []


AUTHENTICATION_FAILED = ("gatr: failed to authenticate with the Brimwell Support system: "
                         "refer to the gatr_errors.log for details\n")


def test_token_endpoint_failing(setup):
    setup.oauth.token_answer = "500"
    run = setup.upload()
    assert run.stderr == AUTHENTICATION_FAILED
    assert_case_update_failed(run, setup, AUTHENTICATION_FAILED)
    url = setup.oauth.url + TOKEN_PATH
    assert f'{url} returned exit code: (500) {{"error": "invalid_grant"}}' in run.messages()
    assert len(setup.oauth.requests) == 1


def test_token_endpoint_down(setup):
    write_connector(setup.control.control, connector_text("http://127.0.0.1:1/token"))
    run = setup.upload()
    assert run.stderr == AUTHENTICATION_FAILED
    assert_case_update_failed(run, setup, AUTHENTICATION_FAILED)
    assert ("call to curl_easy_perform() failed: (7) Couldn't connect to server : "
            "http://127.0.0.1:1/token") in run.messages()


def test_token_answer_not_json(setup):
    setup.oauth.token_answer = "not json"
    run = setup.upload()
    assert run.stderr.endswith("gatr: failed to load the returned JSON document\n")
    assert_case_update_failed(run, setup, "gatr: failed to load the returned JSON document\n")
    assert len(setup.oauth.requests) == 1


def test_case_service_failing(setup):
    setup.oauth.case_answer = "500"
    run = setup.upload()
    line = ("gatr: failed to update the case in the Brimwell Support system : "
            "refer to the gatr_errors.log for details\n")
    assert run.stderr == line
    assert_case_update_failed(run, setup, line)
    url = setup.oauth.url + CASE_PATH + CASE
    assert f'{url} returned exit code: (500) {{"message": "internal error"}}' in run.messages()


def test_case_service_answering_non_zero_status(setup):
    setup.oauth.case_answer = "status 1"
    run = setup.upload()
    line = f"gatr: update of case number {CASE} failed: {CASE_FAILURE}\n"
    assert run.stderr == line
    assert_case_update_failed(run, setup, line)
    failed = [l for l in run.error_lines if l.message.startswith("update of case number")]
    assert [(l.status, l.message) for l in failed] == [
        ("ERROR", f"update of case number {CASE} failed: {CASE_FAILURE}")]


def test_case_service_answer_not_json(setup):
    setup.oauth.case_answer = "not json"
    run = setup.upload()
    assert run.stderr.endswith("gatr: failed to load the returned JSON document\n")
    assert_case_update_failed(run, setup, "gatr: failed to load the returned JSON document\n")


def test_case_service_status_zero_is_success_whatever_else_it_holds(setup):
    setup.oauth.case_answer = "ok with extras"
    run = setup.upload()
    assert (run.rc, run.stderr) == (0, "")
    assert run.stdout.endswith("gatr: \n")


def test_connector_key_is_not_in_the_binary_whole():
    key = build_key().encode()
    binary = (STAGE / "gatr").read_bytes()
    assert key not in binary
    # The pieces are there, so the search above looks at the right bytes.
    for i in range(0, 32, 8):
        assert key[i:i + 8] in binary
