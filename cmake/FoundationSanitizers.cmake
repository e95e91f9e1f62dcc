# foundation_enable_sanitizers(TARGET): instruments the target, and whatever links it, as
# FOUNDATION_CERTIFICATES_SANITIZE says.
function(foundation_enable_sanitizers target)
    if(NOT FOUNDATION_CERTIFICATES_SANITIZE)
        return()
    endif()
    set(flags -fsanitize=${FOUNDATION_CERTIFICATES_SANITIZE} -fno-omit-frame-pointer)
    if(FOUNDATION_CERTIFICATES_SANITIZE MATCHES "undefined")
        list(APPEND flags -fno-sanitize-recover=undefined)
    endif()
    target_compile_options(${target} PUBLIC ${flags})
    if(FOUNDATION_CERTIFICATES_SANITIZE MATCHES "thread")
        # Boost.Asio has memory fences, which g++ warns that ThreadSanitizer does not see.
        target_compile_options(${target} PUBLIC $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
    endif()
    target_link_options(${target} PUBLIC ${flags})
endfunction()
