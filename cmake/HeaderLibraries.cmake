# nlohmann_json, cli11 and boost_headers: header-only libraries of the build machine. Each gets an include folder with
# one link in it, because the folder they are installed in also has the headers of the build machine's system.
include_guard(GLOBAL)

function(add_header_library target folder)
    find_path(${target}_root ${folder} PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    set(include_folder ${PROJECT_BINARY_DIR}/header-libraries/${target})
    file(MAKE_DIRECTORY ${include_folder})
    file(CREATE_LINK ${${target}_root}/${folder} ${include_folder}/${folder} SYMBOLIC)
    add_library(${target} INTERFACE)
    target_include_directories(${target} SYSTEM INTERFACE ${include_folder})
endfunction()

add_header_library(nlohmann_json nlohmann)
add_header_library(cli11 CLI)
add_header_library(boost_headers boost)
target_link_libraries(boost_headers INTERFACE ws2_32 mswsock)
