# gtest and gtest_main, built from Debian's source folder within this build (so with its checks).

if(NOT TARGET gtest)
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
endif()
include(GoogleTest)

# add_gtests(<target> [<property> <value>...]) makes a CTest test of each test in the program. The first program to run
# in a build folder waits for its Wine prefix to be made, longer than listing tests may take otherwise.
function(add_gtests target)
    target_precompile_headers(${target} PRIVATE <gtest/gtest.h>)
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 120 ${ARGN})
endfunction()
