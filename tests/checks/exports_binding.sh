#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later
# Looks into a built library: what it is called and needs, how its own names are bound, how it is hardened.
#
# exports_binding.sh READELF LIBRARY SONAME FORTIFIED FOREIGN NEEDED OBJECT...
#
# FORTIFIED: 1 when glibc's checked functions are expected. FOREIGN: 1 when this machine cannot load it. NEEDED: the
# libraries that it needs beside those of the language, separated by blanks. OBJECT: what it is made of.
set -eu
export LC_ALL=C
readelf=$1 library=$2 soname=$3 fortified=$4 foreign=$5 libraries=$6
shift 6

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
fault() {
    echo "$library: $*"
    status=1
}

"$readelf" -dW "$library" >"$work/dynamic"
"$readelf" -lW "$library" >"$work/segments"
"$readelf" -rW "$library" >"$work/relocations"
"$readelf" -W --dyn-syms "$library" | awk '$5 ~ /^(GLOBAL|WEAK)$/ { sub(/@.*/, "", $8); print $4, $7, $8 }' >"$work/symbols"
grep -q '(SONAME)' "$work/dynamic" && [ -s "$work/symbols" ] || { fault "not a shared library"; exit 1; }

# The name under which programs remember it, and what it brings along. libucsi is inside.
grep -qF "soname: [$soname]" "$work/dynamic" || fault "SONAME is not $soname"
for needed in $(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' "$work/dynamic" | grep -v '^ld-linux'); do
    case " $libraries libstdc++.so.6 libgcc_s.so.1 libc.so.6 libm.so.6 libpthread.so.0 " in
    *" $needed "*) ;;
    *) fault "needs $needed" ;;
    esac
done
for needed in $libraries; do
    grep -qF "[$needed]" "$work/dynamic" || fault "does not need $needed"
done
if [ "$foreign" = 0 ]; then
    ldd -r "$library" 2>&1 | grep -E 'undefined symbol|not found' >"$work/undefined" || true
    [ ! -s "$work/undefined" ] || fault "symbols that no needed library has: $(cat "$work/undefined")"
fi

# Calls of its own functions do not leave the library: an executable with a function of the same name keeps it.
awk '$1 == "FUNC" && $2 != "UND" { print $3 }' "$work/symbols" | sort >"$work/functions"
awk '{ sub(/@.*/, "", $5); print $5 }' "$work/relocations" | sort -u >"$work/bound_late"
comm -12 "$work/functions" "$work/bound_late" >"$work/interposed"
[ ! -s "$work/interposed" ] || fault "own functions that are bound late:" $(cat "$work/interposed")

# Its data is looked up, because an executable that names it has a copy, and both are to use the same one. But
# args is so common a name that an executable may have one that means something else.
! grep -q '(SYMBOLIC)\|SYMBOLIC' "$work/dynamic" || fault "binds its own data: linked with -Bsymbolic"
for data in $(awk '$1 == "OBJECT" && $2 != "UND" && $2 != "ABS" { print $3 }' "$work/symbols"); do
    if [ "$data" = args ]; then
        ! grep -qx args "$work/bound_late" || fault "reaches args through its exported name"
    else
        grep -qxF "$data" "$work/bound_late" || fault "does not look $data up"
    fi
done

# Hardening.
grep -q 'BIND_NOW\|Flags:.* NOW' "$work/dynamic" || fault "not linked with -z now"
grep -q GNU_RELRO "$work/segments" || fault "not linked with -z relro"
grep GNU_STACK "$work/segments" | grep -q ' RW  *0x' || fault "its stack is executable"
! grep -q TEXTREL "$work/dynamic" || fault "has relocations in its code"
"$readelf" -W --syms "$@" | grep -q ' UND __stack_chk_fail\(_local\)\{0,1\}$' || fault "compiled without -fstack-protector-strong"
if [ "$fortified" = 1 ]; then
    plain=$(sed -n 's/.* UND \(v\{0,1\}\(f\|d\|s\|sn\)\{0,1\}printf\)$/\1/p' "$work/symbols")
    [ -z "$plain" ] || fault "compiled without _FORTIFY_SOURCE: calls" $plain
fi
exit $status
