"""The update check, run by the test program gatr_update_check (no run mode of gatr calls it)
against the control file on a real FTP server.

The control file's first word is at once the available version, the download URL and the
official hash. A word that starts with digits is not an "http"/"ftp" URL, so its transfer counts
as done only when it keeps status 0, that is when it ends in an error: the download peer
therefore cuts its answer one byte short of what it announced, after sending the whole file.
A hash that can also be a version and a URL is the file's SHA-256 put in front of "@host:port/
name" as the URL's user name; the file is chosen so that its hash starts with a digit above 2.
Exit status 3 means the check returned to its caller.
"""
import hashlib
import subprocess

import pytest

from conftest import ERROR_LOG, STAGE
from fakes.download import download_peer  # noqa: F401 (fixture)
from fakes.ftp import ftp_server  # noqa: F401 (fixture)
from fakes.program import copy_program, server, write_config

DRIVER = STAGE.parent / "test-programs" / "gatr_update_check"
OPENING = "gatr: checking for update to application - please wait..."
DOWNLOADING = "\nnew update is available\ngatr: commencing download of update - please wait..."
RETURNED = 3


class Check:
    def __init__(self, sandbox, ftp_server):
        self.sandbox = sandbox
        self.program = copy_program(sandbox.scratch, [DRIVER])
        self.control = ftp_server("control")
        write_config(self.program, [server("EU", self.control.port), server("US", self.control.port)],
                     control=1)

    def control_file(self, text: str):
        (self.control.control / ".control").write_text(text)

    def run(self, *args):
        completed = subprocess.run(
            [str(self.program / "gatr_update_check"), *args],
            env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C", "TZ": "UTC"},
            capture_output=True, timeout=120, cwd=str(self.sandbox.scratch))
        # The error log is read as text: a hash mismatch writes a message of several lines.
        log = ERROR_LOG.read_text() if ERROR_LOG.exists() else ""
        return completed.returncode, completed.stdout.decode(), completed.stderr.decode(), log


@pytest.fixture
def check(sandbox, ftp_server):
    return Check(sandbox, ftp_server)


def update_content():
    """Archive bytes whose SHA-256 begins with a digit from 3 to 9 (a major version above 2)."""
    for counter in range(1000):
        content = b"gatr 2.4.0 update archive %d\n" % counter * 1000
        digest = hashlib.sha256(content).hexdigest()
        if digest[0] in "3456789":
            return content, digest
    raise AssertionError("no suitable content found")


def test_same_version_is_completed(check):
    check.control_file("2.3.3\nhttps://ignored/x.tar.gz\n")
    rc, out, err, log = check.run()
    assert (rc, out, err) == (RETURNED, OPENING + " completed\n", "")
    assert "check for update: \n" in log
    assert "available version: 2.3.3\n" in log


@pytest.mark.parametrize("word", ["2.3.2-9", "2.3.2", "1.9.9", ""])
def test_older_available_version_means_a_later_one_runs(check, word):
    check.control_file(word + "\n")
    rc, out, err, log = check.run()
    assert (rc, out, err) == (
        RETURNED, OPENING + " you are running a later update than the current one available\n", ""), word
    assert f"available version: {word}\n" in log


@pytest.mark.parametrize("word", ["2.4.0", "2.3.3-0"])
def test_newer_version_without_slash_has_no_file_name(check, word):
    # The tie 2.3.3-0 counts as new; the word is also the URL, which names no file.
    check.control_file(word)
    rc, out, err, log = check.run()
    assert (rc, out, err) == (RETURNED, OPENING + DOWNLOADING + " failed\n", ""), word
    assert "ERROR                null pointer encountered\n" in log
    assert not any(p.name.startswith(word) for p in check.program.iterdir())


def test_newer_version_is_downloaded_and_verified(check, download_peer):
    content, digest = update_content()
    peer = download_peer(content, "partial")
    check.control_file(f"{digest}@127.0.0.1:{peer.port}/gatr_2.4.0.tar.gz\n")
    rc, out, err, log = check.run()
    assert (rc, err) == (0, "")
    assert out == (OPENING + DOWNLOADING + " completed\n"
                   "gatr: update has been downloaded to ./gatr_2.4.0.tar.gz - "
                   "Transferred a partial file (18)\n"
                   f"gatr:sha256: {digest}  OK\n"
                   "\n     decompress the archive by running:\n\n"
                   "     tar -zxvf gatr_2.4.0.tar.gz\n\n"
                   "     and then run the application again\n")
    assert (check.program / "gatr_2.4.0.tar.gz").read_bytes() == content
    assert peer.requests == ["GET /gatr_2.4.0.tar.gz HTTP/1.1"]
    assert f"sha256: {digest}  OK\n" in log
    assert "update has been downloaded to ./gatr_2.4.0.tar.gz - Transferred a partial file (18)\n" in log


def test_silent_check_downloads_without_a_word(check, download_peer):
    content, digest = update_content()
    peer = download_peer(content, "partial")
    check.control_file(f"{digest}@127.0.0.1:{peer.port}/gatr_2.4.0.tar.gz\n")
    rc, out, err, _ = check.run("-s")
    assert (rc, out, err) == (0, "", "")
    assert (check.program / "gatr_2.4.0.tar.gz").read_bytes() == content


def test_hash_mismatch_ends_with_status_1_and_keeps_the_file(check, download_peer):
    content, digest = update_content()
    peer = download_peer(content, "partial")
    word = f"9@127.0.0.1:{peer.port}/gatr_9.0.0.tar.gz"
    check.control_file(word + "\n")
    rc, out, err, log = check.run()
    assert (rc, err) == (1, "")
    assert out == (OPENING + DOWNLOADING + " completed\n"
                   "gatr: update has been downloaded to ./gatr_9.0.0.tar.gz - "
                   "Transferred a partial file (18)\n"
                   "computed hash: gatr:\n\n"
                   f"     sha256: {digest}\n\n"
                   "     \t\t\t\t\tdoes not match official hash:\n\n"
                   f"     sha256: {word}\n")
    assert (f"ERROR                computed hash:\n\n     sha256: {digest}\n\n"
            "     does not match official hash:\n\n"
            f"     \t\t\t\t\t\t\t\t\tsha256: {word}\n") in log
    assert (check.program / "gatr_9.0.0.tar.gz").read_bytes() == content


def test_download_answered_with_200_is_a_failure_and_the_file_goes(check, download_peer):
    # A URL that is neither http nor ftp expects status 0; a complete answer has status 200.
    peer = download_peer(b"complete archive", "complete")
    word = f"5@127.0.0.1:{peer.port}/gatr_5.0.0.tar.gz"
    check.control_file(word)
    rc, out, err, log = check.run()
    assert (rc, out, err) == (1, OPENING + DOWNLOADING + " failed\n", "")
    assert f"{word} returned exit code: (200) (null)\n" in log
    assert not (check.program / "gatr_5.0.0.tar.gz").exists()


def test_unreachable_download_counts_as_done_and_fails_the_hash(check):
    word = "5@127.0.0.1:1/gatr_5.0.0.tar.gz"
    check.control_file(word)
    rc, out, err, log = check.run()
    assert rc == 1
    assert out.startswith(OPENING + DOWNLOADING + " completed\n"
                          "gatr: update has been downloaded to ./gatr_5.0.0.tar.gz - "
                          "Couldn't connect to server (7)\n"
                          "computed hash: gatr:\n\n"
                          f"     sha256: {hashlib.sha256(b'').hexdigest()}\n")
    assert (check.program / "gatr_5.0.0.tar.gz").read_bytes() == b""


def test_download_file_that_cannot_be_created(check):
    (check.program / "gatr_7.0.0.tar.gz").mkdir()
    check.control_file("7@127.0.0.1:1/gatr_7.0.0.tar.gz")
    rc, out, err, log = check.run()
    assert (rc, out, err) == (RETURNED, OPENING + DOWNLOADING + " failed\n", "")
    assert "ERROR                unable to open file gatr_7.0.0.tar.gz: Is a directory\n" in log


def test_control_file_missing(check):
    rc, out, err, log = check.run()
    assert (rc, out, err) == (RETURNED, OPENING + " failed\n", "")
    url = f"ftp://127.0.0.1:{check.control.port}/.control"
    assert f"call to curl_easy_perform() failed: (78) Remote file not found : {url}\n" in log


def test_control_server_down(check):
    check.control.stop()
    rc, out, err, log = check.run()
    assert (rc, out, err) == (RETURNED, OPENING + " failed\n", "")
    assert "(7) Couldn't connect to server" in log


def test_configuration_missing(check):
    (check.program / "etc" / "gatr_config.json").unlink()
    rc, out, err, _ = check.run()
    assert (rc, out, err) == (RETURNED, OPENING + " failed to load the gatr_config file\n", "")


def test_no_check_returns_at_once(check):
    check.control_file("2.4.0")
    rc, out, err, log = check.run("-C")
    assert (rc, out, err) == (RETURNED, "", "")
    assert "check for update" not in log


def test_silent_check_prints_nothing(check):
    check.control_file("2.3.3")
    rc, out, err, log = check.run("--silent")
    assert (rc, out, err) == (RETURNED, "", "")
    assert "available version: 2.3.3\n" in log
