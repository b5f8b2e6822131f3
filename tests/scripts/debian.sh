#!/usr/bin/env bash
# The two Debian packages: unpacked into an empty root, they are enough to build a plugin and to run it.
# debian.sh SOURCE CXX
set -euo pipefail
source=$1
export CXX=$2
. "$(dirname "$0")/common.sh"

quietly cmake -S "$source" -B "$folder/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DBUILD_TESTING=OFF -DCMAKE_CXX_COMPILER_LAUNCHER=ccache
quietly cmake --build "$folder/build" --parallel 2
(cd "$folder/build" && quietly cpack)

run=$(ls "$folder"/build/libzdefault1_*.deb)
dev=$(ls "$folder"/build/libzdefault-dev_*.deb)
dpkg-deb --field "$run" Depends | grep -q 'libqt5core5a' || fail "the library does not name Qt"
for library in libprometheus-cpp-core libcpp-httplib; do
    dpkg-deb --field "$run" Depends | grep -q "$library" || fail "the door does not name $library"
done
! dpkg-deb --field "$run" Depends | grep -Eq 'libqt5(gui|network|test)|libglib' || fail "the library needs more than Qt Core"
dpkg-deb --field "$dev" Depends | grep -q 'libzdefault1 (= ' || fail "the headers do not name their library"
dpkg-deb --field "$dev" Depends | grep -q 'make | ninja-build' || fail "the headers do not name what cmake has build"
# dpkg itself installs them: into a root of their own, where nothing else is.
root=$folder/root
mkdir -p "$root/var/lib/dpkg/"{info,updates}
touch "$root/var/lib/dpkg/"{status,available}
quietly dpkg --root="$root" --force-depends --force-not-root --force-script-chrootless --install "$run" "$dev"

for file in share/doc/zdefault/docs/operator-guide.md share/doc/zdefault/docs/zhost.limits.conf \
    share/man/man1/zctl.1 share/man/man1/zdeploy.1 share/man/man1/zhost.1 share/bash-completion/completions/zctl \
    share/zdefault/zhost-configuration.schema.json share/zdefault/zhost-door.openapi.json bin/zctl \
    lib/systemd/system/zhost@.service; do
    grep -qx "/usr/$file" "$root/var/lib/dpkg/info/"libzdefault1*.list || fail "the programs come without $file"
done
if command -v systemd-analyze >/dev/null; then
    sed "s|/usr/bin/|$root&|" "$root/usr/lib/systemd/system/zhost@.service" >"$folder/zhost@one.service"
    mkdir "$folder/zhost@one.service.d"
    cp "$root/usr/share/doc/zdefault/docs/zhost.limits.conf" "$folder/zhost@one.service.d/limits.conf"
    systemd-analyze verify "$folder/zhost@one.service" 2>"$folder/log" || fail "the unit is wrong"
    ! grep "zhost@" "$folder/log" || fail "the unit is wrong"
fi
export PATH=$root/usr/bin:$PATH CMAKE_PREFIX_PATH=$root/usr

cd "$folder"
zdefault-new-plugin rain >/dev/null
quietly cmake -S rain -B rain/build
quietly cmake --build rain/build
start_host rain/config.json
zdeploy rain/build/librain.so rain/hot-deploy
await '^rain is here$'
zctl -c rain/config.json status >"$folder/log" || { cat "$folder/log"; fail "zctl does not find the host"; }
stop_host
echo ok
