#include "fuzz/FuzzKernel.h"

#include "platform/compiler/ElfWriter.h"

#include <cstring>
#include <elf.h>

namespace KestrelFuzz
{

namespace
{

const char s_Newer[] = ";ARGSTART:__OpenCL_k_kernel\n;version:3:1:104\n;device:quench\n;uniqueid:1024\n"
                       ";memory:64bitABI\n;pointer:a:float:1:1:0:uav:10:4:RW:0:0\n;function:1:1024\n;uavid:11\n"
                       ";ARGEND:__OpenCL_k_kernel\n";
const char s_Older[] = ";ARGSTART:__OpenCL_k_kernel\n;version:3:1:104\n;device:kiln\n;uniqueid:1024\n"
                       ";pointer:a:float:1:1:0:uav:11:4:RW:0:0\n;function:1:1024\n;uavid:11\n"
                       ";ARGEND:__OpenCL_k_kernel\n";
const char s_Samplers[] = ";ARGSTART:__OpenCL_k_kernel\n;version:3:1:104\n;device:quench\n;uniqueid:1024\n"
                          ";memory:64bitABI\n;memory:uavprivate:64\n;memory:hwlocal:256\n"
                          ";pointer:a:float:1:1:0:uav:10:4:RW:0:0\n;sampler:s:1:1:16\n;sampler:t:18:0:0\n"
                          ";privateid:8\n;ARGEND:__OpenCL_k_kernel\n";
const char s_Neighbour[] = ";ARGSTART:__OpenCL_other_kernel\n;version:3:1:104\n;device:quench\n;uniqueid:1025\n"
                           ";memory:hwlocal:256\n;ARGEND:__OpenCL_other_kernel\n";

std::vector<char> MakeImage(const std::vector<unsigned int>& vTokens, const std::string& strMetadata,
                            const std::string& strNeighbour = std::string())
{
    KestrelPlatform::CElfWriter elf;
    elf.AddSection(".debugil", 0, 1, "");
    elf.AddSection(
        ".debugilbin", 0, 4,
        std::string_view(reinterpret_cast<const char*>(vTokens.data()), vTokens.size() * sizeof(vTokens[0])));
    const size_t nRodata = elf.AddSection(".rodata", SHF_ALLOC, 1, strMetadata + strNeighbour);
    elf.AddSymbol("__OpenCL_k_metadata", STT_OBJECT, nRodata, 0, strMetadata.size());
    if (!strNeighbour.empty())
    {
        elf.AddSymbol("__OpenCL_other_metadata", STT_OBJECT, nRodata, strMetadata.size(), strNeighbour.size());
    }
    return elf.Write();
}

std::vector<char> MakeImage(const uint8_t* pData, size_t nSize)
{
    const std::vector<unsigned int> vTokens = ToWords(pData, nSize);
    switch (nSize % sizeof(vTokens[0]))
    {
    case 0:
        return MakeImage(vTokens, s_Newer);

    case 1:
        return MakeImage(vTokens, s_Older);

    case 2:
        return MakeImage(vTokens, s_Samplers, s_Neighbour);

    default:
        return std::vector<char>(pData, pData + nSize);
    }
}

} // namespace

CFuzzKernel::CFuzzKernel(const uint8_t* pData, size_t nSize)
    : m_vImage(MakeImage(pData, nSize)), m_Shader(&m_Host, m_vImage.data(), m_vImage.size())
{
}

CFuzzKernel::CFuzzKernel(const std::vector<unsigned int>& vTokens, const std::string& strMetadata)
    : m_vImage(MakeImage(vTokens, strMetadata)), m_Shader(&m_Host, m_vImage.data(), m_vImage.size())
{
}

std::vector<unsigned int> ToWords(const uint8_t* pData, size_t nSize)
{
    std::vector<unsigned int> vTokens(nSize / sizeof(unsigned int));
    if (!vTokens.empty())
    {
        std::memcpy(vTokens.data(), pData, vTokens.size() * sizeof(vTokens[0]));
    }
    return vTokens;
}

std::string ToHex(const std::vector<unsigned int>& vTokens)
{
    std::string strHex;
    char szWord[16];
    for (const unsigned int nToken : vTokens)
    {
        std::snprintf(szWord, sizeof(szWord), "%08X ", nToken);
        strHex += szWord;
    }
    return strHex;
}

} // namespace KestrelFuzz
