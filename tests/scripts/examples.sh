#!/usr/bin/env bash
# Each example is a project of its own, is built against the installed package, and prints what stands in its file
# "expected".
# examples.sh SOURCE BUILD CXX FLAGS
set -euo pipefail
source=$1 build=$2
export CXX=$3 CXXFLAGS=$4
. "$(dirname "$0")/common.sh"

install_build "$build"

count=0
for example in "$source"/examples/[0-9]*; do
    name=$(basename "$example")
    echo "== $name"
    quietly cmake -S "$example" -B "$folder/$name" -G Ninja
    quietly cmake --build "$folder/$name" --parallel 2
    ! grep -i 'warning' "$folder/log" || fail "a warning"
    for plugin in $(find "$folder/$name" -maxdepth 1 -name 'lib*.so'); do # which zdeploy tries out without settings
        quietly zdeploy --describe "$plugin"
        ! grep 'warning' "$folder/log" || fail "a warning"
    done
    program=$folder/$name/${name#*-}
    if [ -x "$program" ]; then
        "$program" >"$folder/out" 2>&1 || fail "$name ended with $?"
    elif [ -f "$folder/$name/CTestTestfile.cmake" ]; then # a plugin with its test
        quietly ctest --test-dir "$folder/$name" --verbose --no-tests=error
        sed -nE 's/^[0-9]+: (PASS)/\1/p' "$folder/log" >"$folder/out"
    else # a plugin: it is run by zhost, until it has said what it is expected to say
        plugin=$(basename "$folder/$name"/lib*.so .so)
        mkdir "$folder/$name/hot-deploy"
        cat >"$folder/config.json" <<JSON
{"loader": {"deployed": "$folder/$name", "hot-deploy": "$folder/$name/hot-deploy", "load-list": ["${plugin#lib}"]}}
JSON
        start_host "$folder/config.json"
        await "$(tail -n 1 "$example/expected")"
        stop_host
    fi
    if [ -f "$folder/$name/wrong.json" ]; then # a configuration, and what is told of it
        (cd "$folder/$name" && ! zhost --check wrong.json >>"$folder/out" 2>&1) || fail "$name: wrong.json passed"
    fi
    diff "$example/expected" "$folder/out" || fail "$name says something else"
    count=$((count + 1))
done
[ $count -ge 14 ] || fail "only $count examples"
echo "ok: $count examples"
