#include "tools/kestrel/debug/Expression.h"

#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/debug/ExpressionNode.h"
#include "tools/kestrel/debug/Format.h"

#include <algorithm>
#include <cmath>

namespace KestrelTool
{

namespace
{

void EvaluateFloat(const SExpressionNode& node, size_t nFirst, size_t nCount, double* pValues);
void EvaluateInt(const SExpressionNode& node, size_t nFirst, size_t nCount, int64_t* pValues);

size_t CoordinateOf(const SExpressionNode& node, size_t nItem)
{
    const SExtent& extent = *node.pExtent;
    const size_t position[3] = {nItem % extent.nGlobal[0], nItem / extent.nGlobal[0] % extent.nGlobal[1],
                                nItem / (extent.nGlobal[0] * extent.nGlobal[1])};
    if (node.nItem == 0)
    {
        return nItem;
    }
    const unsigned int nAxis = (node.nItem - 1) % 3;
    switch ((node.nItem - 1) / 3)
    {
    case 0:
        return position[nAxis];
    case 1:
        return position[nAxis] / extent.nLocal[nAxis];
    case 2:
        return position[nAxis] % extent.nLocal[nAxis];
    default:
        return node.active.pActive == nullptr || node.active.pActive[nItem] != 0;
    }
}

int64_t ReadInt(const SExpressionNode& node, size_t nItem)
{
    const unsigned int* pWords = node.values[nItem];
    const uint32_t nLow = pWords[node.operand.vComponents[0]];
    switch (node.eRead)
    {
    case ERead::Unsigned:
        return nLow;
    case ERead::Long:
        return static_cast<int64_t>(uint64_t(pWords[node.operand.vComponents[1]]) << 32 | nLow);
    default:
        return static_cast<int32_t>(nLow);
    }
}

double ReadFloat(const SExpressionNode& node, size_t nItem)
{
    const unsigned int* pWords = node.values[nItem];
    const uint32_t nLow = pWords[node.operand.vComponents[0]];
    return node.eRead == ERead::Double ? WordsToDouble(nLow, pWords[node.operand.vComponents[1]]) : WordToFloat(nLow);
}

int64_t Truncate(double fValue)
{
    const double fLimit = 9.2e18;
    return std::isnan(fValue) ? 0 : static_cast<int64_t>(std::clamp(fValue, -fLimit, fLimit));
}

template <typename T>
bool AreEqual(T left, T right)
{
    return left == right || (left != left && right != right);
}

template <typename T>
bool Compare(ENode eNode, T left, T right)
{
    switch (eNode)
    {
    case ENode::Less:
        return left < right;
    case ENode::LessEqual:
        return left <= right;
    case ENode::Greater:
        return left > right;
    case ENode::GreaterEqual:
        return left >= right;
    case ENode::Equal:
        return AreEqual(left, right);
    default:
        return !AreEqual(left, right);
    }
}

int64_t CombineInts(ENode eNode, int64_t nLeft, int64_t nRight)
{
    const uint64_t nUnsignedLeft = static_cast<uint64_t>(nLeft);
    const uint64_t nUnsignedRight = static_cast<uint64_t>(nRight);
    const bool bNoDivision = nRight == 0 || nRight == -1;
    switch (eNode)
    {
    case ENode::Add:
        return static_cast<int64_t>(nUnsignedLeft + nUnsignedRight);
    case ENode::Subtract:
        return static_cast<int64_t>(nUnsignedLeft - nUnsignedRight);
    case ENode::Multiply:
        return static_cast<int64_t>(nUnsignedLeft * nUnsignedRight);
    case ENode::Divide:
        return bNoDivision ? static_cast<int64_t>(nUnsignedLeft * nUnsignedRight) : nLeft / nRight;
    case ENode::Remainder:
        return bNoDivision ? 0 : nLeft % nRight;
    case ENode::ShiftLeft:
        return static_cast<int64_t>(nUnsignedLeft << (nUnsignedRight & 63));
    case ENode::ShiftRight:
        return nLeft >> (nUnsignedRight & 63);
    case ENode::BitAnd:
        return nLeft & nRight;
    case ENode::BitOr:
        return nLeft | nRight;
    case ENode::BitXor:
        return nLeft ^ nRight;
    case ENode::And:
        return nLeft != 0 && nRight != 0;
    case ENode::Or:
        return nLeft != 0 || nRight != 0;
    default:
        return Compare(eNode, nLeft, nRight);
    }
}

double CombineFloats(ENode eNode, double fLeft, double fRight)
{
    switch (eNode)
    {
    case ENode::Add:
        return fLeft + fRight;
    case ENode::Subtract:
        return fLeft - fRight;
    case ENode::Multiply:
        return fLeft * fRight;
    case ENode::Divide:
        return fLeft / fRight;
    default:
        return std::fmod(fLeft, fRight);
    }
}

bool HasFloatOperand(const SExpressionNode& node)
{
    return std::any_of(node.vChildren.begin(), node.vChildren.end(),
                       [](const auto& pChild) { return pChild->eValue == EValue::Float; });
}

void CompareFloats(const SExpressionNode& node, size_t nFirst, size_t nCount, int64_t* pValues)
{
    double left[CExpression::BlockSize];
    double right[CExpression::BlockSize];
    EvaluateFloat(*node.vChildren[0], nFirst, nCount, left);
    if (node.vChildren.size() == 1) // a negation: whether the value is 0
    {
        std::transform(left, left + nCount, pValues, [](double fValue) { return fValue == 0; });
        return;
    }
    EvaluateFloat(*node.vChildren[1], nFirst, nCount, right);
    for (size_t i = 0; i < nCount; ++i)
    {
        pValues[i] = node.eNode == ENode::And  ? left[i] != 0 && right[i] != 0
                     : node.eNode == ENode::Or ? left[i] != 0 || right[i] != 0
                                               : Compare(node.eNode, left[i], right[i]);
    }
}

void CombineInts(const SExpressionNode& node, size_t nFirst, size_t nCount, int64_t* pValues)
{
    int64_t right[CExpression::BlockSize] = {};
    EvaluateInt(*node.vChildren[0], nFirst, nCount, pValues);
    if (node.vChildren.size() == 2)
    {
        EvaluateInt(*node.vChildren[1], nFirst, nCount, right);
    }
    for (size_t i = 0; i < nCount; ++i)
    {
        switch (node.eNode)
        {
        case ENode::Negate:
            pValues[i] = static_cast<int64_t>(-static_cast<uint64_t>(pValues[i]));
            break;
        case ENode::Not:
            pValues[i] = pValues[i] == 0;
            break;
        case ENode::Complement:
            pValues[i] = ~pValues[i];
            break;
        case ENode::Convert:
            break;
        default:
            pValues[i] = CombineInts(node.eNode, pValues[i], right[i]);
            break;
        }
    }
}

void EvaluateInt(const SExpressionNode& node, size_t nFirst, size_t nCount, int64_t* pValues)
{
    if (node.eValue == EValue::Float || (node.eNode == ENode::Convert && HasFloatOperand(node)))
    {
        double values[CExpression::BlockSize];
        EvaluateFloat(node.eValue == EValue::Float ? node : *node.vChildren[0], nFirst, nCount, values);
        std::transform(values, values + nCount, pValues, Truncate);
        return;
    }
    switch (node.eNode)
    {
    case ENode::Number:
    case ENode::Any:
    case ENode::All:
    case ENode::Count:
        std::fill(pValues, pValues + nCount, node.nNumber);
        return;
    case ENode::Component:
        for (size_t i = 0; i < nCount; ++i)
        {
            pValues[i] = ReadInt(node, nFirst + i);
        }
        return;
    case ENode::Item:
        for (size_t i = 0; i < nCount; ++i)
        {
            pValues[i] = static_cast<int64_t>(CoordinateOf(node, nFirst + i));
        }
        return;
    default:
        if (HasFloatOperand(node))
        {
            CompareFloats(node, nFirst, nCount, pValues);
            return;
        }
        CombineInts(node, nFirst, nCount, pValues);
    }
}

void EvaluateFloat(const SExpressionNode& node, size_t nFirst, size_t nCount, double* pValues)
{
    if (node.eValue != EValue::Float)
    {
        int64_t values[CExpression::BlockSize];
        EvaluateInt(node, nFirst, nCount, values);
        std::copy(values, values + nCount, pValues);
        return;
    }
    switch (node.eNode)
    {
    case ENode::Number:
        std::fill(pValues, pValues + nCount, node.fNumber);
        return;
    case ENode::Component:
        for (size_t i = 0; i < nCount; ++i)
        {
            pValues[i] = ReadFloat(node, nFirst + i);
        }
        return;
    default:
        break;
    }
    double right[CExpression::BlockSize] = {};
    EvaluateFloat(*node.vChildren[0], nFirst, nCount, pValues);
    if (node.vChildren.size() == 2)
    {
        EvaluateFloat(*node.vChildren[1], nFirst, nCount, right);
    }
    if (node.eNode == ENode::Convert)
    {
        return;
    }
    for (size_t i = 0; i < nCount; ++i)
    {
        pValues[i] = node.eNode == ENode::Negate ? -pValues[i] : CombineFloats(node.eNode, pValues[i], right[i]);
    }
}

int64_t Aggregate(const SExpressionNode& node, size_t nItems)
{
    int64_t nTrue = 0;
    int64_t nAsked = 0;
    int64_t values[CExpression::BlockSize];
    for (size_t nFirst = 0; nFirst < nItems; nFirst += CExpression::BlockSize)
    {
        const size_t nCount = std::min(CExpression::BlockSize, nItems - nFirst);
        EvaluateInt(*node.vChildren[0], nFirst, nCount, values);
        for (size_t i = 0; i < nCount; ++i)
        {
            const bool bAsked =
                node.bAllItems || node.active.pActive == nullptr || node.active.pActive[nFirst + i] != 0;
            nAsked += bAsked;
            nTrue += bAsked && values[i] != 0;
        }
    }
    return node.eNode == ENode::Any ? nTrue != 0 : node.eNode == ENode::All ? nTrue == nAsked : nTrue;
}

void BindNode(SExpressionNode& node, IValueSource& source)
{
    for (const auto& pChild : node.vChildren)
    {
        BindNode(*pChild, source);
    }
    node.pExtent = &source.GetExtent();
    if (node.eNode == ENode::Component)
    {
        node.values = source.GetValues(node.operand.strRegister);
    }
    const bool bAggregate = node.eNode == ENode::Any || node.eNode == ENode::All || node.eNode == ENode::Count;
    if (bAggregate || node.eNode == ENode::Item)
    {
        node.active = source.GetActive();
    }
    if (bAggregate)
    {
        node.nNumber = Aggregate(node, source.GetExtent().Count());
    }
}

void CollectRegisters(const SExpressionNode& node, std::set<std::string>& registers)
{
    if (node.eNode == ENode::Component)
    {
        registers.insert(node.operand.strRegister);
    }
    for (const auto& pChild : node.vChildren)
    {
        CollectRegisters(*pChild, registers);
    }
}

} // namespace

std::string SOperand::ToString() const
{
    if (vComponents == std::vector<unsigned int>{0, 1, 2, 3})
    {
        return strRegister;
    }
    std::string strText = strRegister + ".";
    for (const unsigned int nComponent : vComponents)
    {
        strText += "xyzw"[nComponent];
    }
    return strText;
}

CExpression::CExpression(const std::string& strText) : m_strText(strText), m_pRoot(ParseExpression(strText))
{
    CollectRegisters(*m_pRoot, m_Registers);
    m_bOperand = m_pRoot->eNode == ENode::Component && !m_pRoot->bReadGiven;
    m_Operand = m_pRoot->operand;
    m_bTypeOpen = m_pRoot->eValue == EValue::Open;
}

CExpression::~CExpression() = default;
CExpression::CExpression(CExpression&&) noexcept = default;
CExpression& CExpression::operator=(CExpression&&) noexcept = default;

bool CExpression::IsFloat() const
{
    return m_pRoot->eValue == EValue::Float;
}

void CExpression::SetFloat(bool bFloat)
{
    SettleType(*m_pRoot, bFloat ? EValue::Float : EValue::Int);
}

void CExpression::Bind(IValueSource& source)
{
    BindNode(*m_pRoot, source);
}

void CExpression::Evaluate(size_t nFirst, size_t nCount, double* pValues) const
{
    EvaluateFloat(*m_pRoot, nFirst, nCount, pValues);
}

void CExpression::Evaluate(size_t nFirst, size_t nCount, int64_t* pValues) const
{
    EvaluateInt(*m_pRoot, nFirst, nCount, pValues);
}

std::string CExpression::Format(size_t nItem, bool bHex) const
{
    if (IsFloat())
    {
        double fValue = 0;
        Evaluate(nItem, 1, &fValue);
        return FormatFloat(fValue);
    }
    int64_t nValue = 0;
    Evaluate(nItem, 1, &nValue);
    return bHex ? FormatHex(static_cast<uint64_t>(nValue)) : std::to_string(nValue);
}

bool CExpression::IsTrue(size_t nItem) const
{
    if (IsFloat())
    {
        double fValue = 0;
        Evaluate(nItem, 1, &fValue);
        return fValue != 0;
    }
    int64_t nValue = 0;
    Evaluate(nItem, 1, &nValue);
    return nValue != 0;
}

} // namespace KestrelTool
