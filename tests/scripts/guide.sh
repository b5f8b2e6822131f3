#!/usr/bin/env bash
# The plugin guide, followed word for word: its shell blocks are run in one shell, its files written as they stand.
# guide.sh SOURCE BUILD CXX FLAGS
set -euo pipefail
guide=$1/docs/plugin-guide.md build=$2
export CXX=$3 CXXFLAGS=$4
. "$(dirname "$0")/common.sh"

install_build "$build"
mkdir "$folder/home"
cd "$folder/home"

typed "$guide" >"$folder/script"

# A second is enough for a reader, but not for a busy machine: what he waits for is known here.
patience() {
    cat <<'SH'
trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
sleep() {
    waits=$((${waits:-0} + 1))
    case $waits in
        1) awaited='unloaded: libticker$' ;;
        2) awaited='^ticker: zhost\.' ;;
        3) awaited='^ticker: scratch-one-' ;;
        4) awaited='^ticker: scratch-two-' ;;
        5) awaited='unloaded: libticker.0001$' ;;
        6) awaited='stays in memory: librain_contracts: ' ;;
        *) awaited='unloaded: librain$' ;;
    esac
    for _ in $(seq 300); do
        log=./log
        [ -e $log ] || log=../ticker/log
        grep -q -- "$awaited" $log && return
        command sleep 0.1
    done
    echo "nothing like \"$awaited\"" >&2
    return 1
}
SH
}
bash -e -c "$(patience)
$(cat "$folder/script")" 2>&1 | tee "$folder/said"

grep -q '^ticker is here$' "$folder/said" || fail "the first plugin said nothing"
grep -q '^dropped as libticker.0001.so$' "$folder/said" || fail "zdeploy found another name"
grep -q '^dropped as libscratch.0001.so$' "$folder/said" || fail "zdeploy found another name"
grep -q 'unloaded: libscratch$' ticker/log || fail "the first version is still in memory"
! grep 'failed to' ticker/log || fail "the host has complained"
calls=$(grep -Eo 'ticker: (zhost|scratch-one|scratch-two)' ticker/log | uniq | tr -d '\n')
[ "$calls" = "ticker: zhostticker: scratch-oneticker: scratch-two" ] || fail "the versions answered in turns"
numbers=$(sed -nE 's/^tick(er)?: .*, call ([0-9]+)$/\2/p' ticker/log)
[ "$numbers" = "$(seq "$(wc -l <<<"$numbers")")" ] || fail "a call was missed, or counted twice"
grep -q '"answer": "rain was asked: ' "$folder/said" || fail "the service was not used"
grep -q '"answer": "rain heard: ' "$folder/said" || fail "the next version of the service was not used"
grep -Eq '^rain +- .* no +[0-9]+ KiB' "$folder/said" || fail "the first version of the service is in memory"
echo ok
