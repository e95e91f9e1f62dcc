# An overlay port. It builds the source tree that contains it.
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)

vcpkg_cmake_configure(
    SOURCE_PATH "${SOURCE_PATH}"
    OPTIONS
        -DFOUNDATION_CERTIFICATES_BUILD_TESTS=OFF
        -DFOUNDATION_CERTIFICATES_BUILD_EXAMPLES=OFF
        -DFOUNDATION_CERTIFICATES_BUILD_TOOLS=OFF
)
vcpkg_cmake_install()
vcpkg_copy_pdbs()

vcpkg_cmake_config_fixup(PACKAGE_NAME FoundationCertificates CONFIG_PATH lib/cmake/FoundationCertificates)
vcpkg_fixup_pkgconfig()
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include")

# The source tree has no license file to install as the port's copyright.
set(VCPKG_POLICY_SKIP_COPYRIGHT_CHECK enabled)
