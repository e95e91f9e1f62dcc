# Sourced by scripts/test-windows: libraries for Windows, kept in a cache, and Wine in a folder of its own.

if ! command -v apt-get >/dev/null || ! grep -q '^ID=debian' /etc/os-release; then
    echo "Sources and packages are taken from Debian, and this is another system." >&2
    exit 1
fi

checkout=$PWD
windows_cache=${XDG_CACHE_HOME:-$HOME/.cache}/foundation-certificates/windows
windows_libraries=() # the folders of what `need` has provided
build_folder=
export WINEPREFIX=

clean_up() {
    if [ -n "$WINEPREFIX" ]; then
        wineserver --kill || true
        rm -rf "$WINEPREFIX"
    fi
    if [ -n "$build_folder" ]; then
        tail -n 40 "$build_folder/log" >&2
        rm -rf "$build_folder"
    fi
}
trap clean_up EXIT

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

# need NAME VERSION: adds the folder of that library to windows_libraries. Builds it first, by build_NAME, if the cache
# has none of this version for this compiler.
need() {
    local folder
    folder=$windows_cache/$1-$2-gcc-$(x86_64-w64-mingw32-g++-posix -dumpversion)
    if [ ! -d "$folder" ]; then
        echo "Building $1 $2 for Windows"
        mkdir -p "$windows_cache"
        build_folder=$(mktemp -d "$windows_cache/building-XXXXXX")
        mkdir "$build_folder/source"
        cd "$build_folder/source"
        "build_$1" "$2" "$build_folder/result" >"$build_folder/log" 2>&1
        cd "$checkout"
        mv "$build_folder/result" "$folder"
        rm -rf "$build_folder"
        build_folder=
    fi
    windows_libraries+=("$folder")
}

# The folders of the libraries as a list for CMake.
joined_libraries() {
    local IFS=';'
    echo "${windows_libraries[*]}"
}

# fetch_source [OPTION...] SOURCE=VERSION: `apt-get source` into the current folder, by a list of sources of its own:
# those of the machine stay as they are.
fetch_source() {
    local apt=$windows_cache/apt keyring signed_by= mirror
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

build_openssl() {
    fetch_source "openssl=$1"
    cd openssl-*/
    # Without modules the legacy provider is part of the library.
    ./Configure mingw64 --cross-compile-prefix=x86_64-w64-mingw32- no-shared no-module no-tests
    make -s -j "$jobs" build_generated
    make -s -j "$jobs" libcrypto.a libssl.a apps/openssl.exe
    mkdir -p "$2/lib" "$2/bin" "$2/include"
    cp -r include/openssl "$2/include"
    cp libcrypto.a libssl.a "$2/lib"
    cp apps/openssl.exe "$2/bin"
}

build_boost() {
    fetch_source --download-only "boost$(cut -d . -f 1-2 <<<"$1")=$1"
    tar -xf ./*.orig.tar.* --strip-components=1 --wildcards '*/libs/'{atomic,filesystem,log,thread}
    cross_compile "$checkout/scripts/lib/boost-for-windows" "$2" -DBOOST_SOURCE="$PWD"
}

build_googletest() {
    cross_compile /usr/src/googletest "$2" -DBUILD_GMOCK=OFF
}

# cross_compile SOURCE PREFIX [CMake option...]: builds a CMake project and installs it.
cross_compile() {
    cmake -S "$1" -B build -G Ninja --toolchain "$checkout/cmake/mingw-w64-x86-64.cmake" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_PREFIX="$2" "${@:3}"
    cmake --build build -j "$jobs"
    cmake --install build
}

# start_wine: makes a Windows of its own for the programs run from here on, which ends with the script.
start_wine() {
    WINEPREFIX=$(mktemp -d)
    # Without fonts, menus, .NET and a browser, for none of which it then asks.
    export WINEDEBUG=-all WINEDLLOVERRIDES='winemenubuilder.exe,mscoree,mshtml=d'
    export WINEPATH
    WINEPATH=$(printf 'Z:%s/bin;' "${windows_libraries[@]}")
    unset DISPLAY WAYLAND_DISPLAY
    wineserver --persistent
    wine wineboot --init >/dev/null 2>&1
}

# check_windows_package: builds tests/package against the installed library, and runs it.
check_windows_package() {
    local prefix=$checkout/build/prefix/windows work=$checkout/build/package-windows
    rm -rf "$prefix" "$work"
    cmake --install build/windows --prefix "$prefix" >/dev/null
    cmake -S tests/package -B "$work" -G Ninja --toolchain "$checkout/cmake/mingw-w64-x86-64.cmake" \
        -DFOUNDATION_WINDOWS_LIBRARIES="$(joined_libraries);$prefix"
    cmake --build "$work"
    wine "$work/consumer.exe"
}
