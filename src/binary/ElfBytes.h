#ifndef KESTREL_BINARY_ELFBYTES_H
#define KESTREL_BINARY_ELFBYTES_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <string>
#include <type_traits>
#include <vector>

/// Converts structures of both ELF classes to and from bytes. In memory CElf keeps the 64-bit form of either class.
/// Bytes are little-endian, as the machine's own.
namespace ElfBytes
{

/// Whether nSize bytes at nOffset lie inside the image.
inline bool IsInside(const std::vector<char>& vBinary, uint64_t nOffset, uint64_t nSize)
{
    return nOffset <= vBinary.size() && nSize <= vBinary.size() - nOffset;
}

/// \return false if the structure doesn't lie inside the bytes
template <class Struct>
bool Read(const std::vector<char>& vBinary, uint64_t nOffset, Struct& value)
{
    static_assert(std::is_trivially_copyable<Struct>::value, "bytes become the structure");
    if (!IsInside(vBinary, nOffset, sizeof(Struct)))
    {
        return false;
    }
    std::memcpy(&value, vBinary.data() + nOffset, sizeof(Struct));
    return true;
}

/// The NUL-terminated text at an offset of a string table.
/// \param nBudget  bytes that names and data may still take in memory: overlapping names could otherwise
///                 make a small image unfold without bound. Lowered by the name's length
/// \return false if the text isn't inside the table with its NUL, or exceeds the budget
inline bool ReadName(const std::vector<char>& vTable, uint64_t nOffset, std::string& name, uint64_t& nBudget)
{
    if (nOffset >= vTable.size())
    {
        return false;
    }
    const char* pBegin = vTable.data() + nOffset;
    const void* pEnd = std::memchr(pBegin, 0, std::min<uint64_t>(vTable.size() - nOffset, nBudget));
    if (pEnd == nullptr)
    {
        return false;
    }
    name.assign(pBegin, static_cast<const char*>(pEnd));
    nBudget -= name.size();
    return true;
}

/// The structure must lie inside the bytes.
template <class Struct>
void Write(std::vector<char>& vBinary, uint64_t nOffset, const Struct& value)
{
    std::memcpy(vBinary.data() + nOffset, &value, sizeof(Struct));
}

/// Assigns a number to a field that may be narrower. \return false if it doesn't fit
template <class To, class From>
bool Narrow(To& to, From from)
{
    static_assert(std::is_unsigned<To>::value && std::is_unsigned<From>::value, "ELF fields are unsigned");
    to = static_cast<To>(from);
    return to == from;
}

/// Copies every field of one class's structure to the other's. \return false if a number doesn't fit
template <class To, class From>
bool ConvertHeader(To& to, const From& from)
{
    std::memcpy(to.e_ident, from.e_ident, EI_NIDENT);
    to.e_type = from.e_type;
    to.e_machine = from.e_machine;
    to.e_version = from.e_version;
    to.e_flags = from.e_flags;
    to.e_ehsize = from.e_ehsize;
    to.e_phentsize = from.e_phentsize;
    to.e_phnum = from.e_phnum;
    to.e_shentsize = from.e_shentsize;
    to.e_shnum = from.e_shnum;
    to.e_shstrndx = from.e_shstrndx;
    return Narrow(to.e_entry, from.e_entry) && Narrow(to.e_phoff, from.e_phoff) && Narrow(to.e_shoff, from.e_shoff);
}

template <class To, class From>
bool ConvertSectionHeader(To& to, const From& from)
{
    to.sh_name = from.sh_name;
    to.sh_type = from.sh_type;
    to.sh_link = from.sh_link;
    to.sh_info = from.sh_info;
    return Narrow(to.sh_flags, from.sh_flags) && Narrow(to.sh_addr, from.sh_addr) &&
           Narrow(to.sh_offset, from.sh_offset) && Narrow(to.sh_size, from.sh_size) &&
           Narrow(to.sh_addralign, from.sh_addralign) && Narrow(to.sh_entsize, from.sh_entsize);
}

template <class To, class From>
bool ConvertSymbol(To& to, const From& from)
{
    to.st_name = from.st_name;
    to.st_info = from.st_info;
    to.st_other = from.st_other;
    to.st_shndx = from.st_shndx;
    return Narrow(to.st_value, from.st_value) && Narrow(to.st_size, from.st_size);
}

/// Read a structure of the image's class in the 64-bit form. \return false if it doesn't lie inside the bytes
inline bool ReadHeader(const std::vector<char>& vBinary, bool is64, Elf64_Ehdr& header)
{
    Elf32_Ehdr header32;
    return is64 ? Read(vBinary, 0, header) : Read(vBinary, 0, header32) && ConvertHeader(header, header32);
}

inline bool ReadSectionHeader(const std::vector<char>& vBinary, uint64_t nOffset, bool is64, Elf64_Shdr& header)
{
    Elf32_Shdr header32;
    return is64 ? Read(vBinary, nOffset, header)
                : Read(vBinary, nOffset, header32) && ConvertSectionHeader(header, header32);
}

inline bool ReadSymbol(const std::vector<char>& vBinary, uint64_t nOffset, bool is64, Elf64_Sym& symbol)
{
    Elf32_Sym symbol32;
    return is64 ? Read(vBinary, nOffset, symbol) : Read(vBinary, nOffset, symbol32) && ConvertSymbol(symbol, symbol32);
}

/// Write a 64-bit form in the image's class, inside the bytes. \return false if a number doesn't fit the class
inline bool WriteHeader(std::vector<char>& vBinary, bool is64, const Elf64_Ehdr& header)
{
    Elf32_Ehdr header32 = {};
    const bool bFits = is64 || ConvertHeader(header32, header);
    is64 ? Write(vBinary, 0, header) : Write(vBinary, 0, header32);
    return bFits;
}

inline bool WriteSectionHeader(std::vector<char>& vBinary, uint64_t nOffset, bool is64, const Elf64_Shdr& header)
{
    Elf32_Shdr header32 = {};
    const bool bFits = is64 || ConvertSectionHeader(header32, header);
    is64 ? Write(vBinary, nOffset, header) : Write(vBinary, nOffset, header32);
    return bFits;
}

inline bool WriteSymbol(std::vector<char>& vBinary, uint64_t nOffset, bool is64, const Elf64_Sym& symbol)
{
    Elf32_Sym symbol32 = {};
    const bool bFits = is64 || ConvertSymbol(symbol32, symbol);
    is64 ? Write(vBinary, nOffset, symbol) : Write(vBinary, nOffset, symbol32);
    return bFits;
}

/// Bytes of each structure in the image's class.
inline size_t HeaderSize(bool is64)
{
    return is64 ? sizeof(Elf64_Ehdr) : sizeof(Elf32_Ehdr);
}
inline size_t SectionHeaderSize(bool is64)
{
    return is64 ? sizeof(Elf64_Shdr) : sizeof(Elf32_Shdr);
}
inline size_t SymbolSize(bool is64)
{
    return is64 ? sizeof(Elf64_Sym) : sizeof(Elf32_Sym);
}

} // namespace ElfBytes

#endif
