# The checks of other modules and hosts. Without sanitizers: their runtime must be loaded first, and the loader's
# answers would be the same.
if(KIVCLAIM_SANITIZERS)
    return()
endif()
set(tools ${PROJECT_SOURCE_DIR}/tools)
kivclaim_test(check_command_test
    SOURCES check_command_test.cpp ${tools}/checked_process.cpp ${tools}/watch.cpp ${tools}/watched_program.cpp
    LIBRARIES process nlohmann_json::nlohmann_json kivclaim::ztfi_pdk
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        NVME_MODULE="$<TARGET_FILE:nvme_module>"
        MODULES="${CMAKE_CURRENT_BINARY_DIR}/modules/"
        REPORTS="${CMAKE_CURRENT_BINARY_DIR}/report_on_"
        FRAMEWORK_PROCESS="$<TARGET_FILE:questions_of_framework_process>"
        PROCESS_WITHOUT_TRIM="$<TARGET_FILE:process_without_trim>"
        SECOND_HOST="$<TARGET_FILE:second_host>")
add_dependencies(check_command_test
    kivclaim_command nvme_module wrong_module no_entry other_contract no_rtti second_host
    report_on_objects report_on_archive_before report_on_hidden_objects questions_of_framework_process
    process_without_trim)
