#ifndef KESTREL_PLATFORM_COMPILER_ELFWRITER_H
#define KESTREL_PLATFORM_COMPILER_ELFWRITER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KestrelPlatform
{

/// Builds a 64-bit little-endian ELF image from sections and symbols. Adds the null section, the symbol table, its
/// strings and the section names. Writes no program headers and no addresses.
class CElfWriter
{
public:
    /// Adds a section and gives its number, which AddSymbol takes. The type is SHT_PROGBITS.
    size_t AddSection(const std::string& strName, uint64_t nFlags, uint64_t nAlignment, std::string_view data);

    /// Appends data to a section, at the next multiple of the section's alignment; gives its offset in the section.
    uint64_t AppendData(size_t nSection, std::string_view data);

    /// Adds a global symbol for nSize bytes at nValue in a section. The type is an STT_ value.
    void AddSymbol(std::string strName, unsigned char nType, size_t nSection, uint64_t nValue, uint64_t nSize);

    /// The image. Called once, at the end.
    std::vector<char> Write() const;

private:
    struct SSection
    {
        std::string strName;
        uint64_t nFlags;
        uint64_t nAlignment;
        std::string strData;
    };
    struct SSymbol
    {
        std::string strName;
        unsigned char nType;
        size_t nSection;
        uint64_t nValue;
        uint64_t nSize;
    };

    std::vector<SSection> m_vSections;
    std::vector<SSymbol> m_vSymbols;
};

} // namespace KestrelPlatform

#endif
