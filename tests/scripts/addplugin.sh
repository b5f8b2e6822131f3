#!/usr/bin/env bash
# zdefault_add_plugin refuses a plugin that could not be loaded, or never be unloaded, and says what to do.
# addplugin.sh SOURCE BUILD CXX
set -euo pipefail
source=$1 build=$2
export CXX=$3
. "$(dirname "$0")/common.sh"

install_build "$build"

cp "$source/examples/05-plugin/hello.cpp" "$folder"
cat >"$folder/incomplete.cpp" <<'CPP'
#include "hello.cpp"
void nowhere();
void incomplete() { nowhere(); }
CPP
cat >"$folder/pinned.cpp" <<'CPP'
#include "hello.cpp"
template <class T>
struct __attribute__((visibility("default"))) Pin
{
    static int &count()
    {
        static int value;
        return value;
    }
};
int pinned() { return ++Pin<int>::count(); }
CPP
cat >"$folder/threaded.cpp" <<'CPP'
#include "hello.cpp"
#include <string>
int threaded(char more)
{
    thread_local std::string text;
    text += more;
    return int(text.size());
}
CPP
cat >"$folder/counting.cpp" <<'CPP'
#include "hello.cpp"
int counting()
{
    thread_local int count;
    return ++count;
}
CPP
cat >"$folder/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.16)
project(addplugin LANGUAGES CXX)
find_package(zdefault 1 REQUIRED)
zdefault_add_plugin(hello hello.cpp)
zdefault_add_plugin(hello hello.cpp VERSION 1.2)
foreach(other incomplete pinned threaded counting nodelete)
    zdefault_add_plugin(${other} ${CMAKE_SOURCE_DIR}/${other}.cpp)
    set_source_files_properties(${CMAKE_SOURCE_DIR}/${other}.cpp PROPERTIES SKIP_AUTOMOC ON)
    target_include_directories(${other} PRIVATE ${CMAKE_BINARY_DIR}/hello_autogen/include)
    add_dependencies(${other} hello)
endforeach()
target_compile_options(pinned PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fgnu-unique>)
target_link_options(nodelete PRIVATE LINKER:-z,nodelete)
CMAKE
cp "$folder/counting.cpp" "$folder/nodelete.cpp"

# refused TARGET WHAT WORD: it does not build, WHAT is named, WORD says what to do, and no file is left.
refused() {
    local said
    ! cmake --build "$b" --target "$1" >"$folder/log" 2>&1 || fail "$1 passed"
    said=$(tr -s '\n ' ' ' <"$folder/log")
    [[ $said == *"could never be unloaded: "*"$2"* ]] || fail "$1: \"$2\" is not named: $said"
    [[ $said == *"$3"* ]] || fail "$1: no word on what to do about it: $said"
    [ ! -e "$b/lib$1.so" ] || fail "$1: the plugin is there"
}

for generator in Ninja "Unix Makefiles"; do
    echo "== $generator"
    b=$folder/${generator%% *}
    quietly cmake -S "$folder" -B "$b" -G "$generator"
    quietly cmake --build "$b" --target hello hello.1.2
    [ -f "$b/libhello.so" ] && [ -f "$b/libhello.1.2.so" ] || fail "the files are called otherwise"
    grep -q 'zdefault-interfaces' "$b/libhello.so" || fail "no version of the interfaces"

    ! cmake --build "$b" --target incomplete >"$folder/log" 2>&1 || fail "an undefined symbol passed"
    grep -q 'undefined reference to .nowhere' "$folder/log" || { cat "$folder/log"; fail "the symbol is not named"; }
    grep -q 'target_link_libraries(incomplete PRIVATE' "$folder/log" || fail "no word on what to do about it"

    # The other compiler makes no such symbols.
    "$CXX" --version | grep -q clang || refused pinned 'Pin<int>::count()::value' 'with -fno-gnu-unique'
    refused threaded 'thread_local with a destructor' 'one without a destructor'
    refused nodelete '-z nodelete' 'out of the options'
    quietly cmake --build "$b" --target counting # a thread-local number pins nothing
done

cat >"$folder/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.16)
project(addplugin LANGUAGES CXX)
find_package(zdefault 1 REQUIRED)
zdefault_add_plugin(nothing VERSION 1)
CMAKE
! cmake -S "$folder" -B "$folder/none" >"$folder/log" 2>&1 || fail "no source passed"
grep -q 'name at least one source file' "$folder/log" || fail "no word on what is missing"
echo ok
