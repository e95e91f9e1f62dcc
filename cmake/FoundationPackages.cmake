# The Debian packages of `cpack -G DEB`: one with what programs need to run, one with what they need to build. Both
# contain the toolkit. The second also contains the static libraries if scripts/make-packages passes both builds to
# CPack. A third one contains the program foundation-certs, and a fourth one the documentation's site if
# FOUNDATION_CERTIFICATES_SITE names its folder. That script also adds what every Debian package has to contain.
set(CPACK_PACKAGE_NAME foundation-certificates)
set(CPACK_PACKAGE_CONTACT "Foundation Certificates maintainers <maintainers@foundation.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development)
if(FOUNDATION_CERTIFICATES_BUILD_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL program)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)

set(runtimePackage libfoundation-certificates${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtimePackage})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/foundation/certificates ${PROJECT_BINARY_DIR}/foundation/log
    ${PROJECT_BINARY_DIR}/foundation/toolkit)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Certificates, chains, trust stores, validation, revocation
lists, PKCS#7 and PKCS#12 as values that can be copied, compared and printed;
and the toolkit beside it.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libfoundation-certificates-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${runtimePackage} (= ${PROJECT_VERSION}), libboost-log-dev, libssl-dev (>= 3.0)")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers, libraries, the CMake package
FoundationCertificates and the pkg-config files foundation-certificates and
foundation-toolkit.")

set(FOUNDATION_CERTIFICATES_SITE "" CACHE PATH "Folder of the documentation's site, from scripts/docs")
if(FOUNDATION_CERTIFICATES_SITE)
    set(documentationPackage libfoundation-certificates-doc)
    list(APPEND CPACK_COMPONENTS_ALL documentation)
    set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME ${documentationPackage})
    set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
    set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
    set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION "Guides and reference of
foundation::certificates as web pages in
/usr/share/doc/${documentationPackage}/html.")
    install(DIRECTORY ${FOUNDATION_CERTIFICATES_SITE}/ DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${documentationPackage}/html
        COMPONENT documentation)
endif()

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME foundation-certs)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "${runtimePackage} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION "The command foundation-certs, which shows, checks and makes
certificates; its manual page, and completions for bash and zsh.")

include(CPack)
