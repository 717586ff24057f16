#include "host/runner/child_environment.h"

#include "host/runner/kernel_copy.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kivclaim::host_internal {

namespace {

// The variables that are replaced or left out, even if the environment contains them several times.
constexpr std::array<std::string_view, 3> ownVariables{"LC_ALL=", "LANGUAGE=", "LVM_SUPPRESS_FD_WARNINGS="};
constexpr std::size_t beginningBytes = 25;  // of an entry: the longest of these names
constexpr std::size_t entriesAtOnce = KernelCopy::mostBytes / beginningBytes;
constexpr int mostAttempts = 20;

char localeSetting[] = "LC_ALL=C";
char descriptorWarningSetting[] = "LVM_SUPPRESS_FD_WARNINGS=1";

// The beginning of an entry; if the entry is shorter, also the bytes that follow it.
using Beginning = std::array<char, beginningBytes>;

bool isOwnVariable(const Beginning& beginning)
{
    return std::any_of(ownVariables.begin(), ownVariables.end(),
                       [&](std::string_view name) { return std::string_view(beginning.data(), name.size()) == name; });
}

// Memory is readable or not by whole pages; KernelCopy's limit is not larger than the smallest page.
std::size_t bytesToEndOfPage(const void* address)
{
    return KernelCopy::mostBytes - reinterpret_cast<std::uintptr_t>(address) % KernelCopy::mostBytes;
}

// One attempt to read the environment.
class EnvironmentReader {
public:
    explicit EnvironmentReader(const Pipe& emptyPipe) : kernel(emptyPipe) {}

    std::vector<char*> read();

    // True when nothing was missing, and the list was still the same at the end.
    bool isWhole() const { return whole; }

private:
    std::vector<char*> readList(char** list);
    void keepOthers(char** entries, std::size_t count, std::vector<char*>& kept);
    bool readRest(const iovec& part, Beginning& beginning);

    KernelCopy kernel;
    std::array<iovec, entriesAtOnce> parts;
    std::array<char, KernelCopy::mostBytes> bytes;
    bool whole = true;
};

std::vector<char*> EnvironmentReader::read()
{
    constexpr std::size_t added = 3;  // the two settings and the final null pointer
    char** const list = __atomic_load_n(&environ, __ATOMIC_ACQUIRE);
    std::vector<char*> all = readList(list);
    std::vector<char*> kept;
    kept.reserve(all.size() + added);
    for (std::size_t first = 0; first < all.size(); first += entriesAtOnce) {
        keepOthers(&all[first], std::min(entriesAtOnce, all.size() - first), kept);
    }
    whole = whole && list == __atomic_load_n(&environ, __ATOMIC_ACQUIRE);
    return kept;
}

// The list as far as it can be read, without the final null pointer.
std::vector<char*> EnvironmentReader::readList(char** list)
{
    std::vector<char*> all;
    std::array<char*, KernelCopy::mostBytes / sizeof(char*)> part;
    while (list != nullptr) {
        const std::size_t size = bytesToEndOfPage(list);
        if (size < sizeof(char*) || !kernel.copy(list, size, part.data())) {
            whole = false;
            break;
        }
        char** const partEnd = part.data() + size / sizeof(char*);
        char** const end = std::find(part.data(), partEnd, nullptr);
        all.insert(all.end(), part.data(), end);
        list = end == partEnd ? list + (partEnd - part.data()) : nullptr;
    }
    return all;
}

// Reads the beginnings of the entries, all in one step when none is missing.
void EnvironmentReader::keepOthers(char** entries, std::size_t count, std::vector<char*>& kept)
{
    for (std::size_t i = 0; i < count; ++i) {
        parts[i] = {entries[i], std::min(bytesToEndOfPage(entries[i]), beginningBytes)};
    }
    const bool areRead = kernel.copy(parts.data(), static_cast<int>(count), bytes.data());
    const char* next = bytes.data();
    for (std::size_t i = 0; i < count; ++i) {
        Beginning beginning{};
        std::copy(next, next + parts[i].iov_len, beginning.begin());
        next += parts[i].iov_len;
        const bool isRead = areRead || kernel.copy(&parts[i], 1, beginning.data());
        if (!isRead || !readRest(parts[i], beginning)) {
            whole = false;
        } else if (!isOwnVariable(beginning)) {
            kept.push_back(entries[i]);
        }
    }
}

// An entry near the end of a page may continue in the next page, which need not be readable.
bool EnvironmentReader::readRest(const iovec& part, Beginning& beginning)
{
    const std::size_t length = part.iov_len;
    if (length == beginningBytes || std::memchr(beginning.data(), '\0', length) != nullptr) {
        return true;
    }
    return kernel.copy(static_cast<const char*>(part.iov_base) + length, beginningBytes - length,
                       beginning.data() + length);
}

}  // namespace

std::vector<char*> childEnvironment(const Pipe& emptyPipe)
{
    std::vector<char*> entries;
    bool isWhole = false;
    for (int attempt = 0; attempt < mostAttempts && !isWhole; ++attempt) {
        EnvironmentReader reader(emptyPipe);
        entries = reader.read();
        isWhole = reader.isWhole();
    }
    entries.push_back(localeSetting);
    entries.push_back(descriptorWarningSetting);
    entries.push_back(nullptr);
    return entries;
}

}  // namespace kivclaim::host_internal
