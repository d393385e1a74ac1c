#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# Compares symbols of default visibility with a list of exports, one name a line.
#
# exports.sh library READELF LIST LIBRARY     what the library exports is exactly the list
# exports.sh objects READELF LIST OBJECT...   C symbols that the objects define are all on the list
set -eu
export LC_ALL=C
what=$1 readelf=$2 list=$3
shift 3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Names that the files define for others to see. The version node of a library is an absolute symbol.
visible() {
    "$readelf" -W "$@" | awk '
        $5 ~ /^(GLOBAL|WEAK|UNIQUE)$/ && $6 == "DEFAULT" && $7 != "UND" && $7 != "ABS" {
            sub(/@.*/, "", $8); print $8 }' | sort -u
}

grep -v -e '^#' -e '^$' "$list" | sort >"$work/listed"
[ -s "$work/listed" ] || { echo "$list names nothing"; exit 1; }
status=0
report() { # title, file of names
    [ -s "$2" ] || return 0
    echo "$1:"
    sed 's/^/    /' "$2"
    status=1
}

uniq -d "$work/listed" >"$work/twice"
report "twice in $list" "$work/twice"

case $what in
library)
    visible --dyn-syms "$1" >"$work/found"
    comm -23 "$work/listed" "$work/found" >"$work/missing"
    comm -13 "$work/listed" "$work/found" >"$work/extra"
    report "listed, but not exported by $1" "$work/missing"
    report "exported by $1, but not listed" "$work/extra"
    ;;
objects)
    # Mangled names are C++: templates of the standard library bring their own visibility, the version script
    # hides them. AddressSanitizer adds names of its own.
    visible --syms "$@" | grep -v '^_Z' >"$work/found" || true
    [ -s "$work/found" ] || { echo "no C symbols in the objects"; exit 1; }
    comm -13 "$work/listed" "$work/found" | grep -v -e '^__odr_asan' -e '^__asan' >"$work/extra" || true
    report "defined with default visibility, but not listed" "$work/extra"
    ;;
*)
    echo "unknown check: $what"
    exit 2
    ;;
esac
exit $status
