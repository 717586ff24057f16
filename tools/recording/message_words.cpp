#include "tools/recording/message_words.h"

#include <strings.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace kivclaim::tools {

namespace {

// What is between them is not: "couldn't" is two.
constexpr const char* words[] = {
    "a",          "access",       "activated",    "active",     "after",     "all",       "already",  "an",
    "and",        "another",      "are",          "as",         "at",        "bad",       "be",       "because",
    "been",       "by",           "bytes",        "can",        "cannot",    "check",     "checksum", "clustered",
    "command",    "config",       "consider",     "corrupt",    "could",     "couldn",    "data",     "denied",
    "descriptor", "detected",     "device",       "devices",    "different", "directory", "disabled", "does",
    "doesn",      "don",          "duplicate",    "empty",      "error",     "exist",     "exists",   "exported",
    "failed",     "failure",      "file",         "filter",     "find",      "for",       "foreign",  "found",
    "from",       "full",         "get",          "group",      "groups",    "has",       "have",     "id",
    "in",         "inconsistent", "input/output", "internal",   "invalid",   "io",        "is",       "last",
    "leaked",     "lock",         "locking",      "logical",    "lv",        "lvm",       "medium",   "memory",
    "metadata",   "mirror",       "missing",      "more",       "name",      "no",        "not",      "of",
    "offset",     "old",          "on",           "only",       "open",      "option",    "or",       "out",
    "parent",     "partial",      "path",         "permission", "physical",  "process",   "pid",      "pv",
    "pvs",        "raid",         "read",         "reading",    "repair",    "run",       "scan",     "sector",
    "set",        "size",         "skipping",     "some",       "space",     "such",      "system",   "t",
    "the",        "there",        "this",         "to",         "try",       "unable",    "unknown",  "unreadable",
    "use",        "using",        "uuid",         "vg",         "volume",    "volumes",   "warning",  "was",
    "were",       "while",        "with",         "without",    "write",     "written",
};

}  // namespace

bool isMessageWord(std::string_view word)
{
    const std::string text(word);
    return std::any_of(std::begin(words), std::end(words),
                       [&](const char* known) { return strcasecmp(known, text.c_str()) == 0; });
}

}  // namespace kivclaim::tools
