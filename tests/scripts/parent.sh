#!/usr/bin/env bash
# The library inside somebody else's build: its functions work there, and nothing of ours enters it.
# parent.sh SOURCE CXX FLAGS
set -euo pipefail
source=$1
export CXX=$2 CXXFLAGS=$3
. "$(dirname "$0")/common.sh"

# programs: those of ours that the build in "build" has.
programs() {
    quietly cmake --build build --target help
    grep -oE '^(zhost|zdeploy|zctl): ' "$folder/log" | sort | tr -d '\n'
}

# kit: the test kit, if the build in "build" has it.
kit() {
    quietly cmake --build build --target help
    grep -oE '^zdefaulttesting: ' "$folder/log" | tr -d '\n'
}

export CCACHE_BASEDIR=$folder CCACHE_NOHASHDIR=1 # the second way compiles what the first did
for way in subdirectory fetchcontent; do
    echo "== $way"
    mkdir "$folder/$way"
    cd "$folder/$way"
    cp -r "$source/tests/parent/." .
    ln -s "$source" zdefault
    quietly cmake -S . -B build -G Ninja -DWAY=$way.cmake -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
        -DCMAKE_INSTALL_PREFIX="$PWD/prefix"
    ! grep -i 'warning' "$folder/log" || fail "a warning"
    diff build/before build/after || fail "the build is set to something else than before"
    ! grep -E '^(CPACK|ZDEFAULT_(BENCH|FUZZ)|CMAKE_INSTALL_.*DIR)' build/CMakeCache.txt || fail "our settings are there"
    [ ! -e build/CPackConfig.cmake ] && [ ! -e build/compile_commands.json ] || fail "files of ours are written"

    [ -z "$(kit)" ] || fail "the test kit is built, which nobody asked for"
    [ -z "$(programs)" ] || fail "programs are built that nobody asked for"

    quietly cmake --build build --parallel 2
    for plugin in "$PWD/build/libgoodbye.so" "$PWD/build/plugins/libhello.so"; do
        quietly build/shop "$(dirname "$plugin")" "$(basename "$plugin" .so)"
        grep -qx 'hello from a plugin' "$folder/log" || { cat "$folder/log"; fail "$plugin said nothing"; }
    done

    [ "$(cd build && ctest -N | grep -c 'Test *#')" -eq 1 ] || fail "other tests than the build's own"
    quietly cmake --install build
    ! find prefix -type f | grep -vE '/(bin/shop|lib/libzdefault[.]so[.][0-9.]+)$' || fail "our files are installed"
done

echo "== the programs, where they are asked for"
quietly cmake -S . -B build -DZDEFAULT_PROGRAMS=ON
[ "$(programs)" = "zctl: zdeploy: zhost: " ] || fail "a program is missing: $(programs)"

echo "== the test kit, where it is asked for"
cat >test_goodbye.cpp <<'CPP'
#include <zpluginfixture.h>
#include <QTest>

class GoodbyeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isHere()
    {
        ZPluginFixture plugin;
        QVERIFY(plugin.load(PLUGIN_FILE));
    }
};

QTEST_GUILESS_MAIN(GoodbyeTest)
#include "test_goodbye.moc"
CPP
cp CMakeLists.txt before.txt
echo 'zdefault_add_plugin_test(goodbye test_goodbye.cpp)' >>CMakeLists.txt
! cmake -S . -B build >"$folder/log" 2>&1 || fail "a test without a kit passed"
tr -s '\n ' ' ' <"$folder/log" | grep -q 'or set ZDEFAULT_TESTING' || fail "no word on what is missing"
quietly cmake -S . -B build -DZDEFAULT_TESTING=ON
[ "$(kit)" = "zdefaulttesting: " ] || fail "the kit is missing"
quietly cmake --build build --parallel 2 --target test_goodbye
quietly ctest --test-dir build -R '^test_goodbye$' --no-tests=error
mv before.txt CMakeLists.txt

echo "== without Qt, what is missing is said"
sed -i '/find_package/d' CMakeLists.txt
! cmake -S . -B none -G Ninja -DWAY=subdirectory.cmake >"$folder/log" 2>&1 || fail "a plugin without Qt passed"
tr -s '\n ' ' ' <"$folder/log" | grep -q 'zdefault_add_plugin(goodbye): call find_package(Qt5' ||
    fail "no word on what is missing"
echo ok
