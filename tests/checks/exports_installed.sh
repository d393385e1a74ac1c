#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# Installs the libraries to a folder of its own and looks for paths of the build in them.
#
# exports_installed.sh CMAKE READELF BUILD
set -eu
export LC_ALL=C
cmake=$1 readelf=$2 build=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --component runtime --prefix "$work" >/dev/null

status=0 count=0
for library in $(find "$work" -type f -name 'lib*.so*' | sort); do
    count=$((count + 1))
    if "$readelf" -dW "$library" | grep -E '\((RPATH|RUNPATH)\)'; then
        echo "$(basename "$library"): looks for libraries where it was built"
        status=1
    fi
done
[ $count -eq 3 ] || { echo "$count libraries were installed instead of 3"; status=1; }
exit $status
