#!/usr/bin/env bash
# A drop that fails for the folder's sake leaves nothing behind.
# fulldisk.sh ZDEPLOY PLUGIN
set -euo pipefail

# The mounts are seen by this script alone.
[ -n "${ZDEFAULT_UNSHARED:-}" ] || ZDEFAULT_UNSHARED=1 exec unshare --map-root-user --mount "$0" "$@"
zdeploy=$1 plugin=$2
. "$(dirname "$0")/common.sh"
trap 'umount "$folder/hot-deploy" 2>/dev/null || true; rm -rf "$folder"' EXIT

mkdir "$folder/hot-deploy" "$folder/deployed"

# refused WHY: the drop must be, and the folder as it was
refused() {
    local status=0
    "$zdeploy" "$plugin" "$folder/hot-deploy" 2>"$folder/err" || status=$?
    cat "$folder/err"
    [ $status -eq 1 ] || fail "$1: exit status $status"
    grep -q "$1" "$folder/err" || fail "the reason is not \"$1\""
    [ -z "$(ls -A "$folder/hot-deploy")" ] || fail "$1: something is left behind"
}

size=$(stat -c %s "$plugin")
for part in 1 2 3; do # of the plugin that has room
    mount -t tmpfs -o size=$((size * part / 4 / 4096 * 4096 + 4096)) none "$folder/hot-deploy"
    refused "No space left on device"
    umount "$folder/hot-deploy"
done

mount -t tmpfs -o ro none "$folder/hot-deploy"
refused "Read-only file system"
umount "$folder/hot-deploy"

mount -t tmpfs -o size=$((size + 65536)) none "$folder/hot-deploy"
"$zdeploy" "$plugin" "$folder/hot-deploy"
cmp "$plugin" "$folder/hot-deploy/$(basename "$plugin")" || fail "the copy differs"
echo ok
