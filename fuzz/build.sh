#!/bin/sh
# Builds the JSON parser's libFuzzer target with AddressSanitizer and UBSan.
# Usage: fuzz/build.sh [output]   (default: build-fuzz/json_parser_fuzz)
# Run:   build-fuzz/json_parser_fuzz -max_total_time=600 fuzz/corpus-run fuzz/corpus
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-"$root/build-fuzz/json_parser_fuzz"}
mkdir -p "$(dirname "$out")" "$root/fuzz/corpus-run"
clang++ -std=c++17 -g -O1 -Wall -Wextra -fsanitize=fuzzer,address,undefined \
    -fno-sanitize-recover=undefined -I"$root/src" \
    "$root/fuzz/json_parser_fuzz.cpp" "$root"/src/json/jsonparser_*.cpp \
    "$root/src/frame/logging.cpp" "$root/src/frame/globals.cpp" -o "$out"
echo "built $out"
