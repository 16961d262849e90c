#include "binary/ILTranslator.h"

#include "binary/BifUtils.h"
#include "modules/CLDispatchTable.h"

#include <algorithm>
#include <limits>
#include <memory>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

namespace OVK_ShaderDebugger
{

namespace
{

constexpr char s_DefaultDevice[] = "Quench";

bool s_bAllowCompilationWithQRL = false;
bool s_bCompileWithQRL = false;
bool s_bCompileWithZCC = false;

bool s_bQrlConvertExtInitialized = false;
PFNqrlConvertTextToBinary qrlConvertTextToBinary = nullptr;
PFNqrlConvertBinaryToText qrlConvertBinaryToText = nullptr;
PFNqrlFreeTextBinary qrlFreeTextBinary = nullptr;
boost::mutex g_mutexQrlConvertExt;

bool IsInitialized(QRLresult result)
{
    return result == QRL_RESULT_OK || result == QRL_RESULT_ALREADY;
}

template <class Function>
bool GetExtensionFunction(const char* szName, Function& pfn)
{
    QRLextproc pProc = nullptr;
    if (g_QRLRTDispatchTable.ExtGetProc(&pProc, QRL_PRIVATE_EXT_COMPILER, szName) != QRL_RESULT_OK)
    {
        return false;
    }
    pfn = reinterpret_cast<Function>(pProc);
    return pfn != nullptr;
}

/// Sets the low-level runtime's compiler extension up, once. A failure is tried again the next time.
bool InitializeQrlConvertExt()
{
    const boost::lock_guard<boost::mutex> lock(g_mutexQrlConvertExt);
    if (s_bQrlConvertExtInitialized)
    {
        return true;
    }
    const QRLRTModule& runtime = g_QRLRTDispatchTable;
    s_bQrlConvertExtInitialized = runtime.m_ModuleLoaded && IsInitialized(runtime.Init()) &&
                                  runtime.ExtSupported(QRL_PRIVATE_EXT_COMPILER) == QRL_RESULT_OK &&
                                  GetExtensionFunction("qrlConvertTextToBinary", qrlConvertTextToBinary) &&
                                  GetExtensionFunction("qrlConvertBinaryToText", qrlConvertBinaryToText) &&
                                  GetExtensionFunction("qrlFreeTextBinary", qrlFreeTextBinary);
    return s_bQrlConvertExtInitialized;
}

bool UsesQRL()
{
    return ovkIsAssemblingWithQRL() && InitializeQrlConvertExt();
}

std::string DeviceOrDefault(const std::string& strDevice)
{
    return strDevice.empty() ? s_DefaultDevice : strDevice;
}

bool AssembleWithQRL(const std::string& strILText, std::vector<unsigned char>& vILBytecode)
{
    void* pBinary = nullptr;
    QRLuint nBinarySize = 0;
    if (qrlConvertTextToBinary(&pBinary, &nBinarySize, QRL_LANGUAGE_IL, strILText.c_str()) != QRL_RESULT_OK)
    {
        return false;
    }
    const auto* pBytes = static_cast<const unsigned char*>(pBinary);
    std::vector<unsigned char> vResult(pBytes, pBytes + (pBytes == nullptr ? 0 : nBinarySize));
    if (qrlFreeTextBinary(pBinary) != QRL_RESULT_OK)
    {
        return false;
    }
    vILBytecode.swap(vResult);
    return true;
}

bool AssembleWithZCC(const std::string& strILText, std::vector<unsigned char>& vILBytecode,
                     const std::string& strDevice)
{
    unsigned int* pILBinOut = nullptr;
    size_t nILSizeOut = 0;
    if (!BifUtils::ILTextToBinary(DeviceOrDefault(strDevice), strILText, pILBinOut, nILSizeOut))
    {
        return false;
    }
    const std::unique_ptr<unsigned int[]> owner(pILBinOut);
    const auto* pBytes = reinterpret_cast<const unsigned char*>(pILBinOut);
    vILBytecode.assign(pBytes, pBytes + nILSizeOut * sizeof(unsigned int));
    return true;
}

bool DisassembleWithQRL(const unsigned char* pILBytecode, size_t ilBytecodeSize, std::string& strILText)
{
    char* pText = nullptr;
    if (ilBytecodeSize > std::numeric_limits<QRLuint>::max() ||
        qrlConvertBinaryToText(pILBytecode, static_cast<QRLuint>(ilBytecodeSize), QRL_LANGUAGE_IL, &pText) !=
            QRL_RESULT_OK)
    {
        return false;
    }
    std::string strResult = pText == nullptr ? "" : pText;
    if (qrlFreeTextBinary(pText) != QRL_RESULT_OK)
    {
        return false;
    }
    strILText.swap(strResult);
    return true;
}

bool DisassembleWithZCC(const unsigned char* pILBytecode, size_t ilBytecodeSize, std::string& strILText,
                        const std::string& strDevice)
{
    // The bytes may come from a place that isn't aligned for words.
    std::vector<unsigned int> vWords(ilBytecodeSize / sizeof(unsigned int));
    std::copy_n(pILBytecode, vWords.size() * sizeof(unsigned int), reinterpret_cast<unsigned char*>(vWords.data()));
    return BifUtils::ILBinaryToText(DeviceOrDefault(strDevice), vWords.data(), vWords.size(), strILText);
}

} // namespace

bool ovkAssembleIL(const std::string& strILText, std::vector<unsigned char>* pvILBytecode, const std::string& strDevice)
{
    if (pvILBytecode == nullptr)
    {
        return false;
    }
    return UsesQRL() ? AssembleWithQRL(strILText, *pvILBytecode) : AssembleWithZCC(strILText, *pvILBytecode, strDevice);
}

bool ovkDisassembleIL(const std::vector<unsigned char>& vILBytecode, std::string* pstrILText,
                      const std::string& strDevice)
{
    return ovkDisassembleIL(vILBytecode.data(), vILBytecode.size(), pstrILText, strDevice);
}

bool ovkDisassembleIL(const unsigned char* pILBytecode, size_t ilBytecodeSize, std::string* pstrILText,
                      const std::string& strDevice)
{
    if (pstrILText == nullptr || (pILBytecode == nullptr && ilBytecodeSize != 0))
    {
        return false;
    }
    return UsesQRL() ? DisassembleWithQRL(pILBytecode, ilBytecodeSize, *pstrILText)
                     : DisassembleWithZCC(pILBytecode, ilBytecodeSize, *pstrILText, strDevice);
}

bool ovkIsAssemblingWithQRL()
{
    static bool s_checkOnce = true;
    if (s_bAllowCompilationWithQRL && s_checkOnce)
    {
        s_checkOnce = false;
        s_bCompileWithQRL = g_QRLRTDispatchTable.Init != nullptr && IsInitialized(g_QRLRTDispatchTable.Init());
    }
    return s_bAllowCompilationWithQRL || s_bCompileWithQRL;
}

bool ovkIsAssemblingWithZCC()
{
    static bool s_checkOnce = true;
    if (s_checkOnce)
    {
        s_checkOnce = false;
        s_bCompileWithZCC = BifUtils::ZCCModuleSupported();
    }
    return s_bCompileWithZCC;
}

void ovkSetAssemblingWithQRLAllowed(bool allowed)
{
    s_bAllowCompilationWithQRL = allowed;
}

} // namespace OVK_ShaderDebugger
