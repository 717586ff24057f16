// Makes untrusted text safe to show.
#ifndef KIVCLAIM_HOST_PRINTABLE_TEXT_H
#define KIVCLAIM_HOST_PRINTABLE_TEXT_H

#include "framework/ztfi_export.h"

#include <string>
#include <string_view>

namespace kivclaim::host {

// Returns `text` with every control character (also those above 127 and those that change the direction of text), and
// every byte that is not UTF-8, written as \xHH. So it can neither end a line, nor control a terminal, nor change the
// order in which it is shown. Everything else stays as it is, also a backslash: device names really contain texts such
// as \x20, which must not change.
//
// Threads: any. Failure: only running out of memory, as std::bad_alloc.
ZTFI_API std::string printableText(std::string_view text);

}  // namespace kivclaim::host

#endif
