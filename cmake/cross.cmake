# Debian's cross compilers and packages of another architecture:
# cmake --toolchain cmake/cross.cmake -DKIVCLAIM_TRIPLET=s390x-linux-gnu
set(KIVCLAIM_TRIPLET "" CACHE STRING "GNU name of the architecture to build for, such as s390x-linux-gnu")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KIVCLAIM_TRIPLET)
if(KIVCLAIM_TRIPLET STREQUAL "")
    message(FATAL_ERROR "KIVCLAIM_TRIPLET is not set: give the architecture to build for, such as s390x-linux-gnu")
endif()

set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${KIVCLAIM_TRIPLET}")
set(CMAKE_CXX_COMPILER ${KIVCLAIM_TRIPLET}-g++)
# CMake looks for packages of that architecture, not of this machine.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${KIVCLAIM_TRIPLET}/pkgconfig:/usr/share/pkgconfig)
