# Installs the libraries, headers, the CMake package FoundationCertificates and the pkg-config files
# foundation-certificates.pc and foundation-toolkit.pc. No installed file names the prefix, so an installed tree can be moved. A static and a
# shared build can share a prefix if the shared one is installed last: its headers fit both.
#
# Programs need component `runtime` to run and component `development` to build.
include(CMakePackageConfigHelpers)

set(libraryFolders certificates log)
if(FOUNDATION_CERTIFICATES_BUILD_TOOLKIT)
    list(APPEND libraryFolders toolkit)
endif()
list(TRANSFORM libraryFolders PREPEND foundation_ OUTPUT_VARIABLE libraries)
set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/FoundationCertificates)
set(pkgConfigDir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(kind static)
if(BUILD_SHARED_LIBS)
    set(kind shared)
endif()

# Shared libraries find each other in their own folder.
if(NOT WIN32)
    set_target_properties(${libraries} PROPERTIES
        INSTALL_RPATH "$<IF:$<PLATFORM_ID:Darwin>,@loader_path,$ORIGIN>")
endif()

install(TARGETS ${libraries} EXPORT FoundationCertificates-${kind}-targets
    RUNTIME COMPONENT runtime
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
foreach(library IN LISTS libraryFolders)
    install(DIRECTORY foundation/${library}/include/ ${PROJECT_BINARY_DIR}/foundation/${library}/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endforeach()

# gdb loads its printers with the shared library: under /usr from a folder of its own, otherwise from beside the library.
if(BUILD_SHARED_LIBS AND NOT WIN32)
    set(printersDir ${CMAKE_INSTALL_LIBDIR})
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(printersDir ${CMAKE_INSTALL_DATADIR}/gdb/auto-load/${CMAKE_INSTALL_FULL_LIBDIR})
    endif()
    install(FILES tools/gdb/printers.py DESTINATION ${printersDir}
        RENAME $<TARGET_FILE_NAME:foundation_certificates>-gdb.py COMPONENT runtime)
else()
    install(FILES tools/gdb/printers.py DESTINATION ${CMAKE_INSTALL_DATADIR}/foundation-certificates/gdb
        COMPONENT development)
endif()

install(EXPORT FoundationCertificates-${kind}-targets NAMESPACE foundation::
    DESTINATION ${packageDir} COMPONENT development)

# A program that links the static libraries also links Boost.Log, of the kind that they were compiled against. A static
# Boost.Log does not link its own dependencies.
get_target_property(boostType Boost::log TYPE)
if(boostType STREQUAL "STATIC_LIBRARY" OR Boost_USE_STATIC_LIBS)
    set(boostIsStatic ON)
    set(boostLibraries "-l:libboost_log.a -l:libboost_filesystem.a -l:libboost_thread.a -l:libboost_atomic.a")
else()
    set(boostIsStatic OFF)
    set(boostLibraries -lboost_log)
endif()
# The system's libraries.
set(systemLibraries -pthread)
if(WIN32)
    string(APPEND systemLibraries " -lcrypt32 -lws2_32 -lmswsock")
    if(boostIsStatic)
        string(APPEND systemLibraries " -lbcrypt -ladvapi32 -lsecur32 -lpsapi")
    endif()
endif()
configure_package_config_file(cmake/FoundationCertificatesConfig.cmake.in FoundationCertificatesConfig.cmake
    INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(FoundationCertificatesConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/FoundationCertificatesConfig.cmake
    ${PROJECT_BINARY_DIR}/FoundationCertificatesConfigVersion.cmake
    DESTINATION ${packageDir} COMPONENT development)

# A program that links the shared libraries links no others, so the dependencies are private: only `pkg-config
# --static` shows them. If only the static libraries are installed, every program links all dependencies, so they are
# public.
set(definitions "-DFOUNDATION_CERTIFICATES_STATIC_DEFINE -DFOUNDATION_LOG_STATIC_DEFINE")
set(dependencies "${boostLibraries} ${systemLibraries}")
if(BUILD_SHARED_LIBS)
    set(requires Requires.private)
    set(privateDefinitions "${definitions}")
    set(privateLibraries "${dependencies}")
else()
    set(requires Requires)
    set(publicDefinitions "${definitions}")
    set(publicLibraries "${dependencies}")
endif()
file(RELATIVE_PATH prefixFromPkgConfigDir "/${pkgConfigDir}" "/")
string(REGEX REPLACE "/$" "" prefixFromPkgConfigDir "${prefixFromPkgConfigDir}")
configure_file(cmake/foundation-certificates.pc.in foundation-certificates.pc @ONLY)
set(pkgConfigFiles ${PROJECT_BINARY_DIR}/foundation-certificates.pc)
if(FOUNDATION_CERTIFICATES_BUILD_TOOLKIT)
    set(toolkitDefinition -DFOUNDATION_TOOLKIT_STATIC_DEFINE)
    if(BUILD_SHARED_LIBS)
        set(privateToolkitDefinition ${toolkitDefinition})
    else()
        set(publicToolkitDefinition ${toolkitDefinition})
    endif()
    configure_file(cmake/foundation-toolkit.pc.in foundation-toolkit.pc @ONLY)
    list(APPEND pkgConfigFiles ${PROJECT_BINARY_DIR}/foundation-toolkit.pc)
endif()
install(FILES ${pkgConfigFiles} DESTINATION ${pkgConfigDir} COMPONENT development)
