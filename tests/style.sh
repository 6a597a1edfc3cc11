#!/bin/sh
# Checks what clang-format does not: ASCII text without tabs, lines of at most 100 columns, no
# blanks at their ends, a line break at the end of a file, and #pragma once in headers.
# Usage: style.sh SOURCE_DIR
set -eu
cd "$1"
LC_ALL=C
export LC_ALL

guides=$(find docs README.md SECURITY.md -name '*.md')
headers=$(find include src tool tests fuzz bench -name '*.h')
sources="$headers
$(find src tool tests fuzz bench -name '*.cpp')
$(find tests cmake -name '*.cmake' -o -name '*.in' -o -name '*.sh')
$(find . -name build -prune -o -name CMakeLists.txt -print)
CMakePresets.json dev .ci/run .clang-format .clang-tidy tests/.clang-tidy"
failed=0

complain() {
    echo "$1"
    failed=1
}

# Reports the lines of the given files that match the pattern.
refuse() {
    message=$1
    pattern=$2
    shift 2
    if grep -anHE -e "$pattern" "$@"; then
        complain "^ $message"
    fi
}

# Names have no blanks in this project, so the lists may be split at them.
# shellcheck disable=SC2086
{
    refuse 'a tab or a character beyond ASCII' '[^ -~]' $sources $guides
    refuse 'blanks at the end of the line' ' $' $sources $guides
    refuse 'more than 100 columns' '.{101}' $sources
    for file in $sources $guides; do
        [ -z "$(tail -c 1 "$file")" ] || complain "$file: no line break at the end"
    done
    for header in $headers; do
        grep -qx '#pragma once' "$header" || complain "$header: no #pragma once"
    done
}

# Each room of the library uses itself and those below it.
above=''
for room in reader scene bulk foundation; do
    [ -d "src/$room" ] || complain "no src/$room"
    for higher in $above; do
        refuse "an include that runs upwards" "^#include \"$higher/" "src/$room"/*
    done
    above="$above $room"
done
for directory in src/*; do
    case $directory in
        src/foundation | src/bulk | src/scene | src/reader) ;;
        *) complain "$directory: a room that has no storey" ;;
    esac
done
exit $failed
