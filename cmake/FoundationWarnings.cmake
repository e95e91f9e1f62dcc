# foundation_enable_warnings(TARGET): enables the warnings for the project's own code.
function(foundation_enable_warnings target)
    if(MSVC)
        target_compile_options(${target} PRIVATE /W4 $<$<BOOL:${FOUNDATION_CERTIFICATES_WARNINGS_AS_ERRORS}>:/WX>)
    else()
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wconversion -Wshadow
            $<$<BOOL:${FOUNDATION_CERTIFICATES_WARNINGS_AS_ERRORS}>:-Werror>)
    endif()
    # Releases after OpenSSL 3.0 deprecate calls that 3.0 has no other name for.
    target_compile_definitions(${target} PRIVATE OPENSSL_API_COMPAT=30000)
endfunction()
