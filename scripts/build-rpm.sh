#!/bin/bash
# Builds gatr's binary and source RPMs from this checkout: a source tarball of the tracked files
# as they stand in the working tree, then rpmbuild in a private top folder, so that nothing of
# ~/rpmbuild or of an earlier build takes part.
# Usage: scripts/build-rpm.sh [OUTPUT_FOLDER]     (default: build/rpm of the checkout)
# Environment: GATR_RELEASE, the package's release number (default 1); GATR_CONNECTOR_KEY, the
# connector key of the build (default: the development key).
set -eu
tree=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$tree/build/rpm}
spec=$tree/packaging/gatr.spec
version=$(sed -n 's/^Version: *//p' "$spec")
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$tmp/SOURCES" "$out"

# A tracked file deleted in the working tree is left out rather than failing the build.
(cd "$tree" && git ls-files -z | while IFS= read -r -d '' f; do
    if [ -e "$f" ] || [ -L "$f" ]; then printf '%s\0' "$f"; fi
done | tar --null -T - --owner=0 --group=0 --transform "flags=rSh;s,^,gatr-$version/," \
    -czf "$tmp/SOURCES/gatr-$version.tar.gz")

options=()
# On Debian the build dependencies that packaging/gatr.spec names (RHEL's gcc-c++, libcurl-devel,
# openssl-devel and the like) have other names, so rpmbuild cannot check them: --nodeps.
# install-deps.sh installs their Debian counterparts.
if [ -f /etc/debian_version ]; then options+=(--nodeps); fi
rpmbuild -ba "${options[@]}" --define "_topdir $tmp" \
    --define "gatr_release ${GATR_RELEASE:-1}" "$spec"
cp "$tmp"/RPMS/*/*.rpm "$tmp"/SRPMS/*.rpm "$out/"
ls -l "$out"
# For the record only: the package's findings, with the ones this package means filtered out.
if command -v rpmlint >/dev/null; then
    rpmlint -r "$tree/packaging/gatr.rpmlintrc" "$out"/gatr-"$version"-*.rpm || true
fi
