#!/bin/bash
# Runs the end-to-end suite inside a private mount and network namespace, so that nothing the
# tests do reaches the machine's own /var/opt, /opt, /etc/opt or network.
# Usage: run.sh STAGE_FOLDER [pytest arguments...]
set -eu
stage=$(cd "$1" && pwd)
shift
here=$(cd "$(dirname "$0")" && pwd)
if [ "$(id -u)" -ne 0 ]; then
    echo "run.sh: the end-to-end tests need root (they make mounts in a private namespace)" >&2
    exit 1
fi
# Mount points for the per-test tmpfs; empty folders on the host are harmless.
mkdir -p /var/opt /opt /etc/opt
export GATR_STAGE="$stage"
export GATR_E2E_SANDBOX=1
exec unshare --mount --net --fork -- /bin/bash -c '
    set -e
    mount --make-rprivate /
    ip link set lo up
    cd "$0"
    exec /usr/bin/python3 -m pytest -p no:cacheprovider -q "$@"
' "$here" "$@"
