# Sourced by the scripts: functions that configure, build and test by preset, from the project's folder.

jobs=$(nproc 2>/dev/null || sysctl -n hw.ncpu)

# These choose the system's root certificates. The tests expect the system's own.
unset SSL_CERT_FILE SSL_CERT_DIR

if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi

# configure PRESET FOLDER [CMake option...]: configures the preset into build/FOLDER.
configure() {
    cmake --preset "$1" -B "build/$2" "${@:3}"
}

# compile FOLDER [CMake option...]: builds build/FOLDER. In CI it prints only what went wrong, so that a log stays short.
compile() {
    cmake --build "build/$1" -j "$jobs" "${@:2}" ${CI:+-- --quiet}
}

# run_tests FOLDER [CTest option...]: runs the tests of build/FOLDER. A test that names no limit has ten minutes.
run_tests() {
    ctest --test-dir "build/$1" --output-on-failure --no-tests=error --timeout 600 -j "$jobs" "${@:2}"
}
