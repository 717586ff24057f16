# The mock volume manager: its two tools, and what they print.
add_library(volume_manager OBJECT volume_manager/volume_manager.cpp)
target_include_directories(volume_manager PUBLIC ${PROJECT_SOURCE_DIR})
foreach(tool IN ITEMS ztkivadm ztdisk)
    add_executable(${tool} volume_manager/${tool}.cpp)
    target_link_libraries(${tool} PRIVATE volume_manager)
    set_target_properties(${tool} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/volume_manager)
endforeach()

kivclaim_test(volume_manager_tools_test
    SOURCES volume_manager/volume_manager_tools_test.cpp
    DEFINITIONS KIVCLAIM_ZTKIVADM="$<TARGET_FILE:ztkivadm>" KIVCLAIM_ZTDISK="$<TARGET_FILE:ztdisk>")
add_dependencies(volume_manager_tools_test ztkivadm ztdisk)

# Replaces pauses: they take no time and write a line, for programs that are run as processes.
kivclaim_preload(instant_sleep volume_manager/instant_sleep.cpp)

kivclaim_test(active_path_command_test
    SOURCES active_path_command_test.cpp
    LIBRARIES process
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        KIVCLAIM_ZTKIVADM="$<TARGET_FILE:ztkivadm>"
        KIVCLAIM_ZTDISK="$<TARGET_FILE:ztdisk>"
        KIVCLAIM_INSTANT_SLEEP="$<TARGET_FILE:instant_sleep>")
add_dependencies(active_path_command_test kivclaim_command ztkivadm ztdisk instant_sleep)
