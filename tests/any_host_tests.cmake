# The plug-in on other hosts than the bundled one.

# A second host framework, as a library and as objects for a process that defines the framework's operations itself.
add_library(second_host_parts OBJECT
    second_host/command_runner.cpp second_host/memory_log.cpp second_host/string_tools.cpp)
set_target_properties(second_host_parts PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_link_libraries(second_host_parts PUBLIC kivclaim_framework)
add_library(second_host SHARED $<TARGET_OBJECTS:second_host_parts>)
target_link_libraries(second_host PUBLIC kivclaim_framework)

# kivclaim_plugin(name) links the plug-in again, in its own directory, as claim/ does except for the host library.
function(kivclaim_plugin name)
    add_library(${name} SHARED $<TARGET_OBJECTS:kivclaim>)
    set_target_properties(${name} PROPERTIES
        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/${name} OUTPUT_NAME kivclaim
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    target_link_libraries(${name} PUBLIC kivclaim_framework)
    kivclaim_export_policy(${name} ${PROJECT_SOURCE_DIR}/claim/libkivclaim.map)
endfunction()

kivclaim_plugin(plugin_on_second_host)
target_link_libraries(plugin_on_second_host PRIVATE second_host)
# All operations of the host come from the process.
kivclaim_plugin(plugin_without_host)
target_link_options(plugin_without_host PRIVATE -Wl,-z,undefs)

# The scenarios of the modules, with the second host's string tools.
kivclaim_test(claim_on_second_host_test PREFIX OnSecondHost.
    SOURCES $<TARGET_OBJECTS:claim_on_bundled_string_tools_test>
    LIBRARIES plugin_on_second_host second_host recording_host captured_releases)

# One program for all hosts. It has only the headers of the plug-in's classes, so checks that need their type
# information are left out.
add_library(claim_questions OBJECT any_host/claim_questions.cpp any_host/opened_manager.cpp)
target_link_libraries(claim_questions PUBLIC kivclaim_framework)
if(KIVCLAIM_SANITIZERS MATCHES undefined)
    target_compile_options(claim_questions PRIVATE -fno-sanitize=vptr,function)
endif()

set(linked_questions $<FILTER:$<TARGET_OBJECTS:claim_questions>,EXCLUDE,opened_manager> any_host/linked_manager.cpp)
add_executable(questions_on_bundled_host ${linked_questions} any_host/bundled_log.cpp)
target_link_libraries(questions_on_bundled_host PRIVATE kivclaim::kivclaim kivclaim::ztfi_pdk)
add_executable(questions_on_second_host ${linked_questions} any_host/second_log.cpp)
target_link_libraries(questions_on_second_host PRIVATE plugin_on_second_host second_host)

# Opens the plug-in and defines the framework's operations itself: exports all of them, or all but one.
add_library(questions_of_process OBJECT any_host/second_log.cpp)
target_link_libraries(questions_of_process PUBLIC kivclaim_framework)
function(kivclaim_framework_process name)
    add_executable(${name}
        $<TARGET_OBJECTS:claim_questions> $<TARGET_OBJECTS:questions_of_process> $<TARGET_OBJECTS:second_host_parts>)
    target_link_libraries(${name} PRIVATE kivclaim_framework ${CMAKE_DL_LIBS})
endfunction()
kivclaim_framework_process(questions_of_framework_process)
set_target_properties(questions_of_framework_process PROPERTIES ENABLE_EXPORTS ON)

kivclaim_test(any_host_test
    SOURCES any_host/any_host_test.cpp
    LIBRARIES process
    DEFINITIONS
        ON_BUNDLED_HOST="$<TARGET_FILE:questions_on_bundled_host>"
        ON_SECOND_HOST="$<TARGET_FILE:questions_on_second_host>"
        FRAMEWORK_PROCESS="$<TARGET_FILE:questions_of_framework_process>"
        ORDINARY_PLUGIN="$<TARGET_FILE:kivclaim>"
        PLUGIN_WITHOUT_HOST="$<TARGET_FILE:plugin_without_host>"
        KIVCLAIM_ZTKIVADM="$<TARGET_FILE:ztkivadm>"
        KIVCLAIM_ZTDISK="$<TARGET_FILE:ztdisk>"
        KIVCLAIM_INSTANT_SLEEP="$<TARGET_FILE:instant_sleep>")
add_dependencies(any_host_test
    questions_on_bundled_host questions_on_second_host questions_of_framework_process kivclaim plugin_without_host
    ztkivadm ztdisk instant_sleep)

# A missing operation, and the configuration for another host: a sanitizer would not find more here.
if(NOT KIVCLAIM_SANITIZERS)
    set(operations "CFiTraceLog::trace" "CFiExecPipeBase::Exec" "CFiExecPipePosix::CFiExecPipePosix"
        "CFiStringTool::tokenize" "CFiStringTool::trim" "CFiStringTool::find" "CFiStringTool::str2tstr"
        "CFiStringTool::tstr2str")
    set(without_one)
    foreach(missing IN LISTS operations)
        string(REGEX REPLACE ".*::" "" short_name ${missing})
        set(list ${CMAKE_CURRENT_BINARY_DIR}/all_but_${short_name}.list)
        set(exported ${operations})
        list(REMOVE_ITEM exported ${missing})
        list(JOIN exported "*;\n    ztfi_pdk_4_4::" exported)
        file(CONFIGURE OUTPUT ${list} CONTENT "{ extern \"C++\" {\n    ztfi_pdk_4_4::${exported}*;\n}; };\n")
        kivclaim_framework_process(process_without_${short_name})
        target_link_options(process_without_${short_name} PRIVATE -Wl,--dynamic-list=${list})
        list(APPEND without_one process_without_${short_name})
    endforeach()

    # The same without -z now, for comparison.
    kivclaim_plugin(plugin_bound_lazily)
    target_link_options(plugin_bound_lazily PRIVATE -Wl,-z,undefs -Wl,-z,lazy)

    kivclaim_test(missing_operation_test
        SOURCES any_host/missing_operation_test.cpp
        LIBRARIES process
        DEFINITIONS
            PROCESS_WITHOUT="${CMAKE_CURRENT_BINARY_DIR}/process_without_"
            PLUGIN_WITHOUT_HOST="$<TARGET_FILE:plugin_without_host>"
            PLUGIN_BOUND_LAZILY="$<TARGET_FILE:plugin_bound_lazily>")
    add_dependencies(missing_operation_test ${without_one} plugin_without_host plugin_bound_lazily)

    add_test(NAME HostLibrary.ThePluginIsConfiguredForAnotherHost
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/host_library_test.sh ${PROJECT_SOURCE_DIR} $<TARGET_FILE:second_host>
                $<TARGET_FILE:any_host_test> ${CMAKE_CXX_COMPILER})
    set_tests_properties(HostLibrary.ThePluginIsConfiguredForAnotherHost PROPERTIES TIMEOUT 300 LABELS long)
endif()

# Which file supplies each operation, in every arrangement that may surprise a host.
add_library(second_host_archive STATIC $<TARGET_OBJECTS:second_host_parts>)
target_link_libraries(second_host_archive PUBLIC kivclaim_framework)
# kivclaim_operation_report(name LIBRARIES...) links the report with these libraries and the claim library, in this
# order.
function(kivclaim_operation_report name)
    add_executable(report_on_${name} any_host/operation_report.cpp)
    target_compile_definitions(report_on_${name} PRIVATE LINKED_WITH_THE_PLUGIN)
    target_include_directories(report_on_${name} PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_libraries(report_on_${name} PRIVATE ${ARGN} ${CMAKE_DL_LIBS})
endfunction()
kivclaim_operation_report(bundled kivclaim)
kivclaim_operation_report(objects $<TARGET_OBJECTS:second_host_parts> kivclaim)
kivclaim_operation_report(archive_before second_host_archive kivclaim)
kivclaim_operation_report(whole_archive -Wl,--whole-archive second_host_archive -Wl,--no-whole-archive kivclaim)
kivclaim_operation_report(hidden_objects $<TARGET_OBJECTS:second_host_parts> kivclaim)
set(hides_everything ${CMAKE_CURRENT_BINARY_DIR}/hides_everything.map)
# The runtime of a sanitizer is in the program, where libraries must find it.
set(hidden_names "*")
if(KIVCLAIM_SANITIZERS)
    set(hidden_names "*ztfi_pdk_4_4*")
endif()
file(CONFIGURE OUTPUT ${hides_everything} CONTENT "{ local: ${hidden_names}; };\n")
target_link_options(report_on_hidden_objects PRIVATE -Wl,--version-script=${hides_everything})
kivclaim_operation_report(library_before -Wl,--no-as-needed second_host kivclaim)

# Opens the library, with and without the framework's operations in the program.
add_executable(framework_report any_host/operation_report.cpp $<TARGET_OBJECTS:second_host_parts>)
set_target_properties(framework_report PROPERTIES ENABLE_EXPORTS ON)
add_executable(plain_report any_host/operation_report.cpp)
foreach(report IN ITEMS framework_report plain_report)
    target_link_libraries(${report} PRIVATE kivclaim_framework ${CMAKE_DL_LIBS})
endforeach()

kivclaim_test(host_operations_test
    SOURCES any_host/host_operations_test.cpp
    LIBRARIES process kivclaim::kivclaim
    DEFINITIONS
        REPORTS="${CMAKE_CURRENT_BINARY_DIR}/report_on_"
        FRAMEWORK_REPORT="$<TARGET_FILE:framework_report>"
        PLAIN_REPORT="$<TARGET_FILE:plain_report>"
        ORDINARY_PLUGIN="$<TARGET_FILE:kivclaim>"
        PLUGIN_WITHOUT_HOST="$<TARGET_FILE:plugin_without_host>"
        PLUGIN_ON_SECOND_HOST="$<TARGET_FILE:plugin_on_second_host>")
if(KIVCLAIM_SANITIZERS)
    target_compile_definitions(host_operations_test PRIVATE SANITIZED)
endif()
add_dependencies(host_operations_test
    report_on_bundled report_on_objects report_on_archive_before report_on_whole_archive report_on_hidden_objects
    report_on_library_before framework_report plain_report kivclaim plugin_without_host plugin_on_second_host)
