# The compiler options of this project's own code; third-party code does not link this target.
set(project_definitions UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
set(project_warnings -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Werror)

add_library(project_options INTERFACE)
target_compile_definitions(project_options INTERFACE ${project_definitions})
target_compile_options(project_options INTERFACE ${project_warnings})
target_include_directories(project_options INTERFACE ${PROJECT_SOURCE_DIR}/include)

# These headers take most of a source's compile time. Every source still includes what it uses: clang-check compiles the
# volume without precompiled headers. With them, the compiler (12) gives false warnings of overruns in the standard library's
# wide strings.
target_precompile_headers(project_options INTERFACE
    <windows.h> <algorithm> <cstdint> <functional> <map> <memory> <mutex> <string> <string_view> <vector>)
target_compile_options(project_options INTERFACE -Wno-array-bounds -Wno-stringop-overread -Wno-stringop-overflow)

if(QUELCRYPT_CHECKED)
    # There is no sanitizer run-time library for this platform, so a violation executes an illegal instruction.
    target_compile_options(project_options INTERFACE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
    target_compile_definitions(project_options INTERFACE _GLIBCXX_ASSERTIONS QUELCRYPT_CHECKED)
endif()
