// A compiler library with a language of its own: the text of a token stream has one decimal number in each line. It
// knows the devices "Quench" and "Kiln", and its binary structure has 128 bytes. It counts what it allocates, and a
// call that a test names fails.

#include "modules/ZCCTypes.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>

struct zccCompiler
{
    int nUnused;
};

struct zccBinary
{
    std::map<std::string, std::string> mapSymbols;
};

extern "C"
{
    __attribute__((visibility("default"))) int g_nFakeBinariesAlive = 0;
    __attribute__((visibility("default"))) char g_szFakeLastDevice[64] = "";
    __attribute__((visibility("default"))) char g_szFakeFailing[32] = "";
}

namespace
{

constexpr size_t s_nBinarySize = 128;
constexpr char s_Text[] = "__debugil_text";
constexpr char s_Binary[] = "__debugil_binary";

bool Fails(const char* szCall)
{
    return std::strcmp(szCall, g_szFakeFailing) == 0;
}

void SetError(zcc_error* pError, zcc_error eError)
{
    if (pError != nullptr)
    {
        *pError = eError;
    }
}

bool Assemble(const std::string& strText, std::string& strTokens)
{
    std::istringstream text(strText);
    std::string strWord;
    while (text >> strWord)
    {
        char* pEnd = nullptr;
        const auto nToken = static_cast<uint32_t>(std::strtoul(strWord.c_str(), &pEnd, 10));
        if (*pEnd != 0)
        {
            return false;
        }
        strTokens.append(reinterpret_cast<const char*>(&nToken), sizeof(nToken));
    }
    return true;
}

std::string Disassemble(const std::string& strTokens)
{
    std::string strText;
    for (size_t nOffset = 0; nOffset + sizeof(uint32_t) <= strTokens.size(); nOffset += sizeof(uint32_t))
    {
        uint32_t nToken = 0;
        std::memcpy(&nToken, strTokens.data() + nOffset, sizeof(nToken));
        strText += std::to_string(nToken) + "\n";
    }
    return strText;
}

} // namespace

extern "C"
{

    zccTargetInfo zccGetTargetInfo(const char* szFamily, const char* szDevice, zcc_error* pError)
    {
        zccTargetInfo target = {};
        std::strncpy(g_szFakeLastDevice, szDevice, sizeof(g_szFakeLastDevice) - 1);
        const bool bKnown = std::strcmp(szFamily, "ovkil") == 0 &&
                            (std::strcmp(szDevice, "Quench") == 0 || std::strcmp(szDevice, "Kiln") == 0);
        SetError(pError, bKnown ? ZCC_SUCCESS : ZCC_INVALID_TARGET);
        return target;
    }

    zccCompiler* zccCompilerInit(const zccCompilerOptions*, zcc_error*)
    {
        return Fails("CompilerInit") ? nullptr : new zccCompiler();
    }

    zcc_error zccCompilerFini(zccCompiler* pCompiler)
    {
        delete pCompiler;
        return ZCC_SUCCESS;
    }

    zccBinary* zccBinaryInit(size_t nBinarySize, const zccTargetInfo*, const zccBinaryOptions*, zcc_error* pError)
    {
        if (nBinarySize != s_nBinarySize || Fails("BinarySize") || Fails("BinaryInit"))
        {
            SetError(pError, Fails("BinaryInit") ? ZCC_ERROR : ZCC_OUT_OF_MEM);
            return nullptr;
        }
        SetError(pError, ZCC_SUCCESS);
        ++g_nFakeBinariesAlive;
        return new zccBinary;
    }

    zcc_error zccBinaryFini(zccBinary* pBinary)
    {
        --g_nFakeBinariesAlive;
        delete pBinary;
        return ZCC_SUCCESS;
    }

    zcc_error zccInsertSymbol(zccCompiler*, zccBinary* pBinary, const void* pData, size_t nSize, zccSections id,
                              const char* szSymbol)
    {
        if (id != zccINTERNAL || Fails("InsertSymbol"))
        {
            return ZCC_INVALID_ARG;
        }
        pBinary->mapSymbols[szSymbol].assign(static_cast<const char*>(pData), nSize);
        return ZCC_SUCCESS;
    }

    const void* zccExtractSymbol(zccCompiler*, zccBinary* pBinary, size_t* pSize, zccSections id, const char* szSymbol,
                                 zcc_error* pError)
    {
        const auto found = pBinary->mapSymbols.find(szSymbol);
        if (id != zccINTERNAL || found == pBinary->mapSymbols.end() || Fails("ExtractSymbol"))
        {
            SetError(pError, ZCC_NO_SYMBOL);
            return nullptr;
        }
        SetError(pError, ZCC_SUCCESS);
        *pSize = Fails("WholeSymbol") ? 3 : found->second.size();
        return found->second.data();
    }

    zcc_error zccCompile(zccCompiler*, zccBinary* pBinary, const char* szOptions, zccType eFrom, zccType eTo,
                         zccLogFunction)
    {
        if (szOptions == nullptr || *szOptions != 0 || Fails("Compile"))
        {
            return ZCC_INVALID_ARG;
        }
        if (eFrom == ZCC_TYPE_OVKIL_TEXT && eTo == ZCC_TYPE_OVKIL_BINARY)
        {
            return Assemble(pBinary->mapSymbols[s_Text], pBinary->mapSymbols[s_Binary]) ? ZCC_SUCCESS : ZCC_ERROR;
        }
        pBinary->mapSymbols[s_Text] = Disassemble(pBinary->mapSymbols[s_Binary]);
        return ZCC_SUCCESS;
    }

#ifndef FAKE_NO_DISASSEMBLE
    zcc_error zccDisassemble(zccCompiler*, zccBinary*, const char*, zccLogFunction)
    {
        return ZCC_UNSUPPORTED;
    }
#endif

    // Functions that no conversion calls.
    zccBinary* zccReadFromMem(const void*, size_t, zcc_error*)
    {
        return nullptr;
    }
    zccBinary* zccReadFromFile(const char*, zcc_error*)
    {
        return nullptr;
    }
    zcc_error zccWriteToMem(zccBinary*, void**, size_t*)
    {
        return ZCC_UNSUPPORTED;
    }
    zcc_error zccWriteToFile(zccBinary*, const char*)
    {
        return ZCC_UNSUPPORTED;
    }
    zcc_error zccInsertSection(zccCompiler*, zccBinary*, const void*, size_t, zccSections)
    {
        return ZCC_UNSUPPORTED;
    }
    const void* zccExtractSection(zccCompiler*, zccBinary*, size_t*, zccSections, zcc_error*)
    {
        return nullptr;
    }
    zcc_error zccRemoveSection(zccCompiler*, zccBinary*, zccSections)
    {
        return ZCC_UNSUPPORTED;
    }
    zcc_error zccQueryInfo(zccCompiler*, zccBinary*, zccQueryType, const char*, void*, size_t*)
    {
        return ZCC_UNSUPPORTED;
    }
    zcc_error zccDbgAddArgument(zccCompiler*, zccBinary*, const char*, const char*, bool)
    {
        return ZCC_UNSUPPORTED;
    }
    zcc_error zccRemoveSymbol(zccCompiler*, zccBinary*, zccSections, const char*)
    {
        return ZCC_UNSUPPORTED;
    }
}
