# The options of every target. Warnings are errors on request only: a newer compiler has more warnings, also about other
# projects' headers that are inlined into our code, and a user who builds the project cannot fix those.
option(KIVCLAIM_WARNINGS_AS_ERRORS "Let a compiler's warning stop the build" OFF)
add_compile_options(-Wall -Wextra -Wpedantic -Wformat=2 -Wshadow=local)
if(KIVCLAIM_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # clang spells the same check of shadowed locals differently.
    add_compile_options(-Wno-unknown-warning-option -Wshadow)
endif()

# Debug information and __FILE__ name sources relative to the tree, so that the output does not depend on its path.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=./build)
endif()

if(KIVCLAIM_SANITIZERS)
    add_compile_options(-fsanitize=${KIVCLAIM_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${KIVCLAIM_SANITIZERS})
endif()
if(KIVCLAIM_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()

# Exports only the symbols that `script` lists. Missing symbols are found when linking or loading, not at the first
# call.
function(kivclaim_export_policy target script)
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${script})
    # The dump of the binary contract is made from it and needs every class complete; an installation may strip it.
    target_compile_options(${target} PRIVATE -g $<$<CXX_COMPILER_ID:GNU>:-femit-class-debug-always>)
    target_link_options(${target} PRIVATE -Wl,--version-script=${script} -Wl,-z,now -Wl,-z,relro)
    if(NOT KIVCLAIM_SANITIZERS)
        target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
endfunction()
