#include "binary/ElfSymbolTable.h"

#include "binary/Elf.h"

#include "TestImage.h"

#include <gtest/gtest.h>

namespace
{

TEST(ElfSymbolTable, ASymbolIsReadAndSetAsAWhole)
{
    CTestImage image;
    image.vSections = {{".text", SHT_PROGBITS, 1, "text", 0, 0}};
    image.vSymbols = {{"absolute", SHN_ABS, 0x1234, 0, ELF64_ST_INFO(STB_LOCAL, STT_NOTYPE)},
                      {"last", CTestImage::s_nFirst, 4, 8, ELF64_ST_INFO(STB_GLOBAL, STT_FUNC)}};
    CElf elf(image.Make64());
    CElfSymbolTable& symbols = *elf.GetSymbolTable();
    std::string strName;
    unsigned char bind = 0, type = 0, other = 0;
    CElfSection* pSection = nullptr;
    Elf64_Addr value = 0;
    Elf64_Xword size = 0;
    const auto getInfo = [&](CElfSymbolTable::SymbolIterator symbol, int nLeftOut = 7)
    {
        return symbols.GetInfo(symbol, nLeftOut == 0 ? nullptr : &strName, nLeftOut == 1 ? nullptr : &bind,
                               nLeftOut == 2 ? nullptr : &type, nLeftOut == 3 ? nullptr : &other,
                               nLeftOut == 4 ? nullptr : &pSection, nLeftOut == 5 ? nullptr : &value,
                               nLeftOut == 6 ? nullptr : &size);
    };
    for (int nLeftOut = 0; nLeftOut < 7; ++nLeftOut)
    {
        EXPECT_FALSE(getInfo(symbols.GetSymbol("last"), nLeftOut)) << nLeftOut;
    }
    EXPECT_FALSE(getInfo(symbols.SymbolsEnd()));
    EXPECT_EQ(strName, "");
    ASSERT_TRUE(getInfo(symbols.GetSymbol("last")));
    EXPECT_EQ(strName + " " + std::to_string(bind) + std::to_string(type) + std::to_string(other), "last 120");
    EXPECT_EQ(pSection, elf.GetSection(".text"));
    EXPECT_EQ(value * 100 + size, 408u);

    // A symbol without a section keeps a reserved index, but loses any other.
    for (const char* szName : {"absolute", "last"})
    {
        const auto symbol = symbols.GetSymbol(szName);
        EXPECT_TRUE(symbols.SetInfo(symbol, "renamed", STB_WEAK, STT_FUNC, 3, nullptr, 5, 6));
        ASSERT_TRUE(getInfo(symbol));
        EXPECT_EQ(strName + " " + std::to_string(bind) + std::to_string(type) + std::to_string(other), "renamed 223");
        EXPECT_EQ(value * 100 + size, 506u);
        EXPECT_EQ(symbol->symEntry.st_shndx, std::string(szName) == "absolute" ? SHN_ABS : SHN_UNDEF);
    }
    EXPECT_FALSE(symbols.SetInfo(symbols.SymbolsEnd(), "x", 0, 0, 0, nullptr, 0, 0));
    EXPECT_EQ(symbols.RemoveSymbol(symbols.SymbolsEnd()), symbols.SymbolsEnd());
    EXPECT_FALSE(symbols.RemoveSymbol("nobody"));
    symbols.RemoveSymbolsInSection(nullptr); // no section
    EXPECT_EQ(symbols.GetNumSymbols(), 3u);

    // A local symbol counts as local only if it comes before all other kinds.
    EXPECT_TRUE(symbols.AddSymbol("late", STB_LOCAL, STT_OBJECT, 0, nullptr, 0, 0));
    EXPECT_EQ(symbols.GetInfo(), 2u);
    symbols.RemoveSymbolsIf([](const CElfSymbolTable::TableEntry& entry)
                            { return ELF64_ST_BIND(entry.symEntry.st_info) != STB_LOCAL; });
    symbols.RemoveSymbol("late");
    EXPECT_TRUE(symbols.AddSymbol("early", STB_LOCAL, STT_OBJECT, 0, nullptr, 0, 0));
    EXPECT_EQ(symbols.GetInfo(), symbols.GetNumSymbols());
}

} // namespace
