// The words of which the messages of LVM's tools are made.
#ifndef KIVCLAIM_TOOLS_RECORDING_MESSAGE_WORDS_H
#define KIVCLAIM_TOOLS_RECORDING_MESSAGE_WORDS_H

#include <string_view>

namespace kivclaim::tools {

// Whether a word, in upper or lower case, is one of those; any other may be a name. Failure: none.
bool isMessageWord(std::string_view word);

}  // namespace kivclaim::tools

#endif
