#!/usr/bin/env bash
# What the installed zdefault-new-plugin writes builds, runs and can be dropped as it says.
# newplugin.sh BUILD CXX FLAGS
set -euo pipefail
build=$1
export CXX=$2 CXXFLAGS=$3
. "$(dirname "$0")/common.sh"

install_build "$build"
mkdir "$folder/home"
cd "$folder/home"

echo "== names"
for name in "" Foo 1st foo-bar foo/bar ../foo "foo bar" foo.1; do
    status=0
    zdefault-new-plugin "$name" 2>"$folder/err" || status=$?
    [ $status -eq 2 ] || fail "\"$name\": exit status $status"
    grep -q 'usage: ' "$folder/err" || fail "\"$name\": no usage"
done
! zdefault-new-plugin 2>/dev/null || fail "no name was accepted"
[ -z "$(ls)" ] || fail "a refused name left something"

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
[ "$(sed -n 2p commands)" = "zhost config.json" ] || fail "another host"
start_host config.json
await 'hot-deploy folder changed'
bash -e <(sed -n 3p commands)
await '^rain_gauge is here$'
await 'loaded: librain_gauge$'
stop_host
echo ok
