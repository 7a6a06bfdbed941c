// What the built plug-in shows to other binaries, read from its ELF file.

#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "support/process.h"

namespace {

// A copy of the `index`-th record of a table at `offset` of the file.
template <class T>
T recordAt(const std::string& file, std::size_t offset, std::size_t index = 0) {
    T record;
    if (offset + (index + 1) * sizeof(T) > file.size()) {
        throw std::runtime_error("the table does not lie in the file");
    }
    std::memcpy(&record, file.data() + offset + index * sizeof(T), sizeof(T));
    return record;
}

// Names of the symbols of the dynamic symbol table that the file itself defines and that others can see.
std::set<std::string> exportedSymbols(const std::string& file) {
    const auto header = recordAt<Elf64_Ehdr>(file, 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(header.e_ident), SELFMAG), ELFMAG);
    std::set<std::string> names;
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
        const auto section = recordAt<Elf64_Shdr>(file, header.e_shoff, i);
        if (section.sh_type != SHT_DYNSYM) {
            continue;
        }
        const auto strings = recordAt<Elf64_Shdr>(file, header.e_shoff, section.sh_link);
        for (std::size_t s = 0; s < section.sh_size / sizeof(Elf64_Sym); ++s) {
            const auto symbol = recordAt<Elf64_Sym>(file, section.sh_offset, s);
            if (symbol.st_shndx != SHN_UNDEF && ELF64_ST_BIND(symbol.st_info) != STB_LOCAL) {
                names.insert(file.c_str() + strings.sh_offset + symbol.st_name);
            }
        }
    }
    return names;
}

// Where the loader looks for the libraries that a file needs; empty when the file does not say.
std::string librariesPath(const std::string& file) {
    const auto header = recordAt<Elf64_Ehdr>(file, 0);
    std::string path;
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
        const auto section = recordAt<Elf64_Shdr>(file, header.e_shoff, i);
        if (section.sh_type != SHT_DYNAMIC) {
            continue;
        }
        const auto strings = recordAt<Elf64_Shdr>(file, header.e_shoff, section.sh_link);
        for (std::size_t d = 0; d < section.sh_size / sizeof(Elf64_Dyn); ++d) {
            const auto entry = recordAt<Elf64_Dyn>(file, section.sh_offset, d);
            if (entry.d_tag == DT_RUNPATH || entry.d_tag == DT_RPATH) {
                path = file.c_str() + strings.sh_offset + entry.d_un.d_val;
            }
        }
    }
    return path;
}

TEST(Exports, NoBinaryTakesLibrariesFromTheCurrentFolder) {
    for (const char* binary : {"/quil", "/QUIL.fmplugin/Contents/Linux/QUIL.so", "/quil_sqlite.so"}) {
        const std::string path = librariesPath(support::readFile(std::string(QUIL_BINARY_DIR) + binary));
        EXPECT_TRUE(path.starts_with("$ORIGIN/")) << binary;
        EXPECT_EQ((":" + path + ":").find("::"), std::string::npos) << binary << " " << path;
    }
}

TEST(Exports, ThePlugInExportsItsEntryPointAndNothingElse) {
    const std::string library = support::readFile(QUIL_BINARY_DIR "/QUIL.fmplugin/Contents/Linux/QUIL.so");
    EXPECT_EQ(exportedSymbols(library), std::set<std::string>{"FMExternCallProc"});
}

TEST(Exports, ThePlatformLibraryExportsTheHostsInterface) {
    // The same reader finds many symbols where there are many, so the test above can fail.
    const auto names = exportedSymbols(support::readFile(QUIL_BINARY_DIR "/src/libquilplatform.so"));
    EXPECT_TRUE(names.contains("_ZN3fmx23installFunctionRegistryEPNS_16FunctionRegistryE"));
    EXPECT_GT(names.size(), 20U);
}

}  // namespace
