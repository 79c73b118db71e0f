# Compiler and linker options: every target here links them, PRIVATE, so that nobody else's gets them.
add_library(flashlib_options INTERFACE)

target_compile_options(flashlib_options INTERFACE
    -Wall -Wextra -Wconversion -Wshadow -Wnon-virtual-dtor -Wimplicit-fallthrough)
# Files larger than 2 GiB and 64-bit inode numbers must not fail in a 32-bit process.
target_compile_definitions(flashlib_options INTERFACE _FILE_OFFSET_BITS=64)
target_link_options(flashlib_options INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)

# The mode, which a program that uses the library needs, too.
if(FLASHLIB_32BIT)
    set(FLASHLIB_MODE -m32)
    target_compile_options(flashlib_options INTERFACE ${FLASHLIB_MODE})
    target_link_options(flashlib_options INTERFACE ${FLASHLIB_MODE})
    # Doubles in SSE registers, as everywhere else.
    target_compile_options(flashlib_options INTERFACE -msse2 -mfpmath=sse)
endif()

if(FLASHLIB_SANITIZE)
    target_compile_options(flashlib_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(flashlib_options INTERFACE -fsanitize=address,undefined)
    add_library(sanitizer OBJECT cmake/sanitizer.cpp)
    target_link_libraries(sanitizer PRIVATE flashlib_options)
    target_link_libraries(flashlib_options INTERFACE
        "$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:$<TARGET_OBJECTS:sanitizer>>")
endif()
