// A descriptor that is closed by its owner. Private to machine/.
#ifndef KIVCLAIM_MACHINE_DESCRIPTOR_H
#define KIVCLAIM_MACHINE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace kivclaim::machine {

// Ownership: the only owner of its descriptor; a negative one is none. Moving leaves the other one empty.
// Threads: one at a time. Failure: what closing says is ignored: nothing is ever written through these.
class Descriptor {
public:
    explicit Descriptor(int owned = -1) : number(owned) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (number >= 0) {
            ::close(number);
        }
    }

    int get() const { return number; }
    bool isOpen() const { return number >= 0; }

private:
    int number;
};

}  // namespace kivclaim::machine

#endif
