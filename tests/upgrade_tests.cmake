# Hosts, modules and host frameworks that were compiled against the headers of an earlier release, with the libraries of
# this one. The headers are in an archive, because a copy of the sources, and a shallow clone, have no history to
# extract them from.
set(kept_release 1.0.0)
set(kept_headers ${CMAKE_CURRENT_BINARY_DIR}/headers-${kept_release})
set(kept_archive ${PROJECT_SOURCE_DIR}/contract/headers-${kept_release}.tar.xz)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${kept_archive})
file(REMOVE_RECURSE ${kept_headers})
file(ARCHIVE_EXTRACT INPUT ${kept_archive} DESTINATION ${kept_headers})
if(NOT EXISTS ${kept_headers}/claim/kiv_claim_manager.h OR EXISTS ${kept_headers}/claim/kiv_version.h)
    message(FATAL_ERROR "${kept_archive} does not hold the headers of ${kept_release}")
endif()

# Code that includes this release's headers by mistake fails here.
file(WRITE ${kept_headers}/framework/ztfi_requirements.h "#error \"this release's headers are used\"\n")

# kivclaim_of_before(target) compiles a target against those headers.
function(kivclaim_of_before target)
    target_include_directories(${target} BEFORE PRIVATE ${kept_headers})
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
    target_compile_definitions(${target} PRIVATE KIVCLAIM_TESTS_KEPT_RELEASE=${kept_release})
    target_link_libraries(${target} PRIVATE PkgConfig::ACE Threads::Threads ${CMAKE_DL_LIBS})
    if(KIVCLAIM_SANITIZERS MATCHES undefined)
        target_compile_options(${target} PRIVATE -fno-sanitize=vptr,function)
    endif()
endfunction()

# The files of library and host framework: their targets would add this release's headers.
function(kivclaim_linked_of_before target)
    target_link_libraries(${target} PRIVATE ${ARGN})
    foreach(library IN LISTS ARGN)
        string(REGEX REPLACE ".*<TARGET_FILE:(.*)>" "\\1" name ${library})
        add_dependencies(${target} ${name})
    endforeach()
endfunction()

set(asking any_host/claim_questions.cpp any_host/linked_manager.cpp)
set(framework second_host/command_runner.cpp second_host/memory_log.cpp second_host/string_tools.cpp)

add_executable(host_of_before ${asking} any_host/bundled_log.cpp)
kivclaim_of_before(host_of_before)
kivclaim_linked_of_before(host_of_before $<TARGET_FILE:kivclaim> $<TARGET_FILE:ztfi_pdk>)

add_library(framework_of_before SHARED ${framework})
kivclaim_of_before(framework_of_before)
kivclaim_plugin(plugin_on_framework_of_before)
target_link_libraries(plugin_on_framework_of_before PRIVATE framework_of_before)
add_executable(host_with_framework_of_before ${asking} any_host/second_log.cpp)
kivclaim_of_before(host_with_framework_of_before)
kivclaim_linked_of_before(host_with_framework_of_before
    $<TARGET_FILE:plugin_on_framework_of_before> $<TARGET_FILE:framework_of_before>)

add_executable(opening_host_of_before
    any_host/claim_questions.cpp any_host/second_log.cpp upgrade/opened_by_constructor.cpp ${framework})
kivclaim_of_before(opening_host_of_before)
set_target_properties(opening_host_of_before PROPERTIES ENABLE_EXPORTS ON)

# The scenarios of every kind of host.
kivclaim_test(upgrade_test PREFIX Upgrade.
    SOURCES any_host/any_host_test.cpp
    LIBRARIES process
    DEFINITIONS
        ON_BUNDLED_HOST="$<TARGET_FILE:host_of_before>"
        ON_SECOND_HOST="$<TARGET_FILE:host_with_framework_of_before>"
        FRAMEWORK_PROCESS="$<TARGET_FILE:opening_host_of_before>"
        ORDINARY_PLUGIN="$<TARGET_FILE:kivclaim>"
        PLUGIN_WITHOUT_HOST="$<TARGET_FILE:plugin_without_host>"
        KIVCLAIM_ZTKIVADM="$<TARGET_FILE:ztkivadm>"
        KIVCLAIM_ZTDISK="$<TARGET_FILE:ztdisk>"
        KIVCLAIM_INSTANT_SLEEP="$<TARGET_FILE:instant_sleep>")
add_dependencies(upgrade_test
    host_of_before host_with_framework_of_before opening_host_of_before kivclaim plugin_without_host
    ztkivadm ztdisk instant_sleep)

# Modules in files, with the loaders of both releases.
add_library(module_of_before MODULE ${PROJECT_SOURCE_DIR}/examples/nvme_module/nvme_claim.cpp)
set_target_properties(module_of_before PROPERTIES PREFIX "" CXX_VISIBILITY_PRESET hidden)
kivclaim_of_before(module_of_before)
kivclaim_linked_of_before(module_of_before $<TARGET_FILE:kivclaim>)
add_executable(example_host_of_before upgrade/example_host.cpp)
kivclaim_of_before(example_host_of_before)
kivclaim_linked_of_before(example_host_of_before $<TARGET_FILE:kivclaim> $<TARGET_FILE:ztfi_pdk>)

kivclaim_test(upgrade_module_test PREFIX Upgrade.
    SOURCES upgrade/upgrade_module_test.cpp
    LIBRARIES process
    DEFINITIONS
        KIVCLAIM_COMMAND="$<TARGET_FILE:kivclaim_command>"
        EXAMPLE_HOST="$<TARGET_FILE:example_host>"
        EXAMPLE_HOST_OF_BEFORE="$<TARGET_FILE:example_host_of_before>"
        MODULE="$<TARGET_FILE:nvme_module>"
        MODULE_OF_BEFORE="$<TARGET_FILE:module_of_before>")
add_dependencies(upgrade_module_test
    kivclaim_command example_host example_host_of_before nvme_module module_of_before)
