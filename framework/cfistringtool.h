// The host's string tools. All of them are supplied by the host.
#ifndef KIVCLAIM_FRAMEWORK_CFISTRINGTOOL_H
#define KIVCLAIM_FRAMEWORK_CFISTRINGTOOL_H

#include "framework/ztfi_export.h"

#include <ace/SString.h>

#include <cstddef>
#include <string>
#include <vector>

namespace ztfi_pdk_4_4 {

// Threads: every operation works on its arguments alone. Failure: only running out of memory, as std::bad_alloc.
class ZTFI_API CFiStringTool {
public:
    // The pieces of `text` between `separators`; adjacent separators give no empty piece.
    static std::vector<std::string> tokenize(const std::string& text, const std::string& separators);

    // `text` without the given characters at both ends.
    static std::string trim(const std::string& text, const std::string& characters);

    // Looks for the first of `lines`, from the 0-based line `index` on, that contains `text`. Found: sets `index` to
    // that line and returns the position of the text in it. Not found: returns npos and leaves `index` as it was.
    static std::size_t find(const std::vector<std::string>& lines, const std::string& text, unsigned long& index,
                            bool ignoreCase);

    // To the framework's string type, byte for byte.
    static ACE_String_Base<char> str2tstr(const std::string& text);
    // From the framework's string type, byte for byte.
    static std::string tstr2str(const ACE_String_Base<char>& text);
};

}  // namespace ztfi_pdk_4_4

#endif
