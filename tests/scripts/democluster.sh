#!/usr/bin/env bash
# The demo of several hosts does what it announces, in under two minutes, and leaves no process behind.
# democluster.sh SOURCE BUILD CXX FLAGS
set -euo pipefail
source=$1 build=$2
export CXX=$3 CXXFLAGS=$4
. "$(dirname "$0")/common.sh"

install_build "$build"
status=0
timeout 120 "$source/scripts/demo-cluster" "$folder" >"$folder/said" 2>&1 || status=$?
cat "$folder/said"
if [ $status -ne 0 ]; then
    tail -n 20 "$folder"/cluster/*/log
    fail "the demo ended with $status"
fi
grep -q '^--- Done: ' "$folder/said" || fail "it was not done"
grep -Eq '^ +0  run twice$' "$folder/said" || fail "it says nothing of calls that were run twice"
for name in one two three; do
    ! grep -qE 'left running|ended by force' "$folder/cluster/$name/log" || fail "host $name has not ended well"
done
! grep -lsa "[${folder:0:1}]${folder:1}/cluster" /proc/[0-9]*/cmdline || fail "a process is left"
echo ok
