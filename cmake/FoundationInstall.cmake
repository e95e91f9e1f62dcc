# What `cmake --install` lays down: libraries, headers, the CMake package FoundationCertificates and the pkg-config
# file foundation-certificates.pc. Nothing of it names the place, so that an installed tree can be moved.
include(CMakePackageConfigHelpers)

set(libraries foundation_certificates foundation_log)
set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/FoundationCertificates)
set(pkgConfigDir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The libraries of a shared build find each other in the folder that they are in.
if(NOT WIN32)
    set_target_properties(${libraries} PROPERTIES
        INSTALL_RPATH "$<IF:$<PLATFORM_ID:Darwin>,@loader_path,$ORIGIN>")
endif()

install(TARGETS ${libraries} EXPORT FoundationCertificatesTargets)
foreach(library certificates log)
    install(DIRECTORY foundation/${library}/include/ ${PROJECT_BINARY_DIR}/foundation/${library}/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endforeach()

install(EXPORT FoundationCertificatesTargets NAMESPACE foundation:: DESTINATION ${packageDir})
configure_package_config_file(cmake/FoundationCertificatesConfig.cmake.in FoundationCertificatesConfig.cmake
    INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(FoundationCertificatesConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/FoundationCertificatesConfig.cmake
    ${PROJECT_BINARY_DIR}/FoundationCertificatesConfigVersion.cmake
    DESTINATION ${packageDir})

file(RELATIVE_PATH prefixFromPkgConfigDir "/${pkgConfigDir}" "/")
string(REGEX REPLACE "/$" "" prefixFromPkgConfigDir "${prefixFromPkgConfigDir}")
if(NOT BUILD_SHARED_LIBS)
    set(staticDefinitions "-DFOUNDATION_CERTIFICATES_STATIC_DEFINE -DFOUNDATION_LOG_STATIC_DEFINE")
endif()
configure_file(cmake/foundation-certificates.pc.in foundation-certificates.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/foundation-certificates.pc DESTINATION ${pkgConfigDir})
