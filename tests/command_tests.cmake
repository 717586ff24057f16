# The command and the example host as processes.
kivclaim_test(command_test
    SOURCES command_test.cpp
    LIBRARIES process
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        KIVCLAIM_LIBRARY="$<TARGET_FILE:kivclaim>"
        EXAMPLE_HOST="$<TARGET_FILE:example_host>"
        KIVCLAIM_SOURCE="${PROJECT_SOURCE_DIR}")
add_dependencies(command_test kivclaim_command example_host)

add_library(mock_machine OBJECT mock_machine.cpp)
target_link_libraries(mock_machine PUBLIC process)

kivclaim_test(list_test
    SOURCES list_test.cpp LIBRARIES mock_machine process DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>")
add_dependencies(list_test kivclaim_command)

kivclaim_test(audit_test
    SOURCES audit_test.cpp
    LIBRARIES mock_machine process
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>" CLAIMS_TOO_MUCH="$<TARGET_FILE:claims_too_much>")
add_dependencies(audit_test kivclaim_command claims_too_much)

pkg_check_modules(UDEV REQUIRED IMPORTED_TARGET libudev)
kivclaim_test(known_quirks_test
    SOURCES
        known_quirks_test.cpp
        ${PROJECT_SOURCE_DIR}/tools/audit/expected_answers.cpp
        ${PROJECT_SOURCE_DIR}/tools/audit/known_quirks.cpp
        ${PROJECT_SOURCE_DIR}/tools/kernel_device.cpp
        ${PROJECT_SOURCE_DIR}/tools/block_devices.cpp
    LIBRARIES process kivclaim::ztfi_pdk PkgConfig::UDEV)

kivclaim_test(device_mapper_command_test
    SOURCES device_mapper_command_test.cpp
    LIBRARIES mock_machine process
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>")
add_dependencies(device_mapper_command_test kivclaim_command)

kivclaim_test(captured_machine_test
    SOURCES captured_machine_test.cpp
    LIBRARIES process captured_releases
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        KIVCLAIM_LAB_RELEASES="${PROJECT_SOURCE_DIR}/lab/releases"
        KIVCLAIM_UNPACK_MACHINE="${CMAKE_CURRENT_SOURCE_DIR}/unpack_machine")
add_dependencies(captured_machine_test kivclaim_command)
