# What `cmake --install` and CPack make: one tree, which works wherever it is moved to.
#
#   bin/                        zalsim and the tools
#   include/flashlib/           the public headers; host/ has those of the host program that components share
#   lib/                        libflash.so, what stands in for the closed libraries, libflashhost.a
#   lib/cmake/, pkgconfig/      how others find these
#   lib/flashlib/               libzalsim.so, which zalsim preloads
#   lib/flashlib/packages/      packages of the sample components
#   share/bash-completion/      completion of the operators' commands
#   share/flashlib/components/  the sources of these
#   share/flashlib/fleet/       the Ansible collection
#   share/flashlib/servers/     sample servers, to be copied
#   share/flashlib/template/    what flashlib-new-component fills in
#   share/flashlib/wireshark/   what shows captures in Wireshark
#   share/man/man1/             manual pages
#   share/doc/flashlib/         changes, and the licences of what is linked in

# The debug information stays in the build folder.
install(CODE "set(CMAKE_INSTALL_DO_STRIP ON)")

install(TARGETS flash flashhost EXPORT FlashLib LIBRARY DESTINATION lib ARCHIVE DESTINATION lib)
install(CODE "execute_process(COMMAND ${CMAKE_STRIP} --strip-debug
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/libflashhost.a\" COMMAND_ERROR_IS_FATAL ANY)")  # CMake strips no archives
install(DIRECTORY include/ DESTINATION include/flashlib)
install(DIRECTORY components/host DESTINATION include/flashlib FILES_MATCHING PATTERN "*.h")
foreach(closed zalxml zalftbl zalci)
    if(TARGET ${closed})
        get_target_property(makers ${closed} IMPORTED)
        if(NOT makers)
            install(TARGETS ${closed} LIBRARY DESTINATION lib)
        endif()
    endif()
endforeach()

# Installs programs that find the libraries from where they are themselves.
function(install_programs)
    set_target_properties(${ARGN} PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
    install(TARGETS ${ARGN} EXPORT FlashLib RUNTIME DESTINATION bin)
endfunction()

if(FLASHLIB_SIMULATOR)
    install(TARGETS zalsimlib LIBRARY DESTINATION lib/flashlib)
    install(DIRECTORY sim/servers DESTINATION share/flashlib FILES_MATCHING PATTERN server.json)
    install_programs(zalsim)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/man/ DESTINATION share/man/man1 FILES_MATCHING PATTERN "*.gz")
endif()
if(FLASHLIB_TOOLS)
    install_programs(mkdevice mkpackage mkrom zaldeploy zalfaults zalrule)
    install(PROGRAMS ${PROJECT_BINARY_DIR}/tools/scripts/flashlib-manifest
                     ${PROJECT_BINARY_DIR}/tools/scripts/flashlib-new-component
                     ${PROJECT_BINARY_DIR}/tools/scripts/flashlib-rack DESTINATION bin)
    install(DIRECTORY fleet DESTINATION share/flashlib PATTERN __pycache__ EXCLUDE)
    install(FILES tools/deploy/completion.bash DESTINATION share/bash-completion/completions RENAME zaldeploy)
    install(DIRECTORY tools/authoring/template DESTINATION share/flashlib)
    install(FILES ${PROJECT_BINARY_DIR}/wireshark/flashlib.lua DESTINATION share/flashlib/wireshark)
endif()
if(FLASHLIB_COMPONENTS)
    install(DIRECTORY components DESTINATION share/flashlib PATTERN host EXCLUDE)
    foreach(component devicefw powercontroller systemrom)
        # As they are: their lists of files tell each byte.
        install(DIRECTORY ${PROJECT_BINARY_DIR}/packages/${component} DESTINATION lib/flashlib/packages
            USE_SOURCE_PERMISSIONS)
    endforeach()
endif()

if(FLASHLIB_32BIT)
    set(any_mode ARCH_INDEPENDENT)  # the target brings its mode along
endif()
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/FlashLibConfigVersion.cmake
    COMPATIBILITY SameMajorVersion ${any_mode})
install(FILES cmake/FlashLibConfig.cmake cmake/FlashLibComponents.cmake cmake/oldhost.cmake ${PROJECT_BINARY_DIR}/FlashLibConfigVersion.cmake
    DESTINATION lib/cmake/FlashLib)
install(EXPORT FlashLib NAMESPACE FlashLib:: FILE FlashLibTargets.cmake DESTINATION lib/cmake/FlashLib)

foreach(name flashlib flashlib-host)
    configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION lib/pkgconfig)
endforeach()

if(NOT PROJECT_IS_TOP_LEVEL)
    return()
endif()

# What Debian wants beside them.
set(CPACK_PACKAGE_CONTACT "FlashLib developers <flashlib@example.org>")
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/debian/changelog @ONLY CONTENT "flashlib (@PROJECT_VERSION@) unstable; urgency=medium

  * CHANGELOG.md tells what is new.

 -- @CPACK_PACKAGE_CONTACT@  @date@
")
execute_process(COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/debian/changelog COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${PROJECT_BINARY_DIR}/debian/changelog.gz cmake/debian/copyright CHANGELOG.md
    DESTINATION share/doc/flashlib)
if(FLASHLIB_32BIT)
    install(FILES cmake/debian/lintian-overrides DESTINATION share/lintian/overrides RENAME flashlib)
endif()

# The packages. Programs may need all that the C and C++ run-time of the building machine has, or of the system that is
# built for.
execute_process(COMMAND getconf GNU_LIBC_VERSION OUTPUT_VARIABLE glibc OUTPUT_STRIP_TRAILING_WHITESPACE)
string(REGEX MATCH "^[0-9]+" gcc ${CMAKE_CXX_COMPILER_VERSION})
set(cxx_runtime ", libstdc++6 (>= ${gcc}), libgcc-s1")
if(CMAKE_SYSROOT)
    file(GLOB glibc RELATIVE ${CMAKE_SYSROOT} ${CMAKE_SYSROOT}/lib/i386-linux-gnu/libc-*.so)
    set(cxx_runtime)
endif()
string(REGEX MATCH "[0-9]+\\.[0-9]+" glibc "${glibc}")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_NAME flashlib)
set(CPACK_PACKAGE_DESCRIPTION "The library that component installers are linked with, sample components, and
a simulated server on which installers run unmodified. For operators it has
zaldeploy, which brings a server's firmware up to date from signed component
packages.")
set(CPACK_SYSTEM_NAME ${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/shlibs ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= ${glibc})${cxx_runtime}, python3:any")
if(FLASHLIB_32BIT)
    set(CPACK_SYSTEM_NAME i386)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
endif()
include(CPack)
