#include "tools/session/debug/Expression.h"

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Evaluator.h"
#include "tools/session/debug/Format.h"
#include "tools/source/CNumbers.h"

#include <algorithm>

namespace KestrelTool
{

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

CExpression::CExpression(const std::string& strText, IValueSource* pNames) : m_strText(strText)
{
    Parse(pNames);
    m_bTypeOpen = m_vNodes.back().pType == nullptr;
}

void CExpression::Parse(IValueSource* pNames)
{
    m_pKept = pNames != nullptr ? pNames->KeepTypes() : nullptr;
    m_pTypes = std::make_unique<CTypeStore>();
    m_vNodes = ParseExpression(m_strText, pNames, *m_pTypes);
    m_pEvaluator = std::make_unique<CEvaluator>(m_vNodes);
    m_Registers.clear();
    for (const SExpressionNode& node : m_vNodes)
    {
        if (node.eNode == ENode::Component)
        {
            m_Registers.insert(node.operand.strRegister);
        }
    }
    const SExpressionNode& root = m_vNodes.back();
    m_bOperand = root.eNode == ENode::Component && !root.bReadGiven;
    m_Operand = root.operand;
}

CExpression::~CExpression() = default;
CExpression::CExpression(CExpression&&) noexcept = default;
CExpression& CExpression::operator=(CExpression&&) noexcept = default;

bool CExpression::IsUniform() const
{
    return m_pEvaluator->IsUniform();
}

bool CExpression::IsFloat() const
{
    return GetType() != nullptr && IsFloating(ScalarOf(*GetType()));
}

bool CExpression::IsPlace() const
{
    return m_vNodes.back().bLoad;
}

bool CExpression::IsNumber() const
{
    return GetType() == nullptr || IsArithmetic(*GetType()) || IsPointer(*GetType());
}

const SSourceType* CExpression::GetType() const
{
    return m_vNodes.back().GetType();
}

void CExpression::SetFloat(bool bFloat)
{
    SettleType(m_vNodes, m_vNodes.size() - 1, bFloat);
}

void CExpression::Bind(IValueSource& source)
{
    const bool bNames = std::any_of(m_vNodes.begin(), m_vNodes.end(),
                                    [](const SExpressionNode& node)
                                    { return node.eNode == ENode::Variable || node.eNode == ENode::Element; });
    if (bNames)
    {
        Parse(&source); // a name may have another meaning than where the expression was parsed
    }
    SetFloat(false);
    m_pEvaluator->Bind(m_vNodes, source);
}

template <typename T>
void CExpression::EvaluateAs(size_t nFirst, size_t nCount, T* pValues)
{
    const SBlock& block = m_pEvaluator->Evaluate(m_vNodes, nFirst, nCount);
    if (!IsNumber())
    {
        throw CCommandError(m_strText + " is " + GetType()->strName + "; say which number of it");
    }
    VisitScalar(*GetType(),
                [&](auto zero)
                {
                    for (size_t n = 0; n < nCount; ++n)
                    {
                        pValues[n] = ConvertNumber<T>(LoadAs<decltype(zero)>(&block.vBytes[n * sizeof(zero)]));
                    }
                });
}

void CExpression::Evaluate(size_t nFirst, size_t nCount, double* pValues)
{
    EvaluateAs(nFirst, nCount, pValues);
}

void CExpression::Evaluate(size_t nFirst, size_t nCount, int64_t* pValues)
{
    EvaluateAs(nFirst, nCount, pValues);
}

void CExpression::RequireValue(size_t nLane) const
{
    m_pEvaluator->RequireValue(m_vNodes, m_pEvaluator->GetLast(), nLane);
}

bool CExpression::HasValue(size_t nLane) const
{
    return !m_pEvaluator->GetLast().bad[nLane];
}

bool CExpression::HasAllValues(size_t nCount) const
{
    return m_pEvaluator->HasAll(nCount);
}

SSourceValue CExpression::Read(size_t nItem)
{
    const SExpressionNode& root = m_vNodes.back();
    const SSourceType& type = *root.GetType();
    SSourceValue value{&type, {}, std::vector<bool>(type.nSize, true)};
    const SBlock& block = m_pEvaluator->Evaluate(m_vNodes, nItem, 1);
    value.vBytes.assign(block.vBytes.begin(), block.vBytes.begin() + static_cast<std::ptrdiff_t>(type.nSize));
    if (!block.bad[0] || root.eNode != ENode::Variable)
    {
        RequireValue(0);
        return value;
    }
    // Some bytes of a variable may be known and others not.
    for (size_t n = 0; n < type.nSize; ++n)
    {
        value.vKnown[n] =
            !root.pVariable->bMemory && ReadPieces(*root.pVariable, root.nOffset + n, nItem, &value.vBytes[n], 1);
    }
    return value;
}

std::string CExpression::Format(size_t nItem, bool bHex)
{
    const SSourceValue value = Read(nItem);
    return FormatValue(value, bHex ? EFormat::Hex : EFormat::Auto, nullptr);
}

bool CExpression::IsTrue(size_t nItem)
{
    double fValue = 0;
    Evaluate(nItem, 1, &fValue);
    RequireValue(0);
    return fValue != 0;
}

bool CExpression::HoldsForAny(IValueSource& source)
{
    if (IsUniform())
    {
        return IsTrue(source.GetFocus());
    }
    const SMaskView mask = source.GetActive();
    const size_t nItems = source.GetExtent().Count();
    bool bHolds = false;
    for (size_t nFirst = 0; nFirst < nItems; nFirst += BlockSize)
    {
        const size_t nCount = std::min(BlockSize, nItems - nFirst);
        double values[BlockSize];
        Evaluate(nFirst, nCount, values);
        for (size_t i = 0; i < nCount; ++i)
        {
            if (mask.pActive[nFirst + i] != 0)
            {
                RequireValue(i);
                bHolds = bHolds || values[i] != 0;
            }
        }
    }
    return bHolds;
}

} // namespace KestrelTool
