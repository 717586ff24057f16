# The model of a machine's block devices.
add_library(sysfs_directory OBJECT sysfs_directory.cpp)
target_include_directories(sysfs_directory PUBLIC ${PROJECT_SOURCE_DIR})

kivclaim_test(machine_test SOURCES machine_test.cpp LIBRARIES kivclaim_machine sysfs_directory process)
kivclaim_test(recorded_files_test SOURCES recorded_files_test.cpp LIBRARIES kivclaim_machine sysfs_directory process)
kivclaim_test(machine_tree_test SOURCES machine_tree_test.cpp LIBRARIES kivclaim_machine sysfs_directory process)
kivclaim_test(machine_lsblk_test SOURCES machine_lsblk_test.cpp LIBRARIES kivclaim_machine sysfs_directory process)

add_executable(live_machine programs/live_machine.cpp)
target_link_libraries(live_machine PRIVATE kivclaim_machine)
kivclaim_test(machine_live_test
    SOURCES machine_live_test.cpp
    LIBRARIES mock_machine process
    DEFINITIONS KIVCLAIM_LIVE_MACHINE="$<TARGET_FILE:live_machine>")
add_dependencies(machine_live_test live_machine)

kivclaim_test(kernel_facts_test
    SOURCES kernel_facts_test.cpp LIBRARIES kivclaim::kernel sysfs_directory process)
