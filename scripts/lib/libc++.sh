# Sourced by scripts/test-compilers: builds Boost.Log and GoogleTest with libc++. The system's libraries use
# libstdc++, so they do not link.

libraries_for=libc++
compiled_by=clang-$(clang++ -dumpversion)
compile_options=(-DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS=-stdlib=libc++)
source scripts/lib/libraries.sh
