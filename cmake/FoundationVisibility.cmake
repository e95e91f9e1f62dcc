include(CheckLinkerFlag)

# foundation_hide_internals(TARGET): a shared library shows the names that are declared for export, and no others.
# Templates of other libraries, which come in with default visibility, are left to the linker to hide, where it can.
function(foundation_hide_internals target)
    set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    set(map ${PROJECT_SOURCE_DIR}/cmake/exported-names.map)
    check_linker_flag(CXX "LINKER:--version-script=${map}" FOUNDATION_LINKER_HAS_VERSION_SCRIPTS)
    if(BUILD_SHARED_LIBS AND FOUNDATION_LINKER_HAS_VERSION_SCRIPTS)
        target_link_options(${target} PRIVATE "LINKER:--version-script=${map}")
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
    endif()
endfunction()
