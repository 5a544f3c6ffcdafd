# Third-party libraries that Debian has no Windows build of: their Debian source packages, built once at configure time
# and shared by all build folders, without the run-time checks of the mingw-checked preset, which are for this project's code.
include_guard(GLOBAL)

# add_third_party(<package> <target> BUILD <target of the package> ARCHIVE <path in its build folder>
#                 INCLUDE <folder in its source> [SUBFOLDER <of the source to build>] OPTIONS <option>...)
# defines the imported static library <target>. Options are for CMake, or for configure if the package does not use CMake.
function(add_third_party package target)
    cmake_parse_arguments(arg "" "SUBFOLDER;BUILD;ARCHIVE;INCLUDE" "OPTIONS" ${ARGN})
    set(folder ${PROJECT_SOURCE_DIR}/build/third-party)
    set(source ${folder}/sources/${package})
    set(build ${folder}/${package})
    set(stamp ${build}/recipe)
    set(recipe "${ARGN};${CMAKE_CXX_COMPILER_VERSION}")

    file(MAKE_DIRECTORY ${folder})
    file(LOCK ${folder}/lock GUARD FUNCTION)
    if(NOT EXISTS ${source})
        message(STATUS "Fetching the source of ${package}")
        execute_process(COMMAND ${PROJECT_SOURCE_DIR}/cmake/fetch-source ${package} ${source}
            COMMAND_ERROR_IS_FATAL ANY)
    endif()
    if(EXISTS ${stamp})
        file(READ ${stamp} built)
    endif()
    if(NOT "${built}" STREQUAL "${recipe}")
        message(STATUS "Building ${package}")
        build_third_party(${source}/${arg_SUBFOLDER} ${build} ${arg_BUILD} ${arg_OPTIONS})
        file(WRITE ${stamp} "${recipe}")
    endif()

    add_library(${target} STATIC IMPORTED GLOBAL)
    set_target_properties(${target} PROPERTIES
        IMPORTED_LOCATION ${build}/${arg_ARCHIVE}
        INTERFACE_INCLUDE_DIRECTORIES ${source}/${arg_INCLUDE})
endfunction()

function(build_third_party source build target)
    file(REMOVE_RECURSE ${build})
    file(MAKE_DIRECTORY ${build})
    if(EXISTS ${source}/CMakeLists.txt)
        # Checks that run a program need the emulator; without one this version of CMake crashes.
        string(REPLACE ";" "\\;" emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
        set(configure_command ${CMAKE_COMMAND} -S ${source} -B ${build} -G ${CMAKE_GENERATOR} --toolchain ${CMAKE_TOOLCHAIN_FILE}
            -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF -DCMAKE_CROSSCOMPILING_EMULATOR=${emulator} ${ARGN})
        set(build_command ${CMAKE_COMMAND} --build ${build} --parallel 2 --target ${target})
    else()
        set(configure_command ${source}/configure --host=x86_64-w64-mingw32 --disable-shared CC=${CMAKE_C_COMPILER} ${ARGN})
        set(build_command make -j2 ${target})
    endif()
    foreach(step configure build)
        set(log ${build}/${step}.log)
        execute_process(COMMAND ${${step}_command} WORKING_DIRECTORY ${build}
            OUTPUT_FILE ${log} ERROR_FILE ${log} RESULT_VARIABLE failed)
        if(failed)
            message(FATAL_ERROR "${source} could not be built, see ${log}")
        endif()
    endforeach()
endfunction()
