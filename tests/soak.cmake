# The long run that looks for leaks: built and run only by `./dev soak`.
add_executable(soak EXCLUDE_FROM_ALL soak/soak.cpp)
target_link_libraries(soak PRIVATE kivclaim::kivclaim kivclaim::ztfi_pdk)
