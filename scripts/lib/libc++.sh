# Sourced by scripts/test-compilers: Boost.Log and GoogleTest built with libc++ from Debian's sources, and kept in
# $XDG_CACHE_HOME, or ~/.cache. The system's are built with libstdc++ and cannot be linked with it.

# fetch_boost_libraries: lays the sources of Boost.Log and what it stands on, of the installed version, into ./libs. The
# list of sources is one of its own: the system's stay as they are.
fetch_boost_libraries() {
    local package codename options
    package=$(dpkg-query -S /usr/include/boost/version.hpp | cut -d : -f 1)
    codename=$(source /etc/os-release && echo "$VERSION_CODENAME")
    mkdir -p apt/lists apt/cache
    echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian $codename main" \
        >apt/sources.list
    options=(-qq -o Dir::Etc::SourceList="$PWD/apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o Dir::State::Lists="$PWD/apt/lists" -o Dir::Cache="$PWD/apt/cache" -o APT::Sandbox::User=root)
    apt-get "${options[@]}" update
    apt-get "${options[@]}" source --download-only \
        "$(dpkg-query -W -f '${source:Package}=${source:Version}' "$package")"
    tar -xf ./*.orig.tar.* --strip-components=1 --wildcards '*/libs/'{atomic,filesystem,log,thread}
}

# install_with_libcxx SOURCE PREFIX [CMake option...]: builds a CMake project and installs it.
install_with_libcxx() {
    local name
    name=$(basename "$1")
    cmake -S "$1" -B "$name" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS=-stdlib=libc++ \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$2" "${@:3}"
    cmake --build "$name" -j "$jobs"
    cmake --install "$name"
}

# provide_libcxx_libraries: sets libcxx_libraries to the folder that they are in, and builds them first unless they are
# there, of this version for this compiler.
provide_libcxx_libraries() {
    local checkout=$PWD work=$PWD/build/libc++
    libcxx_libraries=${XDG_CACHE_HOME:-$HOME/.cache}/foundation-certificates/libc++-$(clang++ -dumpversion)-boost-$(
        dpkg-query -W -f '${Version}' libboost-log-dev)
    if [ -d "$libcxx_libraries" ]; then
        return
    fi
    rm -rf "$work" "$libcxx_libraries.part"
    mkdir -p "$work"
    cd "$work"
    fetch_boost_libraries
    install_with_libcxx "$checkout/scripts/lib/boost-for-libc++" "$libcxx_libraries.part" -DBOOST_SOURCE="$work"
    install_with_libcxx /usr/src/googletest "$libcxx_libraries.part" -DBUILD_GMOCK=OFF
    cd "$checkout"
    rm -rf "$work"
    mv "$libcxx_libraries.part" "$libcxx_libraries"
}
