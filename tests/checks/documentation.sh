#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# Makes the reference of the public headers: without a warning, and with all that documentation.py looks for. Prints
# "skipped" and returns 77 without Doxygen.
#
# documentation.sh PYTHON ROOT
set -eu
export LC_ALL=C
python=$1 root=$2
checks=$(cd "$(dirname "$0")" && pwd)

command -v doxygen >/dev/null || {
    echo "skipped: doxygen is not installed"
    exit 77
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$root"
generate() { # further settings
    { cat docs/Doxyfile; echo "OUTPUT_DIRECTORY = $work"; printf '%s\n' "$@"; } | doxygen -
}

generate 2>"$work/warnings"
[ -s "$work/html/index.html" ] || { echo "no reference was made"; exit 1; }
status=0
if [ -s "$work/warnings" ]; then
    cat "$work/warnings"
    status=1
fi
generate "GENERATE_HTML = NO" "GENERATE_XML = YES" "EXTRACT_ALL = YES" 2>/dev/null
"$python" "$checks/documentation.py" "$work/xml" || status=1
exit $status
