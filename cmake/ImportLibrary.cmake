# add_import_library(<target> <name> <def>) makes an imported target to link against <name>.dll, knowing only its .def
# file. Which library stands beside the module at run time is decided by the folder it is deployed to.
function(add_import_library target name def)
    set(archive ${CMAKE_CURRENT_BINARY_DIR}/lib${name}.a)
    add_custom_command(
        OUTPUT ${archive}
        COMMAND ${CMAKE_DLLTOOL} -m i386:x86-64 -d ${def} -l ${archive}
        DEPENDS ${def}
        COMMENT "Making the import library of ${name}.dll"
        VERBATIM)
    add_custom_target(${target}_archive DEPENDS ${archive})
    add_library(${target} SHARED IMPORTED GLOBAL)
    set_target_properties(${target} PROPERTIES IMPORTED_IMPLIB ${archive})
    add_dependencies(${target} ${target}_archive)
endfunction()
