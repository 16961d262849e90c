#include "platform/compiler/ElfWriter.h"

#include <cstring>
#include <elf.h>
#include <utility>

namespace KestrelPlatform
{
namespace
{

uint64_t RoundUp(uint64_t n, uint64_t nAlignment)
{
    return nAlignment < 2 ? n : (n + nAlignment - 1) / nAlignment * nAlignment;
}

/// The null section and the three tables.
const size_t s_nOwnSections = 4;

/// The names of a table, in one string with a NUL after each; offset 0 is the empty name.
class CStringTable
{
public:
    CStringTable() : m_strData(1, '\0') {}

    Elf64_Word Add(const std::string& str)
    {
        const size_t nOffset = m_strData.size();
        m_strData.append(str.c_str(), str.size() + 1);
        return static_cast<Elf64_Word>(nOffset);
    }

    const std::string& Data() const { return m_strData; }

private:
    std::string m_strData;
};

template <typename T>
void AppendRecord(std::string& str, const T& record)
{
    str.append(reinterpret_cast<const char*>(&record), sizeof(record));
}

Elf64_Ehdr MakeHeader(uint64_t nSectionHeaders, size_t nSections)
{
    Elf64_Ehdr header = {};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_NONE;
    header.e_machine = EM_NONE;
    header.e_version = EV_CURRENT;
    header.e_shoff = nSectionHeaders;
    header.e_ehsize = sizeof(Elf64_Ehdr);
    header.e_shentsize = sizeof(Elf64_Shdr);
    header.e_shnum = static_cast<Elf64_Half>(nSections);
    header.e_shstrndx = static_cast<Elf64_Half>(nSections - 1);
    return header;
}

} // namespace

size_t CElfWriter::AddSection(const std::string& strName, uint64_t nFlags, uint64_t nAlignment, std::string_view data)
{
    m_vSections.push_back({strName, nFlags, nAlignment, std::string(data)});
    return m_vSections.size() - 1;
}

uint64_t CElfWriter::AppendData(size_t nSection, std::string_view data)
{
    SSection& section = m_vSections[nSection];
    section.strData.resize(RoundUp(section.strData.size(), section.nAlignment), '\0');
    const uint64_t nOffset = section.strData.size();
    section.strData.append(data);
    return nOffset;
}

void CElfWriter::AddSymbol(std::string strName, unsigned char nType, size_t nSection, uint64_t nValue, uint64_t nSize)
{
    m_vSymbols.push_back({std::move(strName), nType, nSection, nValue, nSize});
}

std::vector<char> CElfWriter::Write() const
{
    // The null section comes before the caller's sections, the three tables after them.
    const size_t nStringSection = m_vSections.size() + 2;
    CStringTable symbolNames;
    std::string strSymbols;
    strSymbols.reserve((m_vSymbols.size() + 1) * sizeof(Elf64_Sym));
    AppendRecord(strSymbols, Elf64_Sym{});
    for (const SSymbol& symbol : m_vSymbols)
    {
        Elf64_Sym record = {};
        record.st_name = symbolNames.Add(symbol.strName);
        record.st_info = ELF64_ST_INFO(STB_GLOBAL, symbol.nType);
        record.st_shndx = static_cast<Elf64_Section>(symbol.nSection + 1);
        record.st_value = symbol.nValue;
        record.st_size = symbol.nSize;
        AppendRecord(strSymbols, record);
    }

    CStringTable sectionNames;
    size_t nBytes = strSymbols.size() + 2 * symbolNames.Data().size();
    for (const SSection& section : m_vSections)
    {
        nBytes += section.strData.size() + section.nAlignment + section.strName.size() + 2 * sizeof(Elf64_Shdr);
    }
    std::vector<char> vImage;
    vImage.reserve(nBytes);
    vImage.resize(sizeof(Elf64_Ehdr));
    std::string strHeaders;
    strHeaders.reserve((m_vSections.size() + s_nOwnSections) * sizeof(Elf64_Shdr));
    AppendRecord(strHeaders, Elf64_Shdr{});
    const auto Place = [&](const std::string& strName, Elf64_Shdr header, const std::string& strData)
    {
        vImage.resize(RoundUp(vImage.size(), header.sh_addralign), '\0');
        header.sh_name = sectionNames.Add(strName);
        header.sh_offset = vImage.size();
        header.sh_size = strData.size();
        vImage.insert(vImage.end(), strData.begin(), strData.end());
        AppendRecord(strHeaders, header);
    };
    for (const SSection& section : m_vSections)
    {
        Elf64_Shdr header = {};
        header.sh_type = SHT_PROGBITS;
        header.sh_flags = section.nFlags;
        header.sh_addralign = section.nAlignment;
        Place(section.strName, header, section.strData);
    }
    Elf64_Shdr symbols = {};
    symbols.sh_type = SHT_SYMTAB;
    symbols.sh_link = static_cast<Elf64_Word>(nStringSection);
    symbols.sh_info = 1; // all but the null symbol are global
    symbols.sh_addralign = 8;
    symbols.sh_entsize = sizeof(Elf64_Sym);
    Place(".symtab", symbols, strSymbols);
    Elf64_Shdr strings = {};
    strings.sh_type = SHT_STRTAB;
    strings.sh_addralign = 1;
    Place(".strtab", strings, symbolNames.Data());
    // The table holds its own section's name, so that has to be added before the table is placed.
    CStringTable allNames = sectionNames;
    allNames.Add(".shstrtab");
    Place(".shstrtab", strings, allNames.Data());

    vImage.resize(RoundUp(vImage.size(), 8), '\0');
    const Elf64_Ehdr header = MakeHeader(vImage.size(), m_vSections.size() + s_nOwnSections);
    vImage.insert(vImage.end(), strHeaders.begin(), strHeaders.end());
    std::memcpy(vImage.data(), &header, sizeof(header));
    return vImage;
}

} // namespace KestrelPlatform
