# Sourced by the scripts: the packages, by their Debian names, and the function that installs them.

build_packages=(build-essential cmake ninja-build pkg-config libssl-dev libboost-dev libboost-log-dev libcli11-dev
    nlohmann-json3-dev)
# netbase has the names of services; iproute2 sets up network namespaces.
demo_packages=(ca-certificates openssl iproute2 netbase)
# Published test vectors are a package, too. gdb tests its printers. GNU parallel runs foundation-certs in a test.
test_packages=(libgtest-dev ca-certificates openssl gdb iproute2 netbase parallel python3-cryptography-vectors)
# Other software, whose signatures and bundles the tests read.
foreign_packages=(gnutls-bin libnss3-tools default-jdk-headless)
# Another parser, and certificates that other software is tested with. debian-archive-keyring: for source packages.
corpora_packages=(ca-certificates debian-archive-keyring golang-src python3-cryptography python3-cryptography-vectors)
# doxygen-awesome-css is the theme of the documentation's site. Chromium looks at its pages.
docs_packages=(doxygen doxygen-awesome-css python3)
site_packages=(chromium fonts-dejavu-core python3)
check_packages=(clang clang-format clang-tidy cppcheck libclang-rt-dev "${docs_packages[@]}")
coverage_packages=(gcovr)
# clang as a library, and its Python module.
mutation_packages=(clang python3-clang)
abi_packages=(abigail-tools)
fuzz_packages=(clang libclang-rt-dev)
compiler_packages=(clang libc++-dev libc++abi-dev googletest)
# Compilers, sources and headers for Windows programs, and Wine.
windows_packages=(cmake ninja-build make perl g++-mingw-w64-x86-64-posix dpkg-dev libboost-dev libboost-log-dev
    googletest wine wine64 ca-certificates netbase libcli11-dev nlohmann-json3-dev)
# QEMU, and roots of other architectures. The compiler's package names its architecture.
cross_packages=(cmake ninja-build qemu-user mmdebstrap)
bench_packages=(libbenchmark-dev libgnutls28-dev ca-certificates netbase)
# The page of results also shows Go, which takes 450 MB, and a plot.
peer_packages=(golang-go gnuplot-nox)

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# A package that a release does not have is part of another package there (libclang-rt-dev before Debian 12).
is_known() {
    apt-cache show "$1" >/dev/null 2>&1
}

# install_packages NAME...: installs the missing packages without questions. Does nothing if all are installed.
install_packages() {
    if ! command -v apt-get >/dev/null; then
        echo "There is no apt-get. Install these packages (Debian names): $*" >&2
        return
    fi
    local name missing=() available=()
    for name in "$@"; do
        is_installed "$name" || missing+=("$name")
    done
    [ ${#missing[@]} -gt 0 ] || return 0

    as_root apt-get update -qq
    for name in "${missing[@]}"; do
        if is_known "$name"; then available+=("$name"); fi
    done
    [ ${#available[@]} -gt 0 ] || return 0
    echo "Installing ${available[*]}"
    # How much there is to download and to unpack. It always refuses to go on.
    { LC_ALL=C apt-get install --no-install-recommends --assume-no "${available[@]}" 2>/dev/null || true; } |
        sed -n '/^Need to get/p; /^After this operation/p'
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${available[@]}" >/dev/null
}
