# The claim query.
kivclaim_test(claim_query_test
    SOURCES claim_query_test.cpp recording_string_tool.cpp
    LIBRARIES kivclaim::kivclaim recording_host)
