#!/usr/bin/env bash
# What the operator's guide has its reader ask a running host is asked, block by block; and a host that hangs names the
# plugin, to the first who asks.
# asking.sh SOURCE BUILD CXX FLAGS
set -euo pipefail
source=$1 guide=$1/docs/operator-guide.md build=$2
export CXX=$3 CXXFLAGS=$4
. "$(dirname "$0")/common.sh"

install_build "$build"
quietly cmake -S "$source/examples/demo" -B "$folder/plugins" -G Ninja
quietly cmake --build "$folder/plugins" --parallel 2

# Other hosts may run here: this is where these have their door, and where zctl looks.
export RUNTIME_DIRECTORY=$folder/run
mkdir -p "$folder/"{run,deployed,hot-deploy}
cp "$folder/plugins/libclock.so" "$folder/deployed/"
(umask 077 && echo 0123456789abcdef >"$folder/token")
cat >"$folder/web.json" <<JSON
{
    "logger": {"debug": 1, "log": {"zdefault": 3}},
    "loader": {"deployed": "$folder/deployed", "hot-deploy": "$folder/hot-deploy", "load-list": ["clock"]},
    "door": {"listen": "127.0.0.1:0", "token-file": "$folder/token"},
    "guard": {"probation": 500},
    "schedule": [{"url": "//clock", "every": 3600000}]
}
JSON

# until_true WHAT COMMAND...: tries it again and again.
until_true() {
    local what=$1 i
    shift
    for i in $(seq 300); do
        "$@" >/dev/null 2>&1 && return
        sleep 0.1
    done
    cat "$folder/out"
    fail "$what"
}

mkfifo "$folder/input"
UNRULY=read zhost "$folder/web.json" <>"$folder/input" >"$folder/out" 2>&1 &
host=$!
until_true "the clock is not good" grep -q '"libclock.so"' "$folder/deployed/good.json"
zdeploy "$folder/plugins/libclock.2.so" "$folder/hot-deploy"
await 'unloaded: libclock$'

echo "== what the guide says"
address=$(zctl --json status | grep -Eo '127\.0\.0\.1:[1-9][0-9]*' | head -n 1)
awk '/^## / { chapter = $0 == "## Asking a running program" }
     /^```/ { open = chapter && $0 == "```sh"; next }
     open' "$guide" |
    sed "s|127.0.0.1:8080|$address|; s|/var/lib/zhost/web|$folder|" >"$folder/script"
[ "$(wc -l <"$folder/script")" -ge 10 ] || fail "the guide asks nothing"
bash -e -x "$folder/script" 2>&1 | tee "$folder/said"
await 'libclock\.so is deployed again, as libclock\..*: somebody has asked for it$'
grep -q '^running, healthy$' "$folder/said" || fail "it is not healthy"
grep -q '"time": "' "$folder/said" || fail "the clock was not called"
await 'web.json has been read anew$'

echo "== a host that hangs"
cp "$build/tests/plugins/libunruly.so" "$folder/.libunruly.so"
mv "$folder/.libunruly.so" "$folder/hot-deploy/libunruly.so"
await '^unruly: here$'
status=0
zctl status >"$folder/said" || status=$?
[ $status -eq 1 ] || fail "status ends with $status"
head -n 1 "$folder/said" | grep -E '^running, not healthy: .* it is in .*/libunruly.so\+0x.*, while loading unruly$' ||
    { cat "$folder/said"; fail "it does not name the plugin"; }
echo >"$folder/input" # it goes on
stop_host
echo ok
