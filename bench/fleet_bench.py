"""The timing half of bench/fleet_bench.sh, run inside the sandbox: one host, then ten, each
collected RUNS times in a row by brimwell.gatr.collect (the first run of each also installs gatr
from the bundle), every run timed whole, as an operator would wait for it. Further arguments go
to ansible-playbook (e.g. -e ansible_pipelining=true)."""
import os
import statistics
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "e2e"))
from test_fleet import play, started_hosts  # noqa: E402


def timed(hosts, runs, extra):
    folder = Path(tempfile.mkdtemp(prefix="gatr-fleet-bench-"))
    seconds, cpu = [], []
    with started_hosts(folder, hosts):
        for run_number in range(runs):
            started, used = time.monotonic(), os.times()
            run, recap, _ = play(folder, f"run{run_number}", *extra, forks=len(hosts))
            seconds.append(time.monotonic() - started)
            # ansible-playbook, its workers and their ssh clients: the controller's share
            cpu.append(os.times().children_user + os.times().children_system - used.children_user - used.children_system)
            if run.returncode != 0 or any(r["failed"] != "0" for r in recap.values()):
                sys.exit(f"a run failed:\n{run.stdout[-3000:]}{run.stderr[-2000:]}")
    return seconds, cpu


def main():
    runs, extra = int(sys.argv[1]), sys.argv[2:]
    one = timed({"host31": "127.0.0.31"}, runs, extra)
    fleet = timed({f"host{n}": f"127.0.0.{n}" for n in range(11, 21)}, runs, extra)
    for name, (seconds, cpu) in (("1 host", one), ("10 hosts, forks=10", fleet)):
        print(f"{name:20} runs: {' '.join(f'{s:.1f}' for s in seconds)} s; median {statistics.median(seconds):.1f} s;"
              f" median without the installing first run {statistics.median(seconds[1:] or seconds):.1f} s;"
              f" controller CPU per run (median) {statistics.median(cpu):.1f} s")
    print(f"ratio 10 hosts / 1 host (medians): {statistics.median(fleet[0]) / statistics.median(one[0]):.2f}")
    print(f"load average after: {' '.join(f'{x:.1f}' for x in os.getloadavg())}, CPUs: {os.cpu_count()}")


if __name__ == "__main__":
    main()
