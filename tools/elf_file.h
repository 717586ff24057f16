// What an ELF file says about itself, without loading it.
#ifndef KIVCLAIM_TOOLS_ELF_FILE_H
#define KIVCLAIM_TOOLS_ELF_FILE_H

#include <set>
#include <string>
#include <vector>

namespace kivclaim::tools {

struct ElfFile {
    bool isProgram = false;              // otherwise it is a library
    std::string interpreter;             // that it names, the loader; a program without one is linked statically
    std::set<std::string> exported;      // the functions that the loader finds in it
    std::set<std::string> defined;       // all functions that it defines; in a stripped file only the exported ones
    std::vector<std::string> libraries;  // that it names as needed
};

// Throws CommandError, which names the file, for what cannot be read or is no ELF file of this machine.
ElfFile readElfFile(const std::string& path);

}  // namespace kivclaim::tools

#endif
