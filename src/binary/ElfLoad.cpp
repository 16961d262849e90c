#include "binary/Elf.h"

#include "binary/ElfBytes.h"

#include <istream>

namespace
{

/// What an image may unfold to in memory, in multiples of its size. Sections and names that share bytes
/// are copied for each that has them; a useful image shares little.
constexpr uint64_t s_nUnfoldFactor = 8;

} // namespace

bool CElf::ReadStream(std::istream& stream)
{
    stream.seekg(0, std::ios::end);
    const std::streamoff nSize = stream.tellg();
    stream.seekg(0, std::ios::beg);
    if (!stream.good() || nSize <= 0 || static_cast<uint64_t>(nSize) > UINT32_MAX)
    {
        return false;
    }

    std::vector<char> vBinary(static_cast<size_t>(nSize));
    stream.read(vBinary.data(), nSize);
    return stream.gcount() == nSize && Read(vBinary);
}

bool CElf::Read(const std::vector<char>& vBinary)
{
    uint64_t nBudget = vBinary.size() * s_nUnfoldFactor;
    const bool bRead = ReadHeader(vBinary) && CheckHeader(vBinary) && ReadSections(vBinary, nBudget) &&
                       ResolveLinks() && ReadSymbols(nBudget);
    if (!bRead)
    {
        Deinitialize();
    }
    return bRead;
}

bool CElf::ReadHeader(const std::vector<char>& vBinary)
{
    if (vBinary.size() < sizeof(Elf32_Ehdr))
    {
        return false;
    }
    m_IsElf64 = IsElf64(vBinary.data());
    return ElfBytes::ReadHeader(vBinary, m_IsElf64, m_Header);
}

bool CElf::CheckHeader(const std::vector<char>& vBinary) const
{
    const unsigned char* pIdent = m_Header.e_ident;
    if (!IsElf(vBinary.data()) || (pIdent[EI_CLASS] != ELFCLASS32 && pIdent[EI_CLASS] != ELFCLASS64) ||
        pIdent[EI_DATA] != ELFDATA2LSB || pIdent[EI_VERSION] != EV_CURRENT || m_Header.e_version != EV_CURRENT)
    {
        return false;
    }
    if (m_Header.e_shoff > vBinary.size() || m_Header.e_phoff > vBinary.size())
    {
        return false;
    }

    // Any other size of a section header could neither be read back nor written without overlap. The name
    // table can't be the null section, whose own name it would have to hold.
    return m_Header.e_shnum != 0 && m_Header.e_shstrndx != SHN_UNDEF && m_Header.e_shstrndx < m_Header.e_shnum &&
           m_Header.e_shentsize == ElfBytes::SectionHeaderSize(m_IsElf64) &&
           ElfBytes::IsInside(vBinary, m_Header.e_shoff,
                              static_cast<uint64_t>(m_Header.e_shnum) * m_Header.e_shentsize);
}

bool CElf::ReadSections(const std::vector<char>& vBinary, uint64_t& nBudget)
{
    for (size_t nIndex = 0; nIndex < m_Header.e_shnum; ++nIndex)
    {
        const uint64_t nOffset = m_Header.e_shoff + nIndex * m_Header.e_shentsize;
        Elf64_Shdr header;
        if (!ElfBytes::ReadSectionHeader(vBinary, nOffset, m_IsElf64, header) ||
            UnsupportedSectionType(header.sh_type) || (header.sh_type == SHT_SYMTAB && m_SymbolTable != nullptr))
        {
            return false;
        }
        if (ElfBytes::IsInside(vBinary, header.sh_offset, header.sh_size))
        {
            if (header.sh_size > nBudget)
            {
                return false;
            }
            nBudget -= header.sh_size;
        }

        m_Sections.push_back(nullptr);
        m_Sections.back() = MakeSection(nIndex, header.sh_type);
        m_Sections.back()->Load(vBinary, nOffset, m_IsElf64);
    }
    return ReadSectionNames(nBudget);
}

CElfSection* CElf::MakeSection(size_t nIndex, Elf64_Word type)
{
    if (type == SHT_SYMTAB)
    {
        return m_SymbolTable = new CElfSymbolTable;
    }
    if (nIndex == m_Header.e_shstrndx)
    {
        return m_SectionHeaderStringTable = new CElfStringTable;
    }
    return type == SHT_STRTAB ? new CElfStringTable : new CElfSection;
}

bool CElf::ReadSectionNames(uint64_t& nBudget)
{
    if (m_SectionHeaderStringTable == nullptr)
    {
        return false;
    }
    const std::vector<char>& vNames = m_SectionHeaderStringTable->GetData();
    for (CElfSection* pSection : m_Sections)
    {
        if (!ElfBytes::ReadName(vNames, pSection->m_Header.sh_name, pSection->m_Name, nBudget))
        {
            return false;
        }
    }

    // The null section comes first, so that offset 0 of a rebuilt name table is the empty name.
    return m_Sections.front()->GetType() == SHT_NULL && m_Sections.front()->GetName().empty();
}

bool CElf::ResolveLinks()
{
    for (CElfSection* pSection : m_Sections)
    {
        const Elf64_Word type = pSection->GetType();
        const bool bHasInfo = type == SHT_REL;
        const bool bHasLink = bHasInfo || type == SHT_SYMTAB || type == SHT_DYNSYM;
        if ((bHasLink && pSection->GetLink() >= m_Sections.size()) ||
            (bHasInfo && pSection->GetInfo() >= m_Sections.size()))
        {
            return false;
        }
        pSection->m_Link = bHasLink ? m_Sections[pSection->GetLink()] : nullptr;
        pSection->m_Info = bHasInfo ? m_Sections[pSection->GetInfo()] : nullptr;
    }
    return true;
}

bool CElf::ReadSymbols(uint64_t& nBudget)
{
    if (m_SymbolTable == nullptr)
    {
        return true;
    }

    // The names are rebuilt on writing, so that nothing else may have its strings in the same table.
    const CElfSection* pStrings = m_SymbolTable->GetLinkSection();
    for (const CElfSection* pSection : m_Sections)
    {
        if (pSection != m_SymbolTable && pSection->GetLinkSection() == pStrings)
        {
            return false;
        }
    }
    return dynamic_cast<const CElfStringTable*>(pStrings) != nullptr &&
           m_SymbolTable->Load(m_Sections, m_IsElf64, nBudget);
}
