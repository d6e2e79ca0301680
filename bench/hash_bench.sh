#!/bin/bash
# Whole-process speed and memory of the hash mode against coreutils and the openssl command line
# on one 1 GiB file and on a folder of 10,000 small files. Prints medians and ratios; asserts
# nothing. Needs root: gatr's hash mode refuses other users and writes its error log under
# /var/opt/Brimwell/gatr, so everything runs in a private mount namespace with a tmpfs there.
# Usage: bench/hash_bench.sh [STAGE_FOLDER] [RUNS]
set -eu

stage=$(cd "${1:-build/stage}" && pwd)
runs=${2:-7}

if [ "${GATR_BENCH_INSIDE:-}" != 1 ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "hash_bench.sh: needs root (private mount namespace, gatr's root check)" >&2
        exit 1
    fi
    mkdir -p /var/opt
    export GATR_BENCH_INSIDE=1
    exec unshare --mount --fork -- "$0" "$stage" "$runs"
fi

mount --make-rprivate /
mount -t tmpfs tmpfs /var/opt

# Data in memory, so that the figures are of hashing and not of the disk.
base=/dev/shm
[ -d "$base" ] && [ -w "$base" ] || base=/tmp
scratch=$(mktemp -d "$base/gatr-hash-bench.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

echo "preparing data in $scratch ..."
head -c 1073741824 /dev/urandom > "$scratch/big.bin"
mkdir "$scratch/small"
# 10,000 files of 1 to 8 KiB cut from one random stream.
head -c 48000000 /dev/urandom > "$scratch/stream"
(cd "$scratch/small" && split -a 5 -d -b 4800 "$scratch/stream" f)
rm "$scratch/stream"
echo "  big file: $(stat -c %s "$scratch/big.bin") bytes; small files: $(ls "$scratch/small" | wc -l)"

gatr="$stage/gatr"

# Wall time of one run in microseconds, output discarded.
wall_us() {
    local start end
    start=$(date +%s%N)
    "$@" > /dev/null 2>&1
    end=$(date +%s%N)
    echo $(( (end - start) / 1000 ))
}

median_s() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { printf "%.3f", a[int((NR + 1) / 2)] / 1e6 }'; }

# Peak resident set size in KiB of one run.
peak_rss() {
    if [ -x /usr/bin/time ]; then
        /usr/bin/time -v "$@" 2>&1 >/dev/null | awk -F': ' '/Maximum resident set size/ { print $2 }'
    else
        "$@" > /dev/null 2>&1 &
        local pid=$! peak=0 v
        while kill -0 "$pid" 2>/dev/null; do
            v=$(awk '/VmHWM/ { print $2 }' "/proc/$pid/status" 2>/dev/null || true)
            [ -n "$v" ] && peak=$v
            sleep 0.01
        done
        wait "$pid" || true
        echo "$peak"
    fi
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'; }

# One table row: gatr on its argument against coreutils and openssl on the named files. The
# three are timed in turn within each round, so that load from elsewhere on the machine falls
# on all of them alike.
row() {
    local algo=$1 label=$2 target=$3 gs=() cs=() os=()
    shift 3
    # One untimed pass so that every timed run finds the same warm caches.
    "$gatr" --hash "$algo" "$target" > /dev/null
    for ((i = 0; i < runs; i++)); do
        gs+=("$(wall_us "$gatr" --hash "$algo" "$target")")
        cs+=("$(wall_us "${algo}sum" "$@")")
        os+=("$(wall_us openssl dgst "-$algo" "$@")")
    done
    local g c o
    g=$(median_s "${gs[@]}")
    c=$(median_s "${cs[@]}")
    o=$(median_s "${os[@]}")
    printf '%-7s %-7s %9s %9s %9s %10s %10s %9s\n' "$algo" "$label" "$g" "$c" "$o" \
        "$(ratio "$g" "$c")" "$(ratio "$g" "$o")" "$(peak_rss "$gatr" --hash "$algo" "$target")"
}

printf '\n%-7s %-7s %9s %9s %9s %10s %10s %9s\n' algo data gatr_s coreut_s openssl_s \
    gatr/core gatr/ossl rss_KiB
# The small files are named one by one on the reference tools' command lines, as gatr's folder
# walk names every entry itself.
for algo in sha256 sha1 md5; do
    row "$algo" 1GiB "$scratch/big.bin" "$scratch/big.bin"
    row "$algo" 10k "$scratch/small/" "$scratch/small"/*
done

# Reference memory of the tools on the big file.
echo
echo "peak RSS (KiB) on the 1 GiB file: sha256sum $(peak_rss sha256sum "$scratch/big.bin")," \
     "openssl dgst $(peak_rss openssl dgst -sha256 "$scratch/big.bin")"
# gatr's output must match the reference while we are here.
if [ "$("$gatr" --hash sha256 "$scratch/big.bin")" = "$(sha256sum "$scratch/big.bin")" ]; then
    echo "gatr and sha256sum agree on the 1 GiB file"
else
    echo "MISMATCH between gatr and sha256sum on the 1 GiB file"
fi
if [ "$("$gatr" --hash md5 "$scratch/small/" | sort)" = "$(md5sum "$scratch/small"/* | sort)" ]; then
    echo "gatr and md5sum agree on the 10,000 small files"
else
    echo "MISMATCH between gatr and md5sum on the small files"
fi
