// Writes the number of lines that its first argument names, each of 79 characters and a line feed, as fast as it can.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

int main(int count, char** words)
{
    constexpr std::size_t linesPerBlock = 4096;
    const std::string line = std::string(79, 'x') + "\n";
    std::string block;
    for (std::size_t i = 0; i < linesPerBlock; ++i) {
        block += line;
    }
    std::size_t left = count > 1 ? std::strtoull(words[1], nullptr, 10) * line.size() : 0;
    while (left > 0) {
        const ssize_t written = ::write(STDOUT_FILENO, block.data(), std::min(left, block.size()));
        if (written <= 0 || static_cast<std::size_t>(written) % line.size() != 0) {
            // A blocking pipe takes the whole block; after a partial write, the next one would begin inside a line.
            return 1;
        }
        left -= static_cast<std::size_t>(written);
    }
    return 0;
}
