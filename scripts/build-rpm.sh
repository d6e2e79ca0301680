#!/bin/bash
# Builds gatr's binary and source RPMs from this tree: a source tarball of the tree's files as
# they stand (the tracked files of a git checkout; otherwise, as in an unpacked release tarball,
# every file but the build folders), then rpmbuild in a private top folder, so that nothing of
# ~/rpmbuild or of an earlier build takes part and nothing is written into the tree but the
# output folder.
# Usage: scripts/build-rpm.sh [OUTPUT_FOLDER]     (default: build/rpm of the tree)
# Environment: GATR_RELEASE, the package's release number (default 1); GATR_CONNECTOR_KEY, the
# connector key of the build (default: the development key).
set -euo pipefail
tree=$(cd "$(dirname "$0")/.." && pwd -P)
mkdir -p "${1:-$tree/build/rpm}"
out=$(cd "${1:-$tree/build/rpm}" && pwd)
recipe=$tree/packaging/gatr.spec
version=$(sed -n 's/^Version: *//p' "$recipe")
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$tmp/SOURCES"

# The tree's files, NUL-separated and relative to it. A tracked file deleted in the working
# tree is left out rather than failing the build.
listFiles() {
    if [ "$(git -C "$tree" rev-parse --show-toplevel 2>/dev/null)" = "$tree" ]; then
        git -C "$tree" ls-files -z | while IFS= read -r -d '' f; do
            if [ -e "$tree/$f" ] || [ -L "$tree/$f" ]; then printf '%s\0' "$f"; fi
        done
    else
        # The output folder is left out too, wherever in the tree it lies.
        (cd "$tree" && find . -mindepth 1 \( -path './build*' -o -path "./${out#"$tree"/}" \
            -o -name .git \) -prune -o \( -type f -o -type l \) -printf '%P\0')
    fi
}
listFiles > "$tmp/files"
# An empty list would make an empty tarball, and rpmbuild fail much later in %setup.
if ! grep -qzxF packaging/gatr.spec "$tmp/files"; then
    echo "build-rpm.sh: the files to pack from $tree lack packaging/gatr.spec" \
        "(none found, or it is untracked)" >&2
    exit 1
fi
tar -C "$tree" --null -T "$tmp/files" --owner=0 --group=0 \
    --transform "flags=rSh;s,^,gatr-$version/," -czf "$tmp/SOURCES/gatr-$version.tar.gz"

options=()
# On Debian the build dependencies that packaging/gatr.spec names (RHEL's gcc-c++, libcurl-devel,
# openssl-devel and the like) have other names, so rpmbuild cannot check them: --nodeps.
# install-deps.sh installs their Debian counterparts.
if [ -f /etc/debian_version ]; then options+=(--nodeps); fi
rpmbuild -ba "${options[@]}" --define "_topdir $tmp" \
    --define "gatr_release ${GATR_RELEASE:-1}" "$recipe"
cp "$tmp"/RPMS/*/*.rpm "$tmp"/SRPMS/*.rpm "$out/"
ls -l "$out"
# For the record only: the package's findings, with the ones this package means filtered out.
if command -v rpmlint >/dev/null; then
    rpmlint -r "$tree/packaging/gatr.rpmlintrc" "$out"/gatr-*"$version"-*.rpm || true
fi
