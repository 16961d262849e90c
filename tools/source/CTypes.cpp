#include "tools/source/CTypes.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace KestrelTool
{

const SSourceType g_RegisterInt = {SSourceType::Signed, "long", 8, 0, nullptr, {}, SSourceType::PrivateSpace};
const SSourceType g_RegisterFloat = {SSourceType::Float, "double", 8, 0, nullptr, {}, SSourceType::PrivateSpace};

namespace
{

const SSourceType s_Scalars[] = {
    {SSourceType::Signed, "char", 1, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Unsigned, "uchar", 1, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Signed, "short", 2, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Unsigned, "ushort", 2, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Signed, "int", 4, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Unsigned, "uint", 4, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Signed, "long", 8, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Unsigned, "ulong", 8, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Float, "half", 2, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Float, "float", 4, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Float, "double", 8, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Unsigned, "bool", 1, 0, nullptr, {}, SSourceType::PrivateSpace},
    {SSourceType::Void, "void", 0, 0, nullptr, {}, SSourceType::PrivateSpace},
};

const struct
{
    const char* pszName;
    const char* pszMeans;
} s_OtherNames[] = {
    {"signed char", "char"},         {"unsigned char", "uchar"},
    {"signed short", "short"},       {"unsigned short", "ushort"},
    {"short int", "short"},          {"signed", "int"},
    {"signed int", "int"},           {"unsigned", "uint"},
    {"unsigned int", "uint"},        {"long int", "long"},
    {"signed long", "long"},         {"unsigned long", "ulong"},
    {"unsigned long int", "ulong"},  {"long long", "long"},
    {"unsigned long long", "ulong"}, {"size_t", "ulong"},
    {"ptrdiff_t", "long"},           {"intptr_t", "long"},
    {"uintptr_t", "ulong"},          {"_Bool", "bool"},
};

} // namespace

bool IsBool(const SSourceType& type)
{
    return type.eKind == SSourceType::Unsigned && type.nSize == 1 &&
           (type.strName == "bool" || type.strName == "_Bool");
}

bool IsArithmetic(const SSourceType& type)
{
    const bool bSize = type.nSize == 1 || type.nSize == 2 || type.nSize == 4 || type.nSize == 8;
    return bSize && (IsInteger(type) || (IsFloating(type) && type.nSize != 1));
}

const SSourceType& ScalarOf(const SSourceType& type)
{
    return IsVector(type) ? *type.pElement : type;
}

size_t CountScalars(const SSourceType& type)
{
    return IsVector(type) && type.pElement->nSize != 0 ? type.nSize / type.pElement->nSize : 1;
}

bool IsSameType(const SSourceType& left, const SSourceType& right)
{
    if (&left == &right)
    {
        return true;
    }
    if (left.eKind != right.eKind || left.nSize != right.nSize || left.nCount != right.nCount)
    {
        return false;
    }
    return IsVector(left) ? IsSameType(*left.pElement, *right.pElement)
                          : IsArithmetic(left) || left.strName == right.strName;
}

const SSourceType* FindScalarType(const std::string& strName)
{
    const auto itOther = std::find_if(std::begin(s_OtherNames), std::end(s_OtherNames),
                                      [&](const auto& entry) { return strName == entry.pszName; });
    const std::string strOwn = itOther != std::end(s_OtherNames) ? itOther->pszMeans : strName;
    const auto it = std::find_if(std::begin(s_Scalars), std::end(s_Scalars),
                                 [&](const SSourceType& type) { return type.strName == strOwn; });
    return it != std::end(s_Scalars) ? &*it : nullptr;
}

const SSourceType& GetIntegerType(bool bSigned, size_t nBytes)
{
    const SSourceType::EKind eKind = bSigned ? SSourceType::Signed : SSourceType::Unsigned;
    return *std::find_if(std::begin(s_Scalars), std::end(s_Scalars) - 1,
                         [&](const SSourceType& type) { return type.eKind == eKind && type.nSize == nBytes; });
}

const SSourceType& Promote(const SSourceType& type)
{
    return IsInteger(type) && type.nSize < 4 ? GetIntegerType(true, 4) : type;
}

const SSourceType& FindCommonType(const SSourceType& left, const SSourceType& right)
{
    if (IsFloating(left) || IsFloating(right))
    {
        const bool bLeft =
            IsFloating(left) && (!IsFloating(right) || left.nSize > right.nSize || &left == &g_RegisterFloat);
        return bLeft ? left : right;
    }
    const SSourceType& first = Promote(left);
    const SSourceType& second = Promote(right);
    if (first.nSize != second.nSize)
    {
        return first.nSize > second.nSize ? first : second;
    }
    return first.eKind == SSourceType::Unsigned ? first : second;
}

const SSourceType& CTypeStore::MakeVector(const SSourceType& element, size_t nCount)
{
    std::unique_ptr<SSourceType>& pType = m_mapTypes[{&element, nCount}];
    if (!pType)
    {
        pType = std::make_unique<SSourceType>();
        pType->eKind = SSourceType::Vector;
        pType->strName = element.strName + std::to_string(nCount);
        pType->nCount = nCount;
        pType->nSize = (nCount == 3 ? 4 : nCount) * element.nSize;
        pType->pElement = &element;
    }
    return *pType;
}

const SSourceType& CTypeStore::MakePointer(const SSourceType& element, SSourceType::ESpace eSpace)
{
    const size_t nFirstPointer = 100; // more than any vector's number of elements
    std::unique_ptr<SSourceType>& pType = m_mapTypes[{&element, nFirstPointer + eSpace}];
    if (!pType)
    {
        const bool bShort = eSpace == SSourceType::PrivateSpace || eSpace == SSourceType::LocalSpace;
        pType = std::make_unique<SSourceType>();
        pType->eKind = SSourceType::Pointer;
        pType->strName = element.strName + "*";
        pType->nSize = bShort ? 4 : 8;
        pType->pElement = &element;
        pType->eSpace = eSpace;
    }
    return *pType;
}

const SSourceType* CTypeStore::Find(const std::string& strName)
{
    const size_t nDigit = std::min(strName.find_first_of("0123456789"), strName.size());
    if (nDigit == strName.size())
    {
        return FindScalarType(strName);
    }
    const std::string strCount = strName.substr(nDigit);
    static const char* const s_Counts[] = {"2", "3", "4", "8", "16"};
    const SSourceType* const pElement = FindScalarType(strName.substr(0, nDigit));
    const bool bCount = std::find(std::begin(s_Counts), std::end(s_Counts), strCount) != std::end(s_Counts);
    const bool bVector = pElement != nullptr && bCount && IsArithmetic(*pElement) && !IsBool(*pElement);
    return bVector ? &MakeVector(*pElement, std::stoul(strCount)) : nullptr;
}

} // namespace KestrelTool
