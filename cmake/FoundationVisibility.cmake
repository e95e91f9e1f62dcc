include(CheckLinkerFlag)

# foundation_hide_internals(TARGET [MAP]): makes a shared library export only the declared symbols. Templates of other
# libraries have default visibility, so the linker hides them where it can. MAP is the linker's list of exported names,
# cmake/exported-names.map by default. Tests and fuzz targets use internal classes, so a build with them hides nothing.
function(foundation_hide_internals target)
    if(FOUNDATION_CERTIFICATES_BUILD_TESTS OR FOUNDATION_CERTIFICATES_BUILD_FUZZERS)
        return()
    endif()
    set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    set(map ${PROJECT_SOURCE_DIR}/cmake/exported-names.map)
    if(ARGN)
        set(map ${ARGN})
    endif()
    check_linker_flag(CXX "LINKER:--version-script=${map}" FOUNDATION_LINKER_HAS_VERSION_SCRIPTS)
    if(BUILD_SHARED_LIBS AND FOUNDATION_LINKER_HAS_VERSION_SCRIPTS)
        target_link_options(${target} PRIVATE "LINKER:--version-script=${map}")
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
    endif()
endfunction()
