# The bundled host framework.
add_library(process OBJECT process.cpp)
target_link_libraries(process PUBLIC GTest::gtest)
target_include_directories(process PUBLIC ${PROJECT_SOURCE_DIR})
target_compile_definitions(process PRIVATE KIVCLAIM_SEEN_PATHS_LIBRARY="$<TARGET_FILE:seen_paths>")
add_dependencies(process seen_paths)

kivclaim_test(trace_log_test SOURCES trace_log_test.cpp LIBRARIES kivclaim::ztfi_pdk process)

# kivclaim_test_program(name) builds a tool that the tests run. Without sanitizers: the tests check the runner, and a
# sanitizer's descriptors and signal handlers would disturb that.
function(kivclaim_test_program name)
    add_executable(${name} programs/${name}.cpp)
    kivclaim_uninstrumented(${name})
endfunction()

# kivclaim_runner_test(name) builds a test of the command runner, with its private headers and the tools that it runs.
function(kivclaim_runner_test name)
    kivclaim_test(${name} SOURCES ${name}.cpp LIBRARIES ztfi_command_runner kivclaim::ztfi_pdk
                  DEFINITIONS KIVCLAIM_COMMAND_PROBE="$<TARGET_FILE:command_probe>"
                              KIVCLAIM_LINE_WRITER="$<TARGET_FILE:line_writer>"
                              $<$<BOOL:${CMAKE_CROSSCOMPILING}>:KIVCLAIM_TEST_SLOWNESS=5>)
    add_dependencies(${name} command_probe line_writer)
endfunction()

# Reusable faults: system calls that fail, signals that interrupt, hosts that are stopped.
add_library(faults OBJECT faults/system_call_faults.cpp)
target_link_libraries(faults PUBLIC GTest::gtest)
target_include_directories(faults PUBLIC ${PROJECT_SOURCE_DIR})

kivclaim_test_program(command_probe)
kivclaim_test_program(line_writer)

kivclaim_test(printable_text_test SOURCES printable_text_test.cpp LIBRARIES kivclaim::ztfi_pdk)
kivclaim_test(string_tool_test SOURCES string_tool_test.cpp LIBRARIES kivclaim::ztfi_pdk)
foreach(subject IN ITEMS "" _failures _left_behind _limits _process)
    kivclaim_runner_test(exec_pipe${subject}_test)
endforeach()
kivclaim_runner_test(exec_pipe_trace_test)
if(NOT KIVCLAIM_SANITIZERS MATCHES thread)
    # It replaces the allocation operators, as the thread sanitizer does, and has only one thread.
    kivclaim_runner_test(exec_pipe_memory_test)
endif()
kivclaim_runner_test(exec_pipe_faults_test)
target_link_libraries(exec_pipe_faults_test PRIVATE faults)
kivclaim_runner_test(exec_pipe_host_test)
kivclaim_runner_test(command_replay_test)
kivclaim_runner_test(command_runner_test)
kivclaim_runner_test(command_snapshot_test)
