#include "binary/Elf.h"

#include "TestImage.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <sstream>

namespace
{

constexpr uint16_t s_nData = CTestImage::s_nFirst;
constexpr uint16_t s_nText = CTestImage::s_nFirst + 1;

CTestImage MakeSample()
{
    CTestImage image;
    image.vSections = {{".data", SHT_PROGBITS, 1, "odd", 0, 0},
                       {".text", SHT_PROGBITS, 16, "sixteen-aligned", 0, 0},
                       {".empty", SHT_PROGBITS, 4, "", 0, 0},
                       {".data", SHT_LOUSER, 1, "second of its name", 0, 0}};
    image.vSymbols = {{"first", s_nData, 1, 2, ELF64_ST_INFO(STB_LOCAL, STT_OBJECT)},
                      {"gone", s_nText, 0, 4, ELF64_ST_INFO(STB_LOCAL, STT_FUNC)},
                      {"absolute", SHN_ABS, 0x1234, 0, ELF64_ST_INFO(STB_LOCAL, STT_NOTYPE)},
                      {"last", s_nText, 4, 8, ELF64_ST_INFO(STB_GLOBAL, STT_FUNC)},
                      {"elsewhere", SHN_UNDEF, 0, 0, ELF64_ST_INFO(STB_GLOBAL, STT_NOTYPE)}};
    return image;
}

std::vector<char> Store(CElf& elf)
{
    std::vector<char> vImage;
    EXPECT_TRUE(elf.Store(&vImage));
    return vImage;
}

/// Every section and symbol as text, without offsets.
std::string Describe(const CElf& elf)
{
    std::ostringstream text;
    for (auto section = elf.SectionsBegin(); section != elf.SectionsEnd(); ++section)
    {
        const bool bRebuilt = (*section)->GetType() == SHT_STRTAB || (*section)->GetType() == SHT_SYMTAB;
        text << (*section)->GetName() << " type " << (*section)->GetType() << " align " << (*section)->GetAddrAlign()
             << " info " << (*section)->GetInfo() << " "
             << (bRebuilt ? "" : std::string((*section)->GetData().begin(), (*section)->GetData().end())) << "\n";
    }
    const CElfSymbolTable* pSymbols = elf.GetSymbolTable();
    for (auto symbol = pSymbols->SymbolsBegin(); symbol != pSymbols->SymbolsEnd(); ++symbol)
    {
        text << symbol->symName << " info " << int(symbol->symEntry.st_info) << " at " << symbol->symEntry.st_shndx
             << ":" << symbol->symEntry.st_value << "+" << symbol->symEntry.st_size << "\n";
    }
    return text.str();
}

class ElfClass : public testing::TestWithParam<bool>
{
protected:
    std::vector<char> Make(CTestImage image) const { return GetParam() ? image.Make64() : image.Make32(); }
};

TEST_P(ElfClass, RewritingKeepsSectionsAndSymbols)
{
    const std::vector<char> vImage = Make(MakeSample());
    ASSERT_EQ(ReadElfComplaints(vImage), "");
    CElf elf(vImage);
    ASSERT_TRUE(elf.good());
    const std::string strDescription = Describe(elf);

    const std::vector<char> vStored = Store(elf);
    EXPECT_EQ(ReadElfComplaints(vStored), "");
    CElf again(vStored);
    ASSERT_TRUE(again.good());
    EXPECT_EQ(Describe(again), strDescription);
    EXPECT_EQ(Store(again), vStored);
    EXPECT_NE(strDescription.find("absolute info 0 at 65521:4660+0"), std::string::npos) << strDescription;

    // Placement: .data ends at an odd offset; .text is at the next multiple of 16, after zeros.
    const Elf64_Shdr& data = again.GetSection(".data")->GetShdr();
    const Elf64_Shdr& text = again.GetSection(".text")->GetShdr();
    EXPECT_EQ(text.sh_offset, (data.sh_offset + 3 + 15) / 16 * 16);
    EXPECT_EQ(std::string(vStored.data() + data.sh_offset, text.sh_offset - data.sh_offset),
              "odd" + std::string(text.sh_offset - data.sh_offset - 3, '\0'));
    EXPECT_EQ(again.GetSection(".empty")->GetShdr().sh_offset, 0u);
}

TEST_P(ElfClass, ACopyWritesTheSameImage)
{
    CElf elf(Make(MakeSample()));
    CElf copy(elf);
    CElf assigned(std::vector<char>{});
    assigned = copy;
    CElf& itself = assigned;
    assigned = itself;
    copy.GetSection(".data")->SetData("changed");
    EXPECT_EQ(Store(assigned), Store(elf));
    EXPECT_NE(Store(copy), Store(elf));
}

TEST_P(ElfClass, RemovingASectionTakesItsSymbols)
{
    CElf elf(Make(MakeSample()));
    ASSERT_EQ(elf.GetSymbolTable()->GetInfo(), 4u);
    EXPECT_TRUE(elf.RemoveSection(".text"));
    EXPECT_FALSE(elf.RemoveSection(".text"));

    CElf again(Store(elf));
    EXPECT_EQ(ReadElfComplaints(Store(again)), "");
    std::string strNames;
    for (auto symbol = again.GetSymbolTable()->SymbolsBegin(); symbol != again.GetSymbolTable()->SymbolsEnd(); ++symbol)
    {
        strNames += symbol->symName + ",";
    }
    EXPECT_EQ(strNames, ",first,absolute,elsewhere,");
    EXPECT_EQ(again.GetSymbolTable()->GetInfo(), 3u);

    for (const char* szNeeded : {"", ".symtab", ".strtab", ".shstrtab"})
    {
        EXPECT_FALSE(again.RemoveSection(szNeeded)) << szNeeded;
    }
}

TEST_P(ElfClass, SectionsAndSymbolsCanBeAdded)
{
    CElf elf(Make(MakeSample()));
    for (const Elf64_Word nType : {SHT_STRTAB, SHT_SYMTAB, SHT_DYNSYM, SHT_RELA})
    {
        EXPECT_EQ(elf.AddSection(".tables", nType, 0, 0, 1, 0), nullptr) << nType;
    }
    CElfSection* pNew = elf.AddSection(".new", SHT_PROGBITS, SHF_ALLOC, 0, 32, 0);
    ASSERT_NE(pNew, nullptr);
    pNew->SetData("new ");
    pNew->AppendData("data");
    EXPECT_FALSE(pNew->SetAddrAlign(3));
    EXPECT_EQ(pNew->GetAddrAlign(), 32u);
    EXPECT_TRUE(elf.GetSymbolTable()->AddSymbol("added", STB_GLOBAL, STT_OBJECT, 0, pNew, 4, 4));
    EXPECT_TRUE(elf.GetSymbolTable()->RemoveSymbol("gone"));

    const std::vector<char> vStored = Store(elf);
    EXPECT_EQ(ReadElfComplaints(vStored), "");
    const CElf again(vStored);
    const auto symbol = again.GetSymbolTable()->GetSymbol("added");
    ASSERT_NE(symbol, again.GetSymbolTable()->SymbolsEnd());
    EXPECT_EQ(symbol->symSection, again.GetSection(".new"));
    EXPECT_EQ(again.GetSection(".new")->GetShdr().sh_offset % 32, 0u);
    EXPECT_EQ(again.GetSymbolTable()->GetInfo(), 3u);
}

/// However a byte of an image is changed, and wherever it is cut off: it is refused, or read and written back to an
/// image with the same contents.
void ExpectSound(const std::vector<char>& vImage, const std::string& strCase)
{
    CElf elf(vImage);
    std::vector<char> vStored;
    if (!elf.Store(&vStored))
    {
        return;
    }
    EXPECT_LT(vStored.size(), (64u << 20)) << strCase;
    CElf again(vStored);
    ASSERT_TRUE(again.good()) << strCase;
    EXPECT_EQ(Store(again), vStored) << strCase;
}

TEST_P(ElfClass, AnyCorruptedByteIsRefusedOrHarmless)
{
    const std::vector<char> vImage = Make(MakeSample());
    for (size_t nByte = 0; nByte < vImage.size(); ++nByte)
    {
        for (unsigned int nFlip : {0x01u, 0x04u, 0x10u, 0x80u, 0xFFu})
        {
            std::vector<char> vCorrupted = vImage;
            vCorrupted[nByte] = static_cast<char>(vCorrupted[nByte] ^ nFlip);
            ExpectSound(vCorrupted, "byte " + std::to_string(nByte) + " flipped by " + std::to_string(nFlip));
        }
    }
    for (size_t nSize = 0; nSize < vImage.size(); ++nSize)
    {
        ExpectSound(std::vector<char>(vImage.begin(), vImage.begin() + static_cast<std::ptrdiff_t>(nSize)),
                    "cut to " + std::to_string(nSize));
    }
}

INSTANTIATE_TEST_SUITE_P(Classes, ElfClass, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& test) { return test.param ? "Elf64" : "Elf32"; });

struct SRefusal
{
    const char* szName;
    std::function<void(CTestImage&)> prepare;
    std::function<void(std::vector<char>&, const CTestImage&)> damage;
};

template <class Field>
void Put(std::vector<char>& vImage, size_t nOffset, Field value)
{
    std::memcpy(vImage.data() + nOffset, &value, sizeof(value));
}

size_t HeaderOf(const CTestImage& image, size_t nSection)
{
    return image.nSectionHeaders + nSection * sizeof(Elf64_Shdr);
}

const SRefusal s_Refusals[] = {
    {"Empty", {}, [](auto& v, auto&) { v.clear(); }},
    {"FiftyOneBytes", {}, [](auto& v, auto&) { v.resize(51); }},
    {"SixtyBytesOfClass2", {}, [](auto& v, auto&) { v.resize(60); }},
    {"BigEndian", {}, [](auto& v, auto&) { v[EI_DATA] = ELFDATA2MSB; }},
    {"ClassThree", {}, [](auto& v, auto&) { v[EI_CLASS] = 3; }},
    {"NoSections", {}, [](auto& v, auto&) { Put<uint16_t>(v, offsetof(Elf64_Ehdr, e_shnum), 0); }},
    {"NamesInNoSection", {}, [](auto& v, auto&) { Put<uint16_t>(v, offsetof(Elf64_Ehdr, e_shstrndx), 0); }},
    {"NamesPastTheLast", {}, [](auto& v, auto&) { Put<uint16_t>(v, offsetof(Elf64_Ehdr, e_shstrndx), 8); }},
    {"HeadersPastTheEnd", {}, [](auto& v, auto&) { Put<uint64_t>(v, offsetof(Elf64_Ehdr, e_shoff), ~0ull - 63); }},
    {"LastHeaderCut", {}, [](auto& v, auto&) { v.pop_back(); }},
    {"Rela", [](auto& image) { image.vSections[0].nType = SHT_RELA; }, {}},
    {"TwoSymbolTables", [](auto& image) { image.vSections[0].nType = SHT_SYMTAB; }, {}},
    {"SectionNamePastTheTable",
     {},
     [](auto& v, auto& image) { Put<uint32_t>(v, HeaderOf(image, 4) + offsetof(Elf64_Shdr, sh_name), 0x10000); }},
    {"SymbolNamePastTheTable",
     {},
     [](auto& v, auto& image) { Put<uint32_t>(v, image.nSymbols + 24 + offsetof(Elf64_Sym, st_name), 0x10000); }},
    {"SymbolOfNoSection", [](auto& image) { image.vSymbols[0].nSection = 99; }, {}},
    {"SymbolOfExtendedIndex", [](auto& image) { image.vSymbols[0].nSection = SHN_XINDEX; }, {}},
    {"SymbolStringsNowhere",
     {},
     [](auto& v, auto& image) { Put<uint32_t>(v, HeaderOf(image, 3) + offsetof(Elf64_Shdr, sh_link), 99); }},
    {"SymbolStringsInData",
     {},
     [](auto& v, auto& image) { Put<uint32_t>(v, HeaderOf(image, 3) + offsetof(Elf64_Shdr, sh_link), 4); }},
    {"NamesInTheSymbolTable", {}, [](auto& v, auto&) { Put<uint16_t>(v, offsetof(Elf64_Ehdr, e_shstrndx), 3); }},
    {"SymbolsPastTheEnd",
     {},
     [](auto& v, auto& image) { Put<uint64_t>(v, HeaderOf(image, 3) + offsetof(Elf64_Shdr, sh_size), v.size()); }},
    {"SymbolsOfAnotherSize",
     {},
     [](auto& v, auto& image) { Put<uint64_t>(v, HeaderOf(image, 3) + offsetof(Elf64_Shdr, sh_entsize), 16); }},
    {"MoreLocalSymbolsThanSymbols",
     {},
     [](auto& v, auto& image) { Put<uint32_t>(v, HeaderOf(image, 3) + offsetof(Elf64_Shdr, sh_info), 7); }},
    {"SymbolStringsOfTwoTables",
     [](auto& image)
     {
         image.vSections[0].nType = SHT_DYNSYM;
         image.vSections[0].nLink = 2;
     },
     {}},
    {"RelocationOfNoSection",
     [](auto& image)
     {
         image.vSections[0].nType = SHT_REL;
         image.vSections[0].nLink = 3;
         image.vSections[0].nInfo = 99;
     },
     {}},
};

class ElfRefusal : public testing::TestWithParam<SRefusal>
{
};

TEST_P(ElfRefusal, IsNotGood)
{
    CTestImage image = MakeSample();
    if (GetParam().prepare)
    {
        GetParam().prepare(image);
    }
    std::vector<char> vImage = image.Make64();
    if (GetParam().damage)
    {
        GetParam().damage(vImage, image);
    }
    CElf elf(vImage);
    EXPECT_FALSE(elf.good());
    EXPECT_FALSE(elf.Store(&vImage));
    EXPECT_EQ(elf.GetSymbolTable(), nullptr);
    EXPECT_FALSE(CElf(elf).good());
}

INSTANTIATE_TEST_SUITE_P(Images, ElfRefusal, testing::ValuesIn(s_Refusals),
                         [](const testing::TestParamInfo<SRefusal>& test) { return test.param.szName; });

TEST(Elf, ASectionWithoutBytesIsReadEmpty)
{
    CTestImage image = MakeSample();
    image.vSections[0].nType = SHT_NOBITS;
    std::vector<char> vImage = image.Make64();
    Put<uint64_t>(vImage, HeaderOf(image, 4) + offsetof(Elf64_Shdr, sh_size), 0x100000);
    CElf elf(vImage);
    ASSERT_TRUE(elf.good());
    EXPECT_EQ(elf.GetSection(".data")->GetDataSize(), 0u);
    EXPECT_EQ(ReadElfComplaints(Store(elf)), "");
}

TEST(Elf, SymbolNamesMayStandInTheSectionsTable)
{
    CTestImage image = MakeSample();
    std::vector<char> vImage = image.Make64();
    Put<uint16_t>(vImage, offsetof(Elf64_Ehdr, e_shstrndx), 2);
    for (size_t nSection = 0; nSection < 8; ++nSection)
    {
        Put<uint32_t>(vImage, HeaderOf(image, nSection) + offsetof(Elf64_Shdr, sh_name), nSection == 4 ? 1 : 0);
    }
    CElf elf(vImage);
    ASSERT_TRUE(elf.good());
    const std::vector<char> vStored = Store(elf);
    EXPECT_EQ(ReadElfComplaints(vStored), "");
    const CElf again(vStored);
    EXPECT_NE(again.GetSection("first"), nullptr);
    EXPECT_NE(again.GetSymbolTable()->GetSymbol("last"), again.GetSymbolTable()->SymbolsEnd());
}

constexpr uint64_t s_n4GiB = 1ull << 32;
constexpr uint64_t s_nMostPadding = 16u << 20;

struct SUnwritable
{
    const char* szName;
    bool b64;
    std::function<void(CElf&, CElfSection& foreign)> change;
};

const SUnwritable s_Unwritables[] = {
    {"Entry", false, [](CElf& elf, auto&) { elf.SetEntry(s_n4GiB); }},
    {"SymbolValue", false,
     [](CElf& elf, auto&) { elf.GetSymbolTable()->SymbolsBegin()[1].symEntry.st_value = s_n4GiB; }},
    {"SymbolSize", false, [](CElf& elf, auto&) { elf.GetSymbolTable()->SymbolsBegin()[1].symEntry.st_size = s_n4GiB; }},
    {"SectionAddress", false, [](CElf& elf, auto&) { elf.GetSection(".data")->SetAddress(s_n4GiB); }},
    {"SectionFlags", false, [](CElf& elf, auto&) { elf.GetSection(".data")->SetFlags(s_n4GiB); }},
    {"AlignmentOfNothing", false, [](CElf& elf, auto&) { elf.GetSection(".empty")->SetAddrAlign(s_n4GiB); }},
    {"EntrySize", false, [](CElf& elf, auto&) { elf.GetSection(".data")->SetEntrySize(s_n4GiB); }},
    {"Padding", true, [](CElf& elf, auto&) { elf.GetSection(".text")->SetAddrAlign(1ull << 40); }},
    // The last section uses up the padding, so that none is left for the headers after it.
    {"PaddingOfTheHeaders", true,
     [](CElf& elf, auto&)
     {
         for (auto section = elf.SectionsBegin(); section != elf.SectionsEnd(); ++section)
         {
             (*section)->SetAddrAlign(1);
         }
         const auto addLast = [&elf](uint64_t nAlign, size_t nSize)
         {
             CElfSection* pLast = elf.AddSection(".last", SHT_PROGBITS, 0, 0, nAlign, 0);
             pLast->SetData(std::string(nSize, 'x'));
             return pLast;
         };
         const CElfSection* pLast = addLast(1, 1);
         Store(elf);
         const uint64_t nBegin = pLast->GetShdr().sh_offset;
         elf.RemoveSection(".last");
         addLast(nBegin + s_nMostPadding, 9 - nBegin % 8);
     }},
    {"NoSymbolStrings", true, [](CElf& elf, auto&) { elf.GetSymbolTable()->SetLinkSection(nullptr); }},
    {"SymbolStringsInData", true,
     [](CElf& elf, auto&) { elf.GetSymbolTable()->SetLinkSection(elf.GetSection(".data")); }},
    {"LinkIntoAnotherImage", true, [](CElf& elf, auto& foreign) { elf.GetSection(".data")->SetLinkSection(&foreign); }},
    {"InfoOfAnotherImage", true, [](CElf& elf, auto& foreign) { elf.GetSection(".data")->SetInfoSection(&foreign); }},
    {"SymbolOfAnotherImage", true,
     [](CElf& elf, auto& foreign) { elf.GetSymbolTable()->AddSymbol("x", STB_GLOBAL, STT_OBJECT, 0, &foreign, 0, 0); }},
    {"MoreSectionsThanIndices", true,
     [](CElf& elf, auto&)
     {
         while (elf.GetNumSections() < SHN_LORESERVE)
         {
             elf.AddSection(".s", SHT_PROGBITS, 0, 0, 1, 0);
         }
     }},
};

class ElfUnwritable : public testing::TestWithParam<SUnwritable>
{
};

TEST_P(ElfUnwritable, IsRefusedAndGivesNothing)
{
    CElf elf(GetParam().b64 ? MakeSample().Make64() : MakeSample().Make32());
    CElfSection foreign;
    ASSERT_TRUE(CElf(Store(elf)).good());
    GetParam().change(elf, foreign);
    std::vector<char> vStored = {'x'};
    EXPECT_FALSE(elf.Store(&vStored));
    EXPECT_TRUE(vStored.empty());
    std::ostringstream stream;
    EXPECT_FALSE(elf.Store(&stream));
    EXPECT_EQ(stream.str(), "");
    EXPECT_FALSE(elf.Store(testing::TempDir() + "kestrel_unwritten"));
}

INSTANTIATE_TEST_SUITE_P(Changes, ElfUnwritable, testing::ValuesIn(s_Unwritables),
                         [](const testing::TestParamInfo<SUnwritable>& test) { return test.param.szName; });

/// A stream that reports another size than its text has.
class CClaimingBuffer : public std::stringbuf
{
public:
    CClaimingBuffer(const std::string& strText, std::streamoff nClaim) : std::stringbuf(strText), m_nClaim(nClaim) {}

protected:
    pos_type seekoff(off_type nOffset, std::ios_base::seekdir way, std::ios_base::openmode mode) override
    {
        const pos_type position = std::stringbuf::seekoff(nOffset, way == std::ios::end ? std::ios::beg : way, mode);
        return way == std::ios::cur ? pos_type(m_nClaim) : position;
    }

private:
    std::streamoff m_nClaim;
};

TEST(Elf, AnImageTravelsThroughFilesAndStreams)
{
    CElf elf(MakeSample().Make64());
    const std::vector<char> vImage = Store(elf);
    const std::string strFile = testing::TempDir() + "kestrel_elf_" + std::to_string(getpid());
    std::stringstream stream;
    ASSERT_TRUE(elf.Store(strFile));
    ASSERT_TRUE(elf.Store(&stream));
    EXPECT_EQ(stream.str(), std::string(vImage.begin(), vImage.end()));
    CElf fromFile(strFile), fromStream(&stream);
    unlink(strFile.c_str());
    EXPECT_EQ(Store(fromFile), vImage);
    EXPECT_EQ(Store(fromStream), vImage);

    EXPECT_FALSE(CElf(strFile).good());
    EXPECT_FALSE(CElf(testing::TempDir()).good());
    EXPECT_FALSE(elf.Store(testing::TempDir()));
    EXPECT_FALSE(CElf(static_cast<std::istream*>(nullptr)).good());
    EXPECT_FALSE(elf.Store(static_cast<std::ostream*>(nullptr)));
    EXPECT_FALSE(elf.Store(static_cast<std::vector<char>*>(nullptr)));
    std::stringstream empty;
    EXPECT_FALSE(CElf(&empty).good());
    stream.setstate(std::ios::badbit);
    EXPECT_FALSE(CElf(&stream).good());
    EXPECT_FALSE(elf.Store(&stream));

    const auto nSize = static_cast<std::streamoff>(vImage.size());
    for (const std::streamoff nClaim : {nSize, nSize + 1, static_cast<std::streamoff>(s_n4GiB)})
    {
        CClaimingBuffer buffer(std::string(vImage.begin(), vImage.end()), nClaim);
        std::istream claiming(&buffer);
        EXPECT_EQ(CElf(&claiming).good(), nClaim == nSize) << nClaim;
    }
}

TEST(Elf, ASectionMayBeGivenItsOwnBytes)
{
    CElfSection section;
    section.SetData("ab");
    section.AppendData(section.GetData());
    section.AppendData(section.GetData().data() + 1, 2);
    EXPECT_EQ(std::string(section.GetData().data(), section.GetDataSize()), "ababba");
    section.SetData(section.GetData().data() + 3, 2);
    EXPECT_EQ(std::string(section.GetData().data(), section.GetDataSize()), "bb");
}

TEST(Elf, AnImageNeedsNoSymbols)
{
    CTestImage image = MakeSample();
    image.vSymbols.clear();
    image.vSections[1].nType = SHT_DYNSYM; // a section whose link must be valid, too
    image.vSections[1].nLink = s_nData;
    std::vector<char> vImage = image.Make64();
    Put<uint32_t>(vImage, HeaderOf(image, 3) + offsetof(Elf64_Shdr, sh_type), SHT_PROGBITS);
    Put<uint32_t>(vImage, HeaderOf(image, 3) + offsetof(Elf64_Shdr, sh_info), 0);
    CElf elf(vImage);
    ASSERT_TRUE(elf.good());
    EXPECT_EQ(elf.GetSymbolTable(), nullptr);
    EXPECT_FALSE(elf.RemoveSection(".data")); // .text refers to it
    EXPECT_TRUE(elf.RemoveSection(".text"));
    EXPECT_TRUE(elf.RemoveSection(".data"));
    EXPECT_TRUE(elf.SetClass(ELFCLASS32));
    EXPECT_TRUE(elf.SetDataEncoding(ELFDATA2LSB));
    EXPECT_FALSE(elf.SetDataEncoding(ELFDATA2MSB));
    CElf copy(elf);
    EXPECT_EQ(copy.GetNumSections(), 6u);
    EXPECT_EQ(copy.GetSection(".strtab")->GetDataSize(), 0u); // nothing rebuilds it
    EXPECT_EQ(ReadElfComplaints(Store(copy)), "");

    vImage = image.Make64();
    Put<uint32_t>(vImage, HeaderOf(image, s_nText) + offsetof(Elf64_Shdr, sh_link), 99);
    EXPECT_FALSE(CElf(vImage).good());
}

TEST(Elf, A64BitImageCanBecomeA32BitOne)
{
    CElf elf(MakeSample().Make64());
    EXPECT_FALSE(elf.SetClass(ELFCLASS64));
    EXPECT_TRUE(elf.SetClass(ELFCLASS32));
    const std::vector<char> vStored = Store(elf);
    EXPECT_EQ(ReadElfComplaints(vStored), "");
    EXPECT_TRUE(CElf(vStored).good());
}

TEST(Elf, SharedBytesDoNotUnfoldWithoutBound)
{
    CTestImage image = MakeSample();
    image.vSections[0].strData.assign(1 << 20, 'x');
    image.vSections.resize(4000);
    std::vector<char> vImage = image.Make64();
    for (size_t nSection = 5; nSection < 4000; ++nSection)
    {
        std::memcpy(vImage.data() + HeaderOf(image, nSection), vImage.data() + HeaderOf(image, 4), sizeof(Elf64_Shdr));
    }
    EXPECT_FALSE(CElf(vImage).good());

    CTestImage names = MakeSample();
    names.vSymbols[0].strName.assign(1 << 16, 'n');
    names.vSymbols.resize(20000);
    vImage = names.Make64();
    for (uint32_t nSymbol = 1; nSymbol < 20000; ++nSymbol)
    {
        Put<uint32_t>(vImage, names.nSymbols + nSymbol * sizeof(Elf64_Sym) + offsetof(Elf64_Sym, st_name), nSymbol);
    }
    EXPECT_FALSE(CElf(vImage).good());
}

TEST(Elf, AnImageDoesNotEndBeforeItsProgramHeaders)
{
    std::vector<char> vImage = MakeSample().Make64();
    Put<uint64_t>(vImage, offsetof(Elf64_Ehdr, e_phoff), vImage.size());
    CElf elf(vImage);
    ASSERT_TRUE(elf.good());
    elf.RemoveSection(".text");
    EXPECT_FALSE(elf.Store(&vImage));
}

TEST(Elf, TimeGrowsWithTheImage)
{
    CTestImage image = MakeSample();
    image.vSections.resize(30000, {".s", SHT_PROGBITS, 1, "x", 0, 0});
    image.vSymbols.clear();
    for (unsigned int nSymbol = 0; nSymbol < 60000; ++nSymbol)
    {
        const auto nSection = static_cast<uint16_t>(nSymbol % 2 == 0 ? s_nData : s_nText);
        image.vSymbols.push_back({"s" + std::to_string(nSymbol), nSection, 0, 1, STT_OBJECT});
    }
    const std::vector<char> vImage = image.Make64();

    // With quadratic time this would take minutes.
    const auto begin = std::chrono::steady_clock::now();
    CElf elf(vImage);
    ASSERT_TRUE(elf.good());
    EXPECT_TRUE(elf.RemoveSection(".text"));
    CElf copy(elf);
    EXPECT_EQ(Store(copy), Store(elf));
    EXPECT_EQ(copy.GetSymbolTable()->GetNumSymbols(), 30000u + 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

} // namespace
