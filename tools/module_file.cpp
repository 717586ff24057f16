#include "tools/module_file.h"

#include "claim/kiv_claim_module_entry.h"
#include "tools/exit_status.h"

#include <dlfcn.h>
#include <elf.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace kivclaim::tools {

namespace {

[[noreturn]] void refuse(const std::string& path, const std::string& reason, const std::string& remedy)
{
    throw CommandError("cannot load the module '" + path + "': " + reason + "; " + remedy);
}

constexpr char giveAModule[] = "give a claim module built against this release, see claim/kiv_claim_module_entry.h";
constexpr char askItsAuthor[] = "ask its author";

// Only a regular file is opened: opening a FIFO would wait for a writer.
void requireRegularFile(const std::string& path)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (error) {
        refuse(path, error.message(), giveAModule);
    }
    if (!std::filesystem::is_regular_file(status)) {
        refuse(path, "it is no regular file", giveAModule);
    }
}

// Whether this machine can read the numbers of the header.
bool isOfThisKind(const Elf64_Ehdr& header)
{
    constexpr auto ownByteOrder = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? ELFDATA2MSB : ELFDATA2LSB;
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == ELFCLASS64 &&
           header.e_ident[EI_DATA] == ownByteOrder;
}

// What the loader says, without the file's name in front.
std::string loaderError(const std::string& file)
{
    const char* const text = dlerror();
    const std::string error = text != nullptr ? text : "the loader gives no reason";
    const std::string name = file + ": ";
    return error.compare(0, name.size(), name) == 0 ? error.substr(name.size()) : error;
}

void* openLibrary(const std::string& path)
{
    requireRegularFile(path);
    if (isCutOff(path)) {
        refuse(path, "the file is cut off", "copy it anew");
    }
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    // All symbols at once: a missing one is an error here, not during a later answer.
    void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        refuse(path, loaderError(file), giveAModule);
    }
    return library;
}

// The module's function must not throw, but may do so anyway.
CKivDeviceClaimBase* callGuarded(const std::string& path, KivCreateClaimModule* create, unsigned int& itsContract)
{
    try {
        return create(kivClaimModuleContract, &itsContract);
    } catch (const std::exception& error) {
        refuse(path, std::string(kivCreateClaimModuleName) + " threw an exception: " + error.what(), askItsAuthor);
    } catch (...) {
        refuse(path, std::string(kivCreateClaimModuleName) + " threw an exception", askItsAuthor);
    }
}

}  // namespace

// As in a copy that was interrupted. Neither loader nor kernel checks it; the loader finds whatever else may be wrong
// with the file.
bool isCutOff(const std::string& path)
{
    const std::uintmax_t size = std::filesystem::file_size(path);
    std::ifstream file(path, std::ios::binary);
    Elf64_Ehdr header{};
    file.read(reinterpret_cast<char*>(&header), sizeof header);
    if (!file || !isOfThisKind(header)) {
        return false;
    }
    file.seekg(static_cast<std::streamoff>(header.e_phoff));
    for (unsigned int i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr part{};
        file.read(reinterpret_cast<char*>(&part), sizeof part);
        if (!file || (part.p_type == PT_LOAD && (part.p_filesz > size || part.p_offset > size - part.p_filesz))) {
            return true;
        }
    }
    return false;
}

std::unique_ptr<CKivDeviceClaimBase> loadModule(const std::string& path)
{
    void* const library = openLibrary(path);
    auto* const create = reinterpret_cast<KivCreateClaimModule*>(dlsym(library, kivCreateClaimModuleName));
    if (create == nullptr) {
        refuse(path, std::string("it has no function ") + kivCreateClaimModuleName, giveAModule);
    }
    unsigned int moduleContract = 0;
    CKivDeviceClaimBase* const module = callGuarded(path, create, moduleContract);
    if (moduleContract != kivClaimModuleContract) {
        // The module is not deleted: with another contract, its destructor may be in another slot.
        refuse(path, contractMismatch(kivClaimModuleContract, moduleContract),
               "build it against this release's headers, with the options that they ask for");
    }
    if (module == nullptr) {
        refuse(path, std::string(kivCreateClaimModuleName) + " made no module", askItsAuthor);
    }
    return std::unique_ptr<CKivDeviceClaimBase>(module);
}

std::vector<std::unique_ptr<CKivDeviceClaimBase>> loadModules(const std::vector<std::string>& paths)
{
    std::vector<std::unique_ptr<CKivDeviceClaimBase>> modules;
    modules.reserve(paths.size());
    for (const std::string& path : paths) {
        modules.push_back(loadModule(path));
    }
    return modules;
}

}  // namespace kivclaim::tools
