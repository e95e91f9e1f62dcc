# Sourced by windows.sh and libc++.sh: builds libraries from Debian's sources where Debian's binaries do not fit, and
# caches them in $XDG_CACHE_HOME, or ~/.cache. The sourcing script sets
#   libraries_for     the target, which is also the name of the cache folder
#   compiled_by       the compiler and its version
#   compile_options   CMake's options for this compiler

if ! command -v apt-get >/dev/null || ! grep -q '^ID=debian' /etc/os-release; then
    echo "This needs Debian's sources and packages. This system is not Debian." >&2
    exit 1
fi

checkout=$PWD
libraries_cache=${XDG_CACHE_HOME:-$HOME/.cache}/foundation-certificates/$libraries_for
libraries=() # the folders that `need` has added
build_folder=

# Prints the last lines of a failed build.
end_build() {
    if [ -n "$build_folder" ]; then
        tail -n 40 "$build_folder/log" >&2
        rm -rf "$build_folder"
    fi
}
trap end_build EXIT

# need NAME VERSION: adds the library's folder to `libraries`. If the cache does not have this version by this
# compiler, it builds the library with build_NAME first.
need() {
    local folder=$libraries_cache/$1-$2-$compiled_by
    if [ ! -d "$folder" ]; then
        echo "Building $1 $2 for $libraries_for"
        mkdir -p "$libraries_cache"
        build_folder=$(mktemp -d "$libraries_cache/building-XXXXXX")
        mkdir "$build_folder/source"
        cd "$build_folder/source"
        "build_$1" "$2" "$build_folder/result" >"$build_folder/log" 2>&1
        cd "$checkout"
        mv "$build_folder/result" "$folder"
        rm -rf "$build_folder"
        build_folder=
    fi
    libraries+=("$folder")
}

# Prints the folders of the libraries as a list for CMake.
joined_libraries() {
    local IFS=';'
    echo "${libraries[*]}"
}

build_boost() {
    fetch_source --download-only "boost$(cut -d . -f 1-2 <<<"$1")=$1"
    tar -xf ./*.orig.tar.* --strip-components=1 --wildcards '*/libs/'{atomic,filesystem,log,thread}
    build_and_install "$checkout/scripts/lib/boost-log" "$2" -DBOOST_SOURCE="$PWD"
}

build_googletest() {
    build_and_install /usr/src/googletest "$2" -DBUILD_GMOCK=OFF
}

# build_and_install SOURCE PREFIX [CMake option...]: builds a CMake project and installs it.
build_and_install() {
    cmake -S "$1" -B build -G Ninja "${compile_options[@]}" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_PREFIX="$2" "${@:3}"
    cmake --build build -j "$jobs"
    cmake --install build
}

# Prints the machine's mirror of this release, and the name of the release's folder there.
release_mirror() {
    local codename
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    apt-get indextargets --format '$(LABEL) $(CODENAME) $(COMPONENT) $(REPO_URI) $(RELEASE)' 'Created-By: Packages' |
        awk -v wanted="Debian $codename main " 'index($0, wanted) == 1 && !mirror { mirror = $4 " " $5 }
            END { print mirror }'
}

# version_in_release PACKAGE: prints its version in the release itself. Mirrors of security updates do not always have
# the sources of later versions.
version_in_release() {
    local mirror
    mirror=$(release_mirror)
    [ -n "$(apt-cache madison "$1")" ] || as_root apt-get update -qq
    apt-cache madison "$1" | awk -F ' *[|] *' -v release="${mirror% *} ${mirror#* }/main" '
        { sub("/ ", " ", release) } index($3, release) && !version { version = $2 }
        END { sub(/[+]b[0-9]+$/, "", version); print version }'
}

# installed_source PACKAGE: prints the version of the installed package's source. If the package only depends on a
# versioned one, as libboost-log-dev does, it prints the version of that.
installed_source() {
    local named
    named=$(dpkg-query -W -f '${Depends}' "$1")
    dpkg-query -W -f '${source:Version}' "$([[ $named == "${1%-dev}"* ]] && echo "$named" || echo "$1")"
}

# fetch_source [OPTION...] SOURCE=VERSION: runs `apt-get source` in the current folder with its own list of sources.
# The machine's lists do not change.
fetch_source() {
    local apt=$libraries_cache/apt keyring signed_by= mirror
    for keyring in /usr/share/keyrings/debian-archive-keyring.{pgp,gpg}; do
        if [ -e "$keyring" ]; then signed_by="[signed-by=$keyring]"; fi
    done
    mirror=$(release_mirror)
    mkdir -p "$apt/cache" "$apt/lists"
    echo "deb-src $signed_by $mirror main" >"$apt/sources.list"
    local options=(-qq -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt/cache" -o APT::Sandbox::User=root)
    apt-get "${options[@]}" update
    apt-get "${options[@]}" source "$@"
}
