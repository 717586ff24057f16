# Claim modules in their own files: the example, one that claims too much, and wrong ones.
function(kivclaim_test_module name source)
    add_library(${name} MODULE ${source})
    set_target_properties(${name} PROPERTIES
        PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/modules CXX_VISIBILITY_PRESET hidden)
    target_link_libraries(${name} PRIVATE kivclaim::kivclaim)
endfunction()

set(nvme_claim ${PROJECT_SOURCE_DIR}/examples/nvme_module/nvme_claim.cpp)
kivclaim_test_module(claims_too_much modules/claims_too_much.cpp)
kivclaim_test_module(wrong_module modules/wrong_module.cpp)
kivclaim_test_module(no_entry modules/no_entry.cpp)
kivclaim_test_module(needs_nobodys_function modules/needs_nobodys_function.cpp)
# Its symbols are bound at the first call, unless the program that loads it asks for all at once.
target_link_options(needs_nobodys_function PRIVATE -Wl,-z,lazy)
set_target_properties(needs_nobodys_function PROPERTIES CXX_VISIBILITY_PRESET default)

# The example, compiled with other options than the library.
kivclaim_test_module(no_rtti ${nvme_claim})
target_compile_options(no_rtti PRIVATE -fno-rtti)
kivclaim_test_module(debug_mode ${nvme_claim})
target_compile_definitions(debug_mode PRIVATE _GLIBCXX_DEBUG)
# With the C++ library's old string type, bypassing the header that refuses it.
kivclaim_test_module(old_strings ${nvme_claim})
target_compile_definitions(old_strings PRIVATE _GLIBCXX_USE_CXX11_ABI=0 KIVCLAIM_FRAMEWORK_ZTFI_REQUIREMENTS_H)

# The example against the header of a release with the next contract.
set(entry_header claim/kiv_claim_module_entry.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${entry_header})
file(READ ${PROJECT_SOURCE_DIR}/${entry_header} text)
string(REPLACE "kivClaimModuleContract = (1U << 8)" "kivClaimModuleContract = (2U << 8)" next_text "${text}")
if(next_text STREQUAL text)
    message(FATAL_ERROR "${entry_header} no longer says (1U << 8): write down here what the next contract is")
endif()
file(CONFIGURE OUTPUT next_contract/${entry_header} CONTENT "${next_text}" @ONLY)
kivclaim_test_module(other_contract ${nvme_claim})
target_include_directories(other_contract BEFORE PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/next_contract)

kivclaim_test(module_command_test
    SOURCES module_command_test.cpp
    LIBRARIES mock_machine process
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        EXAMPLE_HOST="$<TARGET_FILE:example_host>"
        NVME_MODULE="$<TARGET_FILE:nvme_module>"
        MODULES="${CMAKE_CURRENT_BINARY_DIR}/modules/")
add_dependencies(module_command_test
    kivclaim_command example_host nvme_module claims_too_much wrong_module no_entry needs_nobodys_function
    old_strings other_contract no_rtti debug_mode)
