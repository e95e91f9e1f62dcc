# Sourced by the scripts: roots of Debian releases and commands that run in them, for whoever is root. What is downloaded
# is kept in $XDG_CACHE_HOME, or ~/.cache, for the next time.

# debian_cache SUITE ARCH: names the folder that keeps what that release was made of.
debian_cache() {
    echo "${XDG_CACHE_HOME:-$HOME/.cache}/foundation-certificates/$1-$2"
}

# debootstrap_script SUITE: names the script for a release; those younger than debootstrap itself are made like sid.
debootstrap_script() {
    local scripts=/usr/share/debootstrap/scripts
    if [ -e "$scripts/$1" ]; then echo "$scripts/$1"; else echo "$scripts/sid"; fi
}

# remove_debian_root ROOT: removes it; were anything still mounted there, that would stay.
remove_debian_root() {
    rm -rf --one-file-system "$1"
}

# make_debian_root ROOT SUITE ARCH: lays into ROOT what every installation of the release has, and nothing else.
make_debian_root() {
    local root=$1 suite=$2 arch=$3 cache
    cache=$(debian_cache "$suite" "$arch")
    remove_debian_root "$root"
    mkdir -p "$root" "$cache/archives"
    if [ -f "$cache/minbase.tar" ]; then
        tar -C "$root" -xf "$cache/minbase.tar"
    else
        debootstrap --variant=minbase --arch="$arch" --cache-dir="$cache/archives" \
            "$suite" "$root" http://deb.debian.org/debian "$(debootstrap_script "$suite")"
        tar -C "$root" -cf "$cache/minbase.tar.part" .
        mv "$cache/minbase.tar.part" "$cache/minbase.tar"
    fi
    # A root that is thrown away again need not survive a power failure, what it downloads is for the next one, and a
    # mirror of a release still in the making may lag behind; what it offers is signed all the same.
    echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/unsafe-io"
    printf '%s\n' 'APT::Keep-Downloaded-Packages "true";' 'Acquire::Check-Valid-Until "false";' \
        >"$root/etc/apt/apt.conf.d/thrown-away"
    cp /etc/resolv.conf "$root/etc/resolv.conf"
}

# run_in_debian_root ROOT SUITE ARCH COMMAND...: runs the command in ROOT, and with nothing of the environment here.
# The mounts are made in a mount namespace of their own and go with the command, however it ends, as do the processes
# that it started: nothing that removes the root later can reach into /dev.
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
