#!/bin/bash
# Whole-process time of a diagnostics run that packs 1 GiB of logs (a few hundred compressible
# text files, each named with -i) against "tar czPf" of the same files. Prints medians and the
# ratio gatr/tar; asserts nothing. Runs inside tests/sandbox.sh, so that gatr's output folder
# and the data live in tmpfs that vanish with it. Needs root.
# Usage: bench/archive_bench.sh [STAGE_FOLDER] [RUNS]
set -eu

here=$(cd "$(dirname "$0")" && pwd)
stage=$(cd "${1:-build/stage}" && pwd)
runs=${2:-3}

if [ "${GATR_BENCH_INSIDE:-}" != 1 ]; then
    export GATR_BENCH_INSIDE=1
    exec "$here/../tests/sandbox.sh" -- "$here/archive_bench.sh" "$stage" "$runs"
fi

# /dev/shm is a fresh tmpfs in the sandbox: the figures are of packing, not of the disk.
scratch=$(mktemp -d /dev/shm/gatr-archive-bench.XXXXXX)
mkdir "$scratch/logs"
echo "preparing 1 GiB of logs in $scratch ..."
# A 64 MiB pool of log-like lines; each file is 4 MiB cut from it at its own offset, so that
# files differ and compress like logs, not like one repeated block.
awk 'BEGIN { srand(7); while (n < 67108864) {
        line = sprintf("2024-07-%02d %02d:%02d:%02d.%03d host%02d orbd[%d]: job %d block %d %s %d bytes in %d ms",
                       1 + int(rand() * 28), int(rand() * 24), int(rand() * 60), int(rand() * 60),
                       int(rand() * 1000), int(rand() * 8), 1000 + int(rand() * 9000), int(rand() * 500),
                       int(rand() * 1e6), (rand() < 0.9 ? "written" : "retried"), int(rand() * 1e7),
                       int(rand() * 5000))
        print line; n += length(line) + 1 } }' > "$scratch/pool"
files=()
for i in $(seq 0 255); do
    f="$scratch/logs/app$(printf %03d "$i").log"
    tail -c +$(( (i * 263168) % 62914560 + 1 )) "$scratch/pool" | head -c 4194304 > "$f"
    files+=("$f")
done
rm "$scratch/pool"
echo "  $(du -sb "$scratch/logs" | cut -f1) bytes in ${#files[@]} files;" \
     "pigz: $(command -v pigz || echo none); cores: $(nproc)"

includes=()
for f in "${files[@]}"; do includes+=(-i "$f"); done
output=/var/opt/Brimwell/gatr

wall_ms() {
    local start end
    start=$(date +%s%N)
    "$@" > /dev/null 2>&1 || echo "  (exit status $? from $1)" >&2
    end=$(date +%s%N)
    echo $(( (end - start) / 1000000 ))
}
median_s() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { printf "%.2f", a[int((NR + 1) / 2)] / 1000 }'; }

gs=()
ts=()
# Taken in turn within each round, so that load from elsewhere falls on both alike.
for ((r = 0; r < runs; r++)); do
    rm -f "$output"/*.tar.gz "$output"/*.sha256 "$scratch/tar.tar.gz"
    gs+=("$(wall_ms "$stage/gatr" -s "${includes[@]}")")
    ts+=("$(wall_ms tar czPf "$scratch/tar.tar.gz" "${files[@]}")")
done
g=$(median_s "${gs[@]}")
t=$(median_s "${ts[@]}")
archive=$(ls "$output"/*.tar.gz)
packed=$(tar -tzPf "$archive" | grep -c "^$scratch/logs/" || true)
printf '\ngatr -s (%s runs): %s s   tar czPf: %s s   gatr/tar: %s\n' "$runs" "$g" "$t" \
    "$(awk -v a="$g" -v b="$t" 'BEGIN { printf "%.3f", a / b }')"
echo "gatr archive: $(stat -c %s "$archive") bytes, $packed of ${#files[@]} logs;" \
     "tar archive: $(stat -c %s "$scratch/tar.tar.gz") bytes"
echo "runs (ms): gatr ${gs[*]}; tar ${ts[*]}"
