# The claim query, on the recording host and, as a process, on the bundled and the second one.
kivclaim_test(claim_query_test
    SOURCES claim_query_test.cpp ${recording_string_tool}
    LIBRARIES kivclaim::kivclaim recording_host)

if(NOT KIVCLAIM_SANITIZERS)
    # The undefined-behaviour sanitizer wants type information of each object that is called.
    target_sources(claim_query_test PRIVATE untyped_module.cpp)
    target_compile_definitions(claim_query_test PRIVATE HAS_UNTYPED_MODULE)
    set_source_files_properties(untyped_module.cpp PROPERTIES COMPILE_OPTIONS -fno-rtti)
    kivclaim_test(claim_query_memory_test
        SOURCES claim_query_memory_test.cpp LIBRARIES kivclaim::kivclaim kivclaim::ztfi_pdk)
endif()

add_library(query_questions OBJECT any_host/query_questions.cpp any_host/linked_manager.cpp)
target_link_libraries(query_questions PUBLIC kivclaim_framework)
add_executable(query_on_bundled_host $<TARGET_OBJECTS:query_questions>)
target_link_libraries(query_on_bundled_host PRIVATE kivclaim::kivclaim kivclaim::ztfi_pdk)
add_executable(query_on_second_host $<TARGET_OBJECTS:query_questions>)
target_link_libraries(query_on_second_host PRIVATE plugin_on_second_host second_host)

kivclaim_test(query_on_any_host_test
    SOURCES any_host/query_on_any_host_test.cpp
    LIBRARIES process
    DEFINITIONS
        QUERY_ON_BUNDLED_HOST="$<TARGET_FILE:query_on_bundled_host>"
        QUERY_ON_SECOND_HOST="$<TARGET_FILE:query_on_second_host>")
add_dependencies(query_on_any_host_test query_on_bundled_host query_on_second_host)

kivclaim_test(query_host_test
    SOURCES query_host_test.cpp LIBRARIES mock_machine process DEFINITIONS QUERY_HOST="$<TARGET_FILE:query_host>")
add_dependencies(query_host_test query_host)
