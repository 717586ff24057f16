// The tables of messages in the guide hold what the sources trace, to the letter, and nothing else.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Message = std::tuple<std::string, std::string, std::string>;  // class, level, text
using Messages = std::map<Message, std::set<std::string>>;          // with the operations that write it

std::string contentOf(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(std::string(KIVCLAIM_SOURCE) + "/" + path).rdbuf();
    EXPECT_FALSE(content.str().empty()) << path;
    return content.str();
}

std::string levelNumber(const std::string& name)
{
    static const std::map<std::string, std::string> numbers = {
        {"ERROR", "1"}, {"WARNING", "2"}, {"INFORMATION", "3"}, {"DETAIL", "6"}};
    const std::string prefix = "ZTFI_TRACE_LEVEL_";
    const auto number = numbers.find(name.compare(0, prefix.size(), prefix) == 0 ? name.substr(prefix.size()) : name);
    return number != numbers.end() ? number->second : name + "?";
}

// The texts of the format argument that begins at `place`: several when a condition chooses between them.
std::vector<std::string> formatTexts(const std::string& source, std::size_t place)
{
    std::vector<std::string> texts;
    int depth = 0;
    for (; place < source.size() && depth >= 0; ++place) {
        if (source[place] == '"') {
            const std::size_t end = source.find('"', place + 1);  // no message holds a quotation mark
            texts.push_back(source.substr(place + 1, end - place - 1));
            place = end;
        } else if (source[place] == ',' && depth == 0) {
            break;
        } else {
            depth += source[place] == '(' ? 1 : source[place] == ')' ? -1 : 0;
        }
    }
    return texts;
}

// The class and the operation of the last definition before `place`.
std::pair<std::string, std::string> definitionBefore(const std::string& source, std::size_t place)
{
    static const std::regex definition(R"(\n[A-Za-z][^\n;=]*?\b(\w+)::(\w+)\()");
    const auto head = source.substr(0, place);
    std::pair<std::string, std::string> found;
    for (std::sregex_iterator match(head.begin(), head.end(), definition); match != std::sregex_iterator(); ++match) {
        found = {(*match)[1], (*match)[2]};
    }
    return found;
}

// The operations of the headers that the private steps of the modules belong to.
std::set<std::string> publicOperations(const std::string& operation)
{
    static const std::map<std::string, std::set<std::string>> steps = {
        {"query", {"getZtVMDiskForOSDiskHandler", "getOSDiskHandleForZtVMDisk"}},
        {"wholeDeviceOfUnknownRelease", {"removePartitionSuffix"}},
        {"buildList", {"createLvmDeviceNamesList"}},
        {"reportFailedListing", {"createLvmDeviceNamesList"}},
        {"addLogicalVolumes", {"createLvmDeviceNamesList"}},
        {"logicalVolumeName", {"createLvmDeviceNamesList"}}};
    const auto step = steps.find(operation);
    return step != steps.end() ? step->second : std::set<std::string>{operation};
}

void addMessagesOf(const std::string& path, Messages& messages, const std::string& writer = "",
                   const std::string& operation = "")
{
    static const std::regex call(R"((?:KIV_TRACE|KIV_TRACE_FAILURE|->trace|[.]trace)\(\s*(\w+)\s*,\s*)");
    const std::string source = contentOf(path);
    for (std::sregex_iterator match(source.begin(), source.end(), call); match != std::sregex_iterator(); ++match) {
        const auto place = static_cast<std::size_t>(match->position());
        const auto definition = writer.empty() ? definitionBefore(source, place) : std::make_pair(writer, operation);
        const auto texts = formatTexts(source, place + static_cast<std::size_t>(match->length()));
        EXPECT_FALSE(texts.empty()) << "a record without a text in " << path << ": " << match->str();
        for (const std::string& text : texts) {
            messages[{definition.first, levelNumber((*match)[1]), text}].merge(publicOperations(definition.second));
        }
    }
    // Whatever writes a record has been understood.
    static const std::regex anyCall(R"(KIV_TRACE(_FAILURE)?\(|(->|[.])trace\()");
    const auto count = [&](const std::regex& kind) {
        return std::distance(std::sregex_iterator(source.begin(), source.end(), kind), std::sregex_iterator());
    };
    EXPECT_EQ(count(call), count(anyCall)) << path;
}

Messages messagesOfSources()
{
    Messages messages;
    for (const char* const directory : {"framework", "claim", "modules", "host", "host/runner"}) {
        for (const auto& file : std::filesystem::directory_iterator(std::string(KIVCLAIM_SOURCE) + "/" + directory)) {
            const std::string path = std::string(directory) + "/" + file.path().filename().string();
            const std::string kind = file.path().extension();
            if (path == "framework/cfitracelog.h") {
                addMessagesOf(path, messages, "CFiTraceLogFunction", "all");
            } else if (path == "host/exec_pipe.cpp") {
                addMessagesOf(path, messages, "CFiExecPipeBase", "Exec");
            } else if ((kind == ".cpp" || kind == ".h") && path != "claim/kiv_trace.h") {  // which defines the macro
                addMessagesOf(path, messages);
            }
        }
    }
    return messages;
}

std::set<std::string> wordsOf(const std::string& cell)
{
    static const std::regex word("\\w+");
    return {std::sregex_token_iterator(cell.begin(), cell.end(), word), std::sregex_token_iterator()};
}

Messages messagesOfGuide()
{
    static const std::regex heading("### `(\\w+)`");
    static const std::regex row("[|] ([0-9]) [|] `([^`]*)` [|] ([^|]*) [|] [^|]+ [|]");
    std::istringstream guide(contentOf("docs/host-guide.md"));
    Messages messages;
    std::string writer;
    std::smatch match;
    for (std::string line; std::getline(guide, line);) {
        if (std::regex_match(line, match, heading)) {
            writer = match[1];
        } else if (!writer.empty() && std::regex_match(line, match, row)) {
            const bool isNew = messages.emplace(Message{writer, match[1], match[2]}, wordsOf(match[3])).second;
            EXPECT_TRUE(isNew) << "twice in the guide: " << line;
        } else {
            EXPECT_TRUE(writer.empty() || line.compare(0, 2, "| ") != 0 || line.compare(0, 7, "| Level") == 0)
                << "no row of a table of messages: " << line;
        }
    }
    return messages;
}

std::string shown(const Messages& messages)
{
    std::string text;
    for (const auto& [message, operations] : messages) {
        text += std::get<0>(message) + " " + std::get<1>(message) + " \"" + std::get<2>(message) + "\" in";
        for (const std::string& operation : operations) {
            text += " " + operation;
        }
        text += "\n";
    }
    return text;
}

Messages without(Messages messages, const Messages& others)
{
    for (const auto& [message, operations] : others) {
        const auto same = messages.find(message);
        if (same != messages.end() && same->second == operations) {
            messages.erase(same);
        }
    }
    return messages;
}

}  // namespace

TEST(MessageTable, HoldsEveryMessageOfTheSourcesWithItsLevelAndOperationsAndNoOther)
{
    const Messages sources = messagesOfSources();
    const Messages guide = messagesOfGuide();
    EXPECT_GT(sources.size(), 50U) << "is the search wrong?";
    EXPECT_EQ(shown(without(sources, guide)), "") << "in the sources, not in docs/host-guide.md";
    EXPECT_EQ(shown(without(guide, sources)), "") << "in docs/host-guide.md, not in the sources";
}
