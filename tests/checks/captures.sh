#!/usr/bin/env bash
# SPDX-License-Identifier: LGPL-2.1-or-later
# captures.sh TOOL PYTHON COMPARE COMMAND GOLDEN STREAM: runs a command of the tool on a stream and compares what it
# prints with the golden file, for a scan the descriptors too, a dump by compare_dump.py. 77: the stream has no golden file.
set -u
tool=$1 python=$2 compare=$3 command=$4 golden=$5 stream=$6
checks=$(dirname "${BASH_SOURCE[0]}")

[ -f "$golden" ] || exit 77
answer=$(mktemp)
trap 'rm -f "$answer"' EXIT
"$tool" "$command" --json "$stream" >"$answer"
status=$?
comparison=("$compare" "$command")
[ "$command" != dump ] || comparison=("$checks/compare_dump.py")
verdict=$("$python" "${comparison[@]}" "$golden" "$answer") || { echo "$verdict"; exit 1; }
echo "$verdict"
if [ "$command" = scan ]; then
    "$python" "$checks/compare_descriptors.py" "$golden" "$answer" || exit 1
fi
# A stream of which the golden file states nothing has no sections for the command; all others are scanned completely.
[ "${verdict##*$'\n'}" = "0 facts, 0 wrong" ] && expected=4 || expected=0
[ $status -eq $expected ] || { echo "exit status $status, not $expected"; exit 1; }
