# Manual pages of the tools.

find_program(HELP2MAN help2man REQUIRED)

# Makes man/NAME.1 in the build folder, of what --help says, or man/NAME-COMMAND.1 where a command is given. summary
# stands behind the tool's name, and docs/man/NAME.h2m, where there is one, has what --help does not say.
function(add_manual tool summary)
    string(JOIN "-" name ${tool} ${ARGN})
    string(JOIN " " command ${tool} ${ARGN})
    set(page ${PROJECT_BINARY_DIR}/man/${name}.1)
    file(GLOB more CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/${name}.h2m)
    add_custom_command(
        OUTPUT ${page}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
        COMMAND ${HELP2MAN} --no-info --version-string=${PROJECT_VERSION} --name=${summary}
                --opt-include=${PROJECT_SOURCE_DIR}/docs/man/${name}.h2m --output=${page} "./${command}"
        WORKING_DIRECTORY $<TARGET_FILE_DIR:${tool}>  # help2man hands a name to the shell: spaces in a path
        DEPENDS ${tool} ${more}
        COMMENT "Making the manual page of ${command}"
        VERBATIM)
    add_custom_target(${name}_manual ALL DEPENDS ${page})
endfunction()
