# The options of every target. Warnings are errors on request only: a newer compiler warns of more, in the code of other
# projects' headers as well once it is inlined into ours, and who builds the project can do nothing about it.
option(KIVCLAIM_WARNINGS_AS_ERRORS "Let a compiler's warning stop the build" OFF)
add_compile_options(-Wall -Wextra -Wpedantic -Wformat=2 -Wshadow=local)
if(KIVCLAIM_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # clang spells the same check of shadowed locals differently.
    add_compile_options(-Wno-unknown-warning-option -Wshadow)
endif()

# Debug information, __FILE__ and the like name sources relative to the tree: the bytes do not depend on its place.
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

# Exports only what `script` lists, and finds a missing symbol when linking or loading, never at the first call.
function(kivclaim_export_policy target script)
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${script})
    # The dump of the binary contract is read from it, and wants every class whole; an installation strips it.
    target_compile_options(${target} PRIVATE -g $<$<CXX_COMPILER_ID:GNU>:-femit-class-debug-always>)
    target_link_options(${target} PRIVATE -Wl,--version-script=${script} -Wl,-z,now -Wl,-z,relro)
    if(NOT KIVCLAIM_SANITIZERS)
        target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
endfunction()
