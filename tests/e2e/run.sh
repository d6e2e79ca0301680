#!/bin/bash
# Runs the end-to-end suite inside private mount, network and process namespaces, so that nothing the
# tests do reaches the machine's own /var/opt, /opt, /etc/opt or network, and runs of other
# checkouts on this machine never show in its process listings.
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
exec unshare --mount --net --pid --fork --mount-proc -- /bin/bash -c '
    set -e
    mount --make-rprivate /
    ip link set lo up
    cd "$0"
    exec /usr/bin/python3 -m pytest -p no:cacheprovider -q "$@"
' "$here" "$@"
