# What is not ours, as far as it is needed. script/bootstrap installs all of it.

set(SYSROOT_I386 "${PROJECT_SOURCE_DIR}/build/sysroot-i386" CACHE PATH "Where script/bootstrap unpacks 32-bit libraries")
set(GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest's sources")

# Adds the target of a 32-bit library by its file and header in the sysroot.
function(add_library_i386 name file header)
    string(TOUPPER ${name}32 prefix)
    find_library(${prefix}_LIBRARY ${file} PATHS "${SYSROOT_I386}/usr/lib/i386-linux-gnu" NO_DEFAULT_PATH)
    if(NOT ${prefix}_LIBRARY)
        message(FATAL_ERROR "No 32-bit ${name} in ${SYSROOT_I386}. Run script/bootstrap (with --bench for the "
                            "measurements), point ${prefix}_LIBRARY at your own, or use the preset 'native'.")
    endif()
    find_path(${prefix}_INCLUDE_DIR ${header} PATHS "${SYSROOT_I386}/usr/include" NO_DEFAULT_PATH REQUIRED)
    add_library(${name} UNKNOWN IMPORTED)
    set_target_properties(${name} PROPERTIES IMPORTED_LOCATION "${${prefix}_LIBRARY}"
                                             INTERFACE_INCLUDE_DIRECTORIES "${${prefix}_INCLUDE_DIR}")
endfunction()

# The same for a native build, of an archive of the system.
function(add_library_native name file header)
    string(TOUPPER ${name} prefix)
    find_library(${prefix}_LIBRARY ${file} REQUIRED)
    find_path(${prefix}_INCLUDE_DIR ${header} REQUIRED)
    add_library(${name} UNKNOWN IMPORTED)
    set_target_properties(${name} PROPERTIES IMPORTED_LOCATION "${${prefix}_LIBRARY}"
                                             INTERFACE_INCLUDE_DIRECTORIES "${${prefix}_INCLUDE_DIR}")
endfunction()

if(FLASHLIB_PLATFORM AND FLASHLIB_32BIT)
    # The archive: libzalxml.so then needs no 32-bit Expat on the host it runs on.
    add_library_i386(Expat libexpat.a expat.h)
elseif(FLASHLIB_PLATFORM)
    find_package(EXPAT 2.4 REQUIRED)
    add_library(Expat ALIAS EXPAT::EXPAT)
endif()

if(FLASHLIB_SIMULATOR)
    # Headers only: those for 64 bits do.
    find_package(nlohmann_json REQUIRED CONFIG)
    find_package(CLI11 REQUIRED CONFIG)
endif()

if(FLASHLIB_TOOLS AND FLASHLIB_32BIT)
    # Archives, for the same reason.
    add_library_i386(Sodium libsodium.a sodium.h)
    add_library_i386(SQLite libsqlite3.a sqlite3.h)
elseif(FLASHLIB_TOOLS)
    add_library_native(Sodium libsodium.a sodium.h)
    add_library_native(SQLite libsqlite3.a sqlite3.h)
endif()
if(FLASHLIB_TOOLS)
    # What the archive needs itself.
    set_target_properties(SQLite PROPERTIES INTERFACE_LINK_LIBRARIES "m;${CMAKE_DL_LIBS};pthread")
endif()

if(FLASHLIB_BENCH AND FLASHLIB_32BIT)
    add_library_i386(Zlib libz.a zlib.h)
    add_library_i386(MuParser libmuparser.so muParserInt.h)
elseif(FLASHLIB_BENCH)
    find_package(ZLIB REQUIRED)
    add_library(Zlib ALIAS ZLIB::ZLIB)
    find_package(muparser REQUIRED)
    add_library(MuParser ALIAS muparser::muparser)
endif()
