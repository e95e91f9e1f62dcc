# foundation_measure_coverage(TARGET): counts how often each line of the target runs, if
# FOUNDATION_CERTIFICATES_COVERAGE is on. The counters are atomic.
function(foundation_measure_coverage target)
    if(FOUNDATION_CERTIFICATES_COVERAGE)
        target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic -fprofile-abs-path)
        target_link_options(${target} PUBLIC --coverage)
    endif()
endfunction()
