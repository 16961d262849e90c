#include "tools/session/launch/BinarySections.h"

#include <elf.h>

#include <algorithm>
#include <cstring>

namespace KestrelTool
{

namespace
{

/// Reads a structure at an offset in a binary. \return false if it isn't inside
template <typename T>
bool ReadAt(const std::vector<char>& vBinary, uint64_t nOffset, T& value)
{
    if (nOffset > vBinary.size() || sizeof(T) > vBinary.size() - nOffset)
    {
        return false;
    }
    std::memcpy(&value, vBinary.data() + nOffset, sizeof(T));
    return true;
}

bool ReadSection(const std::vector<char>& vBinary, const Elf64_Shdr& header, std::string& strContents)
{
    if (header.sh_offset > vBinary.size() || header.sh_size > vBinary.size() - header.sh_offset)
    {
        return false;
    }
    strContents.assign(vBinary.data() + header.sh_offset, header.sh_size);
    return true;
}

} // namespace

std::vector<SSection> ReadSections(const std::vector<char>& vBinary)
{
    std::vector<SSection> vSections;
    Elf64_Ehdr header;
    Elf64_Shdr nameTable;
    std::string strNames;
    if (!ReadAt(vBinary, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64 ||
        !ReadAt(vBinary, header.e_shoff + uint64_t(header.e_shstrndx) * sizeof(Elf64_Shdr), nameTable) ||
        !ReadSection(vBinary, nameTable, strNames))
    {
        return vSections;
    }
    for (uint64_t i = 0; i < header.e_shnum; ++i)
    {
        Elf64_Shdr section;
        if (!ReadAt(vBinary, header.e_shoff + i * sizeof(Elf64_Shdr), section))
        {
            break;
        }
        SSection entry;
        if (section.sh_name < strNames.size() && section.sh_type != SHT_NULL && section.sh_type != SHT_NOBITS &&
            ReadSection(vBinary, section, entry.strContents))
        {
            entry.strName = strNames.c_str() + section.sh_name;
            entry.nOffset = section.sh_offset;
            vSections.push_back(entry);
        }
    }
    return vSections;
}

std::string FindSection(const std::vector<char>& vBinary, const char* pszName)
{
    for (const SSection& section : ReadSections(vBinary))
    {
        if (section.strName == pszName)
        {
            return section.strContents;
        }
    }
    return std::string();
}

std::string FindSymbol(const std::vector<char>& vBinary, const std::string& strName)
{
    const std::string strSymbols = FindSection(vBinary, ".symtab");
    const std::string strNames = FindSection(vBinary, ".strtab");
    const std::vector<char> vSymbols(strSymbols.begin(), strSymbols.end());
    Elf64_Sym symbol;
    for (uint64_t nOffset = 0; ReadAt(vSymbols, nOffset, symbol); nOffset += sizeof symbol)
    {
        Elf64_Ehdr header;
        Elf64_Shdr section;
        std::string strContents;
        // The names end with a null character; the last one may lack it, which c_str adds.
        if (symbol.st_name < strNames.size() && strNames.c_str() + symbol.st_name == strName &&
            ReadAt(vBinary, 0, header) && symbol.st_shndx < header.e_shnum &&
            ReadAt(vBinary, header.e_shoff + uint64_t{symbol.st_shndx} * sizeof section, section) &&
            ReadSection(vBinary, section, strContents) && symbol.st_value <= strContents.size())
        {
            return strContents.substr(symbol.st_value, symbol.st_size);
        }
    }
    return std::string();
}

std::vector<std::string> SplitLines(const std::string& strText)
{
    std::vector<std::string> vLines;
    size_t nStart = 0;
    while (nStart < strText.size())
    {
        const size_t nEnd = std::min(strText.find('\n', nStart), strText.size());
        vLines.push_back(strText.substr(nStart, nEnd - nStart));
        nStart = nEnd + 1;
    }
    return vLines;
}

std::vector<std::string> ReadKernelText(const std::vector<char>& vBinary)
{
    return SplitLines(FindSection(vBinary, ".debugil"));
}

} // namespace KestrelTool
