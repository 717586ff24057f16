#include "tools/elf_file.h"

#include "tools/exit_status.h"

#include <elf.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

// The header of this program, as the linker places it.
extern "C" const Elf64_Ehdr __ehdr_start __attribute__((visibility("hidden")));  // NOLINT(bugprone-reserved-identifier)

namespace kivclaim::tools {

namespace {

[[noreturn]] void refuse(const std::string& path, const std::string& reason)
{
    throw CommandError("cannot examine '" + path + "': " + reason + "; give a program or a shared library");
}

std::string contentOf(const std::string& path)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (error) {
        refuse(path, error.message());
    }
    if (!std::filesystem::is_regular_file(status)) {
        refuse(path, "it is no regular file");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        refuse(path, std::strerror(errno));
    }
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// Any number in the file may be wrong: reading outside the file gives zeros or an empty text.
class Image {
public:
    explicit Image(std::string bytes) : bytes(std::move(bytes)) {}

    template <class Part>
    Part at(std::uint64_t offset) const
    {
        Part part{};
        if (offset <= bytes.size() && bytes.size() - offset >= sizeof part) {
            std::memcpy(&part, bytes.data() + offset, sizeof part);
        }
        return part;
    }

    std::string textAt(std::uint64_t offset) const
    {
        return offset < bytes.size() ? std::string(bytes.c_str() + offset) : std::string();
    }

    std::uint64_t size() const { return bytes.size(); }

private:
    std::string bytes;
};

bool isOfThisMachine(const Elf64_Ehdr& header)
{
    // Magic number, class and byte order.
    return std::memcmp(header.e_ident, __ehdr_start.e_ident, EI_DATA + 1) == 0 &&
           header.e_machine == __ehdr_start.e_machine && (header.e_type == ET_DYN || header.e_type == ET_EXEC);
}

std::uint64_t entries(const Image& image, const Elf64_Shdr& section, std::size_t size)
{
    return std::min<std::uint64_t>(section.sh_size, image.size()) / size;
}

void addFunctions(const Image& image, const Elf64_Shdr& section, const Elf64_Shdr& texts, ElfFile& file)
{
    for (std::uint64_t i = 0; i < entries(image, section, sizeof(Elf64_Sym)); ++i) {
        const auto symbol = image.at<Elf64_Sym>(section.sh_offset + i * sizeof(Elf64_Sym));
        if (symbol.st_shndx == SHN_UNDEF || ELF64_ST_TYPE(symbol.st_info) != STT_FUNC) {
            continue;
        }
        const std::string name = image.textAt(texts.sh_offset + symbol.st_name);
        file.defined.insert(name);
        if (section.sh_type == SHT_DYNSYM) {
            file.exported.insert(name);
        }
    }
}

void addDynamicSection(const Image& image, const Elf64_Shdr& section, const Elf64_Shdr& texts, ElfFile& file)
{
    for (std::uint64_t i = 0; i < entries(image, section, sizeof(Elf64_Dyn)); ++i) {
        const auto entry = image.at<Elf64_Dyn>(section.sh_offset + i * sizeof(Elf64_Dyn));
        if (entry.d_tag == DT_NEEDED) {
            file.libraries.push_back(image.textAt(texts.sh_offset + entry.d_un.d_val));
        } else if (entry.d_tag == DT_FLAGS_1 && (entry.d_un.d_val & DF_1_PIE) != 0) {
            file.isProgram = true;
        }
    }
}

}  // namespace

ElfFile readElfFile(const std::string& path)
{
    const Image image(contentOf(path));
    const auto header = image.at<Elf64_Ehdr>(0);
    if (!isOfThisMachine(header)) {
        refuse(path, "it is no ELF file of this kind of machine");
    }
    ElfFile file;
    file.isProgram = header.e_type == ET_EXEC;
    for (unsigned int i = 0; i < header.e_phnum; ++i) {
        const auto part = image.at<Elf64_Phdr>(header.e_phoff + i * sizeof(Elf64_Phdr));
        if (part.p_type == PT_INTERP) {
            file.isProgram = true;
            file.interpreter = image.textAt(part.p_offset);
        }
    }
    const auto section = [&](std::uint64_t index) {
        return image.at<Elf64_Shdr>(header.e_shoff + index * sizeof(Elf64_Shdr));
    };
    for (unsigned int i = 0; i < header.e_shnum; ++i) {
        const Elf64_Shdr part = section(i);
        if (part.sh_type == SHT_DYNSYM || part.sh_type == SHT_SYMTAB) {
            addFunctions(image, part, section(part.sh_link), file);
        } else if (part.sh_type == SHT_DYNAMIC) {
            addDynamicSection(image, part, section(part.sh_link), file);
        }
    }
    return file;
}

}  // namespace kivclaim::tools
