#include "platform/compiler/ObjectImage.h"

#include "platform/compiler/ElfReader.h"
#include "platform/compiler/ElfWriter.h"

#include <cstring>

namespace KestrelPlatform
{
namespace
{

const char* const s_pszObject = ".llvmir";
const char* const s_pszHeader = ".ovkobj";

const uint32_t s_nMark = 0x4F4B564F; // "OVKO"
const uint32_t s_nVersion = 1;
const uint32_t s_nLibraryFlag = 1;
const uint32_t s_nDebugFlag = 2;

/// `.ovkobj`: little-endian words.
struct SHeader
{
    uint32_t nMark = s_nMark;
    uint32_t nVersion = s_nVersion;
    uint32_t nFlags = 0;
    uint32_t nReserved = 0;
    uint64_t nBytes = 0; ///< of the object
    uint64_t nHash = 0;  ///< of the object
};

/// FNV-1a over 64 bits.
uint64_t Hash(std::string_view bytes)
{
    uint64_t nHash = 14695981039346656037u;
    for (const char c : bytes)
    {
        nHash = (nHash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    }
    return nHash;
}

} // namespace

std::vector<char> WriteObjectImage(EImageType eType, std::string_view object, bool bDebug)
{
    SHeader header;
    header.nFlags = (eType == EImageType::Library ? s_nLibraryFlag : 0) | (bDebug ? s_nDebugFlag : 0);
    header.nBytes = object.size();
    header.nHash = Hash(object);
    CElfWriter elf;
    elf.AddSection(s_pszObject, 0, 4, object);
    elf.AddSection(s_pszHeader, 0, 8, {reinterpret_cast<const char*>(&header), sizeof(header)});
    return elf.Write();
}

bool ReadObjectImage(const char* pImage, size_t nSize, SObjectImage& object, std::string& strError)
{
    CElfReader elf;
    std::string_view bytes;
    SHeader header;
    if (!elf.Read(pImage, nSize, strError))
    {
        return false;
    }
    if (!elf.FindSection(s_pszHeader, bytes) || bytes.size() != sizeof(header) ||
        !elf.FindSection(s_pszObject, object.object))
    {
        strError = "the binary holds no object that can be linked";
        return false;
    }
    std::memcpy(&header, bytes.data(), sizeof(header));
    if (header.nMark != s_nMark || header.nVersion != s_nVersion || header.nBytes != object.object.size() ||
        header.nHash != Hash(object.object))
    {
        strError = "the object in the binary is of another version, cut short or damaged";
        return false;
    }
    object.eType = (header.nFlags & s_nLibraryFlag) != 0 ? EImageType::Library : EImageType::Object;
    object.bDebug = (header.nFlags & s_nDebugFlag) != 0;
    return true;
}

} // namespace KestrelPlatform
