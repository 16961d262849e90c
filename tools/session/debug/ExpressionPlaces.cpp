// Places and calls in expressions.

#include "tools/session/debug/ExpressionBuilder.h"

#include "tools/session/debug/CommandError.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace KestrelTool
{

namespace
{

std::vector<unsigned int> EveryOther(unsigned int nFirst, unsigned int nStep, unsigned int nCount)
{
    std::vector<unsigned int> vParts;
    for (unsigned int n = 0; n < nCount; ++n)
    {
        vParts.push_back(nFirst + n * nStep);
    }
    return vParts;
}

/// "xy", "s03f", "lo" and so on; empty for anything else.
std::vector<unsigned int> ReadComponents(const std::string& strName, size_t nCount)
{
    const unsigned int nHalf = static_cast<unsigned int>((nCount + 1) / 2);
    const struct
    {
        const char* pszName;
        unsigned int nFirst;
        unsigned int nStep;
    } halves[] = {{"lo", 0, 1}, {"hi", nHalf, 1}, {"even", 0, 2}, {"odd", 1, 2}};
    for (const auto& half : halves)
    {
        if (strName == half.pszName)
        {
            return EveryOther(half.nFirst, half.nStep, nHalf);
        }
    }
    const bool bNumbers = strName.size() > 1 && (strName[0] == 's' || strName[0] == 'S');
    std::vector<unsigned int> vParts;
    for (const char c : bNumbers ? strName.substr(1) : strName)
    {
        const char cLower = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        const size_t nPart = std::string(bNumbers ? "0123456789abcdef" : "xyzw").find(bNumbers ? cLower : c);
        if (nPart >= nCount)
        {
            return {};
        }
        vParts.push_back(static_cast<unsigned int>(nPart));
    }
    static const size_t s_Counts[] = {1, 2, 3, 4, 8, 16};
    const bool bCount = std::find(std::begin(s_Counts), std::end(s_Counts), vParts.size()) != std::end(s_Counts);
    return bCount ? vParts : std::vector<unsigned int>();
}

} // namespace

// ---------------------------------------------------------------------------------------- places

CExpressionBuilder::Node CExpressionBuilder::MakeDereference(Node nPointer)
{
    if (TypeOf(nPointer) != nullptr && TypeOf(nPointer)->eKind == SSourceType::Array)
    {
        return MakePart(nPointer, 0, *TypeOf(nPointer)->pElement);
    }
    TakeValue(nPointer);
    if (TypeOf(nPointer) == nullptr || !IsPointer(*TypeOf(nPointer)))
    {
        Refuse((TypeOf(nPointer) == nullptr ? "a register" : TypeOf(nPointer)->strName) + " is no pointer");
    }
    RequireElementSize(*TypeOf(nPointer));
    const SSourceType& pointer = *TypeOf(nPointer);
    const SSourceType& element = *pointer.pElement;
    TakeAs(nPointer, GetIntegerType(false, 8));
    const Node nPlace = MakePlace(ENode::Dereference, {nPointer}, element);
    m_vNodes[nPlace].eSpace = pointer.eSpace;
    return nPlace;
}

CExpressionBuilder::Node CExpressionBuilder::MakeAddress(Node nPlace)
{
    SExpressionNode& node = m_vNodes[nPlace];
    if (node.IsValue())
    {
        Refuse("only what lies in memory has an address");
    }
    const SSourceType::ESpace eSpace = m_vNodes[node.nRoot].eSpace;
    SExpressionNode address = MakeParent(ENode::Address, {nPlace}, &m_Types.MakePointer(*node.pType, eSpace));
    address.nRoot = node.nRoot;
    return Append(std::move(address));
}

CExpressionBuilder::Node CExpressionBuilder::MakePart(Node nWhole, size_t nOffset, const SSourceType& type)
{
    SExpressionNode& whole = m_vNodes[nWhole];
    if (nOffset > whole.GetType()->nSize || type.nSize > whole.GetType()->nSize - nOffset)
    {
        Refuse("the debug data give " + whole.GetType()->strName + " parts outside of itself");
    }
    if (whole.eNode == ENode::Variable && !whole.IsValue())
    {
        whole.nOffset += nOffset;
        whole.pType = &type;
        return nWhole;
    }
    const Node nPart =
        whole.IsValue() ? Append(MakeParent(ENode::Member, {nWhole}, &type)) : MakePlace(ENode::Member, {nWhole}, type);
    m_vNodes[nPart].nOffset = nOffset;
    return nPart;
}

CExpressionBuilder::Node CExpressionBuilder::MakeComponents(Node nVector, const std::string& strName)
{
    const SSourceType& type = *TypeOf(nVector);
    const std::vector<unsigned int> vParts = ReadComponents(strName, type.nCount);
    if (vParts.empty())
    {
        Refuse(type.strName + " has no component " + strName);
    }
    if (vParts.size() == 1)
    {
        return MakePart(nVector, vParts[0] * type.pElement->nSize, *type.pElement);
    }
    TakeValue(nVector);
    SExpressionNode node = MakeParent(ENode::Swizzle, {nVector}, &m_Types.MakeVector(*type.pElement, vParts.size()));
    node.vParts = vParts;
    return Append(std::move(node));
}

CExpressionBuilder::Node CExpressionBuilder::MakeMember(Node nWhole, const std::string& strName)
{
    if (TypeOf(nWhole) == nullptr)
    {
        Refuse("registers have no members");
    }
    const SSourceType& type = *TypeOf(nWhole);
    if (IsVector(type))
    {
        return MakeComponents(nWhole, strName);
    }
    for (const SSourceType::SMember& member : type.vMembers)
    {
        if (type.eKind == SSourceType::Struct && member.strName == strName)
        {
            return MakePart(nWhole, member.nOffset, *member.pType);
        }
    }
    Refuse(type.strName + " has no member " + strName + (IsPointer(type) ? "; it is a pointer, which -> follows" : ""));
}

CExpressionBuilder::Node CExpressionBuilder::MakeIndex(Node nWhole, Node nIndex)
{
    TakeValue(nIndex);
    if (TypeOf(nIndex) == nullptr)
    {
        Settle(nIndex, false);
    }
    if (!IsInteger(*TypeOf(nIndex)))
    {
        Refuse("an element's number is an integer, not " + TypeOf(nIndex)->strName);
    }
    if (TypeOf(nWhole) == nullptr)
    {
        Refuse("registers have no elements");
    }
    const SSourceType& type = *TypeOf(nWhole);
    if (IsPointer(type))
    {
        // TakeValue adds no node, so the pointer stays before its index.
        TakeValue(nWhole);
        return MakeDereference(MakeBinary(ENode::Add, nWhole, nIndex));
    }
    if ((type.eKind != SSourceType::Array && !IsVector(type)) || m_vNodes[nWhole].IsValue())
    {
        Refuse(type.strName + " has no elements");
    }
    if (m_vNodes[nIndex].eNode == ENode::Number && nIndex + 1 == m_vNodes.size())
    {
        int64_t nNumber = 0;
        std::memcpy(&nNumber, m_vNodes[nIndex].vConstant.data(), m_vNodes[nIndex].vConstant.size());
        m_vNodes.pop_back();
        if (static_cast<uint64_t>(nNumber) >= type.nCount)
        {
            Refuse(type.strName + " has no element " + std::to_string(nNumber));
        }
        return MakePart(nWhole, static_cast<size_t>(nNumber) * type.pElement->nSize, *type.pElement);
    }
    TakeAs(nIndex, GetIntegerType(true, 8));
    const Node nElement = MakePlace(ENode::Index, {nWhole, nIndex}, *type.pElement);
    m_vNodes[nElement].nScale = type.pElement->nSize;
    m_vNodes[nElement].nOffset = type.nCount;
    return nElement;
}

// ---------------------------------------------------------------------------------------- calls

CExpressionBuilder::Node CExpressionBuilder::MakeCall(const SBuiltIn& builtIn, const std::vector<Node>& vArguments)
{
    if (vArguments.size() != builtIn.nArguments)
    {
        Refuse(std::string(builtIn.pszName) + " takes " + std::to_string(builtIn.nArguments) + " argument" +
               (builtIn.nArguments == 1 ? "" : "s"));
    }
    SExpressionNode node = MakeParent(ENode::Call, vArguments, nullptr);
    node.pBuiltIn = &builtIn;
    if (builtIn.eKind == SBuiltIn::WorkItem)
    {
        const bool bDimensions = builtIn.nWhich == SBuiltIn::Dimensions;
        node.pType = bDimensions ? &GetIntegerType(false, 4) : &GetIntegerType(false, 8);
        if (!vArguments.empty())
        {
            RequireArithmetic(vArguments[0], builtIn.pszName);
            TakeAs(vArguments[0], GetIntegerType(false, 8));
        }
        return Append(std::move(node));
    }
    const bool bFloats = builtIn.eKind != SBuiltIn::Number && builtIn.eKind != SBuiltIn::Bits;
    const auto settle = [&](Node nArgument)
    {
        TakeValue(nArgument);
        if (TypeOf(nArgument) == nullptr)
        {
            Settle(nArgument, bFloats);
        }
    };
    std::for_each(vArguments.begin(), vArguments.end(), settle);
    const SSourceType* pCommon = &RequireArithmetic(vArguments[0], builtIn.pszName);
    for (const Node nArgument : vArguments)
    {
        // If all arguments have the same type, it isn't converted.
        pCommon = IsSameType(*pCommon, RequireArithmetic(nArgument, builtIn.pszName)) ? pCommon
                  : IsVector(*pCommon) && !IsVector(*TypeOf(nArgument))
                      ? pCommon
                      : &FindCommon(vArguments[0], nArgument, builtIn.pszName);
    }
    const SSourceType& scalar = ScalarOf(*pCommon);
    const bool bWidened = bFloats && !IsFloating(scalar);
    if ((builtIn.eKind == SBuiltIn::Bits && !IsInteger(scalar)) || (bWidened && IsVector(*pCommon)))
    {
        Refuse(std::string(builtIn.pszName) + " takes no " + pCommon->strName);
    }
    const bool bHalves = builtIn.eKind == SBuiltIn::Geometric && scalar.nSize == 2;
    const SSourceType& single = *FindScalarType("float");
    pCommon = bWidened                        ? FindScalarType("double")
              : bHalves && IsVector(*pCommon) ? &m_Types.MakeVector(single, pCommon->nCount)
              : bHalves                       ? &single
                                              : pCommon;
    for (const Node nArgument : vArguments)
    {
        TakeAs(nArgument, *pCommon);
    }
    const bool bGivesVector = builtIn.nWhich == SBuiltIn::Normalize || builtIn.nWhich == SBuiltIn::Cross;
    if (builtIn.eKind == SBuiltIn::Geometric && builtIn.nWhich == SBuiltIn::Cross &&
        (!IsVector(*pCommon) || pCommon->nCount < 3 || pCommon->nCount > 4))
    {
        Refuse("cross takes vectors of three or four, not " + pCommon->strName);
    }
    node.pType = builtIn.eKind == SBuiltIn::Test                         ? &TruthOf(*pCommon)
                 : builtIn.eKind == SBuiltIn::Geometric && !bGivesVector ? &ScalarOf(*pCommon)
                                                                         : pCommon;
    return Append(std::move(node));
}

} // namespace KestrelTool
