"""The update check, which no run mode calls, through the test program gatr_update_check (exit
status 3: the check returned to its caller), against the control file on a real FTP server.

The control file's first word is at once the available version, the download URL and the
official hash. A word that starts with digits names no scheme, and a transfer without one of
http, https, ftp and ftps is refused: such a download fails before anything is fetched."""
import hashlib
import json
import shutil

from pathlib import Path

import pytest

from conftest import LOGS, PROGRAM, STAGE, expect

RETURNED = 3


def update():
    """Archive bytes whose SHA-256 begins with a digit from 3 to 9 (a major version above 2)."""
    for counter in range(1000):
        content = b"gatr 2.4.0 update archive %d\n" % counter * 1000
        if hashlib.sha256(content).hexdigest()[0] in "3456789":
            return content, hashlib.sha256(content).hexdigest()


CONTENT, DIGEST = update()
CASES = {  # control file ("{peer}": the download peer, "{hash}": the content's SHA-256), arguments,
    # status, the case whose expected output it shares ("": none is printed), lines the error log holds
    "same-version": ("2.3.3\nhttps://ignored/x.tar.gz\n", [], RETURNED, "same-version",
                     ["available version: 2.3.3"]),
    "silent": ("2.3.3", ["--silent"], RETURNED, "", ["available version: 2.3.3"]),
    "no-check": ("2.4.0", ["-C"], RETURNED, "", []),
    **{f"older-{w or 'empty'}": (w + "\n", [], RETURNED, "older-2.3.2-9", [f"available version: {w}"])
       for w in ("2.3.2-9", "2.3.2", "1.9.9", "")},
    **{f"newer-{w}": (w, [], RETURNED, "newer-2.4.0", ["null pointer encountered"]) for w in ("2.4.0", "2.3.3-0")},
    **{f"download-refused{q}": ("{hash}@{peer}/gatr_2.4.0.tar.gz\n", a, 1, o,
                                 ["(1) Unsupported protocol : {hash}@{peer}/gatr_2.4.0.tar.gz"])
       for q, a, o in (("", [], "newer-2.4.0"), ("-silently", ["-s"], ""))},
    "download-not-creatable": ("7@127.0.0.1:1/gatr_7.0.0.tar.gz", [], RETURNED, "newer-2.4.0",
                               ["unable to open file gatr_7.0.0.tar.gz: Is a directory"]),
    "control-missing": (None, [], RETURNED, "control-missing",
                        ["(78) Remote file not found : ftp://127.0.0.1:{control}/.control"]),
    "control-down": ("2.4.0", [], RETURNED, "control-missing", ["(7) Couldn't connect to server"]),
    "no-configuration": ("2.4.0", [], RETURNED, "no-configuration", []),
}


@pytest.mark.parametrize("name", CASES)
def test_update_check(gatr, program, ftp_service, http_service, name):
    control_text, args, status, printed, logged = CASES[name]
    control = ftp_service("control")
    peer = http_service()
    peer.answer("/gatr_2.4.0.tar.gz", CONTENT)
    values = {"peer": f"127.0.0.1:{peer.port}", "hash": DIGEST, "control": control.port}
    server = {"url": "ftp://127.0.0.1", "port": control.port, "use_secure": False}
    (program / "etc/gatr_config.json").write_text(json.dumps(
        {"ftp_servers": [dict(server, region="EU"), dict(server, region="US")], "control_ftp_server": 1}))
    shutil.copy(STAGE.parent / "test-programs/gatr_update_check", program)
    if control_text is not None:
        (control.control / ".control").write_text(control_text.format(**values))
    if name == "download-not-creatable":
        Path("/root/gatr_7.0.0.tar.gz").mkdir()  # in the working folder
    elif name == "control-down":
        control.stop()
    elif name == "no-configuration":
        (program / "etc/gatr_config.json").unlink()
    run = gatr(*args, command=[str(PROGRAM / "gatr_update_check")])
    assert (run.rc, run.stderr) == (status, "")
    expect(run.stdout, printed and f"update_check/{printed}", **values)
    for line in logged:
        assert " " + line.format(**values) in run.error_log  # the whole message, not its tail
    assert name != "no-check" or "check for update" not in run.error_log
    assert [p.name for p in program.glob("gatr_?.?.?.tar.gz")] in ([], ["gatr_7.0.0.tar.gz"])
    assert peer.requests == []
