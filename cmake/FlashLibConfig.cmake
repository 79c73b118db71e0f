# find_package(FlashLib) gives the targets FlashLib::FlashLib, the library, FlashLib::Host, the host program that
# components share, and the tools; add_component, add_package and add_microcode, which FlashLibComponents.cmake explains.
# For the closed libraries they use the maker's where ZALXML_LIBRARY, ZALFTBL_LIBRARY and
# ZALCI_LIBRARY name them, else those that were installed with the library.

include("${CMAKE_CURRENT_LIST_DIR}/FlashLibTargets.cmake")

foreach(_flashlib_name zalxml zalftbl zalci)
    if(NOT TARGET FlashLib::${_flashlib_name})
        string(TOUPPER ${_flashlib_name}_LIBRARY _flashlib_makers)
        set(_flashlib_file "${${_flashlib_makers}}")
        if(NOT _flashlib_file)
            get_filename_component(_flashlib_file
                "${CMAKE_CURRENT_LIST_DIR}/../../lib${_flashlib_name}.so" ABSOLUTE)
        endif()
        add_library(FlashLib::${_flashlib_name} SHARED IMPORTED)
        set_target_properties(FlashLib::${_flashlib_name} PROPERTIES IMPORTED_LOCATION "${_flashlib_file}")
        target_link_libraries(FlashLib::FlashLib INTERFACE FlashLib::${_flashlib_name})
    endif()
endforeach()

include("${CMAKE_CURRENT_LIST_DIR}/FlashLibComponents.cmake")
