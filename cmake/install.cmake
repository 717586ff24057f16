# Installs files, each in one of the components library, kernel, development, host and command.
include(CMakePackageConfigHelpers)

set(KIVCLAIM_ZSH_COMPLETION_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
    "Where completion for zsh is installed, below the prefix")

set(KIVCLAIM_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/kivclaim)
set(KIVCLAIM_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/kivclaim)
set(KIVCLAIM_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# kivclaim_public_headers([COMPONENT name] header...) installs headers of the current directory, below a directory of
# the same name. Other headers are not installed.
function(kivclaim_public_headers)
    cmake_parse_arguments(ARG "" "COMPONENT" "" ${ARGN})
    if(NOT ARG_COMPONENT)
        set(ARG_COMPONENT development)
    endif()
    foreach(header IN LISTS ARG_UNPARSED_ARGUMENTS)
        get_filename_component(path ${header} ABSOLUTE)
        file(RELATIVE_PATH path ${PROJECT_SOURCE_DIR} ${path})
        get_filename_component(directory ${path} DIRECTORY)
        install(FILES ${PROJECT_SOURCE_DIR}/${path} DESTINATION ${KIVCLAIM_INSTALL_INCLUDEDIR}/${directory}
                COMPONENT ${ARG_COMPONENT})
        set_property(GLOBAL APPEND PROPERTY KIVCLAIM_PUBLIC_HEADERS ${path})
    endforeach()
endfunction()

# kivclaim_install_library(target component) installs a library; its development link is installed with the headers.
function(kivclaim_install_library target component)
    install(TARGETS ${target} EXPORT kivclaim
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT development)
endfunction()

# kivclaim_run_path(target component destination directory...) gives the target a run path with these directories in the
# build tree, and none when it is installed. CMake's own rewriting of run paths would leave an empty entry in that of
# the build tree, which means the current directory.
function(kivclaim_run_path target component destination)
    set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${ARGN}")
    set(installed "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${destination}/$<TARGET_FILE_NAME:${target}>")
    install(CODE "file(RPATH_REMOVE FILE \"${installed}\")" COMPONENT ${component})
endfunction()

# kivclaim_pkgconfig(name [component]) installs NAME.pc, made from NAME.pc.in in the current directory.
function(kivclaim_pkgconfig name)
    set(component ${ARGV1})
    if(NOT component)
        set(component development)
    endif()
    # Relative to the file itself: the installed tree can be moved.
    file(RELATIVE_PATH upwards /${KIVCLAIM_INSTALL_PKGCONFIGDIR} /)
    set(KIVCLAIM_PC_PREFIX "\${pcfiledir}/${upwards}")
    string(REGEX REPLACE "/$" "" KIVCLAIM_PC_PREFIX "${KIVCLAIM_PC_PREFIX}")
    configure_file(${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${KIVCLAIM_INSTALL_PKGCONFIGDIR}
            COMPONENT ${component})
endfunction()

# Installs the CMake package. Call it after every library has been added.
function(kivclaim_install_package)
    install(EXPORT kivclaim NAMESPACE kivclaim:: FILE kivclaimTargets.cmake DESTINATION ${KIVCLAIM_INSTALL_CMAKEDIR}
            COMPONENT development)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kivclaimConfig.cmake.in
        ${PROJECT_BINARY_DIR}/kivclaimConfig.cmake INSTALL_DESTINATION ${KIVCLAIM_INSTALL_CMAKEDIR}
        NO_SET_AND_CHECK_MACRO)
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/kivclaimConfigVersion.cmake COMPATIBILITY SameMajorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/kivclaimConfig.cmake ${PROJECT_BINARY_DIR}/kivclaimConfigVersion.cmake
            DESTINATION ${KIVCLAIM_INSTALL_CMAKEDIR} COMPONENT development)
endfunction()
