#include "tools/kestrel/debug/Expression.h"

#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/debug/Evaluator.h"
#include "tools/kestrel/debug/Format.h"

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

CExpression::CExpression(const std::string& strText, IValueSource* pNames)
    : m_strText(strText), m_vNodes(ParseExpression(strText, pNames)),
      m_pEvaluator(std::make_unique<CEvaluator>(m_vNodes))
{
    for (const SExpressionNode& node : m_vNodes)
    {
        if (node.eNode == ENode::Component && node.strVariable.empty())
        {
            m_Registers.insert(node.operand.strRegister);
        }
    }
    const SExpressionNode& root = m_vNodes.back();
    m_bOperand = root.eNode == ENode::Component && !root.bReadGiven;
    m_Operand = root.operand;
    m_bTypeOpen = root.eValue == EValue::Open;
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
    return m_vNodes.back().eValue == EValue::Float;
}

void CExpression::SetFloat(bool bFloat)
{
    SettleType(m_vNodes, m_vNodes.size() - 1, bFloat ? EValue::Float : EValue::Int);
}

void CExpression::Bind(IValueSource& source)
{
    m_pEvaluator->Bind(m_vNodes, source);
}

void CExpression::Evaluate(size_t nFirst, size_t nCount, double* pValues)
{
    SLanes& lanes = m_pEvaluator->Evaluate(m_vNodes, nFirst, nCount);
    lanes.MakeFloat(nCount);
    std::copy(lanes.floats, lanes.floats + nCount, pValues);
}

void CExpression::Evaluate(size_t nFirst, size_t nCount, int64_t* pValues)
{
    SLanes& lanes = m_pEvaluator->Evaluate(m_vNodes, nFirst, nCount);
    lanes.MakeInt(nCount);
    std::copy(lanes.ints, lanes.ints + nCount, pValues);
}

void CExpression::RequireValue(size_t nLane) const
{
    m_pEvaluator->RequireValue(m_vNodes, m_pEvaluator->GetLast(), nLane);
}

std::string CExpression::Format(size_t nItem, bool bHex)
{
    const SLanes& lanes = m_pEvaluator->Evaluate(m_vNodes, nItem, 1);
    RequireValue(0);
    if (lanes.bFloat)
    {
        return FormatFloat(lanes.floats[0]);
    }
    return bHex ? FormatHex(static_cast<uint64_t>(lanes.ints[0])) : std::to_string(lanes.ints[0]);
}

bool CExpression::IsTrue(size_t nItem)
{
    const SLanes& lanes = m_pEvaluator->Evaluate(m_vNodes, nItem, 1);
    RequireValue(0);
    return lanes.IsTrue(0);
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
        const SLanes& lanes = m_pEvaluator->Evaluate(m_vNodes, nFirst, nCount);
        for (size_t i = 0; i < nCount; ++i)
        {
            if (mask.pActive[nFirst + i] != 0)
            {
                RequireValue(i);
                bHolds = bHolds || lanes.IsTrue(i);
            }
        }
    }
    return bHolds;
}

} // namespace KestrelTool
