# foundation_enable_sanitizers(TARGET): instruments the target, and whatever links it, as
# FOUNDATION_CERTIFICATES_SANITIZE says; in a build of the fuzz targets also to tell which code an input reached.
function(foundation_enable_sanitizers target)
    if(FOUNDATION_CERTIFICATES_BUILD_FUZZERS)
        target_compile_options(${target} PUBLIC -fsanitize=fuzzer-no-link)
    endif()
    if(NOT FOUNDATION_CERTIFICATES_SANITIZE)
        return()
    endif()
    set(flags -fsanitize=${FOUNDATION_CERTIFICATES_SANITIZE} -fno-omit-frame-pointer)
    if(FOUNDATION_CERTIFICATES_SANITIZE MATCHES "undefined")
        list(APPEND flags -fno-sanitize-recover=undefined)
    endif()
    target_compile_options(${target} PUBLIC ${flags})
    # Instrumented, g++ warns without cause: of values that it can no longer see being set, and of
    # the memory fences of Boost.Asio.
    target_compile_options(${target} PUBLIC
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized -Wno-tsan>)
    target_link_options(${target} PUBLIC ${flags})
endfunction()
