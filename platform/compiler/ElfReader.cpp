#include "platform/compiler/ElfReader.h"

#include <algorithm>
#include <cstring>
#include <elf.h>

namespace KestrelPlatform
{
namespace
{

/// Copies a record out of the bytes, which needn't be aligned. \return false if it is cut short
template <typename T>
bool ReadRecord(std::string_view bytes, uint64_t nOffset, T& record)
{
    if (nOffset > bytes.size() || bytes.size() - nOffset < sizeof(record))
    {
        return false;
    }
    std::memcpy(&record, bytes.data() + nOffset, sizeof(record));
    return true;
}

bool Slice(std::string_view bytes, uint64_t nOffset, uint64_t nSize, std::string_view& slice)
{
    if (nOffset > bytes.size() || nSize > bytes.size() - nOffset)
    {
        return false;
    }
    slice = bytes.substr(nOffset, nSize);
    return true;
}

/// A NUL-terminated name in a table; empty if it lies outside or has no end.
std::string_view NameAt(std::string_view table, uint64_t nOffset)
{
    if (nOffset >= table.size())
    {
        return {};
    }
    const size_t nEnd = table.find('\0', nOffset);
    return nEnd == std::string_view::npos ? std::string_view() : table.substr(nOffset, nEnd - nOffset);
}

} // namespace

bool CElfReader::Read(const char* pImage, size_t nSize, std::string& strError)
{
    m_vSections.clear();
    m_vSymbols.clear();
    m_Symbols.clear();
    if (!ReadSections(std::string_view(pImage, nSize), strError))
    {
        return false;
    }
    for (const SSection& section : m_vSections)
    {
        if (section.nType == SHT_SYMTAB)
        {
            ReadSymbols(section);
            break;
        }
    }
    return true;
}

bool CElfReader::ReadSections(std::string_view image, std::string& strError)
{
    Elf64_Ehdr header;
    if (!ReadRecord(image, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0)
    {
        strError = "the binary is no ELF image";
        return false;
    }
    if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB ||
        header.e_shentsize != sizeof(Elf64_Shdr))
    {
        strError = "the binary is no 64-bit little-endian ELF image";
        return false;
    }
    std::vector<Elf64_Word> vNames;
    const size_t nHeaders = std::min<size_t>(header.e_shnum, image.size() / sizeof(Elf64_Shdr));
    m_vSections.reserve(nHeaders);
    vNames.reserve(nHeaders);
    for (uint64_t i = 0; i < header.e_shnum; ++i)
    {
        Elf64_Shdr record;
        SSection section;
        if (header.e_shoff > image.size() || !ReadRecord(image, header.e_shoff + i * sizeof(record), record))
        {
            strError = "a section header lies outside of the binary";
            return false;
        }
        if (record.sh_type != SHT_NULL && record.sh_type != SHT_NOBITS &&
            !Slice(image, record.sh_offset, record.sh_size, section.data))
        {
            strError = "section " + std::to_string(i) + " lies outside of the binary";
            return false;
        }
        section.nType = record.sh_type;
        section.nFlags = record.sh_flags;
        section.nAlignment = record.sh_addralign;
        section.nLink = record.sh_link;
        section.nEntrySize = record.sh_entsize;
        m_vSections.push_back(section);
        vNames.push_back(record.sh_name);
    }
    if (header.e_shstrndx >= m_vSections.size())
    {
        strError = "the binary has no section names";
        return false;
    }
    const std::string_view names = m_vSections[header.e_shstrndx].data;
    for (size_t i = 0; i < m_vSections.size(); ++i)
    {
        m_vSections[i].name = NameAt(names, vNames[i]);
    }
    return true;
}

void CElfReader::ReadSymbols(const SSection& table)
{
    if (table.nEntrySize != sizeof(Elf64_Sym) || table.nLink >= m_vSections.size())
    {
        return;
    }
    const std::string_view names = m_vSections[table.nLink].data;
    Elf64_Sym record;
    for (uint64_t nOffset = 0; ReadRecord(table.data, nOffset, record); nOffset += sizeof(record))
    {
        SSymbol symbol;
        symbol.name = NameAt(names, record.st_name);
        const bool bSection = record.st_shndx != SHN_UNDEF && record.st_shndx < m_vSections.size();
        if (!bSection || symbol.name.empty() ||
            !Slice(m_vSections[record.st_shndx].data, record.st_value, record.st_size, symbol.data))
        {
            continue;
        }
        symbol.nType = ELF64_ST_TYPE(record.st_info);
        symbol.nSection = record.st_shndx;
        symbol.nValue = record.st_value;
        m_vSymbols.push_back(symbol);
        m_Symbols.emplace(symbol.name, symbol.data);
    }
}

bool CElfReader::FindSection(std::string_view name, std::string_view& data) const
{
    for (const SSection& section : m_vSections)
    {
        if (section.name == name && section.nType != SHT_NULL)
        {
            data = section.data;
            return true;
        }
    }
    return false;
}

bool CElfReader::FindSymbol(std::string_view name, std::string_view& data) const
{
    const auto it = m_Symbols.find(name);
    if (it == m_Symbols.end())
    {
        return false;
    }
    data = it->second;
    return true;
}

} // namespace KestrelPlatform
