#!/usr/bin/env bash
# What the installed zdefault-new-plugin writes builds, runs and can be dropped as it says.
# newplugin.sh BUILD CXX FLAGS
set -euo pipefail
build=$1
export CXX=$2 CXXFLAGS=$3
. "$(dirname "$0")/common.sh"

# mapped FILE: whether the host has it in memory.
mapped() { grep -q "/$1\$" "/proc/$host/maps"; }

# tested COUNT: the test that was written passes, with so many test functions.
tested() {
    local plugin
    plugin=$(basename "$PWD")
    quietly bash -e <(sed -n 's/^To test it: //p' ../said)
    grep -q '100% tests passed, 0 tests failed out of 1' "$folder/log" || fail "$plugin: $(cat "$folder/log")"
    quietly "build/test_$plugin"
    grep -q "^Totals: $(($1 + 2)) passed, 0 failed" "$folder/log" || fail "$plugin: other tests: $(cat "$folder/log")"
}

install_build "$build"
mkdir "$folder/home"
cd "$folder/home"

echo "== names"
# refused REASON ARGUMENT...: the name, which is the last, cannot be used.
refused() {
    local reason=$1 status=0
    shift
    zdefault-new-plugin "$@" 2>"$folder/err" || status=$?
    [ $status -eq 2 ] || fail "$*: exit status $status"
    grep -q "^zdefault-new-plugin: \"${!#}\" cannot be used$reason$" "$folder/err" || fail "$*: $(cat "$folder/err")"
    grep -q '^usage: ' "$folder/err" || fail "$*: no usage"
}

for name in "" Foo 1st foo-bar foo/bar ../foo "foo bar" foo.1; do
    refused "" "$name"
done
for kind in "" --endpoint --service; do
    for name in all clean edit_cache help install list_install_components package package_source preinstall \
        rebuild_cache test; do
        refused ": it is a target of CMake's" $kind "$name"
    done
    for name in q_object z_object q z qt; do
        refused ": names such as .* are Qt's or the library's" $kind "$name"
    done
done
! zdefault-new-plugin 2>/dev/null || fail "no name was accepted"
for kind in --endpoint --service; do
    ! zdefault-new-plugin $kind 2>/dev/null || fail "$kind: no name was accepted"
    ! zdefault-new-plugin $kind Rain 2>/dev/null || fail "$kind: such a name was accepted"
    ! zdefault-new-plugin $kind --service rain 2>/dev/null || fail "$kind: one more was accepted"
done
[ -z "$(ls)" ] || fail "a refused name left something"
for name in allotment test_a quiet zone qta; do
    zdefault-new-plugin "$name" >/dev/null || fail "\"$name\" was refused"
    rm -r "$name"
done

echo "== a plugin"
zdefault-new-plugin rain_gauge >said
grep -q 'class RainGaugePlugin ' rain_gauge/rain_gauge.cpp || fail "the class is called otherwise"
status=0
zdefault-new-plugin rain_gauge 2>/dev/null || status=$?
[ $status -eq 1 ] || fail "a folder that is there: exit status $status"

cd rain_gauge
sed -n 's/^    //p' ../said >commands
[ "$(wc -l <commands)" -eq 3 ] || fail "other commands are named than these"
quietly bash -e <(sed -n 1p commands)
! grep -i warning "$folder/log" || fail "a warning"
tested 2
[ "$(sed -n 2p commands)" = "zhost config.json" ] || fail "another host"
start_host config.json
await 'hot-deploy folder changed'
bash -e <(sed -n 3p commands)
await '^rain_gauge is here$'
await 'loaded: librain_gauge$'
stop_host

echo "== what debuggers and editors need"
optimized() { grep -q -- "-O2 -g .*rain_gauge.cpp" "$1/compile_commands.json"; }
optimized build || fail "no build type with debug information, or it is not told"
readelf -S build/librain_gauge.so | grep -q '\.debug_info' || fail "no debug information"
quietly cmake -B chosen -DCMAKE_BUILD_TYPE=Debug
! optimized chosen || fail "the build type that was given is not taken"

echo "== an endpoint"
cd ..
zdefault-new-plugin --endpoint rain_post >said
cd rain_post
sed -n 's/^    //p' ../said >commands
quietly bash -e <(sed -n 1p commands)
! grep -i warning "$folder/log" || fail "a warning"
tested 3
start_host config.json
await 'hot-deploy folder changed'
bash -e <(sed -n 3p commands)
await 'loaded: librain_post$'
call=$(sed -n 's/^To call it: //p' ../said)
$call | grep -q '"count": 1' || fail "it was not called"
bash -e <(sed -n 3p commands)
await 'unloaded: librain_post$'
$call | grep -q '"count": 2' || fail "it does not go on where the version before has ended"
stop_host

echo "== a service with an interface of its own"
cd ..
zdefault-new-plugin --service rain_fall >said
cd rain_fall
sed -n 's/^    //p' ../said >commands
[ "$(wc -l <commands)" -eq 4 ] || fail "other commands are named than these"
quietly bash -e <(sed -n 1p commands)
! grep -i warning "$folder/log" || fail "a warning"
tested 2
bash -e <(sed -n 2p commands)
quietly zhost --check config.json
call=$(sed -n 's/^To call who uses it: //p' ../said)

# next_version WORD: of the service, which says it from then on to its user.
next_version() {
    sed -i -E "s/(QString\(\"rain_fall) .*: %1/\1 $1: %1/" rain_fall.cpp
    quietly cmake --build build --target rain_fall
    quietly bash -e <(sed -n 4p commands)
}

[ "$(sed -n 3p commands)" = "zhost config.json" ] || fail "another host"
start_host config.json
await 'stays in memory: librain_fall_contracts: it brought the first delegate of an interface$' # and answers by then
$call | grep -q '"answer": "rain_fall was asked: ' || fail "it is not used"
next_version 'hears'
await 'unloaded: librain_fall$'
! mapped librain_fall.so || fail "the version before is in memory"
$call | grep -q '"answer": "rain_fall hears: ' || fail "the version before is used"
next_version 'listens'
await 'unloaded: librain_fall.0001$'
! mapped librain_fall.0001.so || fail "the version before is in memory"
$call | grep -q '"answer": "rain_fall listens: ' || fail "the version before is used"
stop_host
! grep 'nobody served' "$folder/out" || fail "the interface was not declared in time"

echo "== without who declares the interface, the first who serves it stays"
sed -i 's/"rain_fall_contracts", //' config.json
start_host config.json
await 'loaded: librain_fall.0002$'
await 'stays in memory: librain_fall: it brought the first delegate of an interface$'
mapped librain_fall.so || fail "it is not in memory"
stop_host

echo "== a test that fails where the interface is not declared"
sed -i '/emitter->bind0/d' test_rain_fall.cpp
quietly cmake --build build
! ctest --test-dir build --output-on-failure >"$folder/log" 2>&1 || fail "the test passes in any case"
grep -q 'librain_fall.so stays in memory' "$folder/log" || fail "it is not told what stays"

echo "== a test that fails where its plugin does"
cd ../rain_post
sed -i 's/fetchAndAddOrdered(1) + 1/fetchAndAddOrdered(1)/; s/{{"count", m_count.loadAcquire()}}/{}/' rain_post.cpp
quietly cmake --build build
! ctest --test-dir build --output-on-failure >"$folder/log" 2>&1 || fail "the test passes in any case"
grep -q 'FAIL!  : RainPostTest::countsItsCalls' "$folder/log" || fail "it is not told what fails"
grep -q 'FAIL!  : RainPostTest::goesOnInItsNextVersion' "$folder/log" || fail "what is not handed over is not missed"

echo "== without Qt Test"
quietly cmake -S . -B untested -DCMAKE_DISABLE_FIND_PACKAGE_Qt5Test=ON
! grep -i warning "$folder/log" || fail "a warning"
quietly cmake --build untested
[ -f untested/librain_post.so ] && [ ! -e untested/test_rain_post ] || fail "not just the plugin is built"
echo ok
