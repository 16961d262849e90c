#ifndef KESTREL_PLATFORM_COMPILER_LIBRARY_BINARYOBJECT_H
#define KESTREL_PLATFORM_COMPILER_LIBRARY_BINARYOBJECT_H

#include "modules/ZCCTypes.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// The blocks that hold the debug IL.
const char* const s_pDebugText = "__debugil_text";
const char* const s_pDebugTokens = "__debugil_binary";

/// The object behind a client's handle: a kernel binary in the making, as sections with named blocks, and its debug IL
/// as text and as tokens. Not safe for several threads at once.
struct zccBinary
{
public:
    /// An object with nothing in it, for a device.
    explicit zccBinary(const std::string& strDevice) : m_strDevice(strDevice) {}

    /// Reads an ELF image. \return false for bytes that aren't one
    bool ReadImage(const char* pImage, size_t nSize);

    /// The object as an ELF image: debug IL text in `.debugil`, tokens in `.debugilbin`.
    std::vector<char> WriteImage() const;

    /// The section of this id, or null. With bCreate a missing section is created, if its id has a name.
    std::string* FindSection(zccSections id, bool bCreate);
    bool RemoveSection(zccSections id);

    /// A block of the internal section, which is not part of the image; null if there is none.
    const std::string* FindInternal(const std::string& strName) const;
    void SetInternal(const std::string& strName, std::string_view data) { m_Internal[strName] = data; }
    bool RemoveInternal(const std::string& strName) { return m_Internal.erase(strName) != 0; }

    /// The bytes that a symbol of the image names. \return false if there is no such symbol in that section
    bool FindBlock(zccSections id, const std::string& strName, std::string_view& block) const;

    /// Replaces the bytes of a symbol, moving the symbols after it. The bytes of a new symbol go to the section's end.
    bool SetBlock(zccSections id, const std::string& strName, std::string_view data);
    bool RemoveBlock(zccSections id, const std::string& strName);

    /// Adds an argument after the kernel's last one in its metadata. \return false if there is no such kernel
    bool AddArgument(const std::string& strKernel, const std::string& strName, bool bByValue);

    const std::string& Device() const { return m_strDevice; }

private:
    struct SSection
    {
        std::string strName;
        uint64_t nFlags = 0;
        uint64_t nAlignment = 1;
        std::string strData;
    };
    struct SSymbol
    {
        std::string strName;
        unsigned char nType = 0;
        size_t nSection = 0;
        uint64_t nValue = 0;
        uint64_t nSize = 0;
    };

    size_t IndexOf(zccSections id) const;
    std::vector<SSymbol>::iterator FindSymbol(zccSections id, const std::string& strName);

    std::string m_strDevice;
    std::vector<SSection> m_vSections;
    std::vector<SSymbol> m_vSymbols;
    std::map<std::string, std::string> m_Internal;
};

#endif
