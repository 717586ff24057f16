# Manual pages and shell completion. In one preset only, because they do not depend on the build.
if(NOT is_shipped_build)
    return()
endif()

set(manual ${PROJECT_SOURCE_DIR}/docs/man)
set(completion ${PROJECT_SOURCE_DIR}/tools/completion)

add_test(NAME Docs.TheManualNamesEveryCommandAndOption
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/documents/manual_test.sh $<TARGET_FILE:kivclaim_command> ${manual}/kivclaim.1)
add_test(NAME Docs.TheManualIsUnderstoodByItsFormatters
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/documents/roff_test.sh ${manual}/kivclaim.1 ${manual}/kivclaim.7)
add_test(NAME Completion.BashOffersTheWordsOfTheHelp
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/documents/completion_test.sh bash $<TARGET_FILE:kivclaim_command> ${completion}/kivclaim.bash)
add_test(NAME Completion.ZshOffersTheWordsOfTheHelp
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/documents/completion_test.sh zsh $<TARGET_FILE:kivclaim_command> ${completion}/_kivclaim)
set_tests_properties(Completion.ZshOffersTheWordsOfTheHelp PROPERTIES LABELS long)
add_test(NAME Docs.ReadmeShowsWhatTheCommandPrintsAboutTheLabsMachine
         COMMAND ${PROJECT_SOURCE_DIR}/docs/readme_examples.sh --check $<TARGET_FILE:kivclaim_command>)
