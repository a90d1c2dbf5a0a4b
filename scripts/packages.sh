#!/usr/bin/env bash
# Builds the Debian packages of the library, its headers, the tools and the documentation, looks at them with lintian, and
# installs and removes them in an empty root.
#
# usage: scripts/packages.sh [BUILD-TREE]     build/package; the packages stand in it
set -euo pipefail
. "$(dirname "$0")/lib.sh"
build=${1:-build/package}

build_packages() {
    quietly cmake -S . -B "$build" -D CMAKE_BUILD_TYPE=Release -D BUILD_TESTING=OFF -D ZRK4_PROGRAMS=OFF \
        -D CMAKE_INSTALL_PREFIX=/usr -D CMAKE_INSTALL_LIBDIR="lib/$(dpkg-architecture -q DEB_HOST_MULTIARCH)" \
        -D CMAKE_INSTALL_DOCDIR=share/doc/zrk4bm-doc -D CMAKE_SKIP_INSTALL_RPATH=ON
    quietly cmake --build "$build" -j "$(nproc)"
    rm -f "$build"/*.deb
    (cd "$build" && quietly cpack -G DEB)
}

# In a root of its own, without what the packages depend on; maintainer scripts run outside and are told where it is.
in_root() { dpkg --root="$root" --force-not-root --force-depends --force-script-chrootless --log="$root/log" "$@"; }

make_root() {
    mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/etc"
    touch "$root/var/lib/dpkg/status" "$root/etc/passwd" "$root/etc/group"
}

# Everything but the packages' own database.
files_in_root() { (cd "$root" && find . -path ./var/lib/dpkg -prune -o ! -type d ! -name log -print | sort); }

install_and_remove() {
    local path before packages expected=(
        usr/include/ZRK4bm/BM.h "usr/lib/*/libZRK4bm.so" "usr/lib/*/libZRK4bm.so.0" "usr/lib/*/libZRK4evutl.so.0"
        "usr/lib/*/cmake/ZRK4bm/ZRK4bmConfig.cmake" "usr/lib/*/pkgconfig/ZRK4bm.pc" usr/share/doc/zrk4bm-doc/README.md
    )
    if compgen -G "$build/zrk4bm-tools_*.deb" >/dev/null; then
        expected+=(usr/bin/bm usr/lib/sysctl.d/60-zrk4bm.conf usr/lib/systemd/logind.conf.d/60-zrk4bm.conf
            usr/lib/systemd/system/zrk4bm-master.service)
    fi
    before=$(files_in_root)
    quietly in_root --install "$build"/*.deb || return
    for path in "${expected[@]}"; do
        compgen -G "$root/$path" >/dev/null || die "not installed: $path"
    done
    if [[ -e $root/usr/bin/bm ]]; then
        grep -q '^zrk4bm:' "$root/etc/passwd" || die "no user zrk4bm"
        LD_LIBRARY_PATH=$(echo "$root"/usr/lib/*/) "$root/usr/bin/bm" version
    fi
    mapfile -t packages < <(package_names)
    quietly in_root --purge "${packages[@]}" || return
    # The user stays.
    diff <(echo "$before") <(files_in_root | grep -v '^\./etc/.*\(-\|\.lock\)$\|^\./etc/\(g\)\?shadow$')
}

package_names() {
    local package
    for package in "$build"/*.deb; do dpkg-deb --field "$package" Package; done
}

scripts/install-deps.sh package
[[ -e build/docs/site/index.html ]] || scripts/docs.sh
build_packages
for package in "$build"/*.deb; do echo "$package"; done
# The site brings its own fonts and scripts: it is also read where there are no packages.
lintian --fail-on error --suppress-tags duplicate-font-file,embedded-javascript-library "$build"/*.deb
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
make_root
install_and_remove
echo "installed and removed"
