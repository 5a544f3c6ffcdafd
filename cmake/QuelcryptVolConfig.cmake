# find_package(QuelcryptVol) defines QuelcryptVol::QuelcryptVol: the headers, and QuelcryptVol64.dll with its import library.
# At run time the DLL and a QuelcryptLib64.dll must be in the program's folder.
get_filename_component(prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
if(NOT TARGET QuelcryptVol::QuelcryptVol)
    add_library(QuelcryptVol::QuelcryptVol SHARED IMPORTED)
    set_target_properties(QuelcryptVol::QuelcryptVol PROPERTIES
        IMPORTED_LOCATION ${prefix}/bin/QuelcryptVol64.dll
        IMPORTED_IMPLIB ${prefix}/lib/QuelcryptVol64.lib
        INTERFACE_INCLUDE_DIRECTORIES ${prefix}/include)
endif()
