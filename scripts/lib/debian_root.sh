# Sourced by the scripts: functions that create roots of Debian releases and run commands in them. They need root.
# Downloads are cached in $XDG_CACHE_HOME, or ~/.cache.

# debian_cache SUITE ARCH: prints the cache folder of the release.
debian_cache() {
    echo "${XDG_CACHE_HOME:-$HOME/.cache}/foundation-certificates/$1-$2"
}

# debootstrap_script SUITE: prints the script for a release. Releases newer than debootstrap use the one for sid.
debootstrap_script() {
    local scripts=/usr/share/debootstrap/scripts
    if [ -e "$scripts/$1" ]; then echo "$scripts/$1"; else echo "$scripts/sid"; fi
}

# remove_debian_root ROOT: removes the root. Anything that is still mounted there stays.
remove_debian_root() {
    rm -rf --one-file-system "$1"
}

# base_suite SUITE: prints the suite that a root is installed from. "experimental" is no release of its own: it is sid
# with some newer packages.
base_suite() {
    if [ "$1" = experimental ]; then echo sid; else echo "$1"; fi
}

# make_debian_root ROOT SUITE ARCH: creates a minimal installation of the release in ROOT. In "experimental" it holds
# the newest OpenSSL.
make_debian_root() {
    local root=$1 suite=$2 arch=$3 cache mirror=http://deb.debian.org/debian
    cache=$(debian_cache "$suite" "$arch")
    remove_debian_root "$root"
    mkdir -p "$root" "$cache/archives"
    if [ -f "$cache/minbase.tar" ]; then
        tar -C "$root" -xf "$cache/minbase.tar"
    else
        debootstrap --variant=minbase --arch="$arch" --cache-dir="$cache/archives" \
            "$(base_suite "$suite")" "$root" "$mirror" "$(debootstrap_script "$suite")"
        tar -C "$root" -cf "$cache/minbase.tar.part" .
        mv "$cache/minbase.tar.part" "$cache/minbase.tar"
    fi
    # The root is temporary, so it need not survive a power failure. Keep downloads for the next one. A mirror of an
    # unreleased version may be late; its packages are signed anyway.
    echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/unsafe-io"
    printf '%s\n' 'APT::Keep-Downloaded-Packages "true";' 'Acquire::Check-Valid-Until "false";' \
        >"$root/etc/apt/apt.conf.d/thrown-away"
    cp /etc/resolv.conf "$root/etc/resolv.conf"
    if [ "$suite" = experimental ]; then
        echo "deb $mirror experimental main" >"$root/etc/apt/sources.list.d/experimental.list"
        run_in_debian_root "$root" "$suite" "$arch" bash -euo pipefail -c '
            apt-get update -qq
            apt-get install -y -qq --no-install-recommends -t experimental libssl-dev openssl >/dev/null
        '
    fi
}

# run_in_debian_root ROOT SUITE ARCH COMMAND...: runs the command in ROOT with a clean environment.
# The mounts are in their own mount namespace. They and all processes of the command end with it, so a later removal of
# the root cannot reach /dev.
run_in_debian_root() {
    local root=$1 suite=$2 arch=$3 cache personality=linux64
    shift 3
    cache=$(debian_cache "$suite" "$arch")
    mkdir -p "$cache/archives/partial" "$cache/ccache" "$root/var/cache/ccache"
    [ "$arch" != i386 ] || personality=linux32
    unshare --mount --pid --fork --kill-child bash -euo pipefail -c '
        root=$1 cache=$2
        mount --rbind /dev "$root/dev"
        mount -t proc proc "$root/proc"
        mount --bind "$cache/archives" "$root/var/cache/apt/archives"
        mount --bind "$cache/ccache" "$root/var/cache/ccache"
        exec "${@:3}"
    ' run_in_debian_root "$root" "$cache" \
        setarch "$personality" chroot "$root" /usr/bin/env -i \
        PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C DEBIAN_FRONTEND=noninteractive \
        CCACHE_DIR=/var/cache/ccache "$@"
}
