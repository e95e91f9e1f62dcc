# foundation_set_up_library(TARGET): what the installed libraries have in common. foundation_log becomes foundation::log
# with the headers in `include`, the generated header <foundation/log/export.hpp> and the project's version.
function(foundation_set_up_library target)
    string(REPLACE foundation_ "" name ${target})
    string(TOUPPER ${target} prefix)
    add_library(foundation::${name} ALIAS ${target})
    generate_export_header(${target}
        BASE_NAME ${prefix}
        EXPORT_FILE_NAME include/foundation/${name}/export.hpp)
    target_compile_features(${target} PUBLIC cxx_std_17)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
        $<BUILD_INTERFACE:${CMAKE_CURRENT_BINARY_DIR}/include>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    if(NOT BUILD_SHARED_LIBS)
        target_compile_definitions(${target} PUBLIC ${prefix}_STATIC_DEFINE)
    endif()
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${name}
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    foundation_set_up_objects(${target})
endfunction()

# foundation_set_up_objects(TARGET): how the sources of installed libraries are compiled.
function(foundation_set_up_objects target)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_EXTENSIONS OFF)
    foundation_enable_warnings(${target})
    foundation_enable_sanitizers(${target})
    foundation_measure_coverage(${target})
endfunction()
