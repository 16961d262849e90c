// The exports of the low-level runtime. Converting IL works; calls that would need a device answer that they aren't
// supported.

#include "modules/QRLTypes.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/Disassembler.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

using namespace KestrelPlatform;

#define QRL_EXPORT extern "C" __attribute__((visibility("default")))

namespace
{

std::atomic<bool> s_bInitialized{false};

QRLresult CopyOut(const void* pData, size_t nSize, void*& pCopy)
{
    pCopy = std::malloc(nSize);
    if (pCopy == nullptr)
    {
        return QRL_RESULT_ERROR;
    }
    std::memcpy(pCopy, pData, nSize);
    return QRL_RESULT_OK;
}

QRLresult ConvertTextToBinary(void** ppBinary, QRLuint* pnSize, QRLlanguage eLanguage, const char* szText)
{
    if (ppBinary == nullptr || pnSize == nullptr || szText == nullptr || eLanguage != QRL_LANGUAGE_IL)
    {
        return QRL_RESULT_INVALID_PARAMETER;
    }
    try
    {
        std::vector<uint32_t> vTokens;
        SDiagnostic diag;
        if (!AssembleIL(szText, std::strlen(szText), vTokens, diag))
        {
            return QRL_RESULT_ERROR;
        }
        *pnSize = static_cast<QRLuint>(vTokens.size() * sizeof(uint32_t));
        return CopyOut(vTokens.data(), *pnSize, *ppBinary);
    }
    catch (const std::bad_alloc&)
    {
        return QRL_RESULT_ERROR;
    }
}

QRLresult ConvertBinaryToText(const void* pBinary, QRLuint nSize, QRLlanguage eLanguage, char** ppText)
{
    if (pBinary == nullptr || ppText == nullptr || eLanguage != QRL_LANGUAGE_IL || nSize % sizeof(uint32_t) != 0)
    {
        return QRL_RESULT_INVALID_PARAMETER;
    }
    try
    {
        // The caller's bytes needn't be aligned.
        std::vector<uint32_t> vTokens(nSize / sizeof(uint32_t));
        if (nSize != 0)
        {
            std::memcpy(vTokens.data(), pBinary, nSize);
        }
        std::string strText;
        std::string strError;
        if (!DisassembleIL(vTokens.data(), vTokens.size(), strText, strError))
        {
            return QRL_RESULT_ERROR;
        }
        void* pText = nullptr;
        const QRLresult eResult = CopyOut(strText.c_str(), strText.size() + 1, pText);
        *ppText = static_cast<char*>(pText);
        return eResult;
    }
    catch (const std::bad_alloc&)
    {
        return QRL_RESULT_ERROR;
    }
}

QRLresult FreeTextBinary(void* pTextOrBinary)
{
    std::free(pTextOrBinary);
    return pTextOrBinary == nullptr ? QRL_RESULT_INVALID_PARAMETER : QRL_RESULT_OK;
}

struct SProc
{
    const char* pName;
    QRLextproc pfn;
};

const SProc s_CompilerProcs[] = {{"qrlConvertTextToBinary", reinterpret_cast<QRLextproc>(ConvertTextToBinary)},
                                 {"qrlConvertBinaryToText", reinterpret_cast<QRLextproc>(ConvertBinaryToText)},
                                 {"qrlFreeTextBinary", reinterpret_cast<QRLextproc>(FreeTextBinary)}};

} // namespace

QRL_EXPORT QRLresult qrlInit()
{
    return s_bInitialized.exchange(true) ? QRL_RESULT_ALREADY : QRL_RESULT_OK;
}

QRL_EXPORT QRLresult qrlShutdown()
{
    return s_bInitialized.exchange(false) ? QRL_RESULT_OK : QRL_RESULT_NOT_INITIALIZED;
}

QRL_EXPORT QRLresult qrlExtSupported(QRLuint nExtension)
{
    if (!s_bInitialized)
    {
        return QRL_RESULT_NOT_INITIALIZED;
    }
    return nExtension == QRL_PRIVATE_EXT_COMPILER ? QRL_RESULT_OK : QRL_RESULT_NOT_SUPPORTED;
}

QRL_EXPORT QRLresult qrlExtGetProc(QRLextproc* pProc, QRLuint nExtension, const char* szName)
{
    if (pProc == nullptr || szName == nullptr)
    {
        return QRL_RESULT_INVALID_PARAMETER;
    }
    *pProc = nullptr;
    const QRLresult eSupported = qrlExtSupported(nExtension);
    if (eSupported != QRL_RESULT_OK)
    {
        return eSupported;
    }
    for (const SProc& proc : s_CompilerProcs)
    {
        if (std::strcmp(proc.pName, szName) == 0)
        {
            *pProc = proc.pfn;
            return QRL_RESULT_OK;
        }
    }
    return QRL_RESULT_NOT_SUPPORTED;
}

#define QRL_NO_DEVICE(name)                                                                                            \
    QRL_EXPORT QRLresult qrl##name()                                                                                   \
    {                                                                                                                  \
        return QRL_RESULT_NOT_SUPPORTED;                                                                               \
    }

QRL_NO_DEVICE(CtxCreate)
QRL_NO_DEVICE(CtxDestroy)
QRL_NO_DEVICE(CtxFlush)
QRL_NO_DEVICE(CtxGetMem)
QRL_NO_DEVICE(CtxIsEventDone)
QRL_NO_DEVICE(CtxReleaseMem)
QRL_NO_DEVICE(CtxRunProgram)
QRL_NO_DEVICE(CtxRunProgramGrid)
QRL_NO_DEVICE(CtxRunProgramGridArray)
QRL_NO_DEVICE(CtxSetMem)
QRL_NO_DEVICE(DeviceClose)
QRL_NO_DEVICE(DeviceGetAttribs)
QRL_NO_DEVICE(DeviceGetCount)
QRL_NO_DEVICE(DeviceGetInfo)
QRL_NO_DEVICE(DeviceGetStatus)
QRL_NO_DEVICE(DeviceOpen)
QRL_NO_DEVICE(ExtGetVersion)
QRL_NO_DEVICE(GetErrorString)
QRL_NO_DEVICE(GetVersion)
QRL_NO_DEVICE(ImageFree)
QRL_NO_DEVICE(ImageRead)
QRL_NO_DEVICE(MemCopy)
QRL_NO_DEVICE(ModuleGetEntry)
QRL_NO_DEVICE(ModuleGetFuncInfo)
QRL_NO_DEVICE(ModuleGetName)
QRL_NO_DEVICE(ModuleLoad)
QRL_NO_DEVICE(ModuleUnload)
QRL_NO_DEVICE(ResAllocLocal1D)
QRL_NO_DEVICE(ResAllocLocal2D)
QRL_NO_DEVICE(ResAllocRemote1D)
QRL_NO_DEVICE(ResAllocRemote2D)
QRL_NO_DEVICE(ResFree)
QRL_NO_DEVICE(ResMap)
QRL_NO_DEVICE(ResUnmap)
