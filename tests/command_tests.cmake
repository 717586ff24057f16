# The command and the example host as processes.
kivclaim_test(command_test
    SOURCES command_test.cpp
    LIBRARIES process
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        KIVCLAIM_VERSION="${PROJECT_VERSION}"
        KIVCLAIM_LIBRARY="$<TARGET_FILE:kivclaim>"
        EXAMPLE_HOST="$<TARGET_FILE:example_host>"
        KIVCLAIM_SOURCE="${PROJECT_SOURCE_DIR}")
add_dependencies(command_test kivclaim_command example_host)

add_library(mock_machine OBJECT mock_machine.cpp)
target_link_libraries(mock_machine PUBLIC process)

kivclaim_test(list_test
    SOURCES list_test.cpp LIBRARIES mock_machine process DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>")
add_dependencies(list_test kivclaim_command)

find_package(nlohmann_json REQUIRED)
kivclaim_test(listing_test
    SOURCES listing_test.cpp
    LIBRARIES sysfs_directory process nlohmann_json::nlohmann_json
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>")
add_dependencies(listing_test kivclaim_command)

# Another kernel release, for programs that are run as processes.
kivclaim_preload(told_release told_release.cpp)
set(told_release KIVCLAIM_TOLD_RELEASE="$<TARGET_FILE:told_release>")

kivclaim_test(audit_test
    SOURCES audit_test.cpp
    LIBRARIES mock_machine process
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        CLAIMS_TOO_MUCH="$<TARGET_FILE:claims_too_much>"
        ${told_release})
add_dependencies(audit_test kivclaim_command claims_too_much told_release)

kivclaim_test(known_quirks_test
    SOURCES
        known_quirks_test.cpp
        ${PROJECT_SOURCE_DIR}/tools/audit/asked_machine.cpp
        ${PROJECT_SOURCE_DIR}/tools/audit/expected_answers.cpp
        ${PROJECT_SOURCE_DIR}/tools/audit/kernel_truth.cpp
        ${PROJECT_SOURCE_DIR}/tools/audit/known_quirks.cpp
        ${PROJECT_SOURCE_DIR}/tools/played_machine.cpp
        ${PROJECT_SOURCE_DIR}/tools/recorded_commands.cpp
        ${PROJECT_SOURCE_DIR}/tools/stack_table.cpp
    LIBRARIES process sysfs_directory kivclaim_machine kivclaim::ztfi_pdk)

kivclaim_test(device_mapper_command_test
    SOURCES device_mapper_command_test.cpp
    LIBRARIES mock_machine process
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>" ${told_release})
add_dependencies(device_mapper_command_test kivclaim_command told_release)

add_library(captured_root OBJECT captured_root.cpp)
target_link_libraries(captured_root PUBLIC process)
target_compile_definitions(captured_root PRIVATE
    KIVCLAIM_CAPTURED="${CMAKE_CURRENT_SOURCE_DIR}/captured"
    KIVCLAIM_UNPACK_MACHINE="${CMAKE_CURRENT_SOURCE_DIR}/unpack_machine")

# An ordinary user, for programs that are run as processes.
kivclaim_preload(told_user told_user.cpp)
kivclaim_test(unsure_command_test
    SOURCES unsure_command_test.cpp
    LIBRARIES mock_machine process
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>" KIVCLAIM_TOLD_USER="$<TARGET_FILE:told_user>")
add_dependencies(unsure_command_test kivclaim_command told_user)
if(NOT KIVCLAIM_SANITIZERS)  # their runtime must be loaded before any framework
    target_compile_definitions(unsure_command_test PRIVATE HOST_FRAMEWORK="$<TARGET_FILE:ztfi_pdk>")
endif()

kivclaim_test(captured_machine_test
    SOURCES captured_machine_test.cpp
    LIBRARIES captured_root process captured_releases nlohmann_json::nlohmann_json
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        KIVCLAIM_LAB_RELEASES="${PROJECT_SOURCE_DIR}/lab/releases")
add_dependencies(captured_machine_test kivclaim_command)

# Records the paths that a program opens.
kivclaim_preload(opened_paths opened_paths.cpp)
kivclaim_test(sysroot_command_test
    SOURCES sysroot_command_test.cpp
    LIBRARIES process sysfs_directory
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        CLAIMS_TOO_MUCH="$<TARGET_FILE:claims_too_much>"
        KIVCLAIM_OPENED_PATHS_LIBRARY="$<TARGET_FILE:opened_paths>")
add_dependencies(sysroot_command_test kivclaim_command claims_too_much opened_paths)

kivclaim_test(recording_command_test
    SOURCES recording_command_test.cpp
    LIBRARIES mock_machine process sysfs_directory
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>" KIVCLAIM_ZTKIVADM="$<TARGET_FILE:ztkivadm>")
add_dependencies(recording_command_test kivclaim_command ztkivadm)

kivclaim_test(bad_recording_test
    SOURCES bad_recording_test.cpp
    LIBRARIES process sysfs_directory kivclaim_recording
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>")
add_dependencies(bad_recording_test kivclaim_command)

kivclaim_test(redaction_test
    SOURCES redaction_test.cpp
    LIBRARIES captured_root process nlohmann_json::nlohmann_json
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>")
add_dependencies(redaction_test kivclaim_command)

# promtool is in Debian's package prometheus, which also contains a server: it is used only if it is installed.
find_program(KIVCLAIM_PROMTOOL promtool)
kivclaim_test(comparison_test
    SOURCES comparison_test.cpp
    LIBRARIES process sysfs_directory nlohmann_json::nlohmann_json
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        CLAIMS_TOO_MUCH="$<TARGET_FILE:claims_too_much>"
        KIVCLAIM_SOURCE="${PROJECT_SOURCE_DIR}")
add_dependencies(comparison_test kivclaim_command claims_too_much)
if(KIVCLAIM_PROMTOOL)
    target_compile_definitions(comparison_test PRIVATE PROMTOOL="${KIVCLAIM_PROMTOOL}")
else()
    message(STATUS "No tests of the metrics with promtool: install prometheus")
endif()

# The page of a report is checked everywhere; its script only where a browser is installed, which is large.
find_program(KIVCLAIM_CHROMIUM chromium)
kivclaim_test(report_test
    SOURCES report_test.cpp
    LIBRARIES captured_root process sysfs_directory
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>")
add_dependencies(report_test kivclaim_command)
if(KIVCLAIM_CHROMIUM)
    target_compile_definitions(report_test PRIVATE CHROMIUM="${KIVCLAIM_CHROMIUM}")
else()
    message(STATUS "No tests of reports in a browser: install chromium")
endif()

# Reports to a program that events were lost.
kivclaim_preload(told_loss told_loss.cpp)
kivclaim_test(watch_command_test
    SOURCES watch_command_test.cpp
    LIBRARIES mock_machine process nlohmann_json::nlohmann_json
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>" KIVCLAIM_TOLD_LOSS="$<TARGET_FILE:told_loss>")
add_dependencies(watch_command_test kivclaim_command told_loss)

foreach(release bookworm bullseye trixie)
    add_test(NAME Machines.GiveTheKeptAnswers.${release}
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/machines/replay --check $<TARGET_FILE:kivclaim_command> ${release})
    set_tests_properties(Machines.GiveTheKeptAnswers.${release} PROPERTIES TIMEOUT 600 LABELS long)
endforeach()
