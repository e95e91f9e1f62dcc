# Sourced by windows.sh and libc++.sh: libraries built from Debian's sources for what Debian's own cannot serve, and kept
# in $XDG_CACHE_HOME, or ~/.cache. Whoever sources this sets
#   libraries_for     whom they are for, which is the name of a folder in the cache
#   compiled_by       the compiler and its version
#   compile_options   CMake's options for that compiler

if ! command -v apt-get >/dev/null || ! grep -q '^ID=debian' /etc/os-release; then
    echo "Sources and packages are taken from Debian, and this is another system." >&2
    exit 1
fi

checkout=$PWD
libraries_cache=${XDG_CACHE_HOME:-$HOME/.cache}/foundation-certificates/$libraries_for
libraries=() # the folders of what `need` has provided
build_folder=

# What is left of a build that failed: its last lines.
end_build() {
    if [ -n "$build_folder" ]; then
        tail -n 40 "$build_folder/log" >&2
        rm -rf "$build_folder"
    fi
}
trap end_build EXIT

# need NAME VERSION: adds the folder of that library to `libraries`. Builds it first, by build_NAME, if the cache has
# none of this version by this compiler.
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

# The folders of the libraries as a list for CMake.
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

# The mirror that the machine has this release from, and the release as the mirror's folder is named.
release_mirror() {
    local codename
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    apt-get indextargets --format '$(LABEL) $(CODENAME) $(COMPONENT) $(REPO_URI) $(RELEASE)' 'Created-By: Packages' |
        awk -v wanted="Debian $codename main " 'index($0, wanted) == 1 && !mirror { mirror = $4 " " $5 }
            END { print mirror }'
}

# version_in_release PACKAGE: its version in the release itself. Of later ones, mirrors of security updates do not
# always have the source.
version_in_release() {
    local mirror
    mirror=$(release_mirror)
    [ -n "$(apt-cache madison "$1")" ] || as_root apt-get update -qq
    apt-cache madison "$1" | awk -F ' *[|] *' -v release="${mirror% *} ${mirror#* }/main" '
        { sub("/ ", " ", release) } index($3, release) && !version { version = $2 }
        END { sub(/[+]b[0-9]+$/, "", version); print version }'
}

# installed_source PACKAGE: the version of the source of what is installed. If the package only names another one, as
# libboost-log-dev does that of the release's Boost, then of that one.
installed_source() {
    local named
    named=$(dpkg-query -W -f '${Depends}' "$1")
    dpkg-query -W -f '${source:Version}' "$([[ $named == "${1%-dev}"* ]] && echo "$named" || echo "$1")"
}

# fetch_source [OPTION...] SOURCE=VERSION: `apt-get source` into the current folder, by a list of sources of its own:
# those of the machine stay as they are.
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
