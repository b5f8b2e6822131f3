# What the demos have in common, sourced in the root of the project.

say() { printf '\n--- %s\n' "$*"; }
fail() { printf '\nThe demo failed: %s\n' "$*" >&2; exit 1; }

# build_demo WORK EXAMPLE: the library and the programs, into WORK/prefix, and the plugins of an example, into
# WORK/EXAMPLE-plugins. What is installed in WORK/prefix already, by somebody else, is taken as it is.
build_demo() {
    local work=$1
    mkdir -p "$work"
    {
        if [ ! -d "$work/prefix" ] || [ -d "$work/library" ]; then
            cmake --preset release -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -B "$work/library"
            cmake --build "$work/library" --parallel 2
            cmake --install "$work/library" --prefix "$work/prefix"
        fi
        cmake -S "examples/$2" -B "$work/$2-plugins" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$work/prefix"
        cmake --build "$work/$2-plugins" --parallel 2
    } >"$work/build.log" 2>&1 || { cat "$work/build.log"; exit 1; }
}

# await_line LOG PROCESS WHAT PATTERN: until a line of the log of a process matches.
await_line() {
    local deadline=$((SECONDS + 20))
    until grep -Eq -- "$4" "$1"; do
        kill -0 "$2" 2>/dev/null || fail "the host has ended"
        [ $SECONDS -lt $deadline ] || fail "$3"
        sleep 0.1
    done
}
