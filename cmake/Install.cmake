# "cmake --install" installs everything that a host is built against; "--target package" puts that, quelvol, the tests and the
# licence texts of the linked libraries into a ZIP file for Windows.
include(CMakePackageConfigHelpers)

install(DIRECTORY include/quelcrypt DESTINATION include)
install(TARGETS QuelcryptVol64 RUNTIME DESTINATION bin)
install(TARGETS QuelcryptLib64 quelvol companion_conformance RUNTIME DESTINATION bin)
# Both compilers can link with it; for another linker, make one from the .def file: lib /def:QuelcryptVol64.def /machine:x64
install(FILES $<TARGET_LINKER_FILE:QuelcryptVol64> DESTINATION lib RENAME QuelcryptVol64.lib)
install(FILES src/QuelcryptVol64.def DESTINATION lib)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuelcryptVolConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/QuelcryptVolConfig.cmake ${PROJECT_BINARY_DIR}/QuelcryptVolConfigVersion.cmake
    DESTINATION lib/cmake/QuelcryptVol)
install(DIRECTORY examples DESTINATION .)
install(FILES README.md CONTRIBUTING.md DESTINATION .)
install(DIRECTORY docs/ DESTINATION docs FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")

# The licence texts of each library, from Debian's packages and from the source packages.
foreach(package libz-mingw-w64-dev libboost1.81-dev nlohmann-json3-dev libcli11-dev mingw-w64-common gcc-mingw-w64-base)
    install(FILES /usr/share/doc/${package}/copyright DESTINATION licences RENAME ${package}.txt)
endforeach()
foreach(source nettle expat)
    install(FILES ${PROJECT_SOURCE_DIR}/build/third-party/sources/${source}/debian/copyright DESTINATION licences RENAME ${source}.txt)
endforeach()

if(BUILD_TESTING)
    install(FILES /usr/share/doc/googletest/copyright DESTINATION licences RENAME googletest.txt)
    install(TARGETS volume_tests unit_tests TestCompanion QuelcryptVol64 RUNTIME DESTINATION tests)
    install(TARGETS companion_tests host_tests webdav_tests QuelcryptVol64 QuelcryptLib64 RUNTIME DESTINATION tests/parts)
    install(TARGETS explorer ExplorerCompanion QuelcryptVol64 RUNTIME DESTINATION tests/explorer)
    foreach(program volume_tests unit_tests companion_tests host_tests webdav_tests explorer)
        add_version_resource(${program} ${program}.exe "Tests of the virtual volume")
    endforeach()
    foreach(library TestCompanion ExplorerCompanion)
        add_version_resource(${library} QuelcryptLib64.dll "A companion library for tests of the virtual volume")
    endforeach()
    install(FILES tests/windows/run-tests.cmd tests/companion/conformance.json DESTINATION tests)
endif()

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME QuelcryptVol-${PROJECT_VERSION}-win64)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
