// Replacements of names and identifiers in a redacted recording.
#ifndef KIVCLAIM_TOOLS_RECORDING_STAND_INS_H
#define KIVCLAIM_TOOLS_RECORDING_STAND_INS_H

#include <map>
#include <set>
#include <string>
#include <string_view>

namespace kivclaim::tools {

// What for: first everything is asked for once, which collects it and returns it as it is; after assign(), the same
// questions return stand-ins: the same one for the same original, as long as it, and of its shape: dashes, other
// separators and the digits at the end stay, because answers depend on them.
// Threads: one. Ownership: owns what it collected. Failure: none.
class StandIns {
public:
    void assign();

    // A name such as "vg00-lvol1" or "mpatha-part1", word by word.
    std::string name(std::string_view text);
    // An identifier such as a serial number, a WWID or a UUID, as a whole; also with a partition's suffix after it, or
    // with what multipath, udev and sysfs put before it.
    std::string identifier(std::string_view text);
    // A word of which it is not known whether it is a name or an identifier.
    std::string unknown(std::string_view text);
    // Whether a word was collected as a name.
    bool isName(std::string_view text) const { return words.count(std::string(text)) != 0; }
    // A text of which only the words are replaced that were collected as names or look like identifiers.
    std::string freeText(std::string_view text);

private:
    std::string word(std::string_view text);
    std::string stem(const std::string& text);
    std::string wholeIdentifier(const std::string& text);
    bool isKnownIdentifier(std::string_view text) const { return identifiers.count(std::string(text)) != 0; }

    bool isAssigned = false;
    std::map<std::string, std::string> stems;
    std::map<std::string, std::string> identifiers;
    std::set<std::string> words;
};

}  // namespace kivclaim::tools

#endif
