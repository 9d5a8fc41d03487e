// What a shared object's dynamic section says about it: its SONAME, the
// symbol versions it defines, and its dynamic symbols (plus the full symbol
// table where the file still has one). Reads 32- and 64-bit ELF files of the
// host's byte order, so a cross build can check its own libraries.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace elf_inspection {

struct Symbol {
    std::string name;     ///< as stored (mangled)
    bool defined;         ///< false for references resolved elsewhere
    bool global;          ///< global or weak binding, default or protected visibility
    std::string version;  ///< the version node it is bound to ("" when none)
};

struct SharedObject {
    std::string soname;
    std::vector<std::string> versionNodes;  ///< defined versions, without the base entry
    std::vector<Symbol> dynamicSymbols;     ///< without the null entry
    std::vector<Symbol> allSymbols;         ///< the .symtab, empty when stripped
};

/// Reads `path`; throws std::runtime_error when it is not a readable ELF file.
SharedObject readSharedObject(const std::string& path);

/// The demangled form of a C++ name, or the name itself.
std::string demangle(const std::string& name);

}  // namespace elf_inspection
