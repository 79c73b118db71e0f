# Microcode of the simulated server's power controllers.

find_program(SREC_CAT srec_cat REQUIRED)

# Makes file, an Intel HEX text of microcode for controllers of a family (as server.json names it), and image, the same
# in binary. An I2C transaction takes the records of 16 data bytes; those of 32 would not fit.
function(add_microcode file image family version size)
    add_custom_command(
        OUTPUT ${file} ${image}
        COMMAND FlashLib::mkdevice --handler ${family} --version ${version} --size ${size} --image ${image}
        COMMAND ${SREC_CAT} ${image} -Binary -offset 0x1000 -o ${file} -Intel -obs=16
        DEPENDS FlashLib::mkdevice
        COMMENT "Making the ${family} microcode ${version}")
endfunction()
