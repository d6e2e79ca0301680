"""The run record (logs/gatr_run.json) as support and its tools read it, valid against the staged
schema; the log window and size cap it reports; the free-space check before packing; and
--estimate against the archive a real run then makes."""
import calendar
import json
import os
import random
import re
import subprocess
import time
from pathlib import Path

import jsonschema
import pytest

from conftest import LOGS, OUTPUT, PROGRAM

AGENT = "/opt/Brimwell/watchpost-agent"
LOG_FOLDER = f"{AGENT}/logs"
RECORD = str(LOGS / "gatr_run.json")
MIB = 1 << 20
NOT_PACKED = "gatr: the archive could not be created - refer to the gatr_errors.log for details\n"


def install(sandbox, program, commands=(), **limits):
    """The agent with a manifest listing its logs and the commands, and the limits configured."""
    sandbox.write(f"{AGENT}/bin/watchpost-agent", "#!/bin/sh\necho 'watchpost-agent 4.1.2'\n", 0o755)
    listed = [{"command": c, "file": f"./logs/gatr_cmd-{n}.log", "mode": "w"} for n, c in commands]
    sandbox.write(f"{AGENT}/gatr_manifest.json", json.dumps({"Linux": {"archive": {
        "files": [f"{LOG_FOLDER}/*", f"{LOG_FOLDER}/missing.log"], "commands": listed}}}))
    config = json.loads((program / "etc/gatr_config.json").read_text())
    config["limits"].update(limits)
    (program / "etc/gatr_config.json").write_text(json.dumps(config))


def write_log(sandbox, name, data, days_old=0):
    path = sandbox.write(name if name.startswith("/") else f"{LOG_FOLDER}/{name}", data)
    stamp = time.time() - days_old * 86400
    os.utime(path, (stamp, stamp))
    return str(path)


def lines(count, width=0):
    """Log text of lines of different lengths, each numbered."""
    return b"".join(b"2026-11-01 12:00:00 agentd[7]: block %07d %s\n" % (i, b"w" * (i * 7 % 90 + width))
                    for i in range(count))


def record(run):
    """The run record packed as the last member, the same as the one kept, once the staged schema
    accepted it."""
    assert run.members()[-1] == RECORD
    text = run.member(RECORD)
    assert text == Path(RECORD).read_text()
    document = json.loads(text)
    schema = json.loads((PROGRAM / "etc/gatr_run.schema.json").read_text())
    jsonschema.Draft7Validator.check_schema(schema)
    jsonschema.Draft7Validator(schema).validate(document)
    return document


def test_the_run_record_holds_each_command_and_member_as_it_ended(gatr, sandbox, machine, program):
    install(sandbox, program, [("stuck", "sh -c 'echo started; exec sleep 100000'"),
                               ("failing", "sh -c 'echo partial; exit 3'")], command_seconds=2)
    big = lines(40000)
    paths = {name: write_log(sandbox, name, data, old) for name, data, old in (
        ("big.log", big, 0), ("old.log", "old\n", 30), ("secret.log", "a=1\npassword=hunter2\n", 6),
        ("/var/log/messages-20261001", "rotated\n", 30))}
    run = gatr("-s", "--since", "7", "--max-log-size", "1", "-i", paths["/var/log/messages-20261001"],
               timeout=60)
    assert (run.rc, run.stderr) == (0, "")
    document = record(run)
    members = {m["path"]: m for m in document["members"]}
    tail = len(big) - big.index(b"\n", len(big) - MIB) - 1
    assert [members[p] for p in (*paths.values(), f"{LOG_FOLDER}/missing.log")] == [
        {"path": paths["big.log"], "bytes_read": tail, "bytes_packed": tail, "cut": True,
         "cut_from": len(big), "masked": {}},
        {"path": paths["old.log"], "left_out": "last changed before the --since window"},
        {"path": paths["secret.log"], "bytes_read": 21, "bytes_packed": 22, "cut": False,
         "masked": {"named-value": 1}},
        {"path": paths["/var/log/messages-20261001"], "left_out": "last changed before the --since window"},
        {"path": f"{LOG_FOLDER}/missing.log", "left_out": "No such file or directory"}]
    assert run.member(paths["big.log"]).encode() == big[-tail:]
    commands = {c["command"]: c for c in document["commands"]}
    stuck, failing = (commands[f"sh -c '{c}' 2>&1"] for c in ("echo started; exec sleep 100000",
                                                                "echo partial; exit 3"))
    assert stuck.pop("milliseconds") >= 2000 and failing.pop("milliseconds") < 2000
    assert [{k: v for k, v in c.items() if k != "start"} for c in (stuck, failing)] == [
        {"command": "sh -c 'echo started; exec sleep 100000' 2>&1", "signal": 15, "timed_out": True,
         "output_bytes": 8, "output_file": str(LOGS / "gatr_cmd-stuck.log")},
        {"command": "sh -c 'echo partial; exit 3' 2>&1", "exit_code": 3, "timed_out": False,
         "output_bytes": 8, "output_file": str(LOGS / "gatr_cmd-failing.log")}]
    packed = [m for m in document["members"] if "left_out" not in m]
    assert document["totals"] == {
        "members": len(packed), "bytes_read": sum(m["bytes_read"] for m in packed),
        "bytes_packed": sum(m["bytes_packed"] for m in packed),
        "masked": sum(sum(m["masked"].values()) for m in packed),
        "warnings": sum(line[45:65].strip() == "warning" for line in run.error_log.splitlines()),
        "errors": sum(line[45:65].strip() == "ERROR" for line in run.error_log.splitlines())}
    assert document["limits"]["max_log_bytes"] == MIB and document["options"] == ["silent"]
    since = calendar.timegm(time.strptime(document["limits"]["since"], "%Y-%m-%dT%H:%M:%SZ"))
    assert abs(since - (run.started - 7 * 86400)) < 5
    titles = re.findall(r"^[-=]{80}\n([A-Z][A-Z ]+)\n\n", run.main_log, re.M)
    assert [s["name"] for s in document["sections"]] == titles
    assert {s["name"]: s["outcome"] for s in document["sections"]}["BRIMWELL WATCHPOST"] == \
        "completed with errors"


ONE_LINE = b"0123456789abcdef" * (30 * MIB // 16 - 1) + b" password=hunter2\n"
SIZE_CASES = {  # name: (arguments, MiB configured, the logs, the cap that applies (0: none))
    "option-0-wins": (["--max-log-size", "0"], 1, {"big.log": lines(40000), "small.log": lines(10)}, 0),
    "option-1": (["--max-log-size", "1"], None, {"big.log": lines(40000), "small.log": lines(10)}, MIB),
    "configured-1": ([], 1, {"big.log": lines(40000), "small.log": lines(10)}, MIB),
    "larger-than-every-file": (["--max-log-size", "4"], None, {"big.log": lines(40000)}, 4 * MIB),
    "a-line-at-the-cut": (["--max-log-size", "1"], None, {"lines.log": lines(3000, 2000)}, MIB),
    "a-line-start-at-the-cut": (["--max-log-size", "1"], None, {"edge.log": b"x" * 99 + b"\n" + b"y" * MIB}, MIB),
    "one-30-MiB-line": (["--max-log-size", "1"], None, {"line.log": ONE_LINE}, MIB),
}


def last_part(data, cap):
    """What a log packs as under the cap: whole, or from the first line start in its last cap
    bytes, or from the cut point itself when no line starts there."""
    if not cap or len(data) <= cap:
        return data
    start = len(data) - cap
    if data[start - 1] != ord("\n"):
        newline = data.find(b"\n", start, len(data) - 1)
        start = newline + 1 if newline >= 0 else start
    return data[start:]


@pytest.mark.parametrize("name", SIZE_CASES)
def test_logs_over_the_size_cap_are_packed_as_their_last_part(gatr, sandbox, machine, program, name):
    args, configured, logs, cap = SIZE_CASES[name]
    install(sandbox, program, **({"max_log_size_mib": configured} if configured else {}))
    paths = {write_log(sandbox, n, data): data for n, data in logs.items()}
    run = gatr("-s", *args, timeout=300)
    document = record(run)
    members = {m["path"]: m for m in document["members"]}
    assert document["limits"].get("max_log_bytes", 0) == cap
    for path, data in paths.items():
        part = last_part(data, cap)
        packed = subprocess.run(["tar", "-xzPOf", run.archive, path], capture_output=True, check=True).stdout
        assert packed == part.replace(b"hunter2", b"********")
        cut = len(part) < len(data)
        assert members[path] == {"path": path, "bytes_read": len(part), "bytes_packed": len(packed), "cut": cut,
                                 **({"cut_from": len(data)} if cut else {}),
                                 "masked": {"named-value": 1} if b"hunter2" in part else {}}
        assert (f"{path}: packed as its last {len(packed)} of {len(data)} bytes (--max-log-size)"
                in run.error_log) == cut
        assert len(packed) <= (cap or len(data)) + len("********") - len("hunter2")


def estimate(run):
    """The total line's figures and the free space --estimate printed."""
    total = re.search(r"^  total +([\d,]+) +([\d,]+)$", run.stdout, re.M)
    free = re.search(r"^  free space in /var/opt/Brimwell/gatr: ([\d,]+)$", run.stdout, re.M)
    return [int(g.replace(",", "")) for g in (*total.groups(), free.group(1))]


def test_a_run_refuses_to_pack_when_the_expected_archive_does_not_fit(gatr, sandbox, machine):
    sandbox.tmpfs("/var/opt", "size=16m,mode=0755")
    data = os.urandom(24 * MIB)  # incompressible: the archive is as large as the data
    sandbox.write("/etc/opt/random.bin", data[:8 * MIB])
    args = ("-s", "-i", "/etc/opt/random.bin")
    _, expected, free = estimate(gatr(*args, "--estimate"))
    for margin in (64 << 10, -256 << 10):  # the archive expected just over, then just under, the room
        sandbox.write("/etc/opt/random.bin", data[:8 * MIB + free - expected + margin])
        run = gatr(*args)
        made = sorted(p.name for p in OUTPUT.iterdir() if ".tar.gz" in p.name or p.suffix == ".tmp")
        if margin < 0:
            assert (run.rc, run.stderr, made) == (0, "", [run.archive.name, run.archive.name + ".sha256"])
            assert "not enough free space" not in run.error_log
            continue
        message = re.fullmatch(r"(gatr: (not enough free space in /var/opt/Brimwell/gatr for the archive: "
                               r"about ([\d,]+) bytes needed, ([\d,]+) free))\n" + re.escape(NOT_PACKED),
                               run.stderr)
        needed, left = (int(n.replace(",", "")) for n in message.group(3, 4))
        assert (run.rc, made, needed > left) == (1, [], True)
        assert f"ERROR                {message.group(2)}\n" in run.error_log


@pytest.mark.parametrize("present", [True, False], ids=["products-present", "products-absent"])
def test_the_estimate_is_within_a_tenth_of_the_archive_a_run_then_makes(gatr, sandbox, machine, program,
                                                                        present):
    logs = {}
    if present:
        install(sandbox, program)
        noise = random.Random(7)
        logs = {write_log(sandbox, f"agent{i}.log", b"".join(
            b"%s %08x\n" % (line, noise.getrandbits(32)) for line in lines(30000 * i + 5000).splitlines())): i
            for i in range(3)}
    run = gatr("-s", "--estimate")
    room = os.statvfs(OUTPUT)
    rows = {name: [int(n.replace(",", "")) for n in figures] for name, *figures in
            re.findall(r"^  (\S+) +([\d,]+) +([\d,]+)$", run.stdout, re.M)}
    to_pack, expected, free = estimate(run)
    assert (run.rc, run.stderr, list(OUTPUT.glob("*.tar.gz*"))) == (0, "", [])
    assert abs(free - room.f_bfree * room.f_frsize) < 1 << 20
    assert [sum(r[i] for n, r in rows.items() if n != "total") for i in (0, 1)] == [to_pack, expected]
    products = {n: r[0] for n, r in rows.items() if n not in ("gatr", "system", "total")}
    assert products == ({"cmd": sum(Path(p).stat().st_size for p in logs)} if present else {})
    made = gatr("-s")
    size = made.archive.stat().st_size
    print(f"estimate {expected} bytes, archive {size} bytes")
    assert abs(expected - size) <= size / 10
