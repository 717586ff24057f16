# The long run against leaks: built and run by `./dev soak` alone.
add_executable(soak EXCLUDE_FROM_ALL soak/soak.cpp)
target_link_libraries(soak PRIVATE kivclaim::kivclaim kivclaim::ztfi_pdk)
