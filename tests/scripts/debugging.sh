#!/usr/bin/env bash
# The page on debugging, followed word for word: gdb says what stands there.
# debugging.sh SOURCE BUILD
set -euo pipefail
source=$1 build=$2
. "$(dirname "$0")/common.sh"

command -v gdb >/dev/null || fail "gdb is not installed"
install_build "$build"
mkdir "$folder/home"
cd "$folder/home"
export HOME=$PWD RUNTIME_DIRECTORY=$folder # nobody's .gdbinit, and nobody else's hosts
unset DEBUGINFOD_URLS

typed "$source/docs/debugging.md" >"$folder/script"

# A few seconds are enough for a reader, but not for a busy machine: what he waits for is known here.
patience() {
    cat <<'SH'
trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
waits=0
awaited=(
    'log loaded: libpulse$'
    'crash.txt loaded: libpulse$'
    'names.txt loaded: libpulse$'
    'break.txt loaded: libpulse$'
    'asan.log loaded: libpulse$'
    'held.log loaded: libpulse$'
    'held.log loaded: libpulse.0001$'
)
sleep() {
    local file=${awaited[waits]%% *} pattern=${awaited[waits]#* }
    waits=$((waits + 1))
    for _ in $(seq 600); do
        if grep -q -- "$pattern" "$file" 2>/dev/null; then return; fi
        command sleep 0.1
    done
    cat "$file"
    echo "nothing like \"$pattern\"" >&2
    return 1
}
SH
}
bash -e -c "$(patience)
$(cat "$folder/script")" 2>&1 | tee "$folder/said"

# said PATTERN: the reader has seen such a line, after those that were asked for before.
line=0
said() {
    local found
    found=$(grep -En -m 1 -- "$1" < <(tail -n "+$((line + 1))" "$folder/said")) ||
        fail "nothing like \"$1\" is said there"
    line=$((line + ${found%%:*}))
}
said 'unloaded: libpulse$'
said 'zhost: ended by Segmentation fault'
said '^#0 +0x[0-9a-f]+ in \?\? \(\)$'
said ' Yes .*/deployed/libpulse\.0001\.so$'
said '^#[0-9]+ .*writeCalls \(\) at .*/pulse\.cpp:12$'
said ' Yes .*/deployed/libpulse\.so$'
said ' Yes .*/deployed/libpulse\.0001\.so$'
said '^#[0-9]+ .*writeCalls \(\) at .*/pulse\.cpp:12$'
said 'hit Breakpoint 1.*Pulse::called '
said '^Thread 1 '
said '^ +#[0-9]+ .* in writeCalls.* .*/pulse\.cpp:12$'
said '^file +libpulse\.so$'
said '^held by +something of it that is shared: what, is not known$'
said '^file +libpulse\.0001\.so$'
said '^held by +an endpoint at //pulse$'
cd pulse
grep -q 'stays in memory: libpulse: ZDEFAULT_KEEP_PLUGINS is set$' names.txt || fail "it is not told why the file stays"
grep -q 'called 0 times' held.log || fail "the mistake is not mended"
! grep 'unloaded: libpulse$' held.log || fail "what holds itself has left"
echo ok
