#!/bin/bash
# Installs the dependencies, builds and stages gatr, and runs a diagnostics run (as root).
set -eu
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j2
exec ./build/stage/gatr "$@"
