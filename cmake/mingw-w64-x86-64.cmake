# Toolchain for 64-bit Windows programs: Debian's g++-mingw-w64-x86-64-posix and Wine. FOUNDATION_WINDOWS_LIBRARIES
# names the folders of the libraries to link, which scripts/test-windows fills.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_CROSSCOMPILING_EMULATOR wine)

# Programs contain the compiler's libraries, so they run from any folder.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(OPENSSL_USE_STATIC_LIBS ON)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES FOUNDATION_WINDOWS_LIBRARIES)
set(CMAKE_FIND_ROOT_PATH ${FOUNDATION_WINDOWS_LIBRARIES} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
