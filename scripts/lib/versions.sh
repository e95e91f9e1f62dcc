# Sourced by the scripts: the version of this source tree, and that of the last release.

# Prints the version in project() of CMakeLists.txt, the only place where it is set.
project_version() {
    sed -nE '/^project\(/,/\)/ s/^ *VERSION ([0-9.]+)$/\1/p' CMakeLists.txt
}

# Prints the newest version whose interface is in packaging/abi.
last_release() {
    basename -s .symbols packaging/abi/*.symbols | sort -V | tail -n 1
}

# is_at_most FIRST SECOND: whether the first version is the second one or older.
is_at_most() {
    printf '%s\n' "$1" "$2" | sort -CV
}
