// What the shared library exports of the fast module: its start-up,
// shut-down and tick grid query by name, its interface class, and nothing
// else.

#include <elf.h>
#include <link.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

/// The names of the symbols that the shared library defines in its dynamic
/// symbol table (what a client can link or dlsym against).
std::set<std::string> definedDynamicSymbols(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> image((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::set<std::string> names;
    if (image.size() < sizeof(ElfW(Ehdr))) {
        return names;
    }
    ElfW(Ehdr) header;
    std::memcpy(&header, image.data(), sizeof(header));
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) {
        return names;
    }
    std::vector<ElfW(Shdr)> sections(header.e_shnum);
    std::memcpy(sections.data(), image.data() + header.e_shoff, sections.size() * sizeof(ElfW(Shdr)));
    for (const ElfW(Shdr) & section : sections) {
        if (section.sh_type != SHT_DYNSYM) {
            continue;
        }
        const ElfW(Shdr)& strings = sections.at(section.sh_link);
        const size_t count = section.sh_size / sizeof(ElfW(Sym));
        for (size_t i = 0; i < count; ++i) {
            ElfW(Sym) symbol;
            std::memcpy(&symbol, image.data() + section.sh_offset + i * sizeof(symbol), sizeof(symbol));
            if (symbol.st_shndx == SHN_UNDEF || symbol.st_name == 0) {
                continue;
            }
            names.insert(std::string(image.data() + strings.sh_offset + symbol.st_name));
        }
    }
    return names;
}

std::vector<std::string> withPrefix(const std::set<std::string>& names, const std::string& prefix) {
    std::vector<std::string> matching;
    std::copy_if(names.begin(), names.end(), std::back_inserter(matching),
                 [&](const std::string& name) { return name.rfind(prefix, 0) == 0; });
    return matching;
}

class FastExports : public ::testing::Test {
protected:
    void SetUp() override {
        exported = definedDynamicSymbols(ZYN_TS_SHARED_LIBRARY_PATH);
        ASSERT_FALSE(exported.empty()) << "cannot read " << ZYN_TS_SHARED_LIBRARY_PATH;
    }

    std::set<std::string> exported;
};

TEST_F(FastExports,
       OnlyStartUpShutDownTheOscillatorTheGridQueryStatisticsPrecisionWakeAndEventCaptureAreExportedByName) {
    EXPECT_EQ(
        withPrefix(exported, "CTickSchedulerFast_"),
        (std::vector<std::string>{"CTickSchedulerFast_DisableStatistics", "CTickSchedulerFast_EnableStatistics",
                                  "CTickSchedulerFast_GetHandlerStatistics", "CTickSchedulerFast_GetPrecisionWake",
                                  "CTickSchedulerFast_GetSchedulerStatistics", "CTickSchedulerFast_GetTickGrid",
                                  "CTickSchedulerFast_GetTickOscillator", "CTickSchedulerFast_Initialize",
                                  "CTickSchedulerFast_ReadEvents", "CTickSchedulerFast_ResetPrecisionWake",
                                  "CTickSchedulerFast_ResetStatistics", "CTickSchedulerFast_SetWakeLeadAdaptive",
                                  "CTickSchedulerFast_SetWakeLeadFixed", "CTickSchedulerFast_SetWakeLeadOff",
                                  "CTickSchedulerFast_StartEventCapture", "CTickSchedulerFast_StopEventCapture",
                                  "CTickSchedulerFast_Uninitialize"}));
}

TEST_F(FastExports, ModuleStateStaysInsideTheLibrary) {
    for (const std::string& name : exported) {
        EXPECT_EQ(name.find("tickSchedulerFastModule"), std::string::npos) << name;
        EXPECT_EQ(name.find("fastTickReceiver"), std::string::npos) << name;
        EXPECT_EQ(name.find("fastPhase"), std::string::npos) << name;
        EXPECT_EQ(name.find("tickSchedulerFastInterface"), std::string::npos) << name;
    }
}

TEST_F(FastExports, InterfaceClassIsExportedWithItsTypeInformation) {
    // Itanium names: constructor, destructor, vtable, VTT, typeinfo.
    for (const char* name : {"_ZN18ITickSchedulerFastC1Ev", "_ZN18ITickSchedulerFastD1Ev", "_ZTV18ITickSchedulerFast",
                             "_ZTT18ITickSchedulerFast", "_ZTI18ITickSchedulerFast"}) {
        EXPECT_EQ(exported.count(name), 1u) << name;
    }
}

}  // namespace
