#include "tools/session/debug/ExpressionBuilder.h"

#include "tools/session/debug/CommandError.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace KestrelTool
{

namespace
{

const size_t s_nMaxBytes = 1 << 16; ///< of a value that is computed for all work-items

bool IsReference(const SSourceType& type)
{
    return IsArithmetic(type) || IsPointer(type);
}

} // namespace

void CExpressionBuilder::Refuse(const std::string& strWhy) const
{
    throw CCommandError(Explain(strWhy));
}

CExpressionBuilder::Node CExpressionBuilder::Append(SExpressionNode node)
{
    node.nBegin = node.vChildren.empty() ? m_vNodes.size() : m_vNodes[node.vChildren[0]].nBegin;
    m_vNodes.push_back(std::move(node));
    return m_vNodes.size() - 1;
}

SExpressionNode CExpressionBuilder::MakeParent(ENode eNode, const std::vector<Node>& vChildren,
                                               const SSourceType* pType) const
{
    SExpressionNode node;
    node.eNode = eNode;
    node.vChildren = vChildren;
    node.pType = pType;
    return node;
}

CExpressionBuilder::Node CExpressionBuilder::MakePlace(ENode eNode, const std::vector<Node>& vChildren,
                                                       const SSourceType& type)
{
    SExpressionNode node = MakeParent(eNode, vChildren, &type);
    node.bPlace = true;
    node.nRoot = eNode == ENode::Dereference ? m_vNodes.size() : m_vNodes[vChildren[0]].nRoot;
    return Append(std::move(node));
}

CExpressionBuilder::Node CExpressionBuilder::MakeConstant(const SSourceType& type, uint64_t nBits)
{
    SExpressionNode node;
    node.pType = &type;
    node.vConstant.resize(type.nSize);
    std::memcpy(node.vConstant.data(), &nBits, std::min(type.nSize, sizeof(nBits)));
    return Append(std::move(node));
}

CExpressionBuilder::Node CExpressionBuilder::MakeDouble(double fValue)
{
    uint64_t nBits;
    std::memcpy(&nBits, &fValue, sizeof(nBits));
    return MakeConstant(*FindScalarType("double"), nBits);
}

CExpressionBuilder::Node CExpressionBuilder::MakeVariable(const SSourceVariable& variable)
{
    SExpressionNode node;
    node.eNode = ENode::Variable;
    node.pType = variable.pType;
    node.strVariable = variable.strName;
    node.pWhole = variable.pType;
    node.bPlace = true;
    node.eSpace = !variable.vPieces.empty() && variable.vPieces[0].ePlace == SValuePiece::Local
                      ? SSourceType::LocalSpace
                      : SSourceType::PrivateSpace;
    node.nRoot = m_vNodes.size();
    return Append(std::move(node));
}

// ---------------------------------------------------------------------------------------- values

void CExpressionBuilder::TakeValue(Node nNode)
{
    if (m_vNodes[nNode].IsValue())
    {
        return;
    }
    const SSourceType& type = *TypeOf(nNode);
    if (type.eKind == SSourceType::Array && type.nSize > s_nMaxBytes)
    {
        Refuse(type.strName + " is larger than what can be computed with");
    }
    if (type.nSize == 0)
    {
        Refuse(type.strName + " has no value");
    }
    m_vNodes[nNode].bLoad = true;
}

void CExpressionBuilder::TakeOperand(Node nNode)
{
    SExpressionNode& node = m_vNodes[nNode];
    if (node.IsValue() || node.pType->eKind != SSourceType::Array)
    {
        return TakeValue(nNode);
    }
    node.bDecay = true;
    node.pAs = &m_Types.MakePointer(*node.pType->pElement, m_vNodes[node.nRoot].eSpace);
}

void CExpressionBuilder::TakeAs(Node nNode, const SSourceType& type)
{
    SExpressionNode& node = m_vNodes[nNode];
    if (node.pType == nullptr)
    {
        Settle(nNode, IsFloating(ScalarOf(type)));
    }
    if (node.pType != &type || node.bDecay)
    {
        node.pAs = &type;
    }
}

void CExpressionBuilder::TakeCondition(Node nNode)
{
    TakeOperand(nNode);
    if (TypeOf(nNode) == nullptr)
    {
        Settle(nNode, false);
    }
    if (!IsReference(*TypeOf(nNode)))
    {
        Refuse("a condition is a number, not " + TypeOf(nNode)->strName);
    }
}

/// Requires numbers or vectors of numbers, and determines their type.
const SSourceType& CExpressionBuilder::RequireArithmetic(Node nNode, const char* pszWhat)
{
    TakeValue(nNode);
    if (TypeOf(nNode) == nullptr)
    {
        Settle(nNode, false);
    }
    const SSourceType& type = *TypeOf(nNode);
    if (!IsArithmetic(ScalarOf(type)))
    {
        Refuse(std::string(pszWhat) + " takes numbers, not " + type.strName);
    }
    return type;
}

void CExpressionBuilder::SettleBeside(Node nOpen, const SSourceType& other)
{
    Settle(nOpen, IsFloating(ScalarOf(other)));
}

/// The common type of two operands; a vector type if one of them is a vector.
const SSourceType& CExpressionBuilder::FindCommon(Node nLeft, Node nRight, const char* pszWhat)
{
    const SSourceType& left = RequireArithmetic(nLeft, pszWhat);
    const SSourceType& right = RequireArithmetic(nRight, pszWhat);
    if (!IsVector(left) && !IsVector(right))
    {
        return FindCommonType(left, right);
    }
    if (IsVector(left) && IsVector(right) && !IsSameType(left, right))
    {
        Refuse(left.strName + " and " + right.strName + " don't go together; convert_" + left.strName + "() converts");
    }
    return IsVector(left) ? left : right;
}

/// The type of a comparison's result: int, or for vectors integers of the same size.
const SSourceType& CExpressionBuilder::TruthOf(const SSourceType& type)
{
    return IsVector(type) ? m_Types.MakeVector(GetIntegerType(true, type.pElement->nSize), type.nCount)
                          : GetIntegerType(true, 4);
}

// ---------------------------------------------------------------------------------------- operators

CExpressionBuilder::Node CExpressionBuilder::MakeUnary(ENode eNode, Node nChild)
{
    TakeOperand(nChild);
    const SSourceType* pType = TypeOf(nChild);
    if (pType == nullptr && eNode == ENode::Negate)
    {
        return Append(MakeParent(eNode, {nChild}, nullptr));
    }
    if (eNode == ENode::Not && (pType == nullptr || !IsVector(*pType)))
    {
        TakeCondition(nChild);
        return Append(MakeParent(eNode, {nChild}, &GetIntegerType(true, 4)));
    }
    const SSourceType& type = RequireArithmetic(nChild, eNode == ENode::Complement ? "~" : "an operator");
    if (eNode == ENode::Complement && !IsInteger(ScalarOf(type)))
    {
        Refuse("~ takes integers, not " + type.strName);
    }
    if (eNode == ENode::Not)
    {
        return Append(MakeParent(eNode, {nChild}, &TruthOf(type)));
    }
    const SSourceType& result = Promote(type);
    TakeAs(nChild, result);
    return Append(MakeParent(eNode, {nChild}, &result));
}

CExpressionBuilder::Node CExpressionBuilder::MakePlus(Node nChild)
{
    TakeOperand(nChild);
    return TypeOf(nChild) == nullptr
               ? nChild
               : Append(MakeParent(ENode::Convert, {nChild}, &Promote(RequireArithmetic(nChild, "+"))));
}

CExpressionBuilder::Node CExpressionBuilder::MakeBinary(ENode eNode, Node nLeft, Node nRight)
{
    if (eNode == ENode::And || eNode == ENode::Or)
    {
        TakeCondition(nLeft);
        TakeCondition(nRight);
        return Append(MakeParent(eNode, {nLeft, nRight}, &GetIntegerType(true, 4)));
    }
    TakeOperand(nLeft);
    TakeOperand(nRight);
    const SSourceType* const pLeft = TypeOf(nLeft);
    const SSourceType* const pRight = TypeOf(nRight);
    if (pLeft == nullptr && pRight == nullptr && !IsBitwise(eNode) && !IsComparison(eNode))
    {
        return Append(MakeParent(eNode, {nLeft, nRight}, nullptr));
    }
    if (pLeft == nullptr && pRight != nullptr && !IsBitwise(eNode))
    {
        SettleBeside(nLeft, *pRight);
    }
    if (pRight == nullptr && pLeft != nullptr && !IsBitwise(eNode))
    {
        SettleBeside(nRight, *pLeft);
    }
    if (const std::optional<Node> nPointer = MakePointerOperation(eNode, nLeft, nRight))
    {
        return *nPointer;
    }
    return eNode == ENode::ShiftLeft || eNode == ENode::ShiftRight ? MakeShift(eNode, nLeft, nRight)
                                                                   : MakeArithmetic(eNode, nLeft, nRight);
}

CExpressionBuilder::Node CExpressionBuilder::MakeArithmetic(ENode eNode, Node nLeft, Node nRight)
{
    const SSourceType& common = FindCommon(nLeft, nRight, "an operator");
    const SSourceType& scalar = ScalarOf(common);
    if ((IsBitwise(eNode) || eNode == ENode::Remainder) && !IsInteger(scalar))
    {
        Refuse(std::string(eNode == ENode::Remainder ? "%" : "this operator") + " takes integers, not " +
               common.strName);
    }
    // Halves are computed as floats, then rounded.
    const bool bHalf = IsFloating(scalar) && scalar.nSize == 2;
    const SSourceType& single = *FindScalarType("float");
    const SSourceType& computed = !bHalf             ? common
                                  : IsVector(common) ? m_Types.MakeVector(single, common.nCount)
                                                     : single;
    const bool bNaN = m_vNodes[nLeft].bNaN || m_vNodes[nRight].bNaN;
    TakeAs(nLeft, computed);
    TakeAs(nRight, computed);
    SExpressionNode node = MakeParent(eNode, {nLeft, nRight}, IsComparison(eNode) ? &TruthOf(common) : &common);
    node.bNaNsEqual = bNaN || &common == &g_RegisterFloat;
    return Append(std::move(node));
}

CExpressionBuilder::Node CExpressionBuilder::MakeShift(ENode eNode, Node nLeft, Node nRight)
{
    const SSourceType& left = RequireArithmetic(nLeft, "a shift");
    const SSourceType& right = RequireArithmetic(nRight, "a shift");
    const bool bFits = !IsVector(right) || (IsVector(left) && left.nCount == right.nCount);
    if (!IsInteger(ScalarOf(left)) || !IsInteger(ScalarOf(right)) || !bFits)
    {
        Refuse(left.strName + " can't be shifted by " + right.strName);
    }
    const SSourceType& result = Promote(left);
    TakeAs(nLeft, result);
    TakeAs(nRight, result);
    return Append(MakeParent(eNode, {nLeft, nRight}, &result));
}

size_t CExpressionBuilder::RequireElementSize(const SSourceType& pointer) const
{
    if (pointer.pElement->nSize == 0)
    {
        Refuse("what " + pointer.strName + " points to has no size");
    }
    return pointer.pElement->nSize;
}

std::optional<CExpressionBuilder::Node> CExpressionBuilder::MakePointerOperation(ENode eNode, Node nLeft, Node nRight)
{
    if (TypeOf(nLeft) == nullptr || TypeOf(nRight) == nullptr ||
        (!IsPointer(*TypeOf(nLeft)) && !IsPointer(*TypeOf(nRight))))
    {
        return std::nullopt;
    }
    const SSourceType left = *TypeOf(nLeft);
    const SSourceType right = *TypeOf(nRight);
    if (!(IsPointer(left) || IsInteger(left)) || !(IsPointer(right) || IsInteger(right)))
    {
        Refuse(left.strName + " and " + right.strName + " don't go together");
    }
    const SSourceType& address = GetIntegerType(false, 8);
    const bool bBoth = IsPointer(left) && IsPointer(right);
    if (IsComparison(eNode))
    {
        TakeAs(nLeft, address);
        TakeAs(nRight, address);
        return Append(MakeParent(eNode, {nLeft, nRight}, &GetIntegerType(true, 4)));
    }
    if (eNode == ENode::Subtract && bBoth)
    {
        SExpressionNode node = MakeParent(ENode::Distance, {nLeft, nRight}, &GetIntegerType(true, 8));
        node.nScale = RequireElementSize(left);
        TakeAs(nLeft, address);
        TakeAs(nRight, address);
        return Append(std::move(node));
    }
    const bool bGood = !bBoth && (eNode == ENode::Add || (eNode == ENode::Subtract && IsPointer(left)));
    if (!bGood)
    {
        Refuse("pointers are added to, subtracted and compared, and nothing else");
    }
    // On the stack, the operands are in the order of the source.
    SExpressionNode node = MakeParent(ENode::Advance, {nLeft, nRight}, TypeOf(IsPointer(left) ? nLeft : nRight));
    node.nScale = RequireElementSize(IsPointer(left) ? left : right);
    node.nScale = eNode == ENode::Subtract ? ~node.nScale + 1 : node.nScale;
    node.nOffset = IsPointer(left) ? 0 : 1; // which child is the pointer
    TakeAs(nLeft, IsPointer(left) ? address : GetIntegerType(true, 8));
    TakeAs(nRight, IsPointer(right) ? address : GetIntegerType(true, 8));
    return Append(std::move(node));
}

CExpressionBuilder::Node CExpressionBuilder::MakeChoice(Node nCondition, Node nTrue, Node nFalse)
{
    TakeCondition(nCondition);
    TakeOperand(nTrue);
    TakeOperand(nFalse);
    const SSourceType* const pTrue = TypeOf(nTrue);
    const SSourceType* const pFalse = TypeOf(nFalse);
    if (pTrue == nullptr && pFalse == nullptr)
    {
        Settle(nTrue, false);
        Settle(nFalse, false);
    }
    else if (pTrue == nullptr)
    {
        SettleBeside(nTrue, *pFalse);
    }
    else if (pFalse == nullptr)
    {
        SettleBeside(nFalse, *pTrue);
    }
    const SSourceType& left = *TypeOf(nTrue);
    const SSourceType& right = *TypeOf(nFalse);
    const SSourceType* pResult = &left;
    if (IsArithmetic(ScalarOf(left)) && IsArithmetic(ScalarOf(right)))
    {
        pResult = &FindCommon(nTrue, nFalse, "?:");
        TakeAs(nTrue, *pResult);
        TakeAs(nFalse, *pResult);
    }
    else if (IsPointer(left) && IsInteger(right))
    {
        TakeAs(nFalse, left);
    }
    else if (IsPointer(right) && IsInteger(left))
    {
        pResult = &right;
        TakeAs(nTrue, right);
    }
    else if (!IsSameType(left, right))
    {
        Refuse("?: can't choose between " + left.strName + " and " + right.strName);
    }
    return Append(MakeParent(ENode::Choose, {nCondition, nTrue, nFalse}, pResult));
}

// ---------------------------------------------------------------------------------------- conversions

CExpressionBuilder::Node CExpressionBuilder::MakeConversion(Node nChild, const SSourceType& type)
{
    TakeOperand(nChild);
    if (TypeOf(nChild) == nullptr)
    {
        Settle(nChild, false);
    }
    const SSourceType& from = *TypeOf(nChild);
    const bool bNumbers = IsArithmetic(ScalarOf(from)) && IsArithmetic(ScalarOf(type)) &&
                          (!IsVector(from) || (IsVector(type) && from.nCount == type.nCount));
    const bool bPointers =
        (IsPointer(type) && (IsPointer(from) || IsInteger(from))) || (IsPointer(from) && IsInteger(type));
    if (!bNumbers && !bPointers && !IsSameType(from, type))
    {
        Refuse(from.strName + " can't be made " + type.strName);
    }
    // A pointer type without an address space keeps the operand's; a 64-bit number is an address in global memory.
    const bool bBare = IsPointer(type) && type.eSpace == SSourceType::PrivateSpace;
    const auto eSpace = IsPointer(from)   ? from.eSpace
                        : from.nSize == 8 ? SSourceType::GlobalSpace
                                          : SSourceType::PrivateSpace;
    return Append(MakeParent(ENode::Convert, {nChild}, bBare ? &m_Types.MakePointer(*type.pElement, eSpace) : &type));
}

CExpressionBuilder::Node CExpressionBuilder::MakeReread(Node nChild, const SSourceType& type)
{
    const SSourceType& from = RequireArithmetic(nChild, ("as_" + type.strName).c_str());
    if (from.nSize != type.nSize)
    {
        Refuse(from.strName + " hasn't the size of " + type.strName);
    }
    return Append(MakeParent(ENode::Reread, {nChild}, &type));
}

CExpressionBuilder::Node CExpressionBuilder::MakeVector(const SSourceType& type, const std::vector<Node>& vParts)
{
    size_t nNumbers = 0;
    for (const Node nPart : vParts)
    {
        TakeValue(nPart);
        if (TypeOf(nPart) == nullptr)
        {
            SettleBeside(nPart, type);
        }
        const SSourceType& part = RequireArithmetic(nPart, type.strName.c_str());
        const size_t nCount = IsVector(part) ? part.nCount : 1;
        TakeAs(nPart, IsVector(part) ? m_Types.MakeVector(*type.pElement, nCount) : *type.pElement);
        nNumbers += nCount;
    }
    if (vParts.size() == 1 && nNumbers == 1)
    {
        return Append(MakeParent(ENode::Convert, vParts, &type));
    }
    if (nNumbers != type.nCount)
    {
        Refuse(type.strName + " is made of " + std::to_string(type.nCount) + " numbers, not of " +
               std::to_string(nNumbers));
    }
    return Append(MakeParent(ENode::Construct, vParts, &type));
}

} // namespace KestrelTool
