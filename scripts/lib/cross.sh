# Sourced by scripts/test-cross: a root with the libraries of another architecture, and the emulator for its programs.
# The root is cached in $XDG_CACHE_HOME, or ~/.cache.

if ! grep -q '^ID=debian' /etc/os-release; then
    echo "This needs Debian's cross compilers and packages. This system is not Debian." >&2
    exit 1
fi
source scripts/lib/debian_root.sh

# Each library comes with the libraries that it needs.
cross_libraries=(libssl-dev libboost-log-dev libcli11-dev nlohmann-json3-dev libgtest-dev)

# make_cross_root ARCH: unpacks the libraries of this machine's release into $cross_root, which is kept. Nothing runs
# there, so this needs no emulator.
make_cross_root() {
    local suite
    suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    cross_root=$(debian_cache "$suite" "$1")/cross
    if [ "$(cat "$cross_root.packages" 2>/dev/null)" = "${cross_libraries[*]}" ]; then
        return
    fi
    echo "Unpacking ${cross_libraries[*]} for $1"
    mkdir -p "${cross_root%/*}"
    as_root rm -rf "$cross_root" "$cross_root.packages"
    as_root mmdebstrap --quiet --mode=root --variant=extract --architectures="$1" --include="${cross_libraries[*]}" \
        --hook-dir=/usr/share/mmdebstrap/hooks/merged-usr "$suite" "$cross_root" http://deb.debian.org/debian
    # QEMU looks there first. Its device of pseudo-terminals does not belong to a file system of terminals.
    as_root rm -rf "$cross_root/dev"
    echo "${cross_libraries[*]}" >"$cross_root.packages"
}

# in_namespaces COMMAND...: runs the command as root of its own user, mount and network namespaces.
in_namespaces() {
    unshare --map-root-user --mount --net "$@"
}

# can_emulate_children: whether the kernel lets a user namespace choose the interpreter of its programs (Linux 6.7).
can_emulate_children() {
    in_namespaces mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc 2>/dev/null
}

# binfmt_rule EMULATOR BYTE_ORDER MACHINE: prints the rule by which the kernel runs 64-bit programs with the emulator.
# BYTE_ORDER and MACHINE are these fields of the programs' ELF header.
binfmt_rule() {
    local ignored='\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00'
    printf '%s' ":emulator:M::\x7fELF\x02$2\x01$ignored$3:\xff\xff\xff\xff\xff\xff\xff$ignored\xff\xff:$1:"
}

# emulate RULE COMMAND...: runs a command of scripts/lib/build.sh where the kernel has the rule and only the loopback
# interface. The programs find their libraries in $cross_root.
emulate() {
    QEMU_LD_PREFIX=$cross_root in_namespaces bash -euo pipefail -c '
        mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
        printf %s "$1" >/proc/sys/fs/binfmt_misc/register
        ip link set lo up
        source scripts/lib/build.sh
        "${@:2}"
    ' emulate "$@"
}
