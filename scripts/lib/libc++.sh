# Sourced by scripts/test-compilers: Boost.Log and GoogleTest built with libc++. The system's are built with libstdc++
# and cannot be linked with it.

libraries_for=libc++
compiled_by=clang-$(clang++ -dumpversion)
compile_options=(-DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS=-stdlib=libc++)
source scripts/lib/libraries.sh
