#include "platform/compiler/DeviceCode.h"

#include <cstring>

namespace KestrelPlatform
{
namespace
{

const uint32_t s_nMark = 0x43564B4F; // "OKVC"
const uint32_t s_nCodeVersion = 1;
const uint32_t s_nWordBytes = sizeof(uint32_t);

struct SBlockHeader
{
    uint32_t nMark;
    uint32_t nVersion;
    uint32_t nNameBytes;
    uint32_t nTokens;
    uint32_t nLines;
    uint32_t nChecksum; ///< of all that follows the header
    uint32_t nReserved[2];
};

size_t Padded(size_t nBytes)
{
    return (nBytes + s_nWordBytes - 1) / s_nWordBytes * s_nWordBytes;
}

/// The 32-bit FNV-1a hash, taken over words.
uint32_t Checksum(std::string_view bytes)
{
    uint32_t nHash = 2166136261u;
    for (size_t i = 0; i + s_nWordBytes <= bytes.size(); i += s_nWordBytes)
    {
        uint32_t nWord;
        std::memcpy(&nWord, bytes.data() + i, sizeof(nWord));
        nHash = (nHash ^ nWord) * 16777619u;
    }
    return nHash;
}

void AppendWords(std::string& str, const std::vector<uint32_t>& vWords)
{
    if (!vWords.empty())
    {
        str.append(reinterpret_cast<const char*>(vWords.data()), vWords.size() * s_nWordBytes);
    }
}

void ReadWords(std::string_view bytes, std::vector<uint32_t>& vWords)
{
    vWords.resize(bytes.size() / s_nWordBytes);
    if (!vWords.empty())
    {
        std::memcpy(vWords.data(), bytes.data(), bytes.size());
    }
}

} // namespace

std::string WriteDeviceCode(std::string_view kernel, const std::vector<uint32_t>& vTokens,
                            const std::vector<uint32_t>& vLines)
{
    SBlockHeader header = {};
    const size_t nName = Padded(kernel.size());
    std::string strBlock;
    strBlock.reserve(sizeof(header) + nName + (vTokens.size() + vLines.size()) * s_nWordBytes);
    strBlock.resize(sizeof(header));
    strBlock += kernel;
    strBlock.resize(sizeof(header) + nName, '\0');
    AppendWords(strBlock, vTokens);
    AppendWords(strBlock, vLines);
    header.nMark = s_nMark;
    header.nVersion = s_nCodeVersion;
    header.nNameBytes = static_cast<uint32_t>(kernel.size());
    header.nTokens = static_cast<uint32_t>(vTokens.size());
    header.nLines = static_cast<uint32_t>(vLines.size());
    header.nChecksum = Checksum(std::string_view(strBlock).substr(sizeof(header)));
    std::memcpy(strBlock.data(), &header, sizeof(header));
    return strBlock;
}

bool ReadDeviceCode(std::string_view block, SDeviceCode& code)
{
    SBlockHeader header;
    if (block.size() < sizeof(header))
    {
        return false;
    }
    std::memcpy(&header, block.data(), sizeof(header));
    const std::string_view body = block.substr(sizeof(header));
    const uint64_t nName = Padded(header.nNameBytes);
    const uint64_t nTokens = static_cast<uint64_t>(header.nTokens) * s_nWordBytes;
    const uint64_t nLines = static_cast<uint64_t>(header.nLines) * s_nWordBytes;
    if (header.nMark != s_nMark || header.nVersion != s_nCodeVersion || body.size() % s_nWordBytes != 0 ||
        nName + nTokens + nLines != body.size() || header.nChecksum != Checksum(body))
    {
        return false;
    }
    code.strKernel = body.substr(0, header.nNameBytes);
    ReadWords(body.substr(nName, nTokens), code.vTokens);
    ReadWords(body.substr(nName + nTokens, nLines), code.vLines);
    return true;
}

} // namespace KestrelPlatform
