#!/bin/bash
# The sandbox every test runs in: a private mount namespace in which the machine's own file
# systems are read-only and /tmp, /var/tmp, /var/opt, /opt, /etc/opt, /root and /dev/shm are
# fresh tmpfs, so that nothing a test does (or a program it runs) can write outside folders that
# vanish with it. The tree the script belongs to stays visible where it is, even under /tmp (as
# a private copy of the tree may be). Needs root.
# Usage: tests/sandbox.sh [unshare options...] -- command [arguments...]
set -eu
if [ "$(id -u)" -ne 0 ]; then
    echo "sandbox.sh: tests need root (they make mounts in a private namespace)" >&2
    exit 1
fi
# Mount points for the tmpfs; empty folders on the machine are harmless.
mkdir -p /var/opt /opt /etc/opt
options=()
while [ "$#" -gt 0 ] && [ "$1" != "--" ]; do options+=("$1"); shift; done
shift
tree=$(cd "$(dirname "$0")/.." && pwd)
TREE="$tree" exec unshare --mount "${options[@]}" -- /bin/bash -c '
    set -e
    mount --make-rprivate /
    private="/tmp /var/tmp /var/opt /opt /etc/opt /root /dev/shm"
    mount -t tmpfs -o mode=0700 tmpfs /dev/shm
    mkdir /dev/shm/tree
    mount --bind "$TREE" /dev/shm/tree
    # -n: no record in /run/mount/utab, which is read-only when this runs inside another sandbox
    # (the package build in the end-to-end tests runs the unit tests).
    for m in $private; do
        [ "$m" = /dev/shm ] || mount -t tmpfs -o mode=0755 tmpfs "$m"
        case "$TREE/" in "$m"/*) mkdir -p "$TREE" && mount -n --move /dev/shm/tree "$TREE" ;; esac
    done
    [ ! -d /dev/shm/tree ] || ! mountpoint -q /dev/shm/tree || umount /dev/shm/tree
    mount -t tmpfs -o mode=0755 tmpfs /dev/shm
    chmod 1777 /tmp /var/tmp /dev/shm
    awk "{ print \$5 }" /proc/self/mountinfo | sort -u | while read -r m; do
        case " $private " in *" $m "*) continue ;; esac
        case "$m" in /proc | /proc/*) continue ;; esac
        mount -o remount,bind,ro "$m" 2>/dev/null || true
    done
    if touch /.sandbox-probe 2>/dev/null || touch "$PWD/.sandbox-probe" 2>/dev/null; then
        echo "sandbox.sh: the machine is still writable; refusing to run tests" >&2
        exit 1
    fi
    exec "$@"' sandbox "$@"
