#include "binary/Elf.h"

#include "binary/ElfBytes.h"

#include <algorithm>

namespace
{

/// Offsets and sizes of an image have 32 bits in either class.
constexpr uint64_t s_nMaxImageSize = UINT32_MAX;

/// More padding than any useful alignment needs: an alignment that was read from a damaged image would
/// otherwise make a small one large.
constexpr uint64_t s_nMaxPadding = 16u << 20;

/// \param nAlign  0 and 1 mean none; needn't be a power of two
/// \return false if the padding is more than is left of nPaddingLeft
bool Align(uint64_t& nOffset, uint64_t nAlign, uint64_t& nPaddingLeft)
{
    const uint64_t nOver = nAlign > 1 ? nOffset % nAlign : 0;
    const uint64_t nPadding = nOver == 0 ? 0 : nAlign - nOver;
    if (nPadding > nPaddingLeft)
    {
        return false;
    }
    nPaddingLeft -= nPadding;
    nOffset += nPadding;
    return true;
}

bool FindIndex(const std::unordered_map<const CElfSection*, size_t>& mapToIndex, const CElfSection* pSection,
               Elf64_Word& index)
{
    const auto found = mapToIndex.find(pSection);
    if (found == mapToIndex.end())
    {
        return false;
    }
    index = static_cast<Elf64_Word>(found->second);
    return true;
}

/// Adds a string and notes its offset. \return false if the table has grown too large for one
bool AddName(CElfStringTable& table, const std::string& name, Elf64_Word& offset)
{
    return ElfBytes::Narrow(offset, static_cast<uint64_t>(table.AddString(name)));
}

} // namespace

bool CElf::Store(std::vector<char>* pvBinary)
{
    if (pvBinary == nullptr || !good())
    {
        return false;
    }
    if (!Write(*pvBinary))
    {
        pvBinary->clear();
        return false;
    }
    return true;
}

bool CElf::Write(std::vector<char>& vBinary)
{
    vBinary.clear();
    std::unordered_map<const CElfSection*, size_t> mapToIndex;
    uint64_t nImageSize = 0;
    if (m_Sections.size() >= SHN_LORESERVE || !NumberSections(mapToIndex) || !WriteSymbols(mapToIndex) ||
        !PlaceSections(nImageSize))
    {
        return false;
    }

    m_Header.e_shnum = static_cast<Elf64_Half>(m_Sections.size());
    m_Header.e_shstrndx = static_cast<Elf64_Half>(mapToIndex[m_SectionHeaderStringTable]);
    vBinary.resize(nImageSize);
    return WriteHeader(vBinary) && WriteSections(vBinary);
}

bool CElf::NumberSections(std::unordered_map<const CElfSection*, size_t>& mapToIndex)
{
    mapToIndex.reserve(m_Sections.size());
    for (size_t nIndex = 0; nIndex < m_Sections.size(); ++nIndex)
    {
        mapToIndex[m_Sections[nIndex]] = nIndex;
    }

    m_SectionHeaderStringTable->EraseData();
    for (CElfSection* pSection : m_Sections)
    {
        Elf64_Shdr& header = pSection->m_Header;
        if (!AddName(*m_SectionHeaderStringTable, pSection->m_Name, header.sh_name) ||
            (pSection->m_Link != nullptr && !FindIndex(mapToIndex, pSection->m_Link, header.sh_link)) ||
            (pSection->m_Info != nullptr && !FindIndex(mapToIndex, pSection->m_Info, header.sh_info)))
        {
            return false;
        }
    }
    return true;
}

bool CElf::WriteSymbols(const std::unordered_map<const CElfSection*, size_t>& mapToIndex)
{
    if (m_SymbolTable == nullptr)
    {
        return true;
    }

    auto* pStrings = dynamic_cast<CElfStringTable*>(m_SymbolTable->m_Link);
    if (pStrings == nullptr)
    {
        return false;
    }

    // A table that also holds the section names has been rebuilt already, and the symbols' names join it.
    if (pStrings != m_SectionHeaderStringTable)
    {
        pStrings->EraseData();
    }

    const size_t nEntrySize = ElfBytes::SymbolSize(m_IsElf64);
    std::vector<char> vRecords(m_SymbolTable->m_Table.size() * nEntrySize);
    uint64_t nOffset = 0;
    for (CElfSymbolTable::TableEntry& entry : m_SymbolTable->m_Table)
    {
        Elf64_Sym& symbol = entry.symEntry;
        Elf64_Word index = symbol.st_shndx;
        if ((entry.symSection != nullptr && !FindIndex(mapToIndex, entry.symSection, index)) ||
            !AddName(*pStrings, entry.symName, symbol.st_name))
        {
            return false;
        }
        symbol.st_shndx = static_cast<Elf64_Section>(index);
        if (!ElfBytes::WriteSymbol(vRecords, nOffset, m_IsElf64, symbol))
        {
            return false;
        }
        nOffset += nEntrySize;
    }
    m_SymbolTable->m_Data.swap(vRecords);
    return true;
}

bool CElf::PlaceSections(uint64_t& nImageSize)
{
    uint64_t nOffset = ElfBytes::HeaderSize(m_IsElf64);
    uint64_t nPaddingLeft = s_nMaxPadding;
    for (CElfSection* pSection : m_Sections)
    {
        Elf64_Shdr& header = pSection->m_Header;
        header.sh_size = pSection->GetDataSize();
        header.sh_offset = 0;
        if (header.sh_size == 0)
        {
            continue;
        }
        if (!Align(nOffset, header.sh_addralign, nPaddingLeft) || nOffset > s_nMaxImageSize ||
            header.sh_size > s_nMaxImageSize - nOffset)
        {
            return false;
        }
        header.sh_offset = nOffset;
        nOffset += header.sh_size;
    }

    if (!Align(nOffset, 8, nPaddingLeft))
    {
        return false;
    }
    m_Header.e_shoff = nOffset;
    nImageSize = nOffset + static_cast<uint64_t>(m_Header.e_shentsize) * m_Sections.size();

    // The place of the program headers, which aren't written, stays what it was; one after the image wouldn't be read
    // again.
    return nImageSize <= s_nMaxImageSize && m_Header.e_phoff <= nImageSize;
}

bool CElf::WriteHeader(std::vector<char>& vBinary) const
{
    return ElfBytes::WriteHeader(vBinary, m_IsElf64, m_Header);
}

bool CElf::WriteSections(std::vector<char>& vBinary) const
{
    uint64_t nHeaderOffset = m_Header.e_shoff;
    for (const CElfSection* pSection : m_Sections)
    {
        const std::vector<char>& vData = pSection->m_Data;
        std::copy(vData.begin(), vData.end(),
                  vBinary.begin() + static_cast<std::ptrdiff_t>(pSection->m_Header.sh_offset));
        if (!ElfBytes::WriteSectionHeader(vBinary, nHeaderOffset, m_IsElf64, pSection->m_Header))
        {
            return false;
        }
        nHeaderOffset += m_Header.e_shentsize;
    }
    return true;
}
