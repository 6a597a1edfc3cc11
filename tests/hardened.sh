#!/bin/sh
# Checks that a program or a shared library was built so that defects are hard to exploit.
# Usage: hardened.sh FILE CONFIG [FLAG...], FLAG being what the compiler was given
set -eu
file=$1
config=$2
shift 2
LC_ALL=C
export LC_ALL

failed=0
# `expect WHAT PATTERN OPTION`: what readelf says with the option has to match the pattern.
expect() {
    readelf --wide "$3" "$file" | grep -Eq -e "$2" && return
    echo "$file has no $1"
    failed=1
}

# A function that was compiled for this file; what the linker adds comes from elsewhere.
if readelf --wide --dynamic "$file" | grep -q SONAME; then
    ownFunction=$(nm --dynamic --defined-only "$file" | awk '$2 == "T" { print $3; exit }')
else
    ownFunction=main
    expect 'place that the loader may choose' 'FLAGS_1.*PIE' --dynamic
fi
expect 'place that the loader may choose' 'Type: +DYN' --file-header
expect 'tables that become read-only' 'GNU_RELRO' --program-headers
expect 'names that are bound before it runs' 'FLAGS_1.*NOW' --dynamic
expect 'stack without code' 'GNU_STACK.* RW +0x' --program-headers
[ "$config" = Debug ] || expect 'checked calls of the C library' '_chk(@|$| )' --dyn-syms
for flag in "$@"; do
    case $flag in
        -fstack-protector-strong) expect 'guarded stack' '__stack_chk_fail' --dyn-syms ;;
        -fcf-protection)
            # Of the code itself: the note about it also takes a C library that was built so.
            objdump --disassemble="$ownFunction" "$file" | grep -q endbr || {
                echo "$file has no marked targets of jumps"
                failed=1
            }
            ;;
    esac
done
exit $failed
