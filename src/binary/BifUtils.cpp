#include "binary/BifUtils.h"

#include "modules/ZCCModule.h"

#include <cstring>

namespace OVK_ShaderDebugger
{

ZCCModule BifUtils::m_zccMod;
zccCompiler* BifUtils::ms_pCom = nullptr;

namespace
{

constexpr char s_TextSymbol[] = "__debugil_text";
constexpr char s_BinarySymbol[] = "__debugil_binary";

/// A result of fewer bytes counts as none.
constexpr size_t s_nMinResult = 4;

/// The library's versions differ in the size of a binary structure, and report any other size as a lack of memory. So
/// the known sizes are tried in turn.
zccBinary* Wrapper_zccBinaryInit(const ZCCModule& module, const zccTargetInfo* target, const zccBinaryOptions* options,
                                 zcc_error& error)
{
    zccBinary* pBinary = nullptr;
    for (size_t nBinarySize : {120, 128, 118, 120, 104})
    {
        error = ZCC_SUCCESS;
        pBinary = module.BinaryInit(nBinarySize, target, options, &error);
        if (error != ZCC_OUT_OF_MEM)
        {
            break;
        }
    }
    return pBinary;
}

/// A binary object for one conversion.
class CConversion
{
public:
    CConversion(const ZCCModule& module, zccCompiler* pCompiler, const std::string& strDevice)
        : m_module(module), m_pCompiler(pCompiler)
    {
        zcc_error error = ZCC_SUCCESS;
        const zccTargetInfo target = m_module.GetTargetInfo("ovkil", strDevice.c_str(), &error);
        if (error == ZCC_SUCCESS)
        {
            zccBinary* pBinary = Wrapper_zccBinaryInit(m_module, &target, nullptr, error);
            m_pBinary = error == ZCC_SUCCESS ? pBinary : nullptr;
        }
    }

    CConversion(const CConversion&) = delete;
    CConversion& operator=(const CConversion&) = delete;

    ~CConversion()
    {
        if (m_pBinary != nullptr)
        {
            m_module.BinaryFini(m_pBinary);
        }
    }

    /// Inserts the input under one name and compiles it; the library leaves the result under another name.
    /// \return the library's bytes, valid as long as this object; null on failure
    const void* Convert(const void* pInput, size_t nInputSize, const char* szInputSymbol, zccType eFrom, zccType eTo,
                        const char* szOutputSymbol, size_t& nOutputSize)
    {
        if (m_pBinary == nullptr ||
            m_module.InsertSymbol(m_pCompiler, m_pBinary, pInput, nInputSize, zccINTERNAL, szInputSymbol) !=
                ZCC_SUCCESS ||
            m_module.Compile(m_pCompiler, m_pBinary, "", eFrom, eTo, nullptr) != ZCC_SUCCESS)
        {
            return nullptr;
        }
        zcc_error error = ZCC_SUCCESS;
        const void* pOutput =
            m_module.ExtractSymbol(m_pCompiler, m_pBinary, &nOutputSize, zccINTERNAL, szOutputSymbol, &error);
        return error == ZCC_SUCCESS && nOutputSize >= s_nMinResult ? pOutput : nullptr;
    }

private:
    const ZCCModule& m_module;
    zccCompiler* m_pCompiler;
    zccBinary* m_pBinary = nullptr;
};

/// Whether the library has every entry that a conversion calls.
bool CanConvert(const ZCCModule& module)
{
    return module.IsLoaded() && module.GetTargetInfo != nullptr && module.BinaryInit != nullptr &&
           module.BinaryFini != nullptr && module.InsertSymbol != nullptr && module.Compile != nullptr &&
           module.ExtractSymbol != nullptr;
}

} // namespace

bool BifUtils::ZCCModuleSupported()
{
    return m_zccMod.IsLoaded() || m_zccMod.LoadModule(ZCCModule::s_DefaultModuleName);
}

void BifUtils::InitCompiler()
{
    if (ms_pCom == nullptr && ZCCModuleSupported() && m_zccMod.CompilerInit != nullptr)
    {
        ms_pCom = m_zccMod.CompilerInit(nullptr, nullptr);
    }
}

void BifUtils::ReleaseCompiler()
{
    if (ms_pCom != nullptr && m_zccMod.CompilerFini != nullptr)
    {
        m_zccMod.CompilerFini(ms_pCom);
    }
    ms_pCom = nullptr;
}

bool BifUtils::ILTextToBinary(const std::string& strDevice, const std::string& strIL, unsigned int*& pILBinOut,
                              size_t& nILSizeOut)
{
    InitCompiler();
    if (ms_pCom == nullptr || !CanConvert(m_zccMod))
    {
        return false;
    }

    CConversion conversion(m_zccMod, ms_pCom, strDevice);
    size_t nSize = 0;
    const void* pTokens = conversion.Convert(strIL.data(), strIL.size(), s_TextSymbol, ZCC_TYPE_OVKIL_TEXT,
                                             ZCC_TYPE_OVKIL_BINARY, s_BinarySymbol, nSize);
    if (pTokens == nullptr)
    {
        return false;
    }
    const size_t nWords = nSize / sizeof(unsigned int);
    unsigned int* pILBin = new unsigned int[nWords];
    std::memcpy(pILBin, pTokens, nWords * sizeof(unsigned int));
    pILBinOut = pILBin;
    nILSizeOut = nWords;
    return true;
}

bool BifUtils::ILBinaryToText(const std::string& strDevice, const unsigned int* pInputIL, size_t nInputILSize,
                              std::string& strILTextOut)
{
    InitCompiler();
    if (ms_pCom == nullptr || !CanConvert(m_zccMod))
    {
        return false;
    }

    CConversion conversion(m_zccMod, ms_pCom, strDevice);
    size_t nSize = 0;
    const auto* pText =
        static_cast<const char*>(conversion.Convert(pInputIL, nInputILSize * sizeof(unsigned int), s_BinarySymbol,
                                                    ZCC_TYPE_OVKIL_BINARY, ZCC_TYPE_OVKIL_TEXT, s_TextSymbol, nSize));
    if (pText == nullptr)
    {
        return false;
    }
    strILTextOut.assign(pText, strnlen(pText, nSize));
    return true;
}

zccSections BifUtils::ToSectionID(const char* szSecName)
{
    static constexpr struct
    {
        const char* szName;
        zccSections id;
    } s_Sections[] = {{".debugil", zccILDEBUG}, {".llvmir", zccLLVMIR}, {".text", zccTEXT}, {".ovkil", zccILTEXT}};

    for (const auto& section : s_Sections)
    {
        if (szSecName != nullptr && std::strcmp(szSecName, section.szName) == 0)
        {
            return section.id;
        }
    }
    return zccLAST;
}

} // namespace OVK_ShaderDebugger
