# foundation_enable_sanitizers(TARGET): instruments the target, and all that link it, as
# FOUNDATION_CERTIFICATES_SANITIZE says. A build of the fuzz targets also gets coverage instrumentation for libFuzzer.
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
    # With instrumentation g++ has false positives: about uninitialized values, and about the memory fences of
    # Boost.Asio.
    target_compile_options(${target} PUBLIC
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized -Wno-tsan>)
    target_link_options(${target} PUBLIC ${flags})
endfunction()
