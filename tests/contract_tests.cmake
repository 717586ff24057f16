# The contract with hosts: tables, sizes, symbols, types, installed files.
set(contract ${PROJECT_SOURCE_DIR}/contract)
set(contract_scripts ${CMAKE_CURRENT_SOURCE_DIR}/contract)
set(plug_in_name libkivclaim.so.1)
set(host_name libztfi_pdk.so.4.4)
set(kernel_name libkivclaim_kernel.so.1)

kivclaim_test(contract_test PREFIX Contract.${CMAKE_CXX_COMPILER_ID}.
    SOURCES slot_order_test.cpp type_sizes_test.cpp ${recording_string_tool}
    LIBRARIES kivclaim::kivclaim recording_host
    DEFINITIONS KIVCLAIM_SOURCE="${PROJECT_SOURCE_DIR}")

# The golden lists belong to the release build; other builds may contain other parts of the header code.
set(is_shipped_build FALSE)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT KIVCLAIM_SANITIZERS
   AND CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    set(is_shipped_build TRUE)
endif()

set(mode any-build)
if(is_shipped_build)
    set(mode shipped-build)
endif()
add_test(NAME Contract.ExportedSymbolsOfThePlugIn
         COMMAND ${contract_scripts}/check_symbols.sh ${mode} ${contract}/${plug_in_name}.symbols
                 $<TARGET_FILE:kivclaim>)
add_test(NAME Contract.ExportedSymbolsOfTheHostFramework
         COMMAND ${contract_scripts}/check_symbols.sh ${mode} ${contract}/${host_name}.symbols $<TARGET_FILE:ztfi_pdk>)
add_test(NAME Contract.ExportedSymbolsOfTheKernelFacts
         COMMAND ${contract_scripts}/check_symbols.sh ${mode} ${contract}/${kernel_name}.symbols
                 $<TARGET_FILE:kivclaim_kernel>)

if(NOT is_shipped_build)
    return()
endif()

add_test(NAME Contract.TypesOfThePlugIn
         COMMAND ${contract_scripts}/check_abi.sh ${contract}/${plug_in_name}.abi $<TARGET_FILE:kivclaim>)
add_test(NAME Contract.TypesOfTheHostFramework
         COMMAND ${contract_scripts}/check_abi.sh ${contract}/${host_name}.abi $<TARGET_FILE:ztfi_pdk>)
add_test(NAME Contract.TypesOfTheKernelFacts
         COMMAND ${contract_scripts}/check_abi.sh ${contract}/${kernel_name}.abi $<TARGET_FILE:kivclaim_kernel>)

# kivclaim_guard_test(name alteration) shows that a check notices an alteration.
function(kivclaim_guard_test name alteration)
    add_test(NAME Contract.Guard.${name}
             COMMAND ${contract_scripts}/guard_test.sh ${alteration} ${KIVCLAIM_RELEASE_SOURCE} $<TARGET_FILE:ztfi_pdk>)
    set_tests_properties(Contract.Guard.${name} PROPERTIES TIMEOUT 600 LABELS long)
endfunction()

kivclaim_guard_test(NothingIsSeenWhereNothingChanged nothing)
kivclaim_guard_test(TheDumpShowsSwappedSlotsOfAModule swapped_slots)
kivclaim_guard_test(TheDumpShowsSwappedSlotsOfTheManager swapped_slots_of_the_manager)
kivclaim_guard_test(TheDumpShowsSwappedSlotsOfTheReferenceCount swapped_slots_of_the_reference_count)
kivclaim_guard_test(TheDumpShowsANewField new_field)
kivclaim_guard_test(TheDumpShowsANewFieldOfTheRunner new_field_of_the_runner)
kivclaim_guard_test(TheDumpShowsAnotherClaimLevel other_claim_level)
kivclaim_guard_test(TheSymbolListShowsALostExport lost_export)
kivclaim_guard_test(TheSymbolListShowsAnUnwantedExport unwanted_export)
kivclaim_guard_test(TheSymbolListShowsAnotherParameter other_parameter)

# The installed files, and each installed header alone.
set(installed ${PROJECT_BINARY_DIR}/installed)
add_test(NAME Contract.Installing COMMAND ${contract_scripts}/install.sh ${PROJECT_BINARY_DIR} ${installed})
set_tests_properties(Contract.Installing PROPERTIES FIXTURES_SETUP installed)
add_test(NAME Contract.InstalledFiles
         COMMAND ${contract_scripts}/installed_tree_test.sh ${PROJECT_BINARY_DIR} ${installed})
set_tests_properties(Contract.InstalledFiles PROPERTIES FIXTURES_REQUIRED installed)
add_test(NAME Contract.AMovedInstallationIsFound
         COMMAND ${contract_scripts}/moved_tree_test.sh ${installed} ${CMAKE_CXX_COMPILER})
set_tests_properties(Contract.AMovedInstallationIsFound PROPERTIES FIXTURES_REQUIRED installed)

foreach(compiler IN ITEMS g++ clang++)
    set(name Contract.Header.DerivedClasses.${compiler})
    add_test(NAME ${name}
             COMMAND ${contract_scripts}/header_test.sh ${compiler} c++17 ${installed} claim/kiv_claim_manager.h
                     ${contract_scripts}/derived_classes.cpp)
    set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED installed)
endforeach()

get_property(headers GLOBAL PROPERTY KIVCLAIM_PUBLIC_HEADERS)
foreach(header IN LISTS headers)
    foreach(compiler IN ITEMS g++ clang++)
        set(name Contract.RefusedSettings.${header}.${compiler})
        add_test(NAME ${name}
                 COMMAND ${contract_scripts}/refused_settings_test.sh ${compiler} ${installed} ${header})
        set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED installed)
        foreach(standard IN ITEMS c++17 c++20)
            set(name Contract.Header.${header}.${compiler}.${standard})
            add_test(NAME ${name}
                     COMMAND ${contract_scripts}/header_test.sh ${compiler} ${standard} ${installed} ${header})
            set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED installed)
        endforeach()
    endforeach()
endforeach()
