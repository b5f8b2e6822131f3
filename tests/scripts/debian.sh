#!/usr/bin/env bash
# The Debian packages: as Debian wants them, and, unpacked into an empty root, enough to build a plugin and to run it.
# debian.sh SOURCE CXX
set -euo pipefail
source=$1
export CXX=$2
. "$(dirname "$0")/common.sh"

export CCACHE_BASEDIR=$folder CCACHE_NOHASHDIR=1 # the folder is another one each time
quietly cmake -S "$source" --preset debian -B "$folder/build" -DCMAKE_CXX_COMPILER_LAUNCHER=ccache
quietly cmake --build "$folder/build" --parallel 2
cd "$folder/build"

echo "== no package is made that would ask for no library, or be in the wrong folder"
mkdir "$folder/programs"
ln -s /usr/bin/* "$folder/programs"
for program in file dpkg-shlibdeps; do
    mv "$folder/programs/$program" "$folder"
    ! PATH=$folder/programs cpack >"$folder/log" 2>&1 || fail "packages are made without $program"
    tr -s '\n ' ' ' <"$folder/log" | grep -q "There is no program $program, .*: install " || fail "$program is not missed"
    mv "$folder/$program" "$folder/programs"
done
! cpack -D CPACK_ZDEFAULT_PREFIX=/usr/local >"$folder/log" 2>&1 || fail "packages are made in any build"
grep -q 'use the preset "debian"' "$folder/log" || fail "no word on how packages are made"
! ls ./*.deb 2>/dev/null || fail "packages are made"

quietly cpack
library=$(ls "$PWD"/libzdefault1_*.deb) programs=$(ls "$PWD"/zdefault_*.deb) dev=$(ls "$PWD"/libzdefault-dev_*.deb)
nats=$(ls "$PWD"/zdefault-nats_*.deb)
packages=("$library" "$programs" "$dev" "$nats")

echo "== fields"
# has PACKAGE FIELD PATTERN: the field matches.
has() {
    dpkg-deb --field "$1" "$2" | grep -Eq -- "$3" || fail "$(basename "$1"): $2 is $(dpkg-deb --field "$1" "$2")"
}
# control PACKAGE FILE: what it says.
control() { dpkg-deb --ctrl-tarfile "$1" | tar -xO "./$2"; }
version=$(dpkg-deb --field "$library" Version)
for package in "${packages[@]}"; do
    [ "$(dpkg-deb --field "$package" Version)" = "$version" ] || fail "$package has another version"
    has "$package" Source '^zdefault$'
    has "$package" Priority '^optional$'
    has "$package" Architecture "^$(dpkg --print-architecture)$"
done
has "$library" Depends 'libqt5core5a'
has "$programs" Depends "libzdefault1 \(= $version\)"
has "$programs" Depends 'libcpp-httplib.*libprometheus-cpp-core'
! dpkg-deb --field "$library" Depends | grep -E 'libqt5(gui|network|test)|libglib|http' || fail "the library needs more"
! dpkg-deb --field "$programs" Depends | grep -E 'libqt5(gui|network|test)|libglib' || fail "the programs need more"
has "$dev" Depends "libzdefault1 \(= $version\)"
has "$dev" Depends 'make \| ninja-build'
has "$nats" Depends "libzdefault1 \(= $version\)"
has "$nats" Depends 'libnats3'
has "$nats" Suggests '^nats-server$'
for package in "$library" "$programs" "$dev"; do
    ! dpkg-deb --field "$package" Depends Recommends | grep nats || fail "$package needs what only the plugin needs"
done
has "$library" Multi-Arch '^same$'
has "$nats" Multi-Arch '^same$'
has "$dev" Multi-Arch '^same$'
has "$programs" Multi-Arch '^foreign$'
has "$library" Section '^libs$'
has "$dev" Section '^libdevel$'
has "$programs" Section '^utils$'
has "$nats" Section '^net$'

echo "== what dpkg does with the library"
[ "$(control "$library" shlibs)" = "libzdefault 1 libzdefault1 (>= $version)" ] || fail "no shlibs"
[ "$(control "$library" triggers)" = 'activate-noawait ldconfig' ] || fail "no trigger"
! dpkg-deb --ctrl-tarfile "$library" | tar -t | grep -E 'inst$|rm$' || fail "a script runs, where the trigger is enough"

echo "== what lintian says"
diff -w "$source/LICENSE" /usr/share/common-licenses/Apache-2.0 || fail "the package names another licence"
if command -v lintian >/dev/null; then
    quietly lintian --allow-root --fail-on error,warning "${packages[@]}"
else
    echo "lintian is not installed: left out"
fi

echo "== a plugin"
# dpkg itself installs them: into a root of their own, where nothing else is.
root=$folder/root
mkdir -p "$root/var/lib/dpkg/"{info,updates}
touch "$root/var/lib/dpkg/"{status,available}
quietly dpkg --root="$root" --force-depends --force-not-root --install "${packages[@]}"

libraries=usr/lib/$($CXX -print-multiarch)
# comes FILE PACKAGE: with that package.
comes() {
    grep -qx "/$1" "$root/var/lib/dpkg/info/$2"*.list || fail "$2 comes without $1"
}
comes "$libraries/libzdefault.so.1" libzdefault1
comes "$libraries/libzdefault.so" libzdefault-dev
comes "$libraries/pkgconfig/zdefault.pc" libzdefault-dev
comes "$libraries/libzdefaulttesting.a" libzdefault-dev
comes "$libraries/cmake/zdefault/zdefaultTestingTargets.cmake" libzdefault-dev
comes "$libraries/cmake/zdefault/zdefaultplugintest.cmake" libzdefault-dev
comes usr/include/zdefault/testing/zpluginfixture.h libzdefault-dev
comes usr/share/man/man1/zdefault-new-plugin.1.gz libzdefault-dev
for file in share/doc/zdefault/docs/operator-guide.md share/doc/zdefault/docs/zhost.limits.conf \
    share/man/man1/zctl.1.gz share/man/man1/zdeploy.1.gz share/man/man1/zhost.1.gz \
    share/bash-completion/completions/zctl share/zdefault/zhost-configuration.schema.json \
    share/zdefault/zhost-door.openapi.json bin/zctl lib/systemd/system/zhost@.service; do
    comes "usr/$file" zdefault
done
comes "$libraries/zdefault/plugins/libznats.so" zdefault-nats
comes usr/share/doc/zdefault/docs/nats.md zdefault-nats
comes usr/share/doc/zdefault/docs/pictures/cluster.svg zdefault-nats
for package in libzdefault1 zdefault libzdefault-dev zdefault-nats; do
    for file in copyright changelog.gz changelog.Debian.gz; do
        comes "usr/share/doc/$package/$file" "$package"
    done
done
! readelf -d "$root"/usr/bin/z* 2>/dev/null | grep -i runpath || fail "the programs look for libraries on their own"

if command -v systemd-analyze >/dev/null; then
    sed "s|/usr/bin/|$root&|" "$root/usr/lib/systemd/system/zhost@.service" >"$folder/zhost@one.service"
    mkdir "$folder/zhost@one.service.d"
    cp "$root/usr/share/doc/zdefault/docs/zhost.limits.conf" "$folder/zhost@one.service.d/limits.conf"
    systemd-analyze --man=no verify "$folder/zhost@one.service" 2>"$folder/log" || fail "the unit is wrong"
    ! grep "zhost@" "$folder/log" || fail "the unit is wrong"
fi
! readelf -d "$root/$libraries/zdefault/plugins/libznats.so" | grep -i runpath || fail "the plugin looks for libraries"
export PATH=$root/usr/bin:$PATH CMAKE_PREFIX_PATH=$root/usr LD_LIBRARY_PATH=$root/$libraries
quietly zdeploy --describe "$root/$libraries/zdefault/plugins/libznats.so"

cd "$folder"
zdefault-new-plugin rain >/dev/null
quietly cmake -S rain -B rain/build
quietly cmake --build rain/build
quietly ctest --test-dir rain/build --no-tests=error
start_host rain/config.json
zdeploy rain/build/librain.so rain/hot-deploy
await '^rain is here$'
zctl -c rain/config.json status >"$folder/log" || { cat "$folder/log"; fail "zctl does not find the host"; }
stop_host
echo ok
