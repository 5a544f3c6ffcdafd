# add_import_library(<target> <name> <def>) makes an imported target to link against <name>.dll from its .def file alone.
# At run time the library in the module's folder is used.
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
