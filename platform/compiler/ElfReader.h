#ifndef KESTREL_PLATFORM_COMPILER_ELFREADER_H
#define KESTREL_PLATFORM_COMPILER_ELFREADER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace KestrelPlatform
{

/// Finds sections and symbols in a 64-bit little-endian ELF image. Every offset, size, count and index of the image is
/// checked before use. Gives views of the image, which must outlive the reader.
class CElfReader
{
public:
    struct SSection
    {
        std::string_view name;
        std::string_view data; ///< empty for a section without bytes
        uint32_t nType = 0;
        uint64_t nFlags = 0;
        uint64_t nAlignment = 0;
        uint32_t nLink = 0;
        uint64_t nEntrySize = 0;
    };
    struct SSymbol
    {
        std::string_view name;
        std::string_view data; ///< the block that it names
        unsigned char nType = 0;
        size_t nSection = 0; ///< index in Sections
        uint64_t nValue = 0; ///< where the block starts in its section
    };

    /// \return false, with the reason, for bytes that aren't such an image or whose tables lie outside of it
    bool Read(const char* pImage, size_t nSize, std::string& strError);

    /// Finds the first section of this name. \return false if there is none
    bool FindSection(std::string_view name, std::string_view& data) const;

    /// All sections in file order, the null section first.
    const std::vector<SSection>& Sections() const { return m_vSections; }

    /// The symbols whose block lies inside its section, in table order.
    const std::vector<SSymbol>& Symbols() const { return m_vSymbols; }

    /// Finds the first symbol of this name. \return false if there is none
    bool FindSymbol(std::string_view name, std::string_view& data) const;

private:
    bool ReadSections(std::string_view image, std::string& strError);
    void ReadSymbols(const SSection& table);

    std::vector<SSection> m_vSections;
    std::vector<SSymbol> m_vSymbols;
    std::unordered_map<std::string_view, std::string_view> m_Symbols;
};

} // namespace KestrelPlatform

#endif
