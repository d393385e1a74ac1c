#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# Compares the binary interface of a library (exported symbols with their versions, prototypes, records, enumerations)
# with the description that clients were built against.
#
# abi.sh check|write PYTHON COMPILER INCLUDE LIBRARY VERSION_SCRIPT DESCRIPTION HEADER...
#
# write makes the description. Reported is every difference, additions too: the description is to be written anew
# whenever the interface grows. Prints "skipped" and returns 77 without abigail-tools.
set -eu
export LC_ALL=C
what=$1 python=$2 compiler=$3 include=$4 library=$5 script=$6 description=$7
shift 7

command -v abidw >/dev/null && command -v abidiff >/dev/null || {
    echo "skipped: abidw and abidiff (abigail-tools) are not installed"
    exit 77
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" # relative names: no path gets into the description
"$python" "$OLDPWD/abi_interface.py" "$compiler" "$include" "$@" >interface.c
"$compiler" -std=c11 -g -O0 -w -fPIC -I "$include" -c interface.c
"$compiler" -shared -nostdlib -Wl,-soname,"$library" -Wl,--version-script="$script" interface.o -o "$library"

abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --load-all-types --out-file now.abi "$library"
case $what in
write)
    cp now.abi "$description"
    ;;
check)
    abidiff --harmless --non-reachable-types "$description" now.abi && exit 0
    echo "The interface differs from $description."
    echo "If that is meant: cmake --build BUILD --target orva_abi"
    exit 1
    ;;
esac
