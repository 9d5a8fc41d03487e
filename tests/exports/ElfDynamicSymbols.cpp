#include "ElfDynamicSymbols.h"

#include <cxxabi.h>
#include <elf.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>

namespace elf_inspection {
namespace {

/// The record types of one ELF class. The symbol binding and visibility sit
/// in the same bits for both classes (<elf.h> defines the 64-bit macros by the
/// 32-bit ones), so one pair of accessors serves both.
template <typename Header, typename Section, typename Symbol, typename Dynamic>
struct ElfClass {
    using Ehdr = Header;
    using Shdr = Section;
    using Sym = Symbol;
    using Dyn = Dynamic;
    static unsigned char bind(unsigned char info) { return ELF32_ST_BIND(info); }
    static unsigned char visibility(unsigned char other) { return ELF32_ST_VISIBILITY(other); }
};

using Elf32 = ElfClass<Elf32_Ehdr, Elf32_Shdr, Elf32_Sym, Elf32_Dyn>;
using Elf64 = ElfClass<Elf64_Ehdr, Elf64_Shdr, Elf64_Sym, Elf64_Dyn>;

/// Bounds-checked access to the file's bytes.
class Image {
public:
    explicit Image(std::vector<unsigned char> content) : bytes(std::move(content)) {}

    template <typename T>
    T read(uint64_t offset) const {
        require(offset, sizeof(T));
        T value;
        std::memcpy(&value, bytes.data() + offset, sizeof(T));
        return value;
    }

    std::string string(uint64_t offset) const {
        require(offset, 1);
        const char* begin = reinterpret_cast<const char*>(bytes.data() + offset);
        const void* end = std::memchr(begin, '\0', bytes.size() - offset);
        if (end == nullptr) {
            throw std::runtime_error("unterminated string in ELF file");
        }
        return std::string(begin, static_cast<const char*>(end));
    }

private:
    void require(uint64_t offset, uint64_t size) const {
        if (offset > bytes.size() || size > bytes.size() - offset) {
            throw std::runtime_error("ELF file truncated or malformed");
        }
    }

    std::vector<unsigned char> bytes;
};

template <typename Elf>
class Reader {
public:
    explicit Reader(const Image& file) : image(file) {
        const auto header = image.read<typename Elf::Ehdr>(0);
        for (uint16_t i = 0; i < header.e_shnum; ++i) {
            sections.push_back(image.read<typename Elf::Shdr>(header.e_shoff + uint64_t{i} * header.e_shentsize));
        }
    }

    SharedObject read() const {
        SharedObject object;
        std::map<uint16_t, std::string> versionsByIndex;
        for (const auto& section : sections) {
            if (section.sh_type == SHT_GNU_verdef) {
                readVersionDefinitions(section, object.versionNodes, versionsByIndex);
            }
        }
        for (const auto& section : sections) {
            if (section.sh_type == SHT_DYNSYM) {
                object.dynamicSymbols = readSymbols(section, versionsByIndex);
            } else if (section.sh_type == SHT_SYMTAB) {
                object.allSymbols = readSymbols(section, {});
            } else if (section.sh_type == SHT_DYNAMIC) {
                object.soname = readSoname(section);
            }
        }
        return object;
    }

private:
    uint64_t entries(const typename Elf::Shdr& section, uint64_t entrySize) const {
        return entrySize == 0 ? 0 : section.sh_size / entrySize;
    }

    std::string stringAt(uint32_t stringSection, uint64_t offset) const {
        return image.string(sections.at(stringSection).sh_offset + offset);
    }

    void readVersionDefinitions(const typename Elf::Shdr& section, std::vector<std::string>& nodes,
                                std::map<uint16_t, std::string>& byIndex) const {
        uint64_t offset = section.sh_offset;
        for (uint64_t i = 0; i < section.sh_info; ++i) {
            const auto definition = image.read<Elf32_Verdef>(offset);  // same layout in both classes
            const auto auxiliary = image.read<Elf32_Verdaux>(offset + definition.vd_aux);
            const std::string name = stringAt(section.sh_link, auxiliary.vda_name);
            byIndex[definition.vd_ndx] = name;
            if ((definition.vd_flags & VER_FLG_BASE) == 0) {
                nodes.push_back(name);
            }
            if (definition.vd_next == 0) {
                break;
            }
            offset += definition.vd_next;
        }
    }

    const typename Elf::Shdr* versionTable() const {
        for (const auto& section : sections) {
            if (section.sh_type == SHT_GNU_versym) {
                return &section;
            }
        }
        return nullptr;
    }

    std::vector<Symbol> readSymbols(const typename Elf::Shdr& section,
                                    const std::map<uint16_t, std::string>& versionsByIndex) const {
        const typename Elf::Shdr* versions = versionsByIndex.empty() ? nullptr : versionTable();
        std::vector<Symbol> symbols;
        const uint64_t count = entries(section, sizeof(typename Elf::Sym));
        for (uint64_t i = 1; i < count; ++i) {
            const auto entry = image.read<typename Elf::Sym>(section.sh_offset + i * sizeof(typename Elf::Sym));
            Symbol symbol;
            symbol.name = stringAt(section.sh_link, entry.st_name);
            symbol.defined = entry.st_shndx != SHN_UNDEF;
            const unsigned char binding = Elf::bind(entry.st_info);
            const unsigned char visibility = Elf::visibility(entry.st_other);
            symbol.global = (binding == STB_GLOBAL || binding == STB_WEAK) &&
                            (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
            if (versions != nullptr) {
                const auto index =
                    static_cast<uint16_t>(image.read<uint16_t>(versions->sh_offset + i * sizeof(uint16_t)) & 0x7fff);
                const auto found = versionsByIndex.find(index);
                if (found != versionsByIndex.end()) {
                    symbol.version = found->second;
                }
            }
            symbols.push_back(symbol);
        }
        return symbols;
    }

    std::string readSoname(const typename Elf::Shdr& section) const {
        const uint64_t count = entries(section, sizeof(typename Elf::Dyn));
        for (uint64_t i = 0; i < count; ++i) {
            const auto entry = image.read<typename Elf::Dyn>(section.sh_offset + i * sizeof(typename Elf::Dyn));
            if (entry.d_tag == DT_NULL) {
                break;
            }
            if (entry.d_tag == DT_SONAME) {
                return stringAt(section.sh_link, entry.d_un.d_val);
            }
        }
        return std::string();
    }

    const Image& image;
    std::vector<typename Elf::Shdr> sections;
};

}  // namespace

SharedObject readSharedObject(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot open " + path);
    }
    const Image image(std::vector<unsigned char>(std::istreambuf_iterator<char>(file), {}));
    const auto identity = image.read<std::array<unsigned char, EI_NIDENT>>(0);
    if (std::memcmp(identity.data(), ELFMAG, SELFMAG) != 0) {
        throw std::runtime_error(path + " is not an ELF file");
    }
    if (identity[EI_CLASS] == ELFCLASS64) {
        return Reader<Elf64>(image).read();
    }
    if (identity[EI_CLASS] == ELFCLASS32) {
        return Reader<Elf32>(image).read();
    }
    throw std::runtime_error(path + " has an unknown ELF class");
}

std::string demangle(const std::string& name) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> readable(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                    &std::free);
    return status == 0 && readable ? std::string(readable.get()) : name;
}

}  // namespace elf_inspection
