#!/usr/bin/env bash
# The installed package, as a project outside the tree meets it.
# package.sh SOURCE BUILD CXX FLAGS
set -euo pipefail
source=$1 build=$2 flags=$4
export CXX=$3
. "$(dirname "$0")/common.sh"

echo "== install into an empty prefix, and move that"
cmake --install "$build" --prefix "$folder/first" >/dev/null
mv "$folder/first" "$folder/prefix"
prefix=$folder/prefix
for program in zhost zdeploy zctl; do
    "$prefix/bin/$program" --version || fail "no program $program"
done
library=$(find "$prefix" -name libzdefault.so.1)
readelf -d "$library" | grep -q 'SONAME.*\[libzdefault.so.1\]' || fail "wrong soname"
if grep -rIl -e "$folder/first" -e "$source" "$prefix"; then fail "the package names the folder it came from"; fi

echo "== what an editor needs for a configuration"
[ -s "$prefix/share/zdefault/zhost-configuration.schema.json" ] || fail "no schema"

echo "== what a program needs to ask a host"
[ -s "$prefix/share/zdefault/zhost-door.openapi.json" ] || fail "no description of the door"

echo "== find_package, and headers by their bare names"
for example in 05-plugin demo; do
    quietly cmake -S "$source/examples/$example" -B "$folder/$example" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_CXX_FLAGS="$flags"
    quietly cmake --build "$folder/$example" --parallel 2
done

echo "== another version is refused"
mkdir "$folder/two"
cat >"$folder/two/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.16)
project(two LANGUAGES CXX)
find_package(zdefault 2 REQUIRED)
CMAKE
if cmake -S "$folder/two" -B "$folder/two/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null 2>&1; then
    fail "version 2 was found"
fi

echo "== plugins can leave memory: no symbol pins them, and the root is all they export (W, V: what Qt has inline)"
for plugin in "$folder"/demo/lib*.so "$folder"/05-plugin/lib*.so; do
    if nm -D --defined-only "$plugin" | grep ' u '; then fail "$plugin pins itself in memory"; fi
    exported=$(nm -D --defined-only "$plugin" | awk '$2 !~ /[WV]/ {print $3}' | grep -v -e asan -e ubsan | sort | tr '\n' ' ')
    [ "$exported" = "qt_plugin_instance qt_plugin_query_metadata " ] || fail "$plugin exports $exported"
done

echo "== pkg-config"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name zdefault.pc)")
cat >"$folder/consumer.cpp" <<'CPP'
#include <zdefaultlogger.h>
#include <cstdio>
int main() { return std::puts(ZDefaultLogger::TypeName) < 0; }
CPP
# shellcheck disable=SC2046,SC2086
$CXX -std=c++17 $flags -w "$folder/consumer.cpp" -o "$folder/consumer" $(pkg-config --cflags --libs zdefault)
[ "$(LD_LIBRARY_PATH=$(dirname "$library") "$folder/consumer")" = "ZDefaultLogger*" ] || fail "the consumer says something else"
echo "ok"
