// Where a machine keeps its texts and lists: few large blocks that never move. Private to machine/.
#ifndef KIVCLAIM_MACHINE_TEXT_POOL_H
#define KIVCLAIM_MACHINE_TEXT_POOL_H

#include "machine/machine.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>
#include <vector>

namespace kivclaim::machine {

// Threads: one at a time. Ownership: what it returns ends with the pool. Failure: std::bad_alloc.
class TextPool {
public:
    std::string_view keep(std::string_view text)
    {
        if (text.empty()) {
            return {};
        }
        char* const place = take(text.size() + 1, 1);
        std::memcpy(place, text.data(), text.size());
        place[text.size()] = '\0';
        return {place, text.size()};
    }

    std::string_view keep(std::string_view beginning, std::string_view end)
    {
        char* const place = take(beginning.size() + end.size() + 1, 1);
        std::copy(end.begin(), end.end(), std::copy(beginning.begin(), beginning.end(), place));
        place[beginning.size() + end.size()] = '\0';
        return {place, beginning.size() + end.size()};
    }

    template <class Item>
    Item* array(std::size_t count)
    {
        static_assert(std::is_trivially_destructible_v<Item>);
        void* const place = take(count * sizeof(Item), alignof(Item));
        return new (place) Item[count];
    }

private:
    static constexpr std::size_t blockSize = 64UL * 1024;

    char* take(std::size_t size, std::size_t alignment)
    {
        used = (used + alignment - 1) / alignment * alignment;
        if (blocks.empty() || used + size > capacity) {
            capacity = std::max(size, blockSize);
            blocks.emplace_back(new char[capacity]);
            used = 0;
        }
        used += size;
        return blocks.back().get() + used - size;
    }

    std::vector<std::unique_ptr<char[]>> blocks;
    std::size_t used = 0;
    std::size_t capacity = 0;
};

}  // namespace kivclaim::machine

#endif
