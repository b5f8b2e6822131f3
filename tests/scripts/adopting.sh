#!/usr/bin/env bash
# A program that takes the library in step by step prints the same after each; after the last one a class of it is
# replaced while it runs. What is typed stands on the page.
# adopting.sh SOURCE BUILD CXX FLAGS
set -euo pipefail
source=$1 build=$2
export CXX=$3 CXXFLAGS=$4
. "$(dirname "$0")/common.sh"

# block NUMBER: what the reader of the page types there.
block() {
    awk -v wanted="$1" '/^```/ { open = $0 == "```sh" && ++count == wanted; next } open' "$source/docs/adopting.md"
}

# measured FILE NUMBER LINE: the driver has a new temperature, and the program prints the line.
measured() {
    echo "$2" >new
    mv new "$1"
    await "^$3\$" printed
}

# replaced: the next version of the plugin is dropped, and the one before leaves memory.
replaced() {
    grep -q '/libsensor\.so$' "/proc/$host/maps" || fail "there is no plugin"
    . <(block 3) >"$folder/log" 2>&1
    await '/libsensor\.0001\.so$' "/proc/$host/maps"
    local i
    for i in $(seq 300); do
        grep -q '/libsensor\.so$' "/proc/$host/maps" || return 0
        sleep 0.1
    done
    fail "the version before is still in memory"
}

install_build "$build"
cp -r "$source/examples/adopting" "$folder/steps"
count=0
for step in "$folder"/steps/[0-9]*; do
    echo "== $(basename "$step")"
    cd "$step"
    typed=1 driver=temperature
    [ ! -e filesensor.cpp ] || typed=2
    . <(block $typed) >"$folder/log" 2>&1
    host=$!
    ! grep -i 'warning' "$folder/log" || fail "a warning"
    await '^20$' printed
    measured temperature 21000 21
    if [ -e filesensor.cpp ]; then
        replaced
        driver=probe
    fi
    measured $driver 22000 22
    rm -f temperature probe
    wait "$host" || fail "it ended with $?"
    host=
    diff ../expected printed || fail "it prints something else"
    count=$((count + 1))
done
[ $count -eq 5 ] || fail "$count steps"
echo "ok: $count steps"
