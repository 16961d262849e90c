#ifndef KESTREL_BINARY_ELFSECTION_H
#define KESTREL_BINARY_ELFSECTION_H

#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <string>
#include <vector>

/// A section of a CElf: its header, always in the 64-bit form, its name and its bytes.
///
/// What the section refers to by sh_link and sh_info is kept as pointers; they survive a change of the
/// section list, and CElf writes the indices from them. The sizes and offsets in the header are those
/// that were read; CElf computes them afresh when it writes.
class CElfSection
{
public:
    CElfSection() = default;
    CElfSection(const CElfSection&) = delete;
    CElfSection& operator=(const CElfSection&) = delete;
    virtual ~CElfSection() = default;

    const std::string& GetName() const { return m_Name; }
    void SetName(const std::string& name) { m_Name = name; }

    Elf64_Word GetType() const { return m_Header.sh_type; }
    void SetType(Elf64_Word type) { m_Header.sh_type = type; }

    Elf64_Xword GetFlags() const { return m_Header.sh_flags; }
    void SetFlags(Elf64_Xword flags) { m_Header.sh_flags = flags; }

    Elf64_Addr GetAddress() const { return m_Header.sh_addr; }
    void SetAddress(Elf64_Addr address) { m_Header.sh_addr = address; }

    Elf64_Xword GetAddrAlign() const { return m_Header.sh_addralign; }

    /// \return false, with nothing changed, for a value that is neither 0 nor a power of two
    bool SetAddrAlign(Elf64_Xword addrAlign);

    Elf64_Xword GetEntrySize() const { return m_Header.sh_entsize; }
    void SetEntrySize(Elf64_Xword entrySize) { m_Header.sh_entsize = entrySize; }

    Elf64_Word GetLink() const { return m_Header.sh_link; }
    void SetLink(Elf64_Word link) { m_Header.sh_link = link; }

    Elf64_Word GetInfo() const { return m_Header.sh_info; }
    void SetInfo(Elf64_Word info) { m_Header.sh_info = info; }

    /// The section that sh_link names, not owned; null if there is none.
    CElfSection* GetLinkSection() const { return m_Link; }
    void SetLinkSection(CElfSection* pSection) { m_Link = pSection; }

    /// The section that sh_info names, not owned; null if there is none.
    CElfSection* GetInfoSection() const { return m_Info; }
    void SetInfoSection(CElfSection* pSection) { m_Info = pSection; }

    /// The bytes that the section holds; sh_size may differ until the image is written.
    size_t GetDataSize() const { return m_Data.size(); }
    const std::vector<char>& GetData() const { return m_Data; }
    std::vector<char>& GetMutableData() { return m_Data; }

    /// Replace or extend the bytes. pData may be null if nSize is 0. \return true
    bool SetData(const char* pData, size_t nSize);
    bool SetData(const std::string& data);
    bool SetData(const std::vector<char>& data);
    bool AppendData(const char* pData, size_t nSize);
    bool AppendData(const std::string& data);
    bool AppendData(const std::vector<char>& data);
    void EraseData() { m_Data.clear(); }

    Elf64_Off GetDataOffset() const { return m_Header.sh_offset; }
    void SetDataOffset(Elf64_Off offset) { m_Header.sh_offset = offset; }
    void SetDataSize(Elf64_Xword size) { m_Header.sh_size = size; }

    const Elf64_Shdr& GetShdr() const { return m_Header; }

    /// Reads the header at shdrOff and the bytes that it names.
    /// \return false if either lies beyond the image. A header inside it is kept even so, with no bytes.
    bool Load(const std::vector<char>& vBinary, uint64_t shdrOff, bool is64);

protected:
    friend class CElf;

    Elf64_Shdr m_Header = {};
    CElfSection* m_Link = nullptr;
    CElfSection* m_Info = nullptr;
    std::string m_Name;
    std::vector<char> m_Data;
};

/// A section of NUL-terminated strings.
class CElfStringTable : public CElfSection
{
public:
    /// Appends the string, whether or not an equal one is there. \return the offset at which it starts
    size_t AddString(const std::string& str);
};

#endif
