// The low-level libraries. The runtime's extension converts in its own way (text to its bytes reversed, and back), so
// that a test can tell which assembler ran. Calls that a test names fail.

#include "modules/QRLTypes.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

#if defined(FAKE_DD)

FAKE_EXPORT QRLresult qrlddiGetExport()
{
    return QRL_RESULT_ERROR;
}
FAKE_EXPORT QRLresult qrlddiGetVersion()
{
    return QRL_RESULT_ERROR;
}
#ifdef FAKE_DD_COMPLETE
FAKE_EXPORT QRLresult qrlddiInit()
{
    return QRL_RESULT_OK;
}
#endif

#else

FAKE_EXPORT int g_nFakeInitCalls;
int g_nFakeInitCalls = 0;
FAKE_EXPORT char g_szFakeFailing[32];
char g_szFakeFailing[32] = "";

namespace
{

bool Fails(const char* szCall)
{
    return std::strcmp(szCall, g_szFakeFailing) == 0;
}

void* Reverse(const void* pBytes, size_t nSize)
{
    auto* pCopy = static_cast<char*>(std::malloc(nSize + 1));
    std::reverse_copy(static_cast<const char*>(pBytes), static_cast<const char*>(pBytes) + nSize, pCopy);
    pCopy[nSize] = 0;
    return pCopy;
}

QRLresult ConvertTextToBinary(void** ppBinary, QRLuint* pnSize, QRLlanguage eLanguage, const char* szText)
{
    *pnSize = static_cast<QRLuint>(std::strlen(szText));
    if (eLanguage != QRL_LANGUAGE_IL || *pnSize == 0 || Fails("ConvertTextToBinary"))
    {
        return QRL_RESULT_INVALID_PARAMETER;
    }
    *ppBinary = Fails("NullResult") ? nullptr : Reverse(szText, *pnSize);
    return QRL_RESULT_OK;
}

QRLresult ConvertBinaryToText(const void* pBinary, QRLuint nSize, QRLlanguage, char** ppText)
{
    if (Fails("ConvertBinaryToText"))
    {
        return QRL_RESULT_ERROR;
    }
    *ppText = Fails("NullResult") ? nullptr : static_cast<char*>(Reverse(pBinary, nSize));
    return QRL_RESULT_OK;
}

QRLresult FreeTextBinary(void* p)
{
    std::free(p);
    return Fails("FreeTextBinary") ? QRL_RESULT_ERROR : QRL_RESULT_OK;
}

} // namespace

#define FAKE_UNUSED_QRLunusedEntry(name)                                                                               \
    FAKE_EXPORT QRLresult qrl##name()                                                                                  \
    {                                                                                                                  \
        return QRL_RESULT_NOT_SUPPORTED;                                                                               \
    }
#define FAKE_UNUSED_PFNqrlInit(name)
#define FAKE_UNUSED_PFNqrlShutdown(name)
#define FAKE_UNUSED_PFNqrlExtSupported(name)
#define FAKE_UNUSED_PFNqrlExtGetProc(name)
#define FAKE_UNUSED(name, type) FAKE_UNUSED_##type(name)
QRL_RT_ENTRY_POINTS(FAKE_UNUSED)

FAKE_EXPORT QRLresult qrlInit()
{
    return Fails("Init") ? QRL_RESULT_ERROR : g_nFakeInitCalls++ == 0 ? QRL_RESULT_OK : QRL_RESULT_ALREADY;
}

FAKE_EXPORT QRLresult qrlShutdown()
{
    return QRL_RESULT_OK;
}

FAKE_EXPORT QRLresult qrlExtSupported(QRLuint nExtension)
{
    return nExtension == QRL_PRIVATE_EXT_COMPILER && !Fails("ExtSupported") ? QRL_RESULT_OK : QRL_RESULT_NOT_SUPPORTED;
}

FAKE_EXPORT QRLresult qrlExtGetProc(QRLextproc* pProc, QRLuint nExtension, const char* szName)
{
    static const struct
    {
        const char* szName;
        QRLextproc pProc;
    } s_Functions[] = {{"qrlConvertTextToBinary", reinterpret_cast<QRLextproc>(ConvertTextToBinary)},
                       {"qrlConvertBinaryToText", reinterpret_cast<QRLextproc>(ConvertBinaryToText)},
                       {"qrlFreeTextBinary", reinterpret_cast<QRLextproc>(FreeTextBinary)}};
    for (const auto& function : s_Functions)
    {
        if (nExtension == QRL_PRIVATE_EXT_COMPILER && std::strcmp(szName, function.szName) == 0 && !Fails(szName))
        {
            *pProc = Fails("NullProc") ? nullptr : function.pProc;
            return QRL_RESULT_OK;
        }
    }
    return QRL_RESULT_ERROR;
}

#endif
