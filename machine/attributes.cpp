#include "machine/attributes.h"

#include "machine/text.h"

#include <fcntl.h>

#include <cerrno>
#include <climits>

namespace kivclaim::machine {

namespace {

Marks markOf(int error)
{
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return noMark;  // it has no such attribute
        case ENODEV:
        case ENXIO:
            return vanished;
        case ELOOP:
            return circle;
        default:
            return unreadable;
    }
}

}  // namespace

const int Attributes::asDirectory = O_RDONLY | O_DIRECTORY;

int Attributes::directory()
{
    if (!tried) {
        tried = true;
        opened = tree.open(Top::sys, place, O_PATH | O_DIRECTORY);
        if (!opened.isOpen()) {
            marks |= errno == ENOENT || errno == ENOTDIR ? Marks{vanished} : markOf(errno);
        }
    }
    return opened.get();
}

Descriptor Attributes::open(const char* name, int flags)
{
    if (directory() < 0) {
        return Descriptor();
    }
    // "device" is a link.
    const bool direct = tree.isLive() || !beginsWith(name, "device/");
    if (direct) {
        tree.note(Top::sys, place + "/" + name, flags);
    }
    Descriptor file = direct ? tree.openBelow(opened.get(), name, flags) : Descriptor();
    if (!file.isOpen() && (!direct || errno == ELOOP || errno == EXDEV || errno == EAGAIN)) {
        file = tree.open(Top::sys, place + "/" + name, flags);
    }
    if (!file.isOpen()) {
        marks |= markOf(errno);
    }
    return file;
}

std::optional<std::string_view> Attributes::read(const char* name)
{
    const Descriptor file = open(name, O_RDONLY);
    if (!file.isOpen()) {
        return std::nullopt;
    }
    const Marks before = std::exchange(marks, noMark);
    const std::string_view content = trimmed(files.content(file.get(), longestAttribute, marks));
    const bool failed = marks != noMark;
    marks |= before;
    return failed ? std::nullopt : std::optional<std::string_view>(content);
}

std::string_view Attributes::text(const char* name)
{
    return keep(read(name).value_or(std::string_view()));
}

std::optional<std::uint64_t> Attributes::number(const char* name, std::uint64_t most)
{
    const std::optional<std::string_view> content = read(name);
    const std::optional<std::uint64_t> number = content ? numberIn(*content, most) : std::nullopt;
    if (content && !number) {
        marks |= outOfRange;
    }
    return number;
}

bool Attributes::flag(const char* name)
{
    return number(name, 1).value_or(0) != 0;
}

std::string Attributes::linkTarget(const char* name)
{
    tree.note(Top::sys, place + "/" + name, O_PATH);
    char target[PATH_MAX];
    const ssize_t length = directory() < 0 ? -1 : ::readlinkat(opened.get(), name, target, sizeof target);
    const std::string_view text(target, length > 0 ? static_cast<std::size_t>(length) : 0);
    return std::string(text.substr(text.rfind('/') + 1));
}

std::string_view Attributes::keep(std::string_view text)
{
    if (!isUtf8(text)) {
        marks |= notUtf8;
    }
    return texts.keep(text);
}

}  // namespace kivclaim::machine
