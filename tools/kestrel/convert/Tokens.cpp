#include "tools/kestrel/convert/Tokens.h"

#include "tools/session/launch/Libraries.h"

#include <dlfcn.h>

namespace KestrelTool
{

namespace
{

// The parts of the platform's low-level runtime that the conversions need.
typedef int (*Init)();
typedef int (*GetProc)(void (**ppProc)(), unsigned int nExtension, const char* pszName);
typedef int (*ToBinary)(void** ppBinary, unsigned int* pnSize, int nLanguage, const char* pszText);
typedef int (*ToTextFunction)(const void* pBinary, unsigned int nSize, int nLanguage, char** ppText);
typedef int (*Free)(void* pData);

const unsigned int s_nCompilerExtension = 0x8013;
const int s_nLanguageIL = 1;

class CConverter
{
public:
    explicit CConverter(const std::string& strPlatformDir)
    {
        const std::string strPath = strPlatformDir + "/libovkqrlrt.so";
        void* pLibrary = dlopen(strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (pLibrary == nullptr)
        {
            throw CPlatformError("can't open " + strPath + ": " + dlerror());
        }
        const Init pInit = reinterpret_cast<Init>(dlsym(pLibrary, "qrlInit"));
        m_pGetProc = reinterpret_cast<GetProc>(dlsym(pLibrary, "qrlExtGetProc"));
        if (pInit == nullptr || m_pGetProc == nullptr)
        {
            throw CPlatformError(strPath + " converts no IL");
        }
        pInit(); // a second call isn't a failure
    }

    template <typename Function>
    Function Find(const char* pszName) const
    {
        void (*pProc)() = nullptr;
        if (m_pGetProc(&pProc, s_nCompilerExtension, pszName) != 0 || pProc == nullptr)
        {
            throw CPlatformError(std::string("the platform has no ") + pszName);
        }
        return reinterpret_cast<Function>(pProc);
    }

private:
    GetProc m_pGetProc = nullptr;
};

/// The text from the line that opens the IL.
std::string CutModule(const std::string& strText)
{
    size_t nLine = 0;
    while (nLine < strText.size() && strText.compare(nLine, 3, "il_") != 0 && strText.compare(nLine, 3, "il(") != 0)
    {
        const size_t nEnd = strText.find('\n', nLine);
        nLine = nEnd == std::string::npos ? strText.size() : nEnd + 1;
    }
    return strText.substr(nLine);
}

} // namespace

bool IsTokens(const std::string& strBytes)
{
    const bool bBinary = strBytes.substr(0, 256).find('\0') != std::string::npos;
    return bBinary && strBytes.size() % 4 == 0 && strBytes.compare(0, 4, "\177ELF") != 0;
}

std::string TextToTokens(const std::string& strPlatformDir, const std::string& strText)
{
    const CConverter converter(strPlatformDir);
    void* pBinary = nullptr;
    unsigned int nSize = 0;
    const std::string strIL = CutModule(strText);
    if (converter.Find<ToBinary>("qrlConvertTextToBinary")(&pBinary, &nSize, s_nLanguageIL, strIL.c_str()) != 0)
    {
        throw std::runtime_error("the text is no IL that can be converted");
    }
    std::string strBytes(static_cast<const char*>(pBinary), nSize);
    converter.Find<Free>("qrlFreeTextBinary")(pBinary);
    return strBytes;
}

std::string TokensToText(const std::string& strPlatformDir, const std::string& strBytes)
{
    const CConverter converter(strPlatformDir);
    char* pszText = nullptr;
    const unsigned int nSize = static_cast<unsigned int>(strBytes.size());
    if (converter.Find<ToTextFunction>("qrlConvertBinaryToText")(strBytes.data(), nSize, s_nLanguageIL, &pszText) != 0)
    {
        throw std::runtime_error("the words are no IL");
    }
    std::string strText = pszText;
    converter.Find<Free>("qrlFreeTextBinary")(pszText);
    return strText;
}

} // namespace KestrelTool
