#!/usr/bin/env bash
# A drop that fails for the folder's sake leaves nothing behind.
# fulldisk.sh ZDEPLOY PLUGIN
set -euo pipefail

# Mounts are seen by this script alone; not every machine lets it have them.
if [ -z "${ZDEFAULT_MOUNTS:-}" ]; then
    if unshare --map-root-user --mount mount -t tmpfs none /mnt 2>/dev/null; then
        ZDEFAULT_MOUNTS=yes exec unshare --map-root-user --mount "$0" "$@"
    fi
    echo "No mounts here: limits stand for a disk that is full."
    export ZDEFAULT_MOUNTS=no
fi
zdeploy=$1 plugin=$2
. "$(dirname "$0")/common.sh"
trap 'umount "$folder/hot-deploy" 2>/dev/null || true; rm -rf "$folder"' EXIT

mkdir "$folder/hot-deploy" "$folder/deployed"

# fails WHY FOLDER: the drop must, for no fault of the plugin, and the folder be as it was
fails() {
    local status=0
    "$zdeploy" --deployed "$folder/deployed" "$plugin" "$2" 2>"$folder/err" || status=$?
    cat "$folder/err"
    [ $status -eq 3 ] || fail "$1: exit status $status"
    grep -q "cannot be dropped: .*$1" "$folder/err" || fail "the reason is not \"$1\""
    [ -z "$(find "$2" -maxdepth 1 -name '*zdeploy*')" ] || fail "$1: something is left behind"
}

fails "cannot write in /proc" /proc
(
    trap '' XFSZ # a write past the limit fails, and ends nobody
    ulimit -f 8
    fails "File too large" "$folder/hot-deploy"
)
[ $ZDEFAULT_MOUNTS = yes ] || exit 0

size=$(stat -c %s "$plugin")
for part in 1 2 3; do # of the plugin that has room
    mount -t tmpfs -o size=$((size * part / 4 / 4096 * 4096 + 4096)) none "$folder/hot-deploy"
    fails "No space left on device" "$folder/hot-deploy"
    umount "$folder/hot-deploy"
done

mount -t tmpfs -o ro none "$folder/hot-deploy"
fails "Read-only file system" "$folder/hot-deploy"
umount "$folder/hot-deploy"

mount -t tmpfs -o size=$((size + 65536)) none "$folder/hot-deploy"
"$zdeploy" "$plugin" "$folder/hot-deploy"
cmp "$plugin" "$folder/hot-deploy/$(basename "$plugin")" || fail "the copy differs"
echo ok
