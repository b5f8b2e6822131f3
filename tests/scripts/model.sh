#!/usr/bin/env bash
# The notes of running calls, in every order of events that the C++ memory model allows, and the faults that are found so.
# What runs is the library's own source, with the explorer's atomics in place of the standard ones. Prints two tables.
# With "full" each fault is looked for by all scenarios, which takes a quarter of an hour.
# model.sh SOURCE CXX [full]
set -euo pipefail
source=$(realpath "$1") cxx=$2 length=${3:-short}
# shellcheck source=tests/scripts/common.sh
. "$source/tests/scripts/common.sh"

declare -A texts # of the sources, by file

# change FILE FROM TO: the one place that says so.
change() {
    local rest=${texts[$1]//"$2"/}
    [ $((${#texts[$1]} - ${#rest})) = ${#2} ] || fail "$1 does not say this once: $2"
    texts[$1]=${texts[$1]/"$2"/"$3"}
}

read_sources() {
    texts[zcallnotes.h]=$(<"$source/zdefault/zcallnotes.h")
    texts[delegate.h]=$(<"$source/tests/model/delegate.h")
    texts[model.cpp]=$(<"$source/tests/model/model.cpp")
    texts[zcallnotes.h]=${texts[zcallnotes.h]//std::atomic</Atomic<}
    change zcallnotes.h $'class ZTarget\n' $'class ZTarget : public Pooled\n'
    change zcallnotes.h 'ZCallNote, 8>' 'ZCallNote, 2>'
    change zcallnotes.h 'Size = 31;' 'Size = 2;'
    change zcallnotes.h $'class ZCallNoteBlock\n' $'class ZCallNoteBlock : public Kept\n'
    change zcallnotes.h 'ZCallNoteBlock *next = nullptr' 'Plain<ZCallNoteBlock *> next = nullptr'
}

# build_model WARNINGS...
build_model() {
    local file
    for file in "${!texts[@]}"; do
        printf '%s\n' "${texts[$file]}" >"$folder/$file"
    done
    quietly "$cxx" -std=c++17 -O1 "$@" -I"$folder" -I"$source/tests/model" -I"$source/tests/model/stubs" \
        "$folder/model.cpp" "${explorer[@]}" -o "$folder/model"
}

# seed FROM TO: a fault, in the one source that says so.
seed() {
    local file files=()
    for file in "${!texts[@]}"; do
        [[ ${texts[$file]} != *"$1"* ]] || files+=("$file")
    done
    [ ${#files[@]} = 1 ] || fail "not one source says this: $1"
    change "${files[0]}" "$1" "$2"
}

# look_for FAULT FROM TO REASON: prints what finds the fault, or the reason why nothing does.
look_for() {
    local how=()
    [ "$length" = full ] || how=(--first)
    read_sources
    seed "$2" "$3"
    build_model -w # some faults leave names unused
    if "$folder/model" "${how[@]}" >"$folder/found"; then
        [ -n "$4" ] || fail "not found: $1"
        echo "| $1 | nothing: $4 | |"
        return
    fi
    [ -z "$4" ] || fail "found, in spite of its reason: $1"
    grep -v '| ok |' "$folder/found" | while IFS='|' read -r _ scenario found _; do
        echo "| $1 |$found|$scenario|"
    done
}

look_for_all() {
    local line name='' from='' to='' reason=''
    while IFS= read -r line; do
        case $line in
        '# '*) name=${line:2} from='' to='' reason='' ;;
        '-'*) from+=${from:+$'\n'}${line:2} ;;
        '+'*) to+=${to:+$'\n'}${line:2} ;;
        '= '*) reason=${line:2} ;;
        '') [ -z "$name" ] || look_for "$name" "$from" "$to" "$reason" ;;
        esac
    done < <(cat "$source/tests/model/faults.txt" && echo)
}

# What delegate.h restates must be so.
for line in 'before = m_target.exchange(before, std::memory_order_seq_cst);' 'allNotes.retire(before);' \
    'm_target.load(std::memory_order_relaxed);' 'target->share();' 'note->take(' 'notes->free()'; do
    grep -qF "$line" "$source/zdefault/zcall.cpp" || fail "zcall.cpp says no longer: $line"
done

for part in explorer memory life litmus; do
    quietly "$cxx" -std=c++17 -O2 -Wall -Wextra -Werror -I"$source/tests/model" -c "$source/tests/model/$part.cpp" \
        -o "$folder/$part.o"
done
explorer=("$folder"/{explorer,memory,life}.o)
quietly "$cxx" "$folder/litmus.o" "${explorer[@]}" -o "$folder/litmus"
quietly "$folder/litmus"

read_sources
build_model -Wall -Wextra -Werror
printf '%s\n' '| scenario | result | states | runs | seconds |' '|---|---|---|---|---|'
"$folder/model" || fail "the notes of running calls are at fault"

printf '%s\n' '' '| fault | found as | by |' '|---|---|---|'
look_for_all
echo "ok"
