# Compiler and linker options of every target.

add_compile_options(-Wall -Wextra -Wconversion -Wshadow -Wnon-virtual-dtor -Wimplicit-fallthrough -Werror)
# Files larger than 2 GiB and 64-bit inode numbers must not fail in a 32-bit process.
add_compile_definitions(_FILE_OFFSET_BITS=64)

if(FLASHLIB_32BIT)
    add_compile_options(-m32)
    add_link_options(-m32)
    # Doubles in SSE registers, as everywhere else.
    add_compile_options(-msse2 -mfpmath=sse)
endif()

if(FLASHLIB_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
    add_library(sanitizer OBJECT cmake/sanitizer.cpp)
    link_libraries("$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:$<TARGET_OBJECTS:sanitizer>>")
endif()

add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
