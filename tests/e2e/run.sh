#!/bin/bash
# Runs the end-to-end suite inside the test sandbox (tests/sandbox.sh: the machine read-only,
# fresh tmpfs over the folders gatr writes) with private network, process and host-name
# namespaces as well, so that fake services listen on a loopback of their own and process
# probes see only the test's processes.
# Usage: run.sh STAGE_FOLDER [pytest arguments...]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
export GATR_STAGE
GATR_STAGE=$(cd "$1" && pwd)
shift
export GATR_E2E_SANDBOX=1 PYTHONDONTWRITEBYTECODE=1
exec "$here/../sandbox.sh" --net --pid --uts --fork --mount-proc -- /bin/bash -c '
    set -e
    ip link set lo up
    hostname gatr-e2e
    cd "$0"
    exec /usr/bin/python3 -m pytest -p no:cacheprovider -q "$@"
' "$here" "$@"
