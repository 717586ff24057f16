# For a cross-build whose programs run on the build machine: every program is linked as NAME.foreign, and NAME is the
# launcher (portability/launcher.cpp), which runs it under qemu-user. CMake reads this file right after project(), as
# CMAKE_PROJECT_kivclaim_INCLUDE.
set(KIVCLAIM_LAUNCHER /usr/local/bin/launcher CACHE FILEPATH "Program that runs NAME.foreign when it is called NAME")
set(CMAKE_CXX_LINK_EXECUTABLE
    "<CMAKE_CXX_COMPILER> <FLAGS> <CMAKE_CXX_LINK_FLAGS> <LINK_FLAGS> <OBJECTS> -o <TARGET>.foreign <LINK_LIBRARIES>"
    "cp ${KIVCLAIM_LAUNCHER} <TARGET>"
    "printf '\\n%s/%s.foreign' ${CMAKE_BINARY_DIR} <TARGET> >> <TARGET>")
