# Manual pages of the tools.

find_program(HELP2MAN help2man REQUIRED)

# Makes man/NAME.1.gz in the build folder, of what --help says, or man/NAME-COMMAND.1.gz where a command is given. 
# summary stands behind the tool's name, and docs/man/NAME.h2m, where there is one, has what --help does not say.
function(add_manual tool summary)
    string(JOIN "-" name ${tool} ${ARGN})
    string(JOIN " " command ${tool} ${ARGN})
    set(page ${PROJECT_BINARY_DIR}/man/${name}.1)
    if(TARGET ${tool})
        set(program ${tool})
        set(folder $<TARGET_FILE_DIR:${tool}>)
    else()
        set(folder ${CMAKE_CURRENT_BINARY_DIR}/scripts)
        set(program ${folder}/${tool})
    endif()
    file(GLOB more CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/${name}.h2m)
    add_custom_command(
        OUTPUT ${page}.gz
        COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
        COMMAND ${HELP2MAN} --no-info --version-string=${PROJECT_VERSION} --name=${summary}
                --opt-include=${PROJECT_SOURCE_DIR}/docs/man/${name}.h2m --output=${page} "./${command}"
        COMMAND sed -i "2,/^.SH SYNOPSIS/s/^${command} /${name} /" ${page}  # man looks for one word
        COMMAND gzip -9nf ${page}
        WORKING_DIRECTORY ${folder}  # help2man hands a name to the shell: spaces in a path
        DEPENDS ${program} ${more}
        COMMENT "Making the manual page of ${command}"
        VERBATIM)
    add_custom_target(${name}_manual ALL DEPENDS ${page}.gz)
endfunction()

# Adds a script, with its manual page, that is installed under that name. The version is put into it.
function(add_script script name summary)
    foreach(word Component component handler)
        set(${word} "@${word}@")  # is the script's
    endforeach()
    configure_file(${script} scripts/${name} @ONLY)
    add_manual(${name} ${summary})
endfunction()
