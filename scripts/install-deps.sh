#!/bin/bash
# Installs everything gatr needs to build, run and be tested on a Debian machine (as root).
set -eu
export DEBIAN_FRONTEND=noninteractive
apt-get update
apt-get install -y --no-install-recommends \
    build-essential cmake ninja-build g++ clang libclang-rt-14-dev \
    libcurl4-openssl-dev libssl-dev libarchive-dev zlib1g-dev openssl ca-certificates gettext \
    libgtest-dev libbenchmark-dev \
    python3 python3-pytest python3-pyftpdlib python3-jsonschema \
    util-linux iproute2 net-tools pciutils procps kmod rpm rpmlint mandoc tar gzip pigz \
    coreutils tmux locales ansible-core ansible-lint openssh-server openssh-client sudo
