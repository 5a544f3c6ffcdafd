# Compiles the sources with a second compiler, which has other warnings. Only this check needs it, and fails without it.
find_program(CLANG_CXX NAMES clang++-14 clang++)

# The C++ and platform headers of the cross compiler, without its own.
set(clang_check_headers ${CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES})
list(FILTER clang_check_headers EXCLUDE REGEX "/gcc/.*/include(-fixed)?$")
list(TRANSFORM clang_check_headers PREPEND -isystem)

# add_clang_check(<target> <source>...) adds a target that compiles the sources again and keeps only a mark for each.
function(add_clang_check target)
    set(definitions ${project_definitions})
    list(TRANSFORM definitions PREPEND -D)
    set(marks)
    foreach(source ${ARGN})
        file(RELATIVE_PATH name ${CMAKE_CURRENT_SOURCE_DIR} ${source})
        set(mark ${CMAKE_CURRENT_BINARY_DIR}/clang-check/${name}.checked)
        get_filename_component(folder ${mark} DIRECTORY)
        file(MAKE_DIRECTORY ${folder})
        add_custom_command(
            OUTPUT ${mark}
            COMMAND ${CLANG_CXX} --target=x86_64-w64-mingw32 -std=c++20 -fsyntax-only
                -nostdinc++ -nostdlibinc ${clang_check_headers} ${definitions}
                -I${CMAKE_CURRENT_SOURCE_DIR} -I${PROJECT_SOURCE_DIR} -I${PROJECT_SOURCE_DIR}/include ${project_warnings} -Wthread-safety
                -MD -MF ${mark}.d -MT ${mark} ${source}
            COMMAND ${CMAKE_COMMAND} -E touch ${mark}
            DEPENDS ${source}
            DEPFILE ${mark}.d
            COMMENT "Checking ${name} with clang"
            VERBATIM)
        list(APPEND marks ${mark})
    endforeach()
    add_custom_target(${target} DEPENDS ${marks})
endfunction()
