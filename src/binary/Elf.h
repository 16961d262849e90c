#ifndef KESTREL_BINARY_ELF_H
#define KESTREL_BINARY_ELF_H

#include "binary/ElfSection.h"
#include "binary/ElfSymbolTable.h"

#include <iosfwd>
#include <string>
#include <unordered_map>
#include <vector>

/// A segment of an image. None is ever read or written.
struct CElfProgramSegment
{
    Elf64_Phdr m_ProgramHeader = {};
    CElfSection* m_ReferencedSection = nullptr;
};

/// A little-endian ELF image of either class as a list of sections and one symbol table, to be changed
/// and written anew. The format is that of the System V ABI's "Object Files" chapter.
///
/// Reading trusts nothing: an offset, size, count, index or name that doesn't fit the image gives an
/// object that isn't good(), and what an image unfolds to in memory is bounded by its size. Writing
/// computes every offset, size, name and index afresh; program headers are not carried over.
///
/// No operation throws on bad input, and none logs. Objects share nothing: one thread an object.
class CElf
{
public:
    typedef std::vector<CElfSection*>::iterator SectionIterator;
    typedef std::vector<CElfSection*>::const_iterator const_SectionIterator;

    /// Reads a file, the whole of a stream, or bytes. good() tells the outcome; no source, no file or an
    /// empty one isn't good().
    explicit CElf(const std::string& strFilename);
    explicit CElf(std::istream* stream);
    explicit CElf(const std::vector<char>& vBinary);

    /// A deep copy. Addresses of sections aren't copied, nor are the bytes of symbol and string tables:
    /// those of the section names and symbols are rebuilt by Store.
    CElf(const CElf& celf);
    CElf& operator=(const CElf& celf);

    ~CElf();

    /// True if the image was read or copied without fault.
    bool good() const { return m_Initialized; }

    /// Write the image. \return false if the object isn't good(), the image can't be expressed in its
    /// class or exceeds 4 GiB, or the target can't take it; a vector is then empty
    bool Store(const std::string& strFilename);
    bool Store(std::ostream* stream);
    bool Store(std::vector<char>* pvBinary);

    /// \param p  at least 5 bytes
    static bool IsElf(const char* p);
    static bool IsElf64(const char* p);

    /// True for the section types with which an image isn't read and a section isn't added.
    static bool UnsupportedSectionType(Elf64_Word type);

    unsigned char GetClass() const { return m_Header.e_ident[EI_CLASS]; }
    unsigned char GetDataEncoding() const { return m_Header.e_ident[EI_DATA]; }
    unsigned char GetEIdentVersion() const { return m_Header.e_ident[EI_VERSION]; }
    Elf64_Half GetType() const { return m_Header.e_type; }
    Elf64_Half GetMachine() const { return m_Header.e_machine; }
    Elf64_Word GetVersion() const { return m_Header.e_version; }
    Elf64_Addr GetEntry() const { return m_Header.e_entry; }
    Elf64_Word GetFlags() const { return m_Header.e_flags; }

    /// Makes the image a 32-bit one. \return false for any class but 1 (ELFCLASS32)
    bool SetClass(unsigned char elfClass);

    /// \return false for any encoding but 1, little-endian
    bool SetDataEncoding(unsigned char encoding);

    /// \return true
    bool SetType(Elf64_Half type);
    bool SetMachine(Elf64_Half machine);
    bool SetVersion(Elf64_Word version);
    bool SetEntry(Elf64_Addr entry);
    bool SetFlags(Elf64_Word flags);

    size_t GetNumSections() const { return m_Sections.size(); }
    SectionIterator SectionsBegin() { return m_Sections.begin(); }
    SectionIterator SectionsEnd() { return m_Sections.end(); }
    const_SectionIterator SectionsBegin() const { return m_Sections.begin(); }
    const_SectionIterator SectionsEnd() const { return m_Sections.end(); }

    /// The first section of that name, which stays this object's; null if there is none.
    CElfSection* GetSection(const std::string& name) const;

    /// The first section of that name, or SectionsEnd().
    SectionIterator GetSectionIterator(const std::string& name);

    /// Appends an empty section, which stays this object's.
    /// \return null for a symbol or string table or an unsupported type
    CElfSection* AddSection(const std::string& name, Elf64_Word type, Elf64_Xword flags, Elf64_Word info,
                            Elf64_Xword addrAlign, Elf64_Xword entrySize);

    /// Removes a section and every symbol that belongs to it.
    /// \return false if there is none, or if the image needs it: the null section, the section names, the
    /// symbol table, a section that another one refers to
    bool RemoveSection(const std::string& name);
    bool RemoveSection(SectionIterator section);

    /// Null if the image has none.
    CElfSymbolTable* GetSymbolTable() const { return m_SymbolTable; }

private:
    bool Read(const std::vector<char>& vBinary);
    /// The other constructors delegate to this one, so that an object whose constructor throws is destroyed with what
    /// it has.
    CElf() = default;

    bool ReadStream(std::istream& stream);
    bool ReadHeader(const std::vector<char>& vBinary);
    bool CheckHeader(const std::vector<char>& vBinary) const;
    bool ReadSections(const std::vector<char>& vBinary, uint64_t& nBudget);
    CElfSection* MakeSection(size_t nIndex, Elf64_Word type);
    bool ReadSectionNames(uint64_t& nBudget);
    bool ResolveLinks();
    bool ReadSymbols(uint64_t& nBudget);

    bool Write(std::vector<char>& vBinary);
    bool NumberSections(std::unordered_map<const CElfSection*, size_t>& mapToIndex);
    bool WriteSymbols(const std::unordered_map<const CElfSection*, size_t>& mapToIndex);
    bool PlaceSections(uint64_t& nImageSize);
    bool WriteHeader(std::vector<char>& vBinary) const;
    bool WriteSections(std::vector<char>& vBinary) const;

    void Copy(const CElf& celf);
    CElfSection* MakeCopy(const CElf& celf, const CElfSection& source);
    void Deinitialize();
    bool IsNeeded(const CElfSection* pSection) const;

    Elf64_Ehdr m_Header = {};
    bool m_Initialized = false;
    bool m_IsElf64 = false;
    std::vector<CElfSection*> m_Sections;
    std::vector<CElfProgramSegment*> m_ProgramSegments;
    CElfStringTable* m_SectionHeaderStringTable = nullptr;
    CElfSymbolTable* m_SymbolTable = nullptr;
};

#endif
