#include "platform/opencl_c/driver/SourceInfo.h"

#include <llvm/IR/Constants.h>
#include <llvm/IR/Function.h>
#include <llvm/IR/Metadata.h>

namespace KestrelOpenCL
{
namespace
{

std::string Text(const llvm::Metadata* pMetadata)
{
    const auto* const pString = llvm::dyn_cast<llvm::MDString>(pMetadata);
    return pString == nullptr ? std::string() : pString->getString().str();
}

uint64_t Number(const llvm::Metadata* pMetadata)
{
    const auto* const pConstant = llvm::mdconst::dyn_extract<llvm::ConstantInt>(pMetadata);
    return pConstant == nullptr ? 0 : pConstant->getZExtValue();
}

/// Encodes a text as one field of a metadata line: characters that may not stand there become octal numbers.
std::string Field(const std::string& strText)
{
    std::string strField;
    for (const char c : strText)
    {
        if (c >= ' ' && c < '\x7f' && c != ':' && c != ';' && c != '\\')
        {
            strField += c;
            continue;
        }
        const auto n = static_cast<unsigned char>(c);
        strField += {'\\', static_cast<char>('0' + (n >> 6)), static_cast<char>('0' + (n >> 3 & 7)),
                     static_cast<char>('0' + (n & 7))};
    }
    return strField;
}

/// One node's operand for an argument; null where clang left the node out.
const llvm::Metadata* Operand(const llvm::Function& kernel, const char* pszNode, unsigned int nArgument)
{
    const llvm::MDNode* const pNode = kernel.getMetadata(pszNode);
    return pNode == nullptr || nArgument >= pNode->getNumOperands() ? nullptr : pNode->getOperand(nArgument).get();
}

std::string ArgumentLine(const llvm::Function& kernel, unsigned int nArgument)
{
    const auto Get = [&](const char* pszNode)
    {
        const llvm::Metadata* const pOperand = Operand(kernel, pszNode, nArgument);
        return pOperand == nullptr ? std::string() : Field(Text(pOperand));
    };
    const llvm::Metadata* const pSpace = Operand(kernel, "kernel_arg_addr_space", nArgument);
    return ";arginfo:" + std::to_string(nArgument) + ":" + std::to_string(pSpace == nullptr ? 0 : Number(pSpace)) +
           ":" + Get("kernel_arg_access_qual") + ":" + Get("kernel_arg_type_qual") + ":" + Get("kernel_arg_type") +
           ":" + Get("kernel_arg_name") + "\n";
}

std::string Sizes(const llvm::MDNode& node)
{
    std::string strList;
    for (const llvm::MDOperand& operand : node.operands())
    {
        strList += (strList.empty() ? "" : ",") + std::to_string(Number(operand.get()));
    }
    return "(" + strList + ")";
}

std::string TypeName(const llvm::Type& type, bool bSigned)
{
    if (const auto* const pVector = llvm::dyn_cast<llvm::FixedVectorType>(&type))
    {
        return TypeName(*pVector->getElementType(), bSigned) + std::to_string(pVector->getNumElements());
    }
    if (!type.isIntegerTy())
    {
        return type.isDoubleTy() ? "double" : type.isHalfTy() ? "half" : "float";
    }
    const unsigned int nBits = type.getIntegerBitWidth();
    const char* const pszName = nBits == 8 ? "char" : nBits == 16 ? "short" : nBits == 32 ? "int" : "long";
    return (bSigned ? "" : "u") + std::string(pszName);
}

std::string Attributes(const llvm::Function& kernel)
{
    std::string strList;
    const auto Add = [&strList](const std::string& strAttribute)
    { strList += (strList.empty() ? "" : " ") + strAttribute; };
    for (const char* const pszName : {"reqd_work_group_size", "work_group_size_hint"})
    {
        if (const llvm::MDNode* const pNode = kernel.getMetadata(pszName))
        {
            Add(pszName + Sizes(*pNode));
        }
    }
    const llvm::MDNode* const pHint = kernel.getMetadata("vec_type_hint");
    const auto* const pValue = pHint == nullptr || pHint->getNumOperands() != 2
                                   ? nullptr
                                   : llvm::dyn_cast<llvm::ValueAsMetadata>(pHint->getOperand(0).get());
    if (pValue != nullptr)
    {
        Add("vec_type_hint(" + TypeName(*pValue->getType(), Number(pHint->getOperand(1).get()) != 0) + ")");
    }
    return strList;
}

std::string FormatLines(const llvm::Function& kernel)
{
    std::string strLines;
    const llvm::MDNode* const pFormats = kernel.getMetadata("kestrel.printf");
    for (unsigned int i = 0; pFormats != nullptr && i < pFormats->getNumOperands(); ++i)
    {
        strLines += ";printf:" + std::to_string(i);
        for (const llvm::MDOperand& text : llvm::cast<llvm::MDNode>(pFormats->getOperand(i).get())->operands())
        {
            strLines += ":" + Field(Text(text.get()));
        }
        strLines += "\n";
    }
    return strLines;
}

} // namespace

std::string SourceInfoLines(const llvm::Function& kernel)
{
    std::string strLines;
    for (unsigned int i = 0; i < kernel.arg_size(); ++i)
    {
        strLines += ArgumentLine(kernel, i);
    }
    const std::string strAttributes = Attributes(kernel);
    if (!strAttributes.empty())
    {
        strLines += ";attributes:" + strAttributes + "\n";
    }
    return strLines + FormatLines(kernel);
}

} // namespace KestrelOpenCL
