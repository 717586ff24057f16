# Where things are installed, and in which component: library, kernel, development, host,
# command.
include(CMakePackageConfigHelpers)

set(KIVCLAIM_ZSH_COMPLETION_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
    "Where completion for zsh is installed, below the prefix")

set(KIVCLAIM_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/kivclaim)
set(KIVCLAIM_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/kivclaim)
set(KIVCLAIM_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# kivclaim_public_headers([COMPONENT name] header...) installs headers of the current room under the room's name. What is not named
# stays inside.
function(kivclaim_public_headers)
    cmake_parse_arguments(ARG "" "COMPONENT" "" ${ARGN})
    if(NOT ARG_COMPONENT)
        set(ARG_COMPONENT development)
    endif()
    foreach(header IN LISTS ARG_UNPARSED_ARGUMENTS)
        get_filename_component(path ${header} ABSOLUTE)
        file(RELATIVE_PATH path ${PROJECT_SOURCE_DIR} ${path})
        get_filename_component(room ${path} DIRECTORY)
        install(FILES ${PROJECT_SOURCE_DIR}/${path} DESTINATION ${KIVCLAIM_INSTALL_INCLUDEDIR}/${room}
                COMPONENT ${ARG_COMPONENT})
        set_property(GLOBAL APPEND PROPERTY KIVCLAIM_PUBLIC_HEADERS ${path})
    endforeach()
endfunction()

# kivclaim_install_library(target component) installs a library; its development link goes with the headers.
function(kivclaim_install_library target component)
    install(TARGETS ${target} EXPORT kivclaim
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT development)
endfunction()

# kivclaim_run_path(target component destination folder...) makes the target find its libraries in these folders while
# it stands in the build tree, and nowhere but in the system's once it is installed. CMake's own exchange of run paths
# leaves an empty entry in the one of the build tree, which is the current folder of whoever runs it.
function(kivclaim_run_path target component destination)
    set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${ARGN}")
    set(installed "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${destination}/$<TARGET_FILE_NAME:${target}>")
    install(CODE "file(RPATH_REMOVE FILE \"${installed}\")" COMPONENT ${component})
endfunction()

# kivclaim_pkgconfig(name [component]) installs NAME.pc, made of NAME.pc.in in the current room.
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

# The CMake package. To be called once every library has been added.
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
