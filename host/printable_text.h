// Makes foreign text safe to show.
#ifndef KIVCLAIM_HOST_PRINTABLE_TEXT_H
#define KIVCLAIM_HOST_PRINTABLE_TEXT_H

#include "framework/ztfi_export.h"

#include <string>
#include <string_view>

namespace kivclaim::host {

// `text` with every control character (also those above 127 and those that change the direction of writing), and every
// byte that is not UTF-8, written as \xHH, so that it can neither end a line nor drive a terminal nor show itself in
// another order. Everything else stays as it is, a backslash included: device
// names really contain texts such as \x20, and must come out as they are.
//
// Threads: any. Failure: only running out of memory, as std::bad_alloc.
ZTFI_API std::string printableText(std::string_view text);

}  // namespace kivclaim::host

#endif
