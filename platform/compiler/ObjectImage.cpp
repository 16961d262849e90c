#include "platform/compiler/ObjectImage.h"

#include "platform/compiler/ByteHash.h"
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
const uint32_t s_nObjectVersion = 1;
const uint32_t s_nLibraryFlag = 1;
const uint32_t s_nDebugFlag = 2;

/// `.ovkobj`: little-endian words.
struct SObjectHeader
{
    uint32_t nMark = s_nMark;
    uint32_t nVersion = s_nObjectVersion;
    uint32_t nFlags = 0;
    uint32_t nReserved = 0;
    uint64_t nBytes = 0; ///< of the object
    uint64_t nHash = 0;  ///< of the object
};

} // namespace

std::vector<char> WriteObjectImage(EImageType eType, std::string_view object, bool bDebug)
{
    SObjectHeader header;
    header.nFlags = (eType == EImageType::Library ? s_nLibraryFlag : 0) | (bDebug ? s_nDebugFlag : 0);
    header.nBytes = object.size();
    header.nHash = HashBytes(object);
    CElfWriter elf;
    elf.AddSection(s_pszObject, 0, 4, object);
    elf.AddSection(s_pszHeader, 0, 8, {reinterpret_cast<const char*>(&header), sizeof(header)});
    return elf.Write();
}

bool ReadObjectImage(const char* pImage, size_t nSize, SObjectImage& object, std::string& strError)
{
    CElfReader elf;
    std::string_view bytes;
    SObjectHeader header;
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
    if (header.nMark != s_nMark || header.nVersion != s_nObjectVersion || header.nBytes != object.object.size() ||
        header.nHash != HashBytes(object.object))
    {
        strError = "the object in the binary is of another version, cut short or damaged";
        return false;
    }
    object.eType = (header.nFlags & s_nLibraryFlag) != 0 ? EImageType::Library : EImageType::Object;
    object.bDebug = (header.nFlags & s_nDebugFlag) != 0;
    return true;
}

} // namespace KestrelPlatform
