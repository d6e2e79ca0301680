#!/bin/bash
# Whole-process time of a diagnostics run that packs 1 GiB of logs (a few hundred compressible
# text files, each named with -i), with masking on and with masking off ("mask_secrets": false),
# against "tar czPf" of the same files. Prints medians and the ratios masked/unmasked (target
# 1.2 or less) and gatr/tar (target 0.6 or less on 2 cores), and masked and obfuscated over masked
# (--obfuscate; target 1.5 or less); asserts nothing. Runs inside tests/sandbox.sh, so that gatr's output folder
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
# The same program with masking off: a copy of the stage whose configuration says so.
unmasked=/opt/gatr-unmasked
cp -a "$stage" "$unmasked"
python3 - "$unmasked/etc/gatr_config.json" <<'PY'
import json, sys
config = json.load(open(sys.argv[1]))
config["mask_secrets"] = False
json.dump(config, open(sys.argv[1], "w"), indent=2)
PY

# Wall time and CPU time (user and system, children included: pigz, gzip) in milliseconds. On a
# shared machine the CPU figures hold when the wall figures are taken by others' load.
measure() {
    local start end cpu
    start=$(date +%s%N)
    /usr/bin/time -f "%U %S" -o "$scratch/cpu" "$@" > /dev/null 2>&1 || echo "  (exit status $? from $1)" >&2
    end=$(date +%s%N)
    cpu=$(awk '{ printf "%d", ($1 + $2) * 1000 }' "$scratch/cpu")
    echo $(( (end - start) / 1000000 )):$cpu
}
median_s() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { printf "%.2f", a[int((NR + 1) / 2)] / 1000 }'; }

gs=()
us=()
ts=()
os=()
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'; }
# Taken in turn within each round, so that load from elsewhere falls on all alike.
for ((r = 0; r < runs; r++)); do
    rm -f "$output"/*.tar.gz "$output"/*.sha256 "$scratch/tar.tar.gz"
    us+=("$(measure "$unmasked/gatr" -s "${includes[@]}")")
    rm -f "$output"/*.tar.gz "$output"/*.sha256
    gs+=("$(measure "$stage/gatr" -s "${includes[@]}")")
    rm -f "$output"/*.tar.gz "$output"/*.sha256 "$output"/*.map.json
    os+=("$(measure "$stage/gatr" -s --obfuscate "${includes[@]}")")
    rm -f "$output"/*.map.json
    ts+=("$(measure tar czPf "$scratch/tar.tar.gz" "${files[@]}")")
done
wall() { printf '%s\n' "$@" | cut -d: -f1; }
cpu() { printf '%s\n' "$@" | cut -d: -f2; }
g=$(median_s $(wall "${gs[@]}")); gc=$(median_s $(cpu "${gs[@]}"))
u=$(median_s $(wall "${us[@]}")); uc=$(median_s $(cpu "${us[@]}"))
t=$(median_s $(wall "${ts[@]}")); tc=$(median_s $(cpu "${ts[@]}"))
o=$(median_s $(wall "${os[@]}")); oc=$(median_s $(cpu "${os[@]}"))
archive=$(ls "$output"/*.tar.gz)
packed=$(tar -tzPf "$archive" | grep -c "^$scratch/logs/" || true)
printf '\nmedians of %s runs    wall s / cpu s\n' "$runs"
printf '  gatr -s, masked     %8s / %s\n  gatr -s, unmasked   %8s / %s\n  tar czPf            %8s / %s\n' \
    "$g" "$gc" "$u" "$uc" "$t" "$tc"
printf 'wall: masked/unmasked %s  masked gatr/tar %s  unmasked gatr/tar %s\n' "$(ratio "$g" "$u")" \
    "$(ratio "$g" "$t")" "$(ratio "$u" "$t")"
printf 'cpu:  masked/unmasked %s  masked gatr/tar %s\n' "$(ratio "$gc" "$uc")" "$(ratio "$gc" "$tc")"
printf 'masked and obfuscated: %s / %s s; over masked: wall %s, cpu %s\n' "$o" "$oc" "$(ratio "$o" "$g")" \
    "$(ratio "$oc" "$gc")"
echo "gatr archive: $(stat -c %s "$archive") bytes, $packed of ${#files[@]} logs;" \
     "tar archive: $(stat -c %s "$scratch/tar.tar.gz") bytes; load average: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "runs (wall:cpu ms): gatr ${gs[*]}; unmasked ${us[*]}; obfuscated ${os[*]}; tar ${ts[*]}"
