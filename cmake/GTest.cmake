# gtest and gtest_main, built from Debian's source folder with the options of this build, including its run-time checks.

if(NOT TARGET gtest)
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
endif()

# add_gtests(<target> [<property> <value>...]) makes one CTest test for each suite in the program, because starting a program takes
# longer than most of its tests.
function(add_gtests target)
    target_precompile_headers(${target} PRIVATE <gtest/gtest.h>)
    get_target_property(sources ${target} SOURCES)
    list(FILTER sources INCLUDE REGEX "[.]cpp$")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${sources})
    foreach(source ${sources})
        file(STRINGS ${source} tests REGEX "^TEST(_F|_P)?\\(")
        list(TRANSFORM tests REPLACE "^[A-Z_]+\\(([A-Za-z0-9]+),.*" "\\1")
        list(REMOVE_DUPLICATES tests)
        foreach(suite ${tests})
            add_test(NAME ${suite} COMMAND ${target} --gtest_filter=${suite}.*)
            set_tests_properties(${suite} PROPERTIES TIMEOUT 300 ${ARGN})
        endforeach()
    endforeach()
endfunction()
