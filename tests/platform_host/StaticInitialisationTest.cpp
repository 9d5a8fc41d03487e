// The platform library runs no code of its own at load time.
//
// Other libraries construct trace objects, register modules and publish
// interfaces from their static constructors, and the dynamic loader may run
// those before this library's. That is safe only while the platform relies on
// no dynamically initialised static: its state is created on first use. The
// compilers emit a _GLOBAL__sub_I_<file> function for every source file with
// dynamic initialisation (_GLOBAL__sub_I.<priority>_<file> with an
// init_priority), so the library's symbol table must hold none.

#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "CList.h"

namespace {

std::string libraryPathOf(void* symbol) {
    Dl_info info{};
    if (dladdr(symbol, &info) == 0 || info.dli_fname == nullptr) {
        return std::string();
    }
    return info.dli_fname;
}

std::vector<char> readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Names of the static initialisation functions in the ELF symbol table.
std::vector<std::string> staticInitialisers(const std::vector<char>& image) {
    std::vector<std::string> found;
    const auto* fileHeader = reinterpret_cast<const ElfW(Ehdr)*>(image.data());
    const auto* sections = reinterpret_cast<const ElfW(Shdr)*>(image.data() + fileHeader->e_shoff);
    for (int index = 0; index < fileHeader->e_shnum; ++index) {
        const ElfW(Shdr)& section = sections[index];
        if (section.sh_type != SHT_SYMTAB && section.sh_type != SHT_DYNSYM) {
            continue;
        }
        const char* names = image.data() + sections[section.sh_link].sh_offset;
        const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(image.data() + section.sh_offset);
        const size_t count = section.sh_size / sizeof(ElfW(Sym));
        for (size_t symbol = 0; symbol < count; ++symbol) {
            const char* name = names + symbols[symbol].st_name;
            if (std::strncmp(name, "_GLOBAL__sub_I", 14) == 0) {
                found.emplace_back(name);
            }
        }
    }
    return found;
}

bool hasSymbolTable(const std::vector<char>& image) {
    const auto* fileHeader = reinterpret_cast<const ElfW(Ehdr)*>(image.data());
    const auto* sections = reinterpret_cast<const ElfW(Shdr)*>(image.data() + fileHeader->e_shoff);
    for (int index = 0; index < fileHeader->e_shnum; ++index) {
        if (sections[index].sh_type == SHT_SYMTAB) {
            return true;
        }
    }
    return false;
}

TEST(StaticInitialisationTest, PlatformLibraryHasNoStaticInitialisers) {
    const std::string path = libraryPathOf(reinterpret_cast<void*>(&CList_Construct));
    ASSERT_NE(path.find("libZynPlatformHost.so"), std::string::npos) << path;
    const std::vector<char> image = readFile(path);
    ASSERT_GE(image.size(), sizeof(ElfW(Ehdr)));
    ASSERT_EQ(std::memcmp(image.data(), ELFMAG, SELFMAG), 0);
    // The library is built for the same target as this test: 32-bit ELF on armhf.
    ASSERT_EQ(image[EI_CLASS], sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32);
    if (!hasSymbolTable(image)) {
        GTEST_SKIP() << path << " is stripped: its static initialisers cannot be listed";
    }
    const std::vector<std::string> initialisers = staticInitialisers(image);
    EXPECT_TRUE(initialisers.empty()) << "first: " << initialisers.front();
}

}  // namespace
