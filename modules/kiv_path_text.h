// The tests on device paths that all modules share. Not installed.
#ifndef KIVCLAIM_MODULES_KIV_PATH_TEXT_H
#define KIVCLAIM_MODULES_KIV_PATH_TEXT_H

#include <string>
#include <string_view>

namespace kivclaim {

// Unlike std::isdigit: the same in every locale, and defined for bytes above 127.
inline bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

inline bool contains(const std::string& path, std::string_view text)
{
    return path.find(text) != std::string::npos;
}

}  // namespace kivclaim

#endif
