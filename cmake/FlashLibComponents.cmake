# How components are built, here and by authors who have FlashLib installed. A component's sources are in a folder of
# its name, the templates of its package in package/ there. What is to be shipped, the installer, the library, the package
# description, the settings, the image, and the list of all these, goes to packages/NAME in the build folder.

set(FLASHLIB_SIGNING_KEY "" CACHE FILEPATH "minisign's secret key that packages are signed with; empty: they are not signed")

# In FlashLib's own tree, or installed.
find_program(FLASHLIB_MANIFEST NAMES manifest flashlib-manifest REQUIRED NO_DEFAULT_PATH
    PATHS ${CMAKE_CURRENT_LIST_DIR}/../tools/authoring ${CMAKE_CURRENT_LIST_DIR}/../../../bin)
mark_as_advanced(FLASHLIB_MANIFEST)

# Adds a component's installer, from its sources. Its debug information goes to debug/NAME in the build folder, where
# zalsim --debug finds it.
function(add_component name)
    list(TRANSFORM ARGN PREPEND ${name}/)
    add_executable(${name} ${ARGN})
    # The classes that it derives from are those of a library without debug information.
    target_compile_options(${name} PRIVATE -g $<$<CXX_COMPILER_ID:GNU>:-femit-class-debug-always>
                                           $<$<CXX_COMPILER_ID:Clang>:-fstandalone-debug>)
    target_link_libraries(${name} PRIVATE FlashLib::Host)
    # It finds the library in its package, wherever that is copied to; what LD_LIBRARY_PATH names comes behind that.
    target_link_options(${name} PRIVATE -Wl,--disable-new-dtags)
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/debug
        COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:${name}> ${PROJECT_BINARY_DIR}/debug/${name}
        COMMAND "$<IF:$<CONFIG:Debug>,${CMAKE_COMMAND};-E;true,${CMAKE_STRIP}>" $<TARGET_FILE:${name}>
        COMMAND_EXPAND_LISTS VERBATIM)
    set_target_properties(${name} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/packages/${name}
        BUILD_WITH_INSTALL_RPATH TRUE
        INSTALL_RPATH "$ORIGIN")
endfunction()

# Adds the other files of its package: the library, the image, which COMMAND makes unless something else does, and the
# filled-in templates. SET: what @NAME@ stands for in them, names and values in turn; VERSION is the package's. Lists
# all that is in the folder then, and signs the list where there is a key for that.
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
    add_custom_command(
        OUTPUT ${folder}/libflash.so.1
        COMMAND ${CMAKE_STRIP} --strip-unneeded -o ${folder}/libflash.so.1 $<TARGET_FILE:FlashLib::FlashLib>
        COMMAND chmod 644 ${folder}/libflash.so.1
        DEPENDS $<TARGET_FILE:FlashLib::FlashLib>
        VERBATIM)
    set(files ${folder}/libflash.so.1 ${folder}/${image} ${folder}/${description} ${folder}/settings.ini)

    list(FIND ARG_SET VERSION place)
    if(place EQUAL -1)
        message(FATAL_ERROR "The package ${name} has no version: SET names no VERSION.")
    endif()
    math(EXPR place "${place} + 1")
    list(GET ARG_SET ${place} version)
    set(sign)
    if(FLASHLIB_SIGNING_KEY)
        find_program(MINISIGN minisign REQUIRED)
        set(sign COMMAND ${MINISIGN} -S -s ${FLASHLIB_SIGNING_KEY} -t "${name} ${version}" -m ${folder}/MANIFEST)
    endif()
    add_custom_command(
        OUTPUT ${folder}/MANIFEST
        COMMAND ${FLASHLIB_MANIFEST} ${name} ${version} ${folder}
        ${sign}
        DEPENDS ${name} ${files} ${FLASHLIB_MANIFEST} ${FLASHLIB_SIGNING_KEY}
        COMMENT "Listing what is in the package ${name}"
        VERBATIM)
    add_custom_target(${name}_package ALL DEPENDS ${folder}/MANIFEST)
endfunction()

# Makes file, an Intel HEX text of microcode for power controllers of a family (as server.json names it), and image, the
# same in binary. An I2C transaction takes the records of 16 data bytes; those of 32 would not fit. Needs srecord.
function(add_microcode file image family version size)
    find_program(SREC_CAT srec_cat REQUIRED)
    add_custom_command(
        OUTPUT ${file} ${image}
        COMMAND FlashLib::mkdevice --handler ${family} --firmware-version ${version} --size ${size} --image ${image}
        COMMAND ${SREC_CAT} ${image} -Binary -offset 0x1000 -o ${file} -Intel -obs=16
        DEPENDS FlashLib::mkdevice
        COMMENT "Making the ${family} microcode ${version}"
        VERBATIM)
endfunction()
