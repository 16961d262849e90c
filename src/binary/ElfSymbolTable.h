#ifndef KESTREL_BINARY_ELFSYMBOLTABLE_H
#define KESTREL_BINARY_ELFSYMBOLTABLE_H

#include "binary/ElfSection.h"

#include <algorithm>
#include <string>
#include <vector>

/// The symbol table of a CElf, as a list of symbols with their names and sections. The section's bytes
/// are rebuilt from it when the image is written.
class CElfSymbolTable : public CElfSection
{
public:
    struct TableEntry
    {
        Elf64_Sym symEntry = {};
        std::string symName;

        /// The section of the symbol, not owned. Null for a reserved index (SHN_ABS, SHN_COMMON), which then
        /// stands in symEntry.st_shndx.
        CElfSection* symSection = nullptr;
    };

    typedef std::vector<TableEntry>::iterator SymbolIterator;
    typedef std::vector<TableEntry>::const_iterator const_SymbolIterator;

    // The section's own, beside those of a symbol.
    using CElfSection::GetInfo;
    using CElfSection::SetInfo;

    SymbolIterator SymbolsBegin() { return m_Table.begin(); }
    SymbolIterator SymbolsEnd() { return m_Table.end(); }
    const_SymbolIterator SymbolsBegin() const { return m_Table.begin(); }
    const_SymbolIterator SymbolsEnd() const { return m_Table.end(); }
    size_t GetNumSymbols() const { return m_Table.size(); }

    /// Appends a symbol. A local one counts as such in sh_info as long as no other kind precedes it. \param section
    /// null for an undefined symbol \return true
    bool AddSymbol(const std::string& name, unsigned char bind, unsigned char type, unsigned char other,
                   CElfSection* section, Elf64_Addr value, Elf64_Xword size);

    /// The first symbol of that name, or SymbolsEnd().
    SymbolIterator GetSymbol(const std::string& name);
    const_SymbolIterator GetSymbol(const std::string& name) const;

    /// \return false if a pointer is null or sym is SymbolsEnd()
    bool GetInfo(const_SymbolIterator sym, std::string* name, unsigned char* bind, unsigned char* type,
                 unsigned char* other, CElfSection** section, Elf64_Addr* value, Elf64_Xword* size) const;

    /// \return false if sym is SymbolsEnd()
    bool SetInfo(SymbolIterator sym, const std::string& name, unsigned char bind, unsigned char type,
                 unsigned char other, CElfSection* section, Elf64_Addr value, Elf64_Xword size);

    /// Removes a symbol and keeps sh_info, the index of the first non-local symbol, right.
    /// \return the next symbol
    SymbolIterator RemoveSymbol(SymbolIterator sym);

    /// Removes the first symbol of that name. \return false if there is none
    bool RemoveSymbol(const std::string& name);

    /// Removes every symbol for which the predicate, on a const TableEntry&, holds, in one pass.
    template <class Predicate>
    void RemoveSymbolsIf(Predicate predicate)
    {
        const auto firstNonLocal =
            m_Table.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(m_Header.sh_info, m_Table.size()));
        m_Header.sh_info -= static_cast<Elf64_Word>(std::count_if(m_Table.begin(), firstNonLocal, predicate));
        m_Table.erase(std::remove_if(m_Table.begin(), m_Table.end(), predicate), m_Table.end());
    }

    /// Removes every symbol of the section, in one pass.
    void RemoveSymbolsInSection(CElfSection* section);

private:
    friend class CElf;

    /// Fills the table from the section's bytes and those of the linked string table.
    /// \param nBudget  bytes that names may still take; lowered
    /// \return false for an entry that doesn't fit the rest of the image
    bool Load(const std::vector<CElfSection*>& vSections, bool is64, uint64_t& nBudget);

    std::vector<TableEntry> m_Table;
};

#endif
