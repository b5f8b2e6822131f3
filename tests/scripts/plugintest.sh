#!/usr/bin/env bash
# The installed test kit: zdefault_add_plugin_test makes a plugin's test, and who does not ask for it needs no Qt Test.
# plugintest.sh SOURCE BUILD CXX FLAGS
set -euo pipefail
source=$1 build=$2
export CXX=$3 CXXFLAGS=$4
. "$(dirname "$0")/common.sh"

install_build "$build"
cd "$folder"
cp "$source/examples/05-plugin/hello.cpp" .
cat >test_hello.cpp <<'CPP'
#include <zpluginfixture.h>
#include <QTest>

class HelloTest : public QObject
{
    Q_OBJECT

private slots:
    void comesAndGoes()
    {
        ZPluginFixture plugin;
        QVERIFY(plugin.load(PLUGIN_FILE));
        QVERIFY(plugin.leavesMemory());
    }
};

QTEST_GUILESS_MAIN(HelloTest)
#include "test_hello.moc"
CPP

# project LINE...: a CMakeLists.txt that has them.
project() {
    printf '%s\n' 'cmake_minimum_required(VERSION 3.16)' 'project(hello LANGUAGES CXX)' "$@" >CMakeLists.txt
}

# refused PATTERN OPTION...: such a project is not configured, and PATTERN says why.
refused() {
    local pattern=$1
    shift
    rm -rf none
    ! cmake -S . -B none "$@" >log 2>&1 || fail "\"$pattern\" passed"
    tr -s '\n ' ' ' <log | grep -q -- "$pattern" || { cat log; fail "no word like \"$pattern\""; }
}

kit='find_package(zdefault 1 REQUIRED COMPONENTS testing)'
plugin='zdefault_add_plugin(hello hello.cpp)'
test='zdefault_add_plugin_test(hello test_hello.cpp)'

echo "== a plugin's test, which brings the plugin"
project "$kit" 'enable_testing()' "$plugin" "$test"
quietly cmake -S . -B tested -G Ninja
quietly cmake --build tested --target test_hello
[ -f tested/libhello.so ] || fail "the plugin was not built"
quietly ctest --test-dir tested -R '^test_hello$' --no-tests=error
! cmake --build tested --target help | grep -i 'zdefaulttesting' || fail "the kit is built once more"

echo "== where testing is not enabled there is the program, and no test"
project "$kit" "$plugin" "$test"
quietly cmake -S . -B quiet -G Ninja
quietly cmake --build quiet
quietly quiet/test_hello
[ ! -e quiet/CTestTestfile.cmake ] || fail "there is a test"

echo "== what is missing is said"
project "$kit" "$plugin" 'zdefault_add_plugin_test(hello)'
refused 'zdefault_add_plugin_test(hello): name at least one source file'
project "$kit" "$test"
refused 'zdefault_add_plugin_test(hello): there is no plugin hello'
project 'find_package(zdefault 1 REQUIRED)' "$plugin" "$test"
refused 'zdefault_add_plugin_test(hello): there is no test kit: call find_package(zdefault 1 REQUIRED COMPONENTS testing)'
project "$kit"
refused 'asks for Qt5Test' -DCMAKE_DISABLE_FIND_PACKAGE_Qt5Test=ON
project 'find_package(zdefault 1 REQUIRED COMPONENTS toasting)'
refused 'There is no component toasting'

echo "== without Qt Test"
project 'find_package(zdefault 1 REQUIRED OPTIONAL_COMPONENTS testing)' "$plugin" \
    'if(TARGET zdefault::testing)' 'message(FATAL_ERROR "a kit")' 'endif()'
quietly cmake -S . -B without -G Ninja -DCMAKE_DISABLE_FIND_PACKAGE_Qt5Test=ON
project 'find_package(zdefault 1 REQUIRED)' "$plugin" \
    'if(TARGET Qt5::Test)' 'message(FATAL_ERROR "Qt Test")' 'endif()'
quietly cmake -S . -B unasked -G Ninja
echo ok
