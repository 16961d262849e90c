// The exports of the compiler library. None lets an exception out; running out of memory gives ZCC_OUT_OF_MEM.

#include "modules/ZCCTypes.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/DeviceCode.h"
#include "platform/compiler/Disassembler.h"
#include "platform/compiler/KernelMetadata.h"
#include "platform/compiler/library/BinaryObject.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>

using namespace KestrelPlatform;

/// A compiler has no state: the handle shows that a client has started the library.
struct zccCompiler
{
};

namespace
{

/// The size of a binary structure, which callers must state.
const size_t s_nBinaryStructureSize = 104;

const char* const s_pFamily = "ovkil";

struct SDeviceName
{
    const char* pName;
    unsigned int nId;
};

const SDeviceName s_Devices[] = {{"Quench", 1}, {"Kiln", 2}, {"Host", 3}};

bool SameName(const char* szLeft, const char* szRight)
{
    for (; *szLeft != 0 && *szRight != 0; ++szLeft, ++szRight)
    {
        if (std::tolower(static_cast<unsigned char>(*szLeft)) != std::tolower(static_cast<unsigned char>(*szRight)))
        {
            return false;
        }
    }
    return *szLeft == *szRight;
}

void Set(zcc_error* pError, zcc_error eError)
{
    if (pError != nullptr)
    {
        *pError = eError;
    }
}

/// Runs a body that gives an error code.
template <typename TBody>
zcc_error Guard(TBody body)
{
    try
    {
        return body();
    }
    catch (const std::bad_alloc&)
    {
        return ZCC_OUT_OF_MEM;
    }
    catch (...)
    {
        return ZCC_ERROR;
    }
}

/// Runs a body that gives a pointer and sets an error code.
template <typename TBody>
auto GuardPointer(zcc_error* pError, TBody body) -> decltype(body(*pError))
{
    decltype(body(*pError)) pResult = nullptr;
    zcc_error eError = ZCC_SUCCESS;
    const zcc_error eThrown = Guard(
        [&]
        {
            pResult = body(eError);
            return ZCC_SUCCESS;
        });
    Set(pError, eThrown == ZCC_SUCCESS ? eError : eThrown);
    return pResult;
}

void Log(zccLogFunction pfnLog, const std::string& strMessage)
{
    if (pfnLog != nullptr)
    {
        pfnLog(strMessage.c_str(), strMessage.size());
    }
}

std::string_view Bytes(const void* pData, size_t nSize)
{
    return {static_cast<const char*>(pData), nSize};
}

std::vector<uint32_t> Words(std::string_view bytes)
{
    std::vector<uint32_t> vWords(bytes.size() / sizeof(uint32_t));
    if (!vWords.empty())
    {
        std::memcpy(vWords.data(), bytes.data(), vWords.size() * sizeof(uint32_t));
    }
    return vWords;
}

zcc_error CompileText(zccBinary& binary, zccLogFunction pfnLog)
{
    const std::string* pText = binary.FindInternal(s_pDebugText);
    if (pText == nullptr)
    {
        return ZCC_NO_SYMBOL;
    }
    std::vector<uint32_t> vTokens;
    SDiagnostic diag;
    if (!AssembleIL(pText->c_str(), std::strlen(pText->c_str()), vTokens, diag))
    {
        Log(pfnLog, "error: " + diag.ToString());
        return ZCC_ERROR;
    }
    binary.SetInternal(s_pDebugTokens, Bytes(vTokens.data(), vTokens.size() * sizeof(uint32_t)));
    return ZCC_SUCCESS;
}

zcc_error CompileTokens(zccBinary& binary, zccLogFunction pfnLog)
{
    const std::string* pTokens = binary.FindInternal(s_pDebugTokens);
    if (pTokens == nullptr)
    {
        return ZCC_NO_SYMBOL;
    }
    const std::vector<uint32_t> vTokens = Words(*pTokens);
    std::string strText;
    std::string strError;
    if (!DisassembleIL(vTokens.data(), vTokens.size(), strText, strError))
    {
        Log(pfnLog, "error: " + strError);
        return ZCC_ERROR;
    }
    binary.SetInternal(s_pDebugText, strText);
    return ZCC_SUCCESS;
}

/// Gives bytes by the protocol that asks for the size first.
zcc_error Answer(std::string_view data, void* pData, size_t* pSize)
{
    if (pData != nullptr && *pSize < data.size())
    {
        return ZCC_INVALID_ARG;
    }
    if (pData != nullptr)
    {
        std::memcpy(pData, data.data(), data.size());
    }
    *pSize = data.size();
    return ZCC_SUCCESS;
}

zccBinary* MakeFromImage(const char* pImage, size_t nSize, zcc_error& eError)
{
    zccBinary* pBinary = new zccBinary("");
    bool bRead = false;
    eError = Guard(
        [&]
        {
            bRead = pBinary->ReadImage(pImage, nSize);
            return bRead ? ZCC_SUCCESS : ZCC_INVALID_FILE;
        });
    if (!bRead)
    {
        delete pBinary;
        return nullptr;
    }
    return pBinary;
}

} // namespace

zccTargetInfo zccGetTargetInfo(const char* szFamily, const char* szDevice, zcc_error* pError)
{
    zccTargetInfo target = {};
    target.struct_size = sizeof(target);
    std::strncpy(target.family, s_pFamily, sizeof(target.family) - 1);
    Set(pError, ZCC_INVALID_TARGET);
    if (szFamily == nullptr || szDevice == nullptr || std::strcmp(szFamily, s_pFamily) != 0)
    {
        return target;
    }
    for (const SDeviceName& device : s_Devices)
    {
        if (SameName(szDevice, device.pName))
        {
            std::strncpy(target.device, device.pName, sizeof(target.device) - 1);
            target.device_id = device.nId;
            Set(pError, ZCC_SUCCESS);
        }
    }
    return target;
}

zccCompiler* zccCompilerInit(const zccCompilerOptions*, zcc_error* pError)
{
    zccCompiler* pCompiler = new (std::nothrow) zccCompiler;
    Set(pError, pCompiler == nullptr ? ZCC_OUT_OF_MEM : ZCC_SUCCESS);
    return pCompiler;
}

zcc_error zccCompilerFini(zccCompiler* pCompiler)
{
    delete pCompiler;
    return pCompiler == nullptr ? ZCC_INVALID_ARG : ZCC_SUCCESS;
}

zccBinary* zccReadFromMem(const void* pMem, size_t nSize, zcc_error* pError)
{
    return GuardPointer(pError,
                        [&](zcc_error& eError) -> zccBinary*
                        {
                            eError = ZCC_INVALID_ARG;
                            return pMem == nullptr ? nullptr
                                                   : MakeFromImage(static_cast<const char*>(pMem), nSize, eError);
                        });
}

zccBinary* zccReadFromFile(const char* szFile, zcc_error* pError)
{
    return GuardPointer(pError,
                        [&](zcc_error& eError) -> zccBinary*
                        {
                            std::ifstream file(szFile == nullptr ? "" : szFile, std::ios::binary);
                            if (!file)
                            {
                                eError = ZCC_INVALID_FILE;
                                return nullptr;
                            }
                            const std::string strImage((std::istreambuf_iterator<char>(file)),
                                                       std::istreambuf_iterator<char>());
                            return MakeFromImage(strImage.data(), strImage.size(), eError);
                        });
}

zccBinary* zccBinaryInit(size_t nBinarySize, const zccTargetInfo* pTarget, const zccBinaryOptions*, zcc_error* pError)
{
    return GuardPointer(
        pError,
        [&](zcc_error& eError) -> zccBinary*
        {
            if (nBinarySize != s_nBinaryStructureSize)
            {
                eError = ZCC_OUT_OF_MEM;
                return nullptr;
            }
            if (pTarget == nullptr || pTarget->struct_size != sizeof(*pTarget) || pTarget->device[0] == 0)
            {
                eError = ZCC_INVALID_TARGET;
                return nullptr;
            }
            return new zccBinary(std::string(pTarget->device, strnlen(pTarget->device, sizeof(pTarget->device))));
        });
}

zcc_error zccBinaryFini(zccBinary* pBinary)
{
    delete pBinary;
    return pBinary == nullptr ? ZCC_INVALID_ARG : ZCC_SUCCESS;
}

zcc_error zccWriteToMem(zccBinary* pBinary, void** ppMem, size_t* pSize)
{
    if (pBinary == nullptr || ppMem == nullptr || pSize == nullptr)
    {
        return ZCC_INVALID_ARG;
    }
    return Guard(
        [&]
        {
            const std::vector<char> vImage = pBinary->WriteImage();
            *ppMem = std::malloc(vImage.size());
            if (*ppMem == nullptr)
            {
                return ZCC_OUT_OF_MEM;
            }
            std::memcpy(*ppMem, vImage.data(), vImage.size());
            *pSize = vImage.size();
            return ZCC_SUCCESS;
        });
}

zcc_error zccWriteToFile(zccBinary* pBinary, const char* szFile)
{
    if (pBinary == nullptr || szFile == nullptr)
    {
        return ZCC_INVALID_ARG;
    }
    return Guard(
        [&]
        {
            const std::vector<char> vImage = pBinary->WriteImage();
            std::ofstream file(szFile, std::ios::binary | std::ios::trunc);
            file.write(vImage.data(), static_cast<std::streamsize>(vImage.size()));
            file.flush();
            return file.good() ? ZCC_SUCCESS : ZCC_INVALID_FILE;
        });
}

zcc_error zccInsertSection(zccCompiler* pCompiler, zccBinary* pBinary, const void* pData, size_t nSize, zccSections id)
{
    if (pCompiler == nullptr || pBinary == nullptr || (pData == nullptr && nSize != 0))
    {
        return ZCC_INVALID_ARG;
    }
    return Guard(
        [&]
        {
            std::string* pSection = pBinary->FindSection(id, true);
            if (pSection == nullptr)
            {
                return ZCC_UNSUPPORTED;
            }
            *pSection = Bytes(pData, nSize);
            return ZCC_SUCCESS;
        });
}

const void* zccExtractSection(zccCompiler* pCompiler, zccBinary* pBinary, size_t* pSize, zccSections id,
                              zcc_error* pError)
{
    if (pCompiler == nullptr || pBinary == nullptr || pSize == nullptr)
    {
        Set(pError, ZCC_INVALID_ARG);
        return nullptr;
    }
    const std::string* pSection = pBinary->FindSection(id, false);
    Set(pError, pSection == nullptr ? ZCC_NO_SYMBOL : ZCC_SUCCESS);
    *pSize = pSection == nullptr ? 0 : pSection->size();
    return pSection == nullptr ? nullptr : pSection->data();
}

zcc_error zccRemoveSection(zccCompiler* pCompiler, zccBinary* pBinary, zccSections id)
{
    if (pCompiler == nullptr || pBinary == nullptr)
    {
        return ZCC_INVALID_ARG;
    }
    return Guard([&] { return pBinary->RemoveSection(id) ? ZCC_SUCCESS : ZCC_NO_SYMBOL; });
}

zcc_error zccQueryInfo(zccCompiler* pCompiler, zccBinary* pBinary, zccQueryType query, const char* szKernel,
                       void* pData, size_t* pSize)
{
    if (pCompiler == nullptr || pBinary == nullptr || szKernel == nullptr || pSize == nullptr)
    {
        return ZCC_INVALID_ARG;
    }
    return Guard(
        [&]
        {
            std::string_view block;
            SKernelMetadata metadata;
            SDiagnostic diag;
            if (!pBinary->FindBlock(zccRODATA, std::string("__OpenCL_") + szKernel + "_metadata", block) ||
                !ReadKernelMetadata(block, metadata, diag))
            {
                return ZCC_NO_SYMBOL;
            }
            switch (query)
            {
            case RT_GPU_FUNC_ID:
                return Answer(Bytes(&metadata.nUniqueId, sizeof(metadata.nUniqueId)), pData, pSize);
            case RT_DEVICE_NAME:
                // The answer includes the terminating NUL.
                return Answer({metadata.strDevice.c_str(), metadata.strDevice.size() + 1}, pData, pSize);
            default:
                return ZCC_UNSUPPORTED;
            }
        });
}

zcc_error zccDbgAddArgument(zccCompiler* pCompiler, zccBinary* pBinary, const char* szKernel, const char* szName,
                            bool bByVal)
{
    if (pCompiler == nullptr || pBinary == nullptr || szKernel == nullptr || szName == nullptr)
    {
        return ZCC_INVALID_ARG;
    }
    return Guard([&] { return pBinary->AddArgument(szKernel, szName, bByVal) ? ZCC_SUCCESS : ZCC_NO_SYMBOL; });
}

const void* zccExtractSymbol(zccCompiler* pCompiler, zccBinary* pBinary, size_t* pSize, zccSections id,
                             const char* szSymbol, zcc_error* pError)
{
    return GuardPointer(pError,
                        [&](zcc_error& eError) -> const void*
                        {
                            if (pCompiler == nullptr || pBinary == nullptr || pSize == nullptr || szSymbol == nullptr)
                            {
                                eError = ZCC_INVALID_ARG;
                                return nullptr;
                            }
                            *pSize = 0;
                            eError = ZCC_NO_SYMBOL;
                            std::string_view block;
                            if (id != zccINTERNAL && !pBinary->FindBlock(id, szSymbol, block))
                            {
                                return nullptr;
                            }
                            if (id == zccINTERNAL)
                            {
                                const std::string* pInternal = pBinary->FindInternal(szSymbol);
                                if (pInternal == nullptr)
                                {
                                    return nullptr;
                                }
                                block = *pInternal;
                            }
                            eError = ZCC_SUCCESS;
                            *pSize = block.size();
                            return block.data();
                        });
}

zcc_error zccInsertSymbol(zccCompiler* pCompiler, zccBinary* pBinary, const void* pData, size_t nSize, zccSections id,
                          const char* szSymbol)
{
    if (pCompiler == nullptr || pBinary == nullptr || szSymbol == nullptr || (pData == nullptr && nSize != 0))
    {
        return ZCC_INVALID_ARG;
    }
    return Guard(
        [&]
        {
            if (id == zccINTERNAL)
            {
                pBinary->SetInternal(szSymbol, Bytes(pData, nSize));
                return ZCC_SUCCESS;
            }
            return pBinary->SetBlock(id, szSymbol, Bytes(pData, nSize)) ? ZCC_SUCCESS : ZCC_UNSUPPORTED;
        });
}

zcc_error zccRemoveSymbol(zccCompiler* pCompiler, zccBinary* pBinary, zccSections id, const char* szSymbol)
{
    if (pCompiler == nullptr || pBinary == nullptr || szSymbol == nullptr)
    {
        return ZCC_INVALID_ARG;
    }
    return Guard(
        [&]
        {
            const bool bRemoved =
                id == zccINTERNAL ? pBinary->RemoveInternal(szSymbol) : pBinary->RemoveBlock(id, szSymbol);
            return bRemoved ? ZCC_SUCCESS : ZCC_NO_SYMBOL;
        });
}

zcc_error zccCompile(zccCompiler* pCompiler, zccBinary* pBinary, const char*, zccType eFrom, zccType eTo,
                     zccLogFunction pfnLog)
{
    if (pCompiler == nullptr || pBinary == nullptr)
    {
        return ZCC_INVALID_ARG;
    }
    if (eFrom == ZCC_TYPE_OVKIL_TEXT && eTo == ZCC_TYPE_OVKIL_BINARY)
    {
        return Guard([&] { return CompileText(*pBinary, pfnLog); });
    }
    if (eFrom == ZCC_TYPE_OVKIL_BINARY && eTo == ZCC_TYPE_OVKIL_TEXT)
    {
        return Guard([&] { return CompileTokens(*pBinary, pfnLog); });
    }
    return ZCC_UNSUPPORTED;
}

/// Passes the IL text of a kernel's device code to the log function.
zcc_error zccDisassemble(zccCompiler* pCompiler, zccBinary* pBinary, const char* szKernel, zccLogFunction pfnLog)
{
    if (pCompiler == nullptr || pBinary == nullptr || szKernel == nullptr)
    {
        return ZCC_INVALID_ARG;
    }
    return Guard(
        [&]
        {
            std::string_view block;
            SDeviceCode code;
            if (!pBinary->FindBlock(zccTEXT, std::string("__OpenCL_") + szKernel + "_kernel", block))
            {
                return ZCC_NO_SYMBOL;
            }
            std::string strText;
            std::string strError;
            if (!ReadDeviceCode(block, code) ||
                !DisassembleIL(code.vTokens.data(), code.vTokens.size(), strText, strError))
            {
                return ZCC_ERROR;
            }
            Log(pfnLog, strText);
            return ZCC_SUCCESS;
        });
}
