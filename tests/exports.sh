#!/bin/sh
# Checks that a shared library exports what the public headers declare and nothing else: each
# namespace and class of a name is opened in one of them, and the name itself stands there.
# Usage: exports.sh LIBRARY HEADER...
set -eu
library=$1
shift
LC_ALL=C
export LC_ALL

# Without comments.
code() { sed 's|//.*||' "$@"; }

scopes() {
    code "$@" | grep -oE '^ *(namespace|class|struct|union|enum|enum class) [^;]*\{' |
        sed -E 's/^ *(namespace|class|struct|union|enum class|enum) //; s/ .*//; s/::/\n/g'
}

words() { code "$@" | grep -oE '[A-Za-z_][A-Za-z_0-9]*'; }

# The names alone: no result, arguments and tables, and of an operator only that it is one.
exported() {
    nm --dynamic --defined-only --demangle "$1" | cut -d ' ' -f 3- |
        sed -E 's/operator.*/operator/; s/\(anonymous namespace\)/anonymous/
                s/^(vtable|typeinfo|typeinfo name|guard variable|non-virtual thunk) (for|to) //
                :again; s/<[^<>]*>//; t again
                s/\(.*//; s/.* //; s/~//' | sort -u
}

{
    scopes "$@" | sed 's/^/scope /'
    words "$@" | sed 's/^/word /'
    exported "$library" | sed 's/^/name /'
} | awk '
    $1 == "scope" { isScope[$2] = 1 }
    $1 == "word" { isWord[$2] = 1 }
    $1 == "name" {
        depth = split($2, parts, "::")
        isPublic = parts[1] == "ko" && parts[depth] in isWord
        for (i = 1; i < depth; ++i)
            if (!(parts[i] in isScope)) isPublic = 0
        if (!isPublic) {
            print $2 " is exported and not declared in a public header"
            ++refused
        }
        ++names
    }
    END {
        if (!names) print "no name is exported"
        exit refused || !names
    }'
