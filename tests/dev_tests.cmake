# What `./dev` makes of its arguments. Once is enough: it does not depend on how anything was built.
if(NOT is_shipped_build)
    return()
endif()

set(dev_test ${CMAKE_CURRENT_SOURCE_DIR}/dev_test.sh)
add_test(NAME Dev.EveryCommandRefusesAnUnknownArgumentBeforeItBuilds COMMAND ${dev_test} arguments)
add_test(NAME Dev.AnArgumentTooManyIsRefusedWithTheWayOut COMMAND ${dev_test} further)
add_test(NAME Dev.NamesSelectTestsOfTheOptimisedOrTheNamedBuild COMMAND ${dev_test} names)
add_test(NAME Dev.ANameWithoutATestIsRefused COMMAND ${dev_test} unknown_name)
if(CMAKE_GENERATOR STREQUAL "Ninja")
    add_test(NAME Dev.AFilesTestsAreThoseThatUseIt COMMAND ${dev_test} affected ${PROJECT_BINARY_DIR})
endif()
