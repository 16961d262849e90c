#include "platform/opencl_c/lowering/KernelParameters.h"

#include "platform/opencl_c/lowering/ValueTypes.h"

#include "llvm/IR/Argument.h"
#include "llvm/IR/DataLayout.h"
#include "llvm/IR/DerivedTypes.h"
#include "llvm/IR/Function.h"
#include "llvm/IR/Metadata.h"
#include "llvm/IR/Module.h"

#include <algorithm>
#include <cctype>

namespace KestrelOpenCL
{
namespace
{

const uint32_t s_nElementBytes = 16;
const uint32_t s_nImageSlot = 32;
const uint32_t s_nFirstUav = 12; ///< for pointers, on the newer generation
/// A debugger looks for free numbers up to 32. All numbers name the same flat memory, so later pointers may share one.
const uint32_t s_nLastUav = 27;

struct STypeToken
{
    const char* pszSource; ///< as in `kernel_arg_base_type`, without a vector's size
    const char* pszToken;
    uint32_t nBytes;
};

const STypeToken s_TypeTokens[] = {
    {"char", "i8", 1},    {"uchar", "i8", 1},  {"bool", "i8", 1},    {"void", "i8", 1},       {"short", "i16", 2},
    {"ushort", "u16", 2}, {"half", "u16", 2},  {"int", "i32", 4},    {"uint", "u32", 4},      {"float", "float", 4},
    {"long", "i64", 8},   {"ulong", "u64", 8}, {"size_t", "u64", 8}, {"double", "double", 8},
};

struct SImageType
{
    const char* pszSource;
    const char* pszToken;
};

const SImageType s_ImageTypes[] = {{"image1d_array_t", "1DA"}, {"image2d_array_t", "2DA"}, {"image1d_t", "1D"},
                                   {"image1d_buffer_t", "1D"}, {"image2d_t", "2D"},        {"image3d_t", "3D"}};

std::string StringOf(const llvm::MDNode* pNode, unsigned nIndex)
{
    if (pNode == nullptr || nIndex >= pNode->getNumOperands())
    {
        return {};
    }
    const auto* const pString = llvm::dyn_cast<llvm::MDString>(pNode->getOperand(nIndex));
    return pString != nullptr ? pString->getString().str() : std::string();
}

bool HasWord(const std::string& strText, const char* pszWord)
{
    return (" " + strText + " ").find(" " + std::string(pszWord) + " ") != std::string::npos;
}

/// For "uint4", sometimes spelled "uint __attribute__((ext_vector_type(4)))" by clang, gives the token of uint and 4
/// elements. Unknown names are structs or unions.
STypeToken TokenOf(std::string strType, uint32_t& nElements)
{
    const std::string strVector = " __attribute__((ext_vector_type(";
    const size_t nVector = strType.find(strVector);
    if (nVector != std::string::npos)
    {
        const size_t nNumber = nVector + strVector.size();
        strType = strType.substr(0, nVector) + strType.substr(nNumber, strType.find(')', nNumber) - nNumber);
    }
    const size_t nDigits = strType.find_last_not_of("0123456789") + 1;
    const std::string strName = strType.substr(0, nDigits);
    nElements = nDigits < strType.size() ? static_cast<uint32_t>(std::stoul(strType.substr(nDigits))) : 1;
    nElements = nElements == 3 ? 4 : nElements;
    for (const STypeToken& token : s_TypeTokens)
    {
        if (strName == token.pszSource)
        {
            return token;
        }
    }
    nElements = 1;
    return {"", strType.compare(0, 6, "union ") == 0 ? "union" : "struct", 1};
}

const SImageType* FindImage(const std::string& strType)
{
    const auto it = std::find_if(std::begin(s_ImageTypes), std::end(s_ImageTypes),
                                 [&](const SImageType& type) { return strType == type.pszSource; });
    return it == std::end(s_ImageTypes) ? nullptr : it;
}

uint32_t RoundUp(uint32_t n)
{
    return (n + s_nElementBytes - 1) / s_nElementBytes * s_nElementBytes;
}

/// Reads the parameters of one kernel. Each object serves one call.
class CParameterReader
{
public:
    CParameterReader(const llvm::Function& kernel, const KestrelPlatform::SDeviceTarget& target)
        : m_Kernel(kernel), m_Target(target)
    {
    }

    std::vector<SKernelParameter> Read()
    {
        for (const llvm::Argument& argument : m_Kernel.args())
        {
            m_vParameters.push_back(ReadOne(argument));
        }
        return m_vParameters;
    }

private:
    std::string Meta(const char* pszKind, unsigned nIndex) const
    {
        return StringOf(m_Kernel.getMetadata(pszKind), nIndex);
    }

    SKernelParameter ReadOne(const llvm::Argument& argument)
    {
        const unsigned nIndex = argument.getArgNo();
        const std::string strBase = Meta("kernel_arg_base_type", nIndex);
        const std::string strQualifiers = Meta("kernel_arg_type_qual", nIndex);
        SKernelParameter parameter;
        parameter.strName = Meta("kernel_arg_name", nIndex);
        parameter.strName = parameter.strName.empty() ? argument.getName().str() : parameter.strName;
        parameter.strName = parameter.strName.empty() ? "arg" + std::to_string(nIndex) : parameter.strName;
        parameter.nOffset = m_nOffset;
        parameter.bVolatile = HasWord(strQualifiers, "volatile");
        parameter.bRestrict = HasWord(strQualifiers, "restrict");
        if (const SImageType* const pImage = FindImage(strBase))
        {
            ReadImage(*pImage, Meta("kernel_arg_access_qual", nIndex), parameter);
        }
        else if (strBase == "sampler_t")
        {
            parameter.eKind = SKernelParameter::Sampler;
            parameter.nNumber = m_nSamplers++;
        }
        else if (argument.getType()->isPointerTy() && !argument.hasByValAttr())
        {
            ReadPointer(argument, strBase, strQualifiers, parameter);
        }
        else
        {
            ReadValue(argument, strBase, parameter);
        }
        m_nOffset += parameter.nSlot;
        return parameter;
    }

    void ReadImage(const SImageType& image, const std::string& strAccess, SKernelParameter& parameter)
    {
        const bool bWritten = strAccess == "write_only" || strAccess == "read_write";
        parameter.eKind = SKernelParameter::Image;
        parameter.strType = image.pszToken;
        parameter.strAccess = strAccess == "write_only" ? "WO" : bWritten ? "RW" : "RO";
        parameter.nNumber = bWritten ? m_nWrittenImages++ : m_nReadImages++;
        parameter.nSlot = s_nImageSlot;
    }

    void ReadPointer(const llvm::Argument& argument, const std::string& strBase, const std::string& strQualifiers,
                     SKernelParameter& parameter)
    {
        std::string strElement = strBase;
        strElement = strElement.substr(0, strElement.find('*'));
        const STypeToken token = TokenOf(strElement, parameter.nElements);
        parameter.eKind = SKernelParameter::Pointer;
        parameter.strType = token.pszToken;
        parameter.nAlignment = std::max(token.nBytes, 1u);
        parameter.nSpace = argument.getType()->getPointerAddressSpace();
        parameter.nSlot = s_nElementBytes;
        const bool bReads = parameter.nSpace == SpaceConstant || HasWord(strQualifiers, "const");
        parameter.strAccess = bReads ? "RO" : "RW";
        if (parameter.nSpace == SpaceLocal)
        {
            parameter.nNumber = s_nLocalId;
            return;
        }
        parameter.nNumber = m_Target.bRawUavOnly ? s_nRawUav : std::min(s_nFirstUav + m_nPointers++, s_nLastUav);
    }

    void ReadValue(const llvm::Argument& argument, const std::string& strBase, SKernelParameter& parameter)
    {
        STypeToken token = TokenOf(strBase, parameter.nElements);
        const llvm::DataLayout& layout = m_Kernel.getParent()->getDataLayout();
        if (argument.hasByValAttr())
        {
            parameter.nBytes = static_cast<uint32_t>(layout.getTypeAllocSize(argument.getParamByValType()));
            parameter.nElements = parameter.nBytes;
            token.pszToken = strBase.compare(0, 6, "union ") == 0 ? "union" : "struct";
            token.nBytes = 1;
        }
        else if (token.nBytes == 1 && argument.getType()->isIntegerTy() && !argument.getType()->isIntegerTy(8))
        {
            // An enumeration.
            token = argument.getType()->isIntegerTy(64) ? STypeToken{"", "i64", 8} : STypeToken{"", "i32", 4};
        }
        parameter.strType = token.pszToken;
        parameter.nBytes = parameter.nElements * token.nBytes;
        parameter.nSlot = RoundUp(parameter.nElements * std::max(token.nBytes, 4u));
    }

    const llvm::Function& m_Kernel;
    const KestrelPlatform::SDeviceTarget& m_Target;
    std::vector<SKernelParameter> m_vParameters;
    uint32_t m_nOffset = 0;
    uint32_t m_nPointers = 0;
    uint32_t m_nReadImages = 0;
    uint32_t m_nWrittenImages = 0;
    uint32_t m_nSamplers = 0;
};

std::string Lower(std::string str)
{
    std::transform(str.begin(), str.end(), str.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return str;
}

std::string ParameterLine(const SKernelParameter& parameter)
{
    const std::string strPlace = ":1:" + std::to_string(parameter.nOffset);
    const std::string strNumber = std::to_string(parameter.nNumber);
    const std::string strElements = ":" + std::to_string(parameter.nElements);
    switch (parameter.eKind)
    {
    case SKernelParameter::Value:
        return ";value:" + parameter.strName + ":" + parameter.strType + strElements + strPlace + "\n";
    case SKernelParameter::Image:
        return ";image:" + parameter.strName + ":" + parameter.strType + ":" + parameter.strAccess + ":" + strNumber +
               strPlace + "\n";
    case SKernelParameter::Sampler:
        return ";sampler:" + parameter.strName + ":" + strNumber + ":0:0\n";
    case SKernelParameter::Pointer:
        break;
    }
    const char* const pszMemory = parameter.nSpace == SpaceLocal      ? "hl"
                                  : parameter.nSpace == SpaceConstant ? "c"
                                                                      : "uav";
    return ";pointer:" + parameter.strName + ":" + parameter.strType + strElements + strPlace + ":" + pszMemory + ":" +
           strNumber + ":" + std::to_string(parameter.nAlignment) + ":" + parameter.strAccess +
           (parameter.bVolatile ? ":1" : ":0") + (parameter.bRestrict ? ":1\n" : ":0\n");
}

std::string ConstantsLine(const std::vector<uint8_t>& vBytes)
{
    static const char s_szDigits[] = "0123456789abcdef";
    std::string strLine = ";constants:" + std::to_string(KestrelPlatform::s_nConstantsBuffer) + ":";
    for (size_t n = 0; n < (vBytes.size() + 3) / 4 * 4; ++n)
    {
        const uint8_t nByte = n < vBytes.size() ? vBytes[n] : 0;
        strLine += {s_szDigits[nByte >> 4], s_szDigits[nByte & 15]};
    }
    return strLine + "\n";
}

} // namespace

std::vector<SKernelParameter> ReadParameters(const llvm::Function& kernel, const KestrelPlatform::SDeviceTarget& target)
{
    return CParameterReader(kernel, target).Read();
}

std::string WriteMetadata(const std::string& strKernel, uint32_t nWrapper,
                          const std::vector<SKernelParameter>& vParameters, const SKernelNeeds& needs,
                          const KestrelPlatform::SDeviceTarget& target)
{
    const std::string strWrapperName = "__OpenCL_" + strKernel + "_kernel";
    std::string strText = ";ARGSTART:" + strWrapperName + "\n;version:3:1:104\n;device:" + Lower(target.strName) +
                          "\n;uniqueid:" + std::to_string(nWrapper) + "\n";
    strText += target.b64BitAddresses ? ";memory:64bitABI\n" : "";
    strText += ";memory:uavprivate:" + std::to_string(needs.nPrivateBytes) + "\n";
    strText += ";memory:hwlocal:" + std::to_string(needs.nLocalBytes) + "\n";
    for (const SKernelParameter& parameter : vParameters)
    {
        strText += ParameterLine(parameter);
    }
    for (const SSourceSampler& sampler : needs.vSamplers)
    {
        strText += ";sampler:sampler" + std::to_string(sampler.nSampler) + ":" + std::to_string(sampler.nSampler) +
                   ":1:" + std::to_string(sampler.nValue) + "\n";
    }
    strText += needs.vConstants.empty() ? "" : ConstantsLine(needs.vConstants);
    strText += ";function:1:" + std::to_string(nWrapper + 1) + "\n";
    strText += ";uavid:" + std::to_string(s_nRawUav) + "\n";
    strText += needs.nPrivateBytes != 0 ? ";privateid:" + std::to_string(s_nPrivateUav) + "\n" : "";
    return strText + ";ARGEND:" + strWrapperName + "\n";
}

} // namespace KestrelOpenCL
