# What the scripts have in common: a folder that goes when they end, and a host that does.

export QT_FORCE_STDERR_LOGGING=1
folder=$(mktemp -d)
host=
trap 'stop_by_force; rm -rf "$folder"' EXIT

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

stop_by_force() {
    [ -z "$host" ] || kill "$host" 2>/dev/null || true
}

# quietly COMMAND...: what it says is shown only where it fails; it is in $folder/log in either case.
quietly() {
    "$@" >"$folder/log" 2>&1 || {
        cat "$folder/log"
        fail "$*"
    }
}

# install_build BUILD: into $folder/prefix, which is where programs and the package are found from then on.
install_build() {
    quietly cmake --install "$1" --prefix "$folder/prefix"
    export PATH=$folder/prefix/bin:$PATH CMAKE_PREFIX_PATH=$folder/prefix
}

# start_host ARGUMENTS...: zhost, writing to $folder/out.
start_host() {
    zhost "$@" >"$folder/out" 2>&1 &
    host=$!
}

# await PATTERN [FILE]: until a line that the host has written, or one of FILE, matches.
await() {
    local i file=${2-$folder/out}
    for i in $(seq 300); do
        grep -Eqs -- "$1" "$file" && return
        sleep 0.1
    done
    cat "$file"
    fail "the host has not written \"$1\""
}

stop_host() {
    kill -TERM "$host"
    wait "$host" || fail "zhost ended with $?"
    host=
}

# typed PAGE: what its reader types, and what he writes into files, as one script.
typed() {
    awk '/^<!-- file / { file = $3 }
         /^```/ { if (open) { if (open == "file") print "@@@"; open = "" }
                  else if ($0 == "```sh") open = "sh"
                  else if (file) { print "cat >" file " <<'\''@@@'\''"; open = "file"; file = "" }
                  else open = "other"
                  next }
         open == "sh" || open == "file"' "$1"
}
