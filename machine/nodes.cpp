#include "machine/nodes.h"

#include "machine/file_reader.h"
#include "machine/text.h"
#include "machine/tree.h"

#include <fcntl.h>

#include <cstdio>

namespace kivclaim::machine {

namespace {

std::string withOctalEscapes(std::string_view text)
{
    std::string escaped;
    for (const char character : text) {
        if (character > ' ' && character != '\\' && character != '\x7f') {
            escaped += character;
            continue;
        }
        char octal[5];
        std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned char>(character));
        escaped += octal;
    }
    return escaped;
}

}  // namespace

Nodes::Nodes(std::string_view text)
{
    while (!text.empty()) {
        std::string_view line = takeUntil(text, '\n');
        Node node;
        node.isReadable = takeUntil(line, ' ') == "r";
        node.number = deviceNumberIn(takeUntil(line, ' '));
        if (!line.empty()) {
            nodes.emplace(withoutOctalEscapes(line), node);
        }
    }
}

const Node* Nodes::at(const std::string& path) const
{
    const auto found = nodes.find(path);
    return found != nodes.end() ? &found->second : nullptr;
}

std::optional<Nodes> nodesOf(const Tree& tree)
{
    if (tree.isLive()) {
        return std::nullopt;
    }
    const Descriptor file = tree.openAnywhere(nodesFile, O_RDONLY);
    if (!file.isOpen()) {
        return std::nullopt;
    }
    FileReader files;
    Marks ignored = noMark;
    return Nodes(files.content(file.get(), longestFile, ignored));
}

std::string nodeLine(const std::string& path, const Node& node)
{
    const std::string number =
        node.number ? std::to_string(node.number->major) + ":" + std::to_string(node.number->minor) : "-";
    return std::string(node.isReadable ? "r " : "- ").append(number).append(" ") + withOctalEscapes(path) + "\n";
}

}  // namespace kivclaim::machine
