# How components are built, here and by authors who have FlashLib installed. A component's sources are in a folder of
# its name, the templates of its package in package/ there. What is to be shipped, the installer, the package
# description, the settings and the image, goes to packages/NAME in the build folder.

# Adds a component's installer, from its sources.
function(add_component name)
    list(TRANSFORM ARGN PREPEND ${name}/)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE FlashLib::Host)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/packages/${name})
endfunction()

# Adds the other files of its package: the image, which COMMAND makes unless something else does, and the filled-in
# templates. SET: what @NAME@ stands for in them, names and values in turn.
function(add_package name image)
    cmake_parse_arguments(ARG "" "" "COMMAND;SET" ${ARGN})
    set(folder ${PROJECT_BINARY_DIR}/packages/${name})
    set(description qx${name}.xml)
    set(templates ${CMAKE_CURRENT_SOURCE_DIR}/${name}/package)
    file(MAKE_DIRECTORY ${folder})
    if(ARG_COMMAND)
        list(GET ARG_COMMAND 0 tool)
        add_custom_command(
            OUTPUT ${folder}/${image}
            COMMAND ${ARG_COMMAND} --image ${folder}/${image}
            DEPENDS ${tool}
            VERBATIM)
    endif()
    add_custom_command(
        OUTPUT ${folder}/${description} ${folder}/settings.ini
        COMMAND FlashLib::mkpackage --image ${folder}/${image} --set FILE ${image} ${ARG_SET}
                --fill ${templates}/${description}.in ${folder}/${description}
                --fill ${templates}/settings.ini.in ${folder}/settings.ini
        DEPENDS FlashLib::mkpackage ${folder}/${image} ${templates}/${description}.in ${templates}/settings.ini.in
        COMMENT "Making the package ${name}"
        VERBATIM)
    add_custom_target(${name}_package ALL DEPENDS ${folder}/${image} ${folder}/${description} ${folder}/settings.ini)
endfunction()

# Makes file, an Intel HEX text of microcode for power controllers of a family (as server.json names it), and image, the
# same in binary. An I2C transaction takes the records of 16 data bytes; those of 32 would not fit. Needs srecord.
function(add_microcode file image family version size)
    find_program(SREC_CAT srec_cat REQUIRED)
    add_custom_command(
        OUTPUT ${file} ${image}
        COMMAND FlashLib::mkdevice --handler ${family} --version ${version} --size ${size} --image ${image}
        COMMAND ${SREC_CAT} ${image} -Binary -offset 0x1000 -o ${file} -Intel -obs=16
        DEPENDS FlashLib::mkdevice
        COMMENT "Making the ${family} microcode ${version}"
        VERBATIM)
endfunction()
