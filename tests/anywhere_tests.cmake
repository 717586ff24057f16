# What `./dev anywhere` refuses. In one preset only, because it does not depend on the build.
if(NOT is_shipped_build)
    return()
endif()

set(anywhere_test ${CMAKE_CURRENT_SOURCE_DIR}/anywhere_test.sh)
add_test(NAME Anywhere.AnUnknownReleaseIsRefusedWithTheKnownOnes COMMAND ${anywhere_test} release)
add_test(NAME Anywhere.AnUnknownOptionIsRefused COMMAND ${anywhere_test} option)
add_test(NAME Anywhere.AnUnknownPresetIsRefusedWithTheKnownOnes COMMAND ${anywhere_test} preset)
add_test(NAME Anywhere.WithoutRootOneLineSaysSo COMMAND ${anywhere_test} rights)
add_test(NAME Anywhere.TooLittleSpaceIsRefusedBeforeAnythingIsMade COMMAND ${anywhere_test} space)
add_test(NAME Anywhere.TheTestsRefuseAnUnknownPreset COMMAND ${anywhere_test} test)
