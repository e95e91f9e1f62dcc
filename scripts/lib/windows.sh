# Sourced by scripts/test-windows: builds libraries for Windows, and runs Wine in a folder of its own.

libraries_for=windows
compiled_by=gcc-$(x86_64-w64-mingw32-g++-posix -dumpversion)
compile_options=(--toolchain "$PWD/cmake/mingw-w64-x86-64.cmake")
source scripts/lib/libraries.sh

export WINEPREFIX=

end_wine() {
    if [ -n "$WINEPREFIX" ]; then
        wineserver --kill || true
        rm -rf "$WINEPREFIX"
    fi
}
trap 'end_wine; end_build' EXIT

build_openssl() {
    fetch_source "openssl=$1"
    cd openssl-*/
    # no-module puts the legacy provider into the library.
    ./Configure mingw64 --cross-compile-prefix=x86_64-w64-mingw32- no-shared no-module no-tests
    make -s -j "$jobs" build_generated
    make -s -j "$jobs" libcrypto.a libssl.a apps/openssl.exe
    mkdir -p "$2/lib" "$2/bin" "$2/include"
    cp -r include/openssl "$2/include"
    cp libcrypto.a libssl.a "$2/lib"
    cp apps/openssl.exe "$2/bin"
}

# CLI11 and nlohmann-json are only headers, so Debian's packages fit. The compiler must not see the other headers there.
build_headers() {
    mkdir -p "$2/include" "$2/share/cmake"
    cp -r /usr/include/CLI /usr/include/nlohmann "$2/include"
    cp -r /usr/share/cmake/CLI11 /usr/share/cmake/nlohmann_json "$2/share/cmake"
}

# start_wine: creates a temporary Windows for the following programs. It ends with the script.
start_wine() {
    WINEPREFIX=$(mktemp -d)
    # Disable menus, .NET and the browser, so that Wine does not ask for them.
    export WINEDEBUG=-all WINEDLLOVERRIDES='winemenubuilder.exe,mscoree,mshtml=d'
    export WINEPATH
    WINEPATH=$(printf 'Z:%s/bin;' "${libraries[@]}")
    unset DISPLAY WAYLAND_DISPLAY
    # It outlives this script if that is killed. Whoever reads the output of the script need not wait for it.
    wineserver --persistent >/dev/null 2>&1
    wine wineboot --init >/dev/null 2>&1
}

# check_windows_package: builds tests/package against the installed library, and runs it.
check_windows_package() {
    local prefix=$checkout/build/prefix/windows work=$checkout/build/package-windows
    rm -rf "$prefix" "$work"
    cmake --install build/windows --prefix "$prefix" >/dev/null
    cmake -S tests/package -B "$work" -G Ninja "${compile_options[@]}" \
        -DFOUNDATION_WINDOWS_LIBRARIES="$(joined_libraries);$prefix"
    cmake --build "$work"
    wine "$work/consumer.exe"
    wine "$work/toolkit_consumer.exe"
}
