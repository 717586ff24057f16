# Finds the source revision at every build and rewrites the source with the identification only when it changed. When
# the project includes this file, it defines the target `kivclaim_source_revision`; when run with -P, it writes the
# source.
set(KIVCLAIM_REVISION "" CACHE STRING "Source revision to record, for builds outside a git checkout")

if(NOT CMAKE_SCRIPT_MODE_FILE)
    set(KIVCLAIM_RELEASE_SOURCE ${PROJECT_BINARY_DIR}/generated/kiv_release.cpp)
    add_custom_target(kivclaim_source_revision
        COMMAND ${CMAKE_COMMAND} -DSOURCE=${PROJECT_SOURCE_DIR} -DOUTPUT=${KIVCLAIM_RELEASE_SOURCE}
                -DPROJECT_VERSION=${PROJECT_VERSION} "-DKIVCLAIM_REVISION=${KIVCLAIM_REVISION}"
                -P ${CMAKE_CURRENT_LIST_FILE}
        BYPRODUCTS ${KIVCLAIM_RELEASE_SOURCE}
        COMMENT "Recording the source revision"
        VERBATIM)
    return()
endif()

set(KIVCLAIM_SOURCE_REVISION "${KIVCLAIM_REVISION}")
# In a release's source archive, the revision is in a file.
if(KIVCLAIM_SOURCE_REVISION STREQUAL "" AND EXISTS ${SOURCE}/REVISION)
    file(READ ${SOURCE}/REVISION KIVCLAIM_SOURCE_REVISION)
endif()
if(KIVCLAIM_SOURCE_REVISION STREQUAL "")
    execute_process(COMMAND git -C ${SOURCE} describe --always --dirty --abbrev=12 --match=
                    OUTPUT_VARIABLE KIVCLAIM_SOURCE_REVISION OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(KIVCLAIM_SOURCE_REVISION STREQUAL "")
    set(KIVCLAIM_SOURCE_REVISION "unknown")
endif()
configure_file(${SOURCE}/claim/kiv_release.cpp.in ${OUTPUT} @ONLY)
