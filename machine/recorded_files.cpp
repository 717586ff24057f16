#include "machine/recorded_files.h"

#include "machine/file_reader.h"
#include "machine/tree.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace kivclaim::machine {

RecordedFiles::RecordedFiles(const Root& root) : shownName(root.name()), tree(std::make_unique<Tree>(root))
{
}

RecordedFiles::~RecordedFiles() = default;

std::optional<std::string> RecordedFiles::content(const std::string& path, std::size_t longest) const
{
    const auto refuse = [&](const std::string& reason) {
        throw ReadError("cannot read '" + pathOf(path) + "': " + reason);
    };
    struct stat status {};
    const Descriptor place = tree->openAnywhere(path, O_PATH);
    if (!place.isOpen() && (errno == ENOENT || errno == ENOTDIR)) {
        return std::nullopt;
    }
    if (!place.isOpen() || ::fstat(place.get(), &status) != 0) {
        refuse(std::strerror(errno));
    }
    // A copied node must not be opened, it is a device of this machine.
    if (!S_ISREG(status.st_mode)) {
        refuse("it is no regular file");
    }
    const Descriptor file = tree->openAnywhere(path, O_RDONLY);
    if (!file.isOpen()) {
        refuse(std::strerror(errno));
    }
    FileReader files;
    Marks marks = noMark;
    std::string text(files.content(file.get(), longest, marks));
    if (marks != noMark) {
        refuse((marks & tooLarge) != 0 ? "it is longer than " + std::to_string(longest) + " bytes"
                                       : std::string("reading it failed"));
    }
    return text;
}

bool RecordedFiles::isExecutable(const std::string& path) const
{
    constexpr mode_t byAnybody = S_IXUSR | S_IXGRP | S_IXOTH;
    struct stat status {};
    const Descriptor place = tree->openAnywhere(path, O_PATH);
    return place.isOpen() && ::fstat(place.get(), &status) == 0 && (status.st_mode & byAnybody) != 0;
}

}  // namespace kivclaim::machine
