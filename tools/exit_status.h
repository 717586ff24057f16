// The exit statuses of the command, and the error that ends it.
#ifndef KIVCLAIM_TOOLS_EXIT_STATUS_H
#define KIVCLAIM_TOOLS_EXIT_STATUS_H

#include <stdexcept>

namespace kivclaim::tools {

enum ExitStatus : int {
    answeredYes = 0,    // every path was claimed, a partition, …; or there was nothing to decide
    answeredNo = 1,     // some path was not
    failed = 2,         // wrong usage, unreadable input, unwritable output
    answeredUnsure = 3  // some answer may be wrong, because something that it depends on failed
};

// The more important of two outcomes: a failure first, then an unsure answer, then a no.
inline ExitStatus worse(ExitStatus one, ExitStatus other)
{
    for (const ExitStatus status : {failed, answeredUnsure, answeredNo}) {
        if (one == status || other == status) {
            return status;
        }
    }
    return answeredYes;
}

// What was wrong and what to do, in one line without the name of the command.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace kivclaim::tools

#endif
