# How this project's own code is compiled; third-party code does not link this target.
set(project_definitions UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
set(project_warnings -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Werror)

add_library(project_options INTERFACE)
target_compile_definitions(project_options INTERFACE ${project_definitions})
target_compile_options(project_options INTERFACE ${project_warnings})
target_include_directories(project_options INTERFACE ${PROJECT_SOURCE_DIR}/include)

# Reading these is most of a source's compile time. Every source still includes what it uses: clang-check compiles the
# volume without this. Once they are precompiled, the compiler (12) sees overruns in the standard library's wide
# strings where there are none.
target_precompile_headers(project_options INTERFACE
    <windows.h> <algorithm> <cstdint> <functional> <map> <memory> <mutex> <string> <string_view> <vector>)
target_compile_options(project_options INTERFACE -Wno-array-bounds -Wno-stringop-overread -Wno-stringop-overflow)

if(QUELCRYPT_CHECKED)
    # There is no sanitizer run-time library for this platform: a violation executes an illegal instruction.
    target_compile_options(project_options INTERFACE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
    target_compile_definitions(project_options INTERFACE _GLIBCXX_ASSERTIONS QUELCRYPT_CHECKED)
endif()
