#!/bin/bash
# Whole-playbook time of brimwell.gatr.collect on 10 sshd hosts with forks=10 against the same
# playbook on one host: the fleet should take at most about 1.5 times as long as one host.
# Starts the hosts as the fleet test does (tests/e2e/test_fleet.py), inside tests/sandbox.sh
# with a private network, so that nothing outside it is touched. Prints every run's seconds,
# the medians and their ratio; asserts nothing. Needs root and a built tree.
# Usage: bench/fleet_bench.sh [STAGE_FOLDER] [RUNS] [ansible-playbook arguments...]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
export GATR_STAGE
GATR_STAGE=$(cd "${1:-build/stage}" && pwd)
runs=${2:-3}
shift $(( $# < 2 ? $# : 2 ))
exec "$here/../tests/sandbox.sh" --net --pid --uts --fork --mount-proc -- /bin/bash -c '
    set -e
    ip link set lo up
    exec /usr/bin/python3 "$0/fleet_bench.py" "$@"
' "$here" "$runs" "$@"
