# The pages are correct: their examples, links and lists.
find_package(nlohmann_json REQUIRED)

kivclaim_test(message_table_test
    SOURCES message_table_test.cpp DEFINITIONS KIVCLAIM_SOURCE="${PROJECT_SOURCE_DIR}")

kivclaim_test(ansible_fact_test
    SOURCES ansible_fact_test.cpp
    LIBRARIES mock_machine process nlohmann_json::nlohmann_json
    DEFINITIONS KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>" KIVCLAIM_SOURCE="${PROJECT_SOURCE_DIR}")
add_dependencies(ansible_fact_test kivclaim_command)

# Without sanitizers: otherwise the examples would need them, too.
if(NOT KIVCLAIM_SANITIZERS)
    kivclaim_test(doc_examples_test
        SOURCES doc_examples_test.cpp
        LIBRARIES mock_machine process
        DEFINITIONS KIVCLAIM_SOURCE="${PROJECT_SOURCE_DIR}" KIVCLAIM_BUILD="${PROJECT_BINARY_DIR}"
                    KIVCLAIM_CMAKE="${CMAKE_COMMAND}" KIVCLAIM_LIBDIR="${CMAKE_INSTALL_LIBDIR}")
    add_dependencies(doc_examples_test kivclaim_command)
endif()

# In one preset only, because these do not depend on the build.
if(NOT KIVCLAIM_SANITIZERS)
    find_program(KIVCLAIM_DOXYGEN doxygen)
    find_program(KIVCLAIM_DOT dot)
    if(KIVCLAIM_DOXYGEN AND KIVCLAIM_DOT)
        add_test(NAME Docs.EveryPublicOperationHasItsTextInTheReferencePages
            COMMAND ${PROJECT_SOURCE_DIR}/docs/reference/build.sh ${PROJECT_BINARY_DIR}/reference)
        add_test(NAME Docs.TheDiagramsMatchTheirSourcesAndTheIncludes
            COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/pictures_test.sh)
    else()
        message(STATUS "No tests of the reference pages and pictures: install doxygen and graphviz")
    endif()
endif()

add_test(NAME Docs.EveryLinkLeadsSomewhere COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/links_test.sh)
