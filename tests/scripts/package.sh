#!/usr/bin/env bash
# The installed package, as a project outside the tree meets it.
# package.sh SOURCE BUILD CXX FLAGS
set -euo pipefail
source=$1 build=$2 flags=$4
export CXX=$3

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

echo "== install into an empty prefix, and move that"
cmake --install "$build" --prefix "$folder/first" >/dev/null
mv "$folder/first" "$folder/prefix"
prefix=$folder/prefix
[ -x "$prefix/bin/zhost" ] || fail "no program zhost"
"$prefix/bin/zhost" --version
library=$(find "$prefix" -name libzdefault.so.1)
readelf -d "$library" | grep -q 'SONAME.*\[libzdefault.so.1\]' || fail "wrong soname"
if grep -rIl -e "$folder/first" -e "$source" "$prefix"; then fail "the package names the folder it came from"; fi

echo "== find_package, and headers by their bare names"
for example in host jobs schedule plugin demo; do
    cmake -S "$source/examples/$example" -B "$folder/$example" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_CXX_FLAGS="$flags" >"$folder/log" || { cat "$folder/log"; fail "cannot configure $example"; }
    cmake --build "$folder/$example" --parallel 2 >"$folder/log" || { cat "$folder/log"; fail "cannot build $example"; }
done
QT_FORCE_STDERR_LOGGING=1 "$folder/host/host" 2>&1 | tee "$folder/out"
grep -qx 'hello from a component that never met its logger' "$folder/out" || fail "the example host says something else"
[ "$("$folder/jobs/jobs")" = "0 to 99 make 4950" ] || fail "the example of jobs says something else"
[ "$("$folder/schedule/schedule")" = "counted to 4" ] || fail "the example of schedules says something else"

cat >"$folder/config.json" <<JSON
{"loader": {"deployed": "$folder/plugin", "hot-deploy": "$folder", "load-list": ["hello"]}}
JSON
QT_FORCE_STDERR_LOGGING=1 "$prefix/bin/zhost" "$folder/config.json" >"$folder/out" 2>&1 &
host=$!
for _ in $(seq 100); do
    grep -qx 'hello from a plugin' "$folder/out" && break
    sleep 0.1
done
cat "$folder/out"
grep -qx 'hello from a plugin' "$folder/out" || fail "the example plugin says something else"
kill -TERM $host
wait $host || fail "zhost did not stop well"

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
for plugin in "$folder"/demo/lib*.so "$folder"/plugin/lib*.so; do
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
