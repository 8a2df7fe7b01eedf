#!/bin/bash
# Builds the Debian package and runs lintian over it: an error or a warning fails the test.
# Usage: lintian-test.sh BUILD_DIR VERSION
set -euo pipefail
build=$1 version=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cpack --config "$build/CPackConfig.cmake" -B "$scratch/out" > "$scratch/cpack.log" 2>&1 ||
  { cat "$scratch/cpack.log"; echo "FAIL: cpack" >&2; exit 1; }
deb=$(ls "$scratch"/out/varnel_"$version"-1_*.deb)
# Infos are shown, not failed on (the binaries are built without _FORTIFY_SOURCE).
lintian --fail-on error,warning --tag-display-limit 0 --display-info "$deb"
echo "$(basename "$deb"): lintian is content"
