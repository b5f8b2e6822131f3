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
cat >"$folder/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.16)
project(addplugin LANGUAGES CXX)
find_package(zdefault 1 REQUIRED)
zdefault_add_plugin(hello hello.cpp)
zdefault_add_plugin(hello hello.cpp VERSION 1.2)
zdefault_add_plugin(incomplete incomplete.cpp)
zdefault_add_plugin(pinned pinned.cpp)
set_source_files_properties(incomplete.cpp pinned.cpp PROPERTIES SKIP_AUTOMOC ON)
target_include_directories(incomplete PRIVATE ${CMAKE_BINARY_DIR}/hello_autogen/include)
target_include_directories(pinned PRIVATE ${CMAKE_BINARY_DIR}/hello_autogen/include)
add_dependencies(incomplete hello)
add_dependencies(pinned hello)
target_compile_options(pinned PRIVATE -fgnu-unique)
CMAKE

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

    ! cmake --build "$b" --target pinned >"$folder/log" 2>&1 || fail "a symbol that pins the file passed"
    grep -q 'Pin<int>::count()::value' "$folder/log" || { cat "$folder/log"; fail "the symbol is not named"; }
    grep -q 'with -fno-gnu-unique' "$folder/log" || fail "no word on what to do about it"
    [ ! -e "$b/libpinned.so" ] || fail "the pinned plugin is there"
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
