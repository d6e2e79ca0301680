#!/bin/bash
# Installs the dependencies, then builds gatr twice and runs every test on both builds:
# a normal g++ build, and an AddressSanitizer+UndefinedBehaviorSanitizer build with clang.
# Warnings in our code are errors in both.
set -eu
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DGATR_WERROR=ON \
    -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_COMPILER=gcc
cmake --build build -j2
(cd build && ctest --output-on-failure)

cmake -S . -B build-sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug -DGATR_WERROR=ON \
    -DGATR_SANITIZE=ON -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang
cmake --build build-sanitize -j2
(cd build-sanitize && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure)
