# What is not ours. script/bootstrap installs all of it.

set(SYSROOT_I386 "${CMAKE_SOURCE_DIR}/build/sysroot-i386" CACHE PATH "Where script/bootstrap unpacks the 32-bit Expat")
set(GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest's sources")

if(FLASHLIB_32BIT)
    # The archive: libzalxml.so then needs no 32-bit Expat on the host it runs on.
    find_library(EXPAT32_LIBRARY libexpat.a PATHS "${SYSROOT_I386}/usr/lib/i386-linux-gnu" NO_DEFAULT_PATH)
    if(NOT EXPAT32_LIBRARY)
        message(FATAL_ERROR "No 32-bit Expat in ${SYSROOT_I386}. Run script/bootstrap, point EXPAT32_LIBRARY at your "
                            "own, or use the preset 'native'.")
    endif()
    find_path(EXPAT32_INCLUDE_DIR expat.h PATHS "${SYSROOT_I386}/usr/include" NO_DEFAULT_PATH REQUIRED)
    add_library(Expat STATIC IMPORTED)
    set_target_properties(Expat PROPERTIES IMPORTED_LOCATION "${EXPAT32_LIBRARY}"
                                           INTERFACE_INCLUDE_DIRECTORIES "${EXPAT32_INCLUDE_DIR}")
else()
    find_package(EXPAT 2.4 REQUIRED)
    add_library(Expat ALIAS EXPAT::EXPAT)
endif()

# Headers only.
find_path(NLOHMANN_JSON_INCLUDE_DIR nlohmann/json.hpp REQUIRED)
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED)
