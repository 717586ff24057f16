#include "tools/recording/manifest.h"

#include <sha2.h>
#include <nlohmann/json.hpp>

#include <cstdio>

using kivclaim::machine::CopiedFile;
using kivclaim::machine::CopiedFiles;
using Json = nlohmann::ordered_json;
using Type = kivclaim::machine::CopiedFile::Type;

namespace kivclaim::tools {

namespace {

std::string sha256(const std::string& text)
{
    char digest[SHA256_DIGEST_STRING_LENGTH];
    return SHA256Data(reinterpret_cast<const std::uint8_t*>(text.data()), text.size(), digest);
}

bool isPlain(unsigned char character)
{
    return character >= ' ' && character < 0x7f && character != '%';
}

// JSON holds Unicode, but a name is bytes: all but printable ASCII is written as in a URL.
std::string encoded(std::string_view text)
{
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (isPlain(byte)) {
            result += character;
            continue;
        }
        char code[4];
        std::snprintf(code, sizeof code, "%%%02X", byte);
        result += code;
    }
    return result;
}

int digit(char character)
{
    const std::string_view digits = "0123456789ABCDEF";
    const std::size_t place = digits.find(character);
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

[[noreturn]] void refuseManifest()
{
    throw RecordingError("its manifest was altered");
}

std::string decoded(const std::string& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? digit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? digit(text[i + 2]) : -1;
        if (high < 0 || low < 0 || high + low == 0) {
            refuseManifest();
        }
        result += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return result;
}

Json jsonOf(const std::map<std::string, std::string>& texts)
{
    Json json = Json::object();
    for (const auto& [key, text] : texts) {
        json[encoded(key)] = encoded(text);
    }
    return json;
}

Json jsonOf(const std::string& path, const CopiedFile& file)
{
    Json json = {{"path", encoded(path)}};
    if (file.type == Type::directory) {
        json["directory"] = true;
    } else if (file.type == Type::link) {
        json["link"] = encoded(file.content);
    } else {
        json["bytes"] = file.content.size();
        json["sha256"] = sha256(file.content);
    }
    return json;
}

const Json& member(const Json& json, const char* name, bool (Json::*isRight)() const noexcept)
{
    const auto found = json.is_object() ? json.find(name) : json.end();
    if (!json.is_object() || found == json.end() || !((*found).*isRight)()) {
        refuseManifest();
    }
    return *found;
}

std::string textIn(const Json& json, const char* name)
{
    return decoded(member(json, name, &Json::is_string).get<std::string>());
}

std::uint64_t numberIn(const Json& json, const char* name)
{
    return member(json, name, &Json::is_number_unsigned).get<std::uint64_t>();
}

std::map<std::string, std::string> textsIn(const Json& json, const char* name)
{
    std::map<std::string, std::string> texts;
    for (const auto& [key, value] : member(json, name, &Json::is_object).items()) {
        if (!value.is_string()) {
            refuseManifest();
        }
        texts[decoded(key)] = decoded(value.get<std::string>());
    }
    return texts;
}

void checkFormat(const Json& json)
{
    if (json.is_number_unsigned() && json.get<std::uint64_t>() > recordingFormat) {
        throw RecordingError("it has format " + json.dump() + ", and this release of kivclaim reads up to " +
                             std::to_string(recordingFormat));
    }
}

ExpectedFile fileIn(const Json& json, const std::string& path)
{
    ExpectedFile file;
    if (json.contains("link")) {
        file.type = Type::link;
        file.target = textIn(json, "link");
        checkLink(path, file.target);
    } else if (!json.contains("directory")) {
        file.type = Type::file;
        file.bytes = numberIn(json, "bytes");
        file.sha256 = textIn(json, "sha256");
    }
    return file;
}

// Takes the files out of a manifest while it is parsed, one by one: all at once in JSON they would take gigabytes.
class FileTaker {
public:
    explicit FileTaker(Manifest& manifest) : manifest(manifest) {}

    // A callback of the parser: what it is false for is forgotten.
    bool operator()(int depth, Json::parse_event_t event, const Json& parsed)
    {
        if (depth == 1 && event == Json::parse_event_t::key) {
            member = parsed.get<std::string>();
        } else if (depth == 1 && event == Json::parse_event_t::value && member == "format") {
            checkFormat(parsed);
        }
        return member == "files" && depth >= placeOfFiles ? isKept(depth, event, parsed) : countKept(depth);
    }

private:
    static constexpr int placeOfFiles = 2;
    static constexpr int deepest = 3;
    static constexpr std::size_t mostKept = 1000;

    // Nothing but files is in the list of files.
    bool isKept(int depth, Json::parse_event_t event, const Json& parsed)
    {
        if (depth > placeOfFiles) {
            return countKept(depth);
        }
        if (event == Json::parse_event_t::object_start) {
            keptBefore = kept;
            return true;
        }
        if (event != Json::parse_event_t::object_end) {
            refuseManifest();
        }
        kept = keptBefore;
        take(parsed);
        return false;
    }

    // Of the rest there is little.
    bool countKept(int depth)
    {
        if (depth > deepest || ++kept > mostKept) {
            refuseManifest();
        }
        return true;
    }

    void take(const Json& json)
    {
        const std::string path = textIn(json, "path");
        checkPath(path);
        ExpectedFile file = fileIn(json, path);
        if (file.bytes > mostRecordedBytes || (bytes += file.bytes) > mostRecordedBytes) {
            throw RecordingError("it unpacks to more than 1 GiB");
        }
        if (path == manifestFile || !manifest.files.emplace(path, std::move(file)).second) {
            throw RecordingError("it holds '" + path + "' twice");
        }
        if (manifest.files.size() > mostRecordedFiles) {
            throw RecordingError("it holds more than 4000000 files");
        }
    }

    Manifest& manifest;
    std::uint64_t bytes = 0;
    std::string member;  // of the manifest, the last one met
    std::size_t kept = 0;
    std::size_t keptBefore = 0;
};

// No name and no number is that long, and the parser would keep several copies of one.
void refuseLongTexts(std::string_view text)
{
    constexpr std::size_t longest = 65536;
    while (text.size() > longest) {
        const std::size_t quote = text.substr(0, longest).rfind('"');
        if (quote == std::string_view::npos) {
            refuseManifest();
        }
        text.remove_prefix(quote + 1);
    }
}

}  // namespace

void Manifest::check(const std::string& path, const CopiedFile& file) const
{
    const auto found = files.find(path);
    if (found == files.end()) {
        throw RecordingError("it holds '" + path + "', which its manifest does not name");
    }
    const ExpectedFile& expected = found->second;
    const bool isSame =
        file.type == expected.type &&
        (file.type == Type::directory ||
         (file.type == Type::link ? file.content == expected.target
                                  : file.content.size() == expected.bytes && sha256(file.content) == expected.sha256));
    if (!isSame) {
        throw RecordingError("'" + path + "' in it was altered");
    }
}

void Manifest::checkComplete(const CopiedFiles& found) const
{
    for (const auto& [path, expected] : files) {
        if (found.count(path) == 0) {
            throw RecordingError("'" + path + "' is missing in it");
        }
    }
}

std::uint64_t Manifest::bytesOf(const std::string& path) const
{
    const auto found = files.find(path);
    if (found == files.end()) {
        throw RecordingError("it holds '" + path + "', which its manifest does not name");
    }
    return found->second.bytes;
}

Manifest manifestIn(std::string_view text)
{
    refuseLongTexts(text);
    Manifest manifest;
    FileTaker taker(manifest);
    const auto take = [&](int depth, Json::parse_event_t event, const Json& parsed) {
        return taker(depth, event, parsed);
    };
    const Json json = Json::parse(text, take, false);
    if (json.is_discarded() || !json.is_object()) {
        refuseManifest();
    }
    static_cast<void>(numberIn(json, "format"));
    static_cast<void>(member(json, "files", &Json::is_array));
    manifest.about.kivclaim = textIn(json, "kivclaim");
    manifest.about.time = textIn(json, "time");
    manifest.about.isRedacted = member(json, "redacted", &Json::is_boolean).get<bool>();
    manifest.about.system = textsIn(json, "system");
    manifest.about.versions = textsIn(json, "versions");
    return manifest;
}

std::string manifestOf(const Recording& recording)
{
    Json list = Json::array();
    for (const auto& [path, file] : recording.files) {
        list.push_back(jsonOf(path, file));
    }
    const Json json = {{"format", recordingFormat},
                       {"kivclaim", encoded(recording.kivclaim)},
                       {"time", encoded(recording.time)},
                       {"redacted", recording.isRedacted},
                       {"system", jsonOf(recording.system)},
                       {"versions", jsonOf(recording.versions)},
                       {"files", std::move(list)}};
    return json.dump(1) + "\n";
}

}  // namespace kivclaim::tools
