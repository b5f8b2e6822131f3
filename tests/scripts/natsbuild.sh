#!/usr/bin/env bash
# The plugin that takes the bus to other processes is built where the client of NATS is installed, or where it is asked for; and
# where it is installed, it can be loaded.
# natsbuild.sh SOURCE BUILD CXX
set -euo pipefail
source=$1 build=$2
export CXX=$3
. "$(dirname "$0")/common.sh"

# configure PARENT ARGUMENTS...: the source, or a build that has it within, in $folder/build.
configure() {
    local parent=$1
    shift
    rm -rf "$folder/build"
    cmake -S "$parent" -B "$folder/build" -G Ninja -DBUILD_TESTING=OFF "$@" >"$folder/log" 2>&1
}

# is_built: whether the build has the plugin.
is_built() {
    quietly cmake --build "$folder/build" --target help
    grep -q '^znats: ' "$folder/log"
}

# Where libnats is not installed: all else is.
mkdir "$folder/without"
tr ':' '\n' <<<"$(pkg-config --variable pc_path pkg-config)" | while read -r place; do
    find -L "$place" -name '*.pc' ! -name libnats.pc -exec ln -sf {} "$folder/without" \; 2>/dev/null || true
done

echo "== with the client"
configure "$source" || { cat "$folder/log"; fail "it is not configured"; }
is_built || fail "the plugin is not built"
configure "$source" -DZDEFAULT_NATS=OFF || fail "it is not configured"
! is_built || fail "the plugin is built, though it is off"

echo "== without"
(
    export PKG_CONFIG_LIBDIR=$folder/without
    configure "$source" || { cat "$folder/log"; fail "it is not configured without libnats"; }
    grep -q 'znats is left out: .*libnats-dev' "$folder/log" || fail "no word on what is left out"
    ! is_built || fail "the plugin is built without libnats"
    configure "$source" -DZDEFAULT_NATS=OFF || fail "it is not configured without libnats"
    ! grep -i nats "$folder/log" || fail "it speaks of what is off"
    ! configure "$source" -DZDEFAULT_NATS=ON || fail "it is configured without libnats"
    tr -s '\n ' ' ' <"$folder/log" | grep -q 'pkg-config finds no libnats: install libnats-dev, or build without' ||
        { cat "$folder/log"; fail "no word on what is missing"; }
)

echo "== in somebody else's build"
mkdir "$folder/parent"
cat >"$folder/parent/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.16)
project(parent LANGUAGES CXX)
find_package(Qt5 5.15 REQUIRED COMPONENTS Core)
add_subdirectory($source zdefault)
CMAKE
configure "$folder/parent" || { cat "$folder/log"; fail "it is not configured"; }
! is_built || fail "the plugin is built, which nobody asked for"
for asked in ZDEFAULT_PROGRAMS ZDEFAULT_NATS; do
    configure "$folder/parent" -D$asked=ON || { cat "$folder/log"; fail "it is not configured"; }
    is_built || fail "the plugin is not built, though $asked is on"
done

echo "== installed"
install_build "$build"
plugin=$(find "$folder/prefix" -name libznats.so)
[[ $plugin == */zdefault/plugins/libznats.so ]] || fail "the plugin is at \"$plugin\""
quietly zdeploy --describe "$plugin"
grep -Eq "^class +NatsBus$" "$folder/log" || { cat "$folder/log"; fail "the plugin is not what it was"; }
mkdir "$folder/deployed"
cp "$plugin" "$folder/deployed"
cat >"$folder/config.json" <<JSON
{
    "logger": {"debug": 1, "log": {"zdefault": 3}},
    "loader": {"deployed": "$folder/deployed", "hot-deploy": "$folder/deployed/none", "load-list": ["znats"]},
    "door": false
}
JSON
start_host "$folder/config.json"
await 'no section "nats": the bus stays within this process$'
stop_host
! grep -iE 'failed|stays in memory' "$folder/out" || fail "the host has complained"
echo ok
