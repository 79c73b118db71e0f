# A toolchain for hosts as old as the 32-bit system in OLDHOST_SYSROOT, which script/sysroot unpacks: its C library,
# headers and archives are taken, and its C++ run-time is linked in. The compiler is this machine's.

set(OLDHOST_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-oldhost CACHE PATH "Where the older system is unpacked")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES OLDHOST_SYSROOT)
get_filename_component(CMAKE_SYSROOT ${OLDHOST_SYSROOT} REALPATH)
file(GLOB oldhost_runtime ${CMAKE_SYSROOT}/usr/lib/gcc/i686-linux-gnu/*/libstdc++.a)
if(NOT oldhost_runtime)
    message(FATAL_ERROR "No C++ run-time in ${CMAKE_SYSROOT}. Run script/sysroot, or set OLDHOST_SYSROOT.")
endif()
get_filename_component(oldhost_runtime ${oldhost_runtime} DIRECTORY)
get_filename_component(oldhost_gcc ${oldhost_runtime} NAME)

set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(headers ${CMAKE_SYSROOT}/usr/include)
string(JOIN " " CMAKE_CXX_FLAGS_INIT -m32 -nostdinc++ -isystem ${headers}/c++/${oldhost_gcc}
    -isystem ${headers}/i386-linux-gnu/c++/${oldhost_gcc} -isystem ${headers}/i386-linux-gnu
    -Wno-uninitialized -Wno-maybe-uninitialized)  # newer compilers find some in older headers
# -B: the code that starts a program has to be that of the C library. A newer one leaves constructors to that library.
set(libraries ${CMAKE_SYSROOT}/usr/lib)
string(JOIN " " linking -static-libstdc++ -static-libgcc -B${libraries} -L${oldhost_runtime} -L${libraries}/i386-linux-gnu
    -L${CMAKE_SYSROOT}/lib/i386-linux-gnu -Wl,--exclude-libs,libstdc++.a:libgcc.a:libgcc_eh.a)
foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "${linking}")
endforeach()
