#!/usr/bin/env bash
# What plugins that were built before rely on: the slots of the interfaces, the layout of the classes, the symbols. It
# is kept in tests/abi; a change of it breaks those plugins, so it is made knowingly or not at all:
# abi.sh SOURCE LIBRARY [--record]
set -euo pipefail
source=$(realpath "$1") library=$2
kept=$source/tests/abi/interfaces-1.txt

headers=("$source"/include/*.h "$source"/zdefault/{zcodecalias,zdbuslayers,zdefault*,zhost,zleasedelegate,zlibraryset,zorderlyemitter,zservices}.h)

slots() { # of the classes that are all virtual, in order
    awk '/^class [A-Z]/ { class = $0; sub(/^class (ZDEFAULT_EXPORT )?/, "", class) }
         /^ *virtual / { sub(/^ */, ""); print class ": " $0 }' "${headers[@]}"
}

layout() { # sizes, and where each base lies
    printf '#include "%s"\n' "${headers[@]}" >"$folder/all.h"
    # shellcheck disable=SC2046
    g++ -std=c++17 -fPIC -x c++ -fsyntax-only -fdump-lang-class="$folder/classes" -w -I"$source/include" \
        -I"$source/zdefault" $(pkg-config --cflags Qt5Core) "$folder/all.h"
    # Every class that a header exports or declares as an interface, one line each.
    sed -nE 's/^class (ZDEFAULT_EXPORT )?(Z[A-Za-z]+)( .*|$)/\2/p' "${headers[@]}" | sort -u >"$folder/names"
    awk -v RS= 'NR == FNR { known[$1] = 1; next }
        $1 == "Class" && $2 in known { gsub(/\(0x0x[0-9a-f]+\)/, ""); gsub(/[ \n]+/, " "); print }' \
        RS='\n' "$folder/names" RS= "$folder/classes" | sort
}

symbols() { # but those that the compiler makes or leaves out as it likes, and the sanitizers' marks
    nm -D --defined-only --demangle "$library" | awk '$2 ~ /[TDBR]/' | cut -d' ' -f3- |
        grep -v -e '^__' -e '^_init$' -e '^_fini$' | LC_ALL=C sort -u
}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
{
    echo "== slots"
    slots
    echo "== layout"
    layout
    echo "== symbols"
    symbols
} >"$folder/now"
if [ "${3:-}" = --record ]; then
    cp "$folder/now" "$kept"
fi
diff -u "$kept" "$folder/now" || {
    echo "FAIL: plugins that were built before would break. If that is meant, raise zdefault_INTERFACES and record anew:" \
        "tests/scripts/abi.sh . LIBRARY --record. New symbols alone break nobody: record them." >&2
    exit 1
}
echo "ok: $(wc -l <"$kept") lines"
