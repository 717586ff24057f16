// The files that tell what a machine's block devices are, taken along: a root directory made of them shows the same
// machine.
#ifndef KIVCLAIM_MACHINE_COPY_H
#define KIVCLAIM_MACHINE_COPY_H

#include "machine/machine.h"

#include <map>
#include <set>
#include <string>

namespace kivclaim::machine {

struct CopiedFile {
    enum class Type : unsigned char { directory, file, link };

    Type type = Type::directory;
    std::string content;  // of a link where it leads to: never an absolute path, nor out of the root
};

// By path below the root, "sys/class/block/sda"; the directories above a file are among them.
using CopiedFiles = std::map<std::string, CopiedFile>;

// What for: everything that Machine::read opens, with all facts, and what lsblk reads beside it. Of a live machine a
// list of its nodes, too, and a file for each device that lsblk takes for udev's database. A file that could not be
// read is an empty directory, which cannot be read either. Threads: any. Failure: ReadError like Machine::read;
// std::bad_alloc.
struct Copy {
    CopiedFiles files;
    std::set<std::string> unreadable;  // for lack of rights; paths below the root
};

Copy copyOf(const Root& root);

// Adds what is missing of the directories above `path`.
void addDirectoriesAbove(CopiedFiles& files, const std::string& path);

// "../sda" for a link in the directory "dev/disk" that leads to "dev/sda".
std::string relativeLink(const std::string& directory, const std::string& target);

}  // namespace kivclaim::machine

#endif
