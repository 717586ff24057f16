# The bundled host framework.
add_library(process OBJECT process.cpp)
target_link_libraries(process PUBLIC GTest::gtest)
target_include_directories(process PUBLIC ${PROJECT_SOURCE_DIR})

kivclaim_test(printable_text_test SOURCES printable_text_test.cpp LIBRARIES kivclaim::ztfi_pdk)
kivclaim_test(trace_log_test SOURCES trace_log_test.cpp LIBRARIES kivclaim::ztfi_pdk process)
