# The command and the example host as processes.
add_library(process OBJECT process.cpp)
target_link_libraries(process PUBLIC GTest::gtest)
target_include_directories(process PUBLIC ${PROJECT_SOURCE_DIR})

kivclaim_test(command_test
    SOURCES command_test.cpp
    LIBRARIES process
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        KIVCLAIM_LIBRARY="$<TARGET_FILE:kivclaim>"
        EXAMPLE_HOST="$<TARGET_FILE:example_host>")
add_dependencies(command_test kivclaim_command example_host)
