# The plug-in against the recording host.
set(testkit ${PROJECT_SOURCE_DIR}/testkit)
set(recording_string_tool ${testkit}/recording_string_tool.cpp)
add_library(recording_host OBJECT
    ${testkit}/recorded_calls.cpp ${testkit}/recording_host.cpp recording_host_failures.cpp)
target_link_libraries(recording_host PUBLIC kivclaim_framework GTest::gtest)

# The test kit, linked as in other projects.
kivclaim_test(testkit_test SOURCES testkit_test.cpp LIBRARIES kivclaim::testkit)

# The captured outputs of the lab, for the tests that read them.
add_library(captured_releases OBJECT captured_releases.cpp)
target_include_directories(captured_releases PUBLIC ${PROJECT_SOURCE_DIR})
target_compile_definitions(captured_releases PRIVATE KIVCLAIM_CAPTURED="${CMAKE_CURRENT_SOURCE_DIR}/captured")

set(claim_test_sources
    captured_listing_test.cpp
    claim_manager_test.cpp
    claim_module_defaults_test.cpp
    device_mapper_test.cpp
    logical_volume_list_test.cpp
    nativepath_test.cpp
    powerpath_test.cpp
    trace_contract_test.cpp
    volume_manager_queries_test.cpp
    volume_manager_retries_test.cpp
    volume_manager_support_test.cpp)

kivclaim_test(claim_test
    SOURCES ${claim_test_sources} ${recording_string_tool}
    LIBRARIES kivclaim::kivclaim recording_host captured_releases
    DEFINITIONS KIVCLAIM_OWN_STRING_TOOLS)

# The same scenarios with the bundled string tools.
kivclaim_test(claim_on_bundled_string_tools_test PREFIX OnBundledStringTools.
    SOURCES ${claim_test_sources}
    LIBRARIES kivclaim::kivclaim kivclaim::ztfi_pdk recording_host captured_releases)

# The same library while memory, locks, log or pauses fail.
if(NOT KIVCLAIM_SANITIZERS MATCHES thread)
    # It replaces the allocation operators, as the thread sanitizer does, and has only one thread.
    kivclaim_test(fault_test
        SOURCES
            faults/every_operation_test.cpp
            faults/failing_allocation_test.cpp
            faults/failing_allocations.cpp
            faults/failing_machine_test.cpp
            faults/module_entry_test.cpp
            faults/operations.cpp
            ${recording_string_tool}
        LIBRARIES kivclaim::kivclaim recording_host)
endif()

if(NOT KIVCLAIM_SANITIZERS)
    # One of its tests leaks memory, as the claim manager does when its construction fails.
    kivclaim_test(allocation_failure_test
        SOURCES allocation_failure_test.cpp faults/failing_allocations.cpp
        LIBRARIES kivclaim::kivclaim recording_host)
endif()
