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
        -D ZRK4_DEBIAN_PACKAGES=ON \
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

# What must be there after the installation.
installed() {
    local path command libraries
    for path in usr/include/ZRK4bm/BM.h "usr/lib/*/libZRK4bm.so" "usr/lib/*/libZRK4bm.so.0" \
        "usr/lib/*/libZRK4evutl.so.0" "usr/lib/*/cmake/ZRK4bm/ZRK4bmConfig.cmake" "usr/lib/*/pkgconfig/ZRK4bm.pc" \
        usr/share/doc/zrk4bm-doc/{README.md,html/index.html,html/reference/index.html,examples/writer.cpp} \
        usr/bin/bm usr/lib/{sysctl.d,systemd/logind.conf.d}/60-zrk4bm.conf \
        usr/share/{bash-completion/completions/bm,zsh/vendor-completions/_bm,fish/vendor_completions.d/bm.fish}; do
        compgen -G "$root/$path" >/dev/null || die "not installed: $path"
    done
    grep -q '^zrk4bm:' "$root/etc/passwd" || die "no user zrk4bm"
    libraries=$(dirname "$root"/usr/lib/*/libZRK4bm.so.0)
    LD_LIBRARY_PATH=$libraries "$root/usr/bin/bm" version
    for command in "" $(LD_LIBRARY_PATH=$libraries "$root/usr/bin/bm" --help | awk '/^  [a-z]+  / { print "-" $1 }'); do
        [[ -s $root/usr/share/man/man1/bm$command.1.gz ]] || die "no man page of bm$command"
    done
    bash -c 'source "$1" && complete -p bm' _ "$root/usr/share/bash-completion/completions/bm"
    service_is_sound
}

# systemd looks for the units that it names on this host, for the program in the scratch root. What it merely warns of is
# no success either.
service_is_sound() {
    local said unit=zrk4bm-master.service
    sed "s:/usr/bin/bm:$root&:" "$root/usr/lib/systemd/system/$unit" >"$work/$unit"
    said=$(systemd-analyze verify --man=no "$work/$unit" 2>&1) || die "$said"
    [[ -z $said ]] || die "$said"
}

install_and_remove() {
    local before packages
    before=$(files_in_root)
    quietly in_root --install "$build"/*.deb || return
    installed
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
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
scripts/docs.sh
build_packages
for package in "$build"/*.deb; do echo "$package"; done
# The site brings its own fonts and scripts: it is also read where there are no packages. Ended by force lintian leaves
# its files.
mkdir "$work/lintian"
TMPDIR=$work/lintian lintian --fail-on error --suppress-tags duplicate-font-file,embedded-javascript-library "$build"/*.deb
make_root
install_and_remove
echo "installed and removed"
