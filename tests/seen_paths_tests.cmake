# Directories that a program under test sees at the place of others: the preloaded library, and its tests.
kivclaim_preload(seen_paths seen_paths/calls.cpp seen_paths/seen_paths.cpp)
kivclaim_test_program(path_probe)
kivclaim_test_program(in_mount_namespace)

kivclaim_test(seen_paths_test
    SOURCES seen_paths/seen_paths_test.cpp
    LIBRARIES process
    DEFINITIONS
        KIVCLAIM_INSTANT_SLEEP="$<TARGET_FILE:instant_sleep>"
        KIVCLAIM_PATH_PROBE="$<TARGET_FILE:path_probe>"
        KIVCLAIM_IN_MOUNT_NAMESPACE="$<TARGET_FILE:in_mount_namespace>")
add_dependencies(seen_paths_test instant_sleep path_probe in_mount_namespace)
