# Runs the fuzzers' seeds on every architecture, without a fuzzer.
set(fuzz ${PROJECT_SOURCE_DIR}/fuzz)

# kivclaim_seed_test(name LIBRARIES target...) feeds each file of fuzz/seeds/name to name_fuzz.cpp once.
function(kivclaim_seed_test name)
    cmake_parse_arguments(ARG "" "" "LIBRARIES" ${ARGN})
    add_executable(${name}_seeds ${fuzz}/${name}_fuzz.cpp ${fuzz}/scripted_runner.cpp seed_runner.cpp)
    target_link_libraries(${name}_seeds PRIVATE ${ARG_LIBRARIES})
    add_test(NAME FuzzSeeds.${name} COMMAND ${name}_seeds ${fuzz}/seeds/${name})
endfunction()

kivclaim_seed_test(device_path LIBRARIES kivclaim::kivclaim kivclaim::ztfi_pdk)
kivclaim_seed_test(logical_volume_list LIBRARIES kivclaim::kivclaim kivclaim::ztfi_pdk)
kivclaim_seed_test(recording LIBRARIES kivclaim_recording kivclaim::kivclaim kivclaim::ztfi_pdk)
kivclaim_seed_test(text LIBRARIES ztfi_command_runner kivclaim::ztfi_pdk)
kivclaim_seed_test(volume_manager_table LIBRARIES kivclaim::kivclaim kivclaim::ztfi_pdk)
