#include "binary/ElfSymbolTable.h"

#include "binary/ElfBytes.h"

#include <algorithm>
#include <cstring>

namespace
{

bool IsReservedIndex(Elf64_Section index)
{
    return index >= SHN_LORESERVE;
}

void Assign(CElfSymbolTable::TableEntry& entry, const std::string& name, unsigned char bind, unsigned char type,
            unsigned char other, CElfSection* section, Elf64_Addr value, Elf64_Xword size)
{
    const bool bKeepsReserved = section == nullptr && IsReservedIndex(entry.symEntry.st_shndx);
    entry.symEntry.st_info = static_cast<unsigned char>(ELF64_ST_INFO(bind, type));
    entry.symEntry.st_other = other;
    entry.symEntry.st_shndx = bKeepsReserved ? entry.symEntry.st_shndx : static_cast<Elf64_Section>(SHN_UNDEF);
    entry.symEntry.st_value = value;
    entry.symEntry.st_size = size;
    entry.symName = name;
    entry.symSection = section;
}

/// Index 0 of an empty table is the empty name.
bool ReadSymbolName(const std::vector<char>& vNames, CElfSymbolTable::TableEntry& entry, uint64_t& nBudget)
{
    return (vNames.empty() && entry.symEntry.st_name == 0) ||
           ElfBytes::ReadName(vNames, entry.symEntry.st_name, entry.symName, nBudget);
}

/// A reserved index stands for no section, except for the one that says where to look for the index.
bool FindSymbolSection(const std::vector<CElfSection*>& vSections, CElfSymbolTable::TableEntry& entry)
{
    const Elf64_Section index = entry.symEntry.st_shndx;
    if (index < vSections.size())
    {
        entry.symSection = vSections[index];
        return true;
    }
    return IsReservedIndex(index) && index != SHN_XINDEX;
}

} // namespace

bool CElfSymbolTable::AddSymbol(const std::string& name, unsigned char bind, unsigned char type, unsigned char other,
                                CElfSection* section, Elf64_Addr value, Elf64_Xword size)
{
    TableEntry entry;
    Assign(entry, name, bind, type, other, section, value, size);
    if (bind == STB_LOCAL && m_Header.sh_info == m_Table.size())
    {
        ++m_Header.sh_info;
    }
    m_Table.push_back(std::move(entry));
    return true;
}

CElfSymbolTable::SymbolIterator CElfSymbolTable::GetSymbol(const std::string& name)
{
    return std::find_if(m_Table.begin(), m_Table.end(),
                        [&name](const TableEntry& entry) { return entry.symName == name; });
}

CElfSymbolTable::const_SymbolIterator CElfSymbolTable::GetSymbol(const std::string& name) const
{
    return const_cast<CElfSymbolTable*>(this)->GetSymbol(name);
}

bool CElfSymbolTable::GetInfo(const_SymbolIterator sym, std::string* name, unsigned char* bind, unsigned char* type,
                              unsigned char* other, CElfSection** section, Elf64_Addr* value, Elf64_Xword* size) const
{
    const bool bAllWanted = name != nullptr && bind != nullptr && type != nullptr && other != nullptr &&
                            section != nullptr && value != nullptr && size != nullptr;
    if (!bAllWanted || sym == m_Table.end())
    {
        return false;
    }

    *name = sym->symName;
    *bind = ELF64_ST_BIND(sym->symEntry.st_info);
    *type = ELF64_ST_TYPE(sym->symEntry.st_info);
    *other = sym->symEntry.st_other;
    *section = sym->symSection;
    *value = sym->symEntry.st_value;
    *size = sym->symEntry.st_size;
    return true;
}

bool CElfSymbolTable::SetInfo(SymbolIterator sym, const std::string& name, unsigned char bind, unsigned char type,
                              unsigned char other, CElfSection* section, Elf64_Addr value, Elf64_Xword size)
{
    if (sym == m_Table.end())
    {
        return false;
    }
    Assign(*sym, name, bind, type, other, section, value, size);
    return true;
}

CElfSymbolTable::SymbolIterator CElfSymbolTable::RemoveSymbol(SymbolIterator sym)
{
    if (sym == m_Table.end())
    {
        return sym;
    }
    if (static_cast<size_t>(sym - m_Table.begin()) < m_Header.sh_info)
    {
        --m_Header.sh_info;
    }
    return m_Table.erase(sym);
}

bool CElfSymbolTable::RemoveSymbol(const std::string& name)
{
    const SymbolIterator sym = GetSymbol(name);
    if (sym == m_Table.end())
    {
        return false;
    }
    RemoveSymbol(sym);
    return true;
}

void CElfSymbolTable::RemoveSymbolsInSection(CElfSection* section)
{
    if (section == nullptr)
    {
        return;
    }

    RemoveSymbolsIf([section](const TableEntry& entry) { return entry.symSection == section; });
}

bool CElfSymbolTable::Load(const std::vector<CElfSection*>& vSections, bool is64, uint64_t& nBudget)
{
    const size_t nEntrySize = ElfBytes::SymbolSize(is64);
    if (m_Header.sh_entsize != nEntrySize || m_Link == nullptr || m_Data.size() != m_Header.sh_size)
    {
        return false;
    }

    const size_t nCount = m_Data.size() / nEntrySize;
    if (m_Header.sh_info > nCount)
    {
        return false;
    }

    const std::vector<char>& vNames = m_Link->GetData();
    m_Table.reserve(nCount);
    for (size_t nIndex = 0; nIndex < nCount; ++nIndex)
    {
        TableEntry entry;
        ElfBytes::ReadSymbol(m_Data, nIndex * nEntrySize, is64, entry.symEntry);
        if (!ReadSymbolName(vNames, entry, nBudget) || !FindSymbolSection(vSections, entry))
        {
            return false;
        }
        m_Table.push_back(std::move(entry));
    }
    return true;
}
