#include "tools/session/debug/Evaluator.h"

#include "tools/session/debug/Arithmetic.h"
#include "tools/session/debug/BuiltIns.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Format.h"
#include "tools/source/CNumbers.h"

#include <algorithm>
#include <cstring>

namespace KestrelTool
{

namespace
{

size_t CoordinateOf(const SExpressionNode& node, const SExtent& extent, size_t nItem)
{
    if (node.nItem == 0)
    {
        return nItem;
    }
    const size_t position[3] = {nItem % extent.nGlobal[0], nItem / extent.nGlobal[0] % extent.nGlobal[1],
                                nItem / (extent.nGlobal[0] * extent.nGlobal[1])};
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

/// Whether the node is "$gx" or similar.
bool NeedsLocalSize(const SExpressionNode& node)
{
    return node.eNode == ENode::Item && node.nItem >= 4 && node.nItem <= 9;
}

bool NeedsAddress(const SExpressionNode& node)
{
    return node.bDecay || node.eNode == ENode::Address;
}

/// One or two components, as the 64 bits of an integer or a double.
uint64_t ReadComponent(const SExpressionNode& node, size_t nItem)
{
    const unsigned int* const pWords = node.values[nItem];
    const uint32_t nLow = pWords[node.operand.vComponents[0]];
    double fValue = 0;
    switch (node.eRead)
    {
    case ERead::Unsigned:
        return nLow;
    case ERead::Long:
        return uint64_t(pWords[node.operand.vComponents[1]]) << 32 | nLow;
    case ERead::Int:
        return static_cast<uint64_t>(int64_t(static_cast<int32_t>(nLow)));
    case ERead::Float:
        fValue = WordToFloat(nLow);
        break;
    case ERead::Double:
        fValue = WordsToDouble(nLow, pWords[node.operand.vComponents[1]]);
        break;
    }
    uint64_t nBits;
    std::memcpy(&nBits, &fValue, sizeof(nBits));
    return nBits;
}

bool IsLaneTrue(const SExpressionNode& node, const SBlock& block, size_t nLane)
{
    const SSourceType& type = *node.GetType();
    return IsNumberTrue(type, &block.vBytes[nLane * type.nSize]);
}

} // namespace

CEvaluator::CEvaluator(const std::vector<SExpressionNode>& vNodes) : m_vMissing(CExpression::BlockSize)
{
    m_Order = MakeOrder(vNodes, vNodes.size() - 1);
    for (const size_t nNode : m_Order)
    {
        const SExpressionNode& node = vNodes[nNode];
        const bool bWorkItem = node.eNode == ENode::Call && node.pBuiltIn->eKind == SBuiltIn::WorkItem;
        m_bUniform = m_bUniform && !bWorkItem && node.eNode != ENode::Component && node.eNode != ENode::Item &&
                     node.eNode != ENode::Variable && node.eNode != ENode::Dereference &&
                     !(node.eNode == ENode::Element && node.elements.bPerGroup);
        if (node.IsAggregate())
        {
            m_mapAggregates[nNode] = MakeOrder(vNodes, node.vChildren[0]);
        }
    }
}

/// The nodes of an expression in order, without the operands of aggregates; enlarges the stack as needed.
CEvaluator::Order CEvaluator::MakeOrder(const std::vector<SExpressionNode>& vNodes, size_t nRoot)
{
    // Backwards, an aggregate comes before its operands.
    Order order;
    for (size_t nNode = nRoot + 1; nNode > vNodes[nRoot].nBegin;)
    {
        const SExpressionNode& node = vNodes[--nNode];
        order.push_back(nNode);
        nNode = node.IsAggregate() ? node.nBegin : nNode;
    }
    std::reverse(order.begin(), order.end());
    size_t nDepth = 0;
    size_t nMost = 0;
    for (const size_t nNode : order)
    {
        const size_t nTaken = vNodes[nNode].IsAggregate() ? 0 : vNodes[nNode].vChildren.size();
        nDepth += 1 - nTaken;
        nMost = std::max(nMost, nDepth);
    }
    m_vStack.resize(std::max(m_vStack.size(), nMost));
    return order;
}

void CEvaluator::Bind(std::vector<SExpressionNode>& vNodes, IValueSource& source)
{
    m_pSource = &source;
    m_Memory.Bind(source);
    for (size_t nNode = 0; nNode < vNodes.size(); ++nNode)
    {
        SExpressionNode& node = vNodes[nNode];
        if (node.eNode == ENode::Variable)
        {
            node.pVariable = m_Memory.FindVariable(node);
        }
        if (NeedsAddress(node) && vNodes[node.nRoot].pVariable && !vNodes[node.nRoot].pVariable->bMemory)
        {
            throw CCommandError(vNodes[node.nRoot].strVariable + " is in registers here, and has no address");
        }
        if (node.eNode == ENode::Component)
        {
            node.values = source.GetValues(node.operand.strRegister);
        }
        const bool bNeedsSize = NeedsLocalSize(node) || (node.eNode == ENode::Call && NeedsLocalSize(*node.pBuiltIn));
        if (bNeedsSize && !source.GetExtent().bLocalKnown)
        {
            throw CCommandError(
                (node.eNode == ENode::Item ? std::string("$") + g_ItemNames[node.nItem] : node.pBuiltIn->pszName) +
                " isn't known: the launch leaves the size of groups to the platform");
        }
        if (node.IsAggregate() || node.eNode == ENode::Item)
        {
            node.active = source.GetActive();
        }
        if (node.IsAggregate())
        {
            const int64_t nResult = Aggregate(vNodes, nNode, m_mapAggregates[nNode]);
            node.vConstant.resize(sizeof(nResult));
            std::memcpy(node.vConstant.data(), &nResult, sizeof(nResult));
        }
    }
}

int64_t CEvaluator::Aggregate(const std::vector<SExpressionNode>& vNodes, size_t nNode, const Order& order)
{
    const SExpressionNode& node = vNodes[nNode];
    const SExpressionNode& condition = vNodes[node.vChildren[0]];
    const size_t nItems = m_pSource->GetExtent().Count();
    int64_t nTrue = 0;
    int64_t nAsked = 0;
    for (size_t nFirst = 0; nFirst < nItems; nFirst += CExpression::BlockSize)
    {
        const size_t nCount = std::min(CExpression::BlockSize, nItems - nFirst);
        const SBlock& block = Run(vNodes, order, nFirst, nCount);
        for (size_t i = 0; i < nCount; ++i)
        {
            if (!node.bAllItems && node.active.pActive != nullptr && node.active.pActive[nFirst + i] == 0)
            {
                continue;
            }
            RequireValue(vNodes, block, i);
            ++nAsked;
            nTrue += IsLaneTrue(condition, block, i);
        }
    }
    return node.eNode == ENode::Any ? nTrue != 0 : node.eNode == ENode::All ? nTrue == nAsked : nTrue;
}

const SBlock& CEvaluator::Evaluate(const std::vector<SExpressionNode>& vNodes, size_t nFirst, size_t nCount)
{
    return Run(vNodes, m_Order, nFirst, nCount);
}

const SBlock& CEvaluator::Run(const std::vector<SExpressionNode>& vNodes, const Order& order, size_t nFirst,
                              size_t nCount)
{
    size_t nTop = 0;
    for (const size_t nNode : order)
    {
        const SExpressionNode& node = vNodes[nNode];
        nTop -= node.IsAggregate() ? 0 : node.vChildren.size();
        SBlock* const pBlocks = &m_vStack[nTop++];
        if (!node.bLoad || !LoadFromRegister(node, *pBlocks, nFirst, nCount))
        {
            Perform(vNodes, nNode, pBlocks, nFirst, nCount);
            if (node.bLoad)
            {
                Load(vNodes, nNode, *pBlocks, nFirst, nCount);
            }
        }
        Finish(node, *pBlocks, nCount);
    }
    return m_vStack.front();
}

/// Replaces the node's operands on the stack by its result.
void CEvaluator::Perform(const std::vector<SExpressionNode>& vNodes, size_t nNode, SBlock* pBlocks, size_t nFirst,
                         size_t nCount)
{
    const SExpressionNode& node = vNodes[nNode];
    const bool bLeaf = node.vChildren.empty() || node.IsAggregate();
    const SSourceType* const pOperand = bLeaf ? nullptr : vNodes[node.vChildren[0]].GetType();
    switch (node.eNode)
    {
    case ENode::Element:
        LoadElements(node, nNode, *pBlocks, nFirst, nCount);
        return;
    case ENode::Dereference:
        return;
    case ENode::Index:
    case ENode::Advance:
    case ENode::Distance:
        FindPlaces(node, nNode, pBlocks, nCount);
        return;
    case ENode::Member:
        if (node.bPlace)
        {
            FindPlaces(node, nNode, pBlocks, nCount);
            return;
        }
        break;
    case ENode::Call:
        Call(node, pOperand, pBlocks, nFirst, nCount);
        return;
    default:
        break;
    }
    if (bLeaf)
    {
        PushLeaf(node, *pBlocks, nFirst, nCount);
        return;
    }
    Compose(vNodes, node, pBlocks, nCount);
}

void CEvaluator::PushLeaf(const SExpressionNode& node, SBlock& block, size_t nFirst, size_t nCount)
{
    std::fill(block.bad, block.bad + nCount, false);
    if (node.eNode == ENode::Number || node.IsAggregate())
    {
        const size_t nSize = node.vConstant.size();
        block.vBytes.resize(nCount * nSize);
        for (size_t i = 0; i < nCount; ++i)
        {
            std::memcpy(&block.vBytes[i * nSize], node.vConstant.data(), nSize);
        }
        return;
    }
    block.vBytes.resize(nCount * sizeof(uint64_t));
    unsigned char* const pBytes = block.vBytes.data();
    const uint64_t nPlace =
        node.nOffset + (node.eNode == ENode::Variable && node.pVariable ? node.pVariable->nBase : 0);
    for (size_t i = 0; i < nCount; ++i)
    {
        StoreAs<uint64_t>(pBytes + i * sizeof(uint64_t),
                          node.eNode == ENode::Component ? ReadComponent(node, nFirst + i)
                          : node.eNode == ENode::Item    ? CoordinateOf(node, m_pSource->GetExtent(), nFirst + i)
                                                         : nPlace);
    }
}

void CEvaluator::Miss(SBlock& block, size_t nLane, size_t nNode, int64_t nNumber)
{
    m_vMissing[nLane] = block.bad[nLane] ? m_vMissing[nLane] : SMissing{nNode, nNumber};
    block.bad[nLane] = true;
}

void CEvaluator::Call(const SExpressionNode& node, const SSourceType* pArgument, SBlock* pBlocks, size_t nFirst,
                      size_t nCount)
{
    const SBuiltIn& builtIn = *node.pBuiltIn;
    if (pArgument == nullptr)
    {
        std::fill(pBlocks[0].bad, pBlocks[0].bad + nCount, false);
    }
    m_vScratch.resize(nCount * node.pType->nSize);
    for (size_t n = 1; n < node.vChildren.size(); ++n)
    {
        std::transform(pBlocks[0].bad, pBlocks[0].bad + nCount, pBlocks[n].bad, pBlocks[0].bad,
                       [](bool a, bool b) { return a || b; });
    }
    for (size_t i = 0; i < nCount && builtIn.eKind == SBuiltIn::WorkItem; ++i)
    {
        const uint64_t nDimension =
            pArgument != nullptr ? LoadAs<uint64_t>(&pBlocks[0].vBytes[i * sizeof(uint64_t)]) : 0;
        const uint64_t nValue = CallWorkItem(builtIn, m_pSource->GetExtent(), nFirst + i, nDimension);
        std::memcpy(&m_vScratch[i * node.pType->nSize], &nValue, node.pType->nSize);
    }
    if (builtIn.eKind != SBuiltIn::WorkItem)
    {
        const unsigned char* pArguments[3] = {};
        for (size_t n = 0; n < node.vChildren.size(); ++n)
        {
            pArguments[n] = pBlocks[n].vBytes.data();
        }
        CallBuiltIn(builtIn, *pArgument, pArguments, *node.pType, m_vScratch.data(), nCount);
    }
    pBlocks[0].vBytes.swap(m_vScratch);
}

/// Operators, and other nodes that combine values.
void CEvaluator::Compose(const std::vector<SExpressionNode>& vNodes, const SExpressionNode& node, SBlock* pBlocks,
                         size_t nCount)
{
    const SSourceType& operand = *vNodes[node.vChildren[0]].GetType();
    const size_t nSize = node.pType->nSize;
    const bool bLogic = node.eNode == ENode::And || node.eNode == ENode::Or;
    m_vScratch.resize(nCount * nSize);
    for (size_t n = 1; n < node.vChildren.size() && !bLogic && node.eNode != ENode::Choose; ++n)
    {
        std::transform(pBlocks[0].bad, pBlocks[0].bad + nCount, pBlocks[n].bad, pBlocks[0].bad,
                       [](bool a, bool b) { return a || b; });
    }
    const unsigned char* const pFirst = pBlocks[0].vBytes.data();
    switch (node.eNode)
    {
    case ENode::Convert:
        ConvertValues(operand, pFirst, *node.pType, m_vScratch.data(), nCount);
        break;
    case ENode::Address:
        ConvertNumbers(GetIntegerType(false, 8), pFirst, *node.pType, m_vScratch.data(), nCount);
        break;
    case ENode::Reread:
        std::memcpy(m_vScratch.data(), pFirst, nCount * nSize);
        break;
    case ENode::Negate:
    case ENode::Not:
    case ENode::Complement:
        ChangeNumbers(node, operand, pFirst, m_vScratch.data(), nCount);
        break;
    case ENode::Member:
        for (size_t i = 0; i < nCount; ++i)
        {
            std::memcpy(&m_vScratch[i * nSize], pFirst + i * operand.nSize + node.nOffset, nSize);
        }
        break;
    case ENode::Swizzle:
        std::fill(m_vScratch.begin(), m_vScratch.end(), static_cast<unsigned char>(0));
        for (size_t i = 0; i < nCount; ++i)
        {
            const size_t nElement = operand.pElement->nSize;
            for (size_t n = 0; n < node.vParts.size(); ++n)
            {
                std::memcpy(&m_vScratch[i * nSize + n * nElement],
                            pFirst + i * operand.nSize + node.vParts[n] * nElement, nElement);
            }
        }
        break;
    case ENode::Construct:
        std::fill(m_vScratch.begin(), m_vScratch.end(), static_cast<unsigned char>(0));
        for (size_t i = 0; i < nCount; ++i)
        {
            unsigned char* pTo = &m_vScratch[i * nSize];
            for (size_t n = 0; n < node.vChildren.size(); ++n)
            {
                const SSourceType& part = *vNodes[node.vChildren[n]].GetType();
                const size_t nBytes = (IsVector(part) ? part.nCount : 1) * ScalarOf(part).nSize;
                std::memcpy(pTo, &pBlocks[n].vBytes[i * part.nSize], nBytes);
                pTo += nBytes;
            }
        }
        break;
    case ENode::And:
    case ENode::Or:
        // The right side isn't evaluated if the left one decides the result.
        for (size_t i = 0; i < nCount; ++i)
        {
            const bool bLeft = IsLaneTrue(vNodes[node.vChildren[0]], pBlocks[0], i);
            const bool bSettled = bLeft == (node.eNode == ENode::Or);
            const bool bTrue = bSettled ? bLeft : IsLaneTrue(vNodes[node.vChildren[1]], pBlocks[1], i);
            pBlocks[0].bad[i] = pBlocks[0].bad[i] || (!bSettled && pBlocks[1].bad[i]);
            StoreAs(&m_vScratch[i * nSize], int32_t(bTrue));
        }
        break;
    case ENode::Choose:
        for (size_t i = 0; i < nCount; ++i)
        {
            const SBlock& chosen = pBlocks[IsLaneTrue(vNodes[node.vChildren[0]], pBlocks[0], i) ? 1 : 2];
            pBlocks[0].bad[i] = pBlocks[0].bad[i] || chosen.bad[i];
            std::memcpy(&m_vScratch[i * nSize], &chosen.vBytes[i * nSize], nSize);
        }
        break;
    default:
        CombineNumbers(node, operand, pFirst, pBlocks[1].vBytes.data(), m_vScratch.data(), nCount);
    }
    pBlocks[0].vBytes.swap(m_vScratch);
}

void CEvaluator::Finish(const SExpressionNode& node, SBlock& block, size_t nCount)
{
    if (node.pAs == nullptr)
    {
        return;
    }
    const SSourceType& from = node.bDecay ? GetIntegerType(false, 8) : *node.pType;
    m_vScratch.resize(nCount * node.pAs->nSize);
    ConvertValues(from, block.vBytes.data(), *node.pAs, m_vScratch.data(), nCount);
    block.vBytes.swap(m_vScratch);
}

void CEvaluator::RequireValue(const std::vector<SExpressionNode>& vNodes, const SBlock& block, size_t nLane) const
{
    if (!block.bad[nLane])
    {
        return;
    }
    const SMissing& missing = m_vMissing[nLane];
    const SExpressionNode& node = vNodes[missing.nNode];
    const std::string strNumber = std::to_string(missing.nNumber);
    switch (node.eNode)
    {
    case ENode::Element:
        throw CCommandError(node.elements.strName + "[" + strNumber + "] isn't there: " + node.elements.strName +
                            " has " + std::to_string(node.elements.nCount) + " elements");
    case ENode::Index:
        throw CCommandError(vNodes[node.vChildren[0]].pType->strName + " has no element " + strNumber);
    case ENode::Variable:
        throw CCommandError(node.strVariable + " is optimized out here");
    default:
        throw CCommandError("there is no " + node.pType->strName + " at " +
                            m_pSource->NameAddress(static_cast<uint64_t>(missing.nNumber)));
    }
}

} // namespace KestrelTool
