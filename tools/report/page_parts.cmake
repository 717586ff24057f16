# The style and the script of a report are files of their own, and part of the program.
set(parts ${CMAKE_CURRENT_SOURCE_DIR}/report)
file(READ ${parts}/page.css page_style)
file(READ ${parts}/page.js page_script)
configure_file(${parts}/page_parts.cpp.in ${CMAKE_CURRENT_BINARY_DIR}/page_parts.cpp @ONLY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${parts}/page.css ${parts}/page.js)
target_sources(kivclaim_command PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/page_parts.cpp)
