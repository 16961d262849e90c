#include "tools/kestrel/debug/Evaluator.h"

#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/debug/Format.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace KestrelTool
{

namespace
{

const uint64_t s_nPieceBytes = 1 << 16;

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

/// "$gx" and its kind.
bool NeedsLocalSize(const SExpressionNode& node)
{
    return node.eNode == ENode::Item && node.nItem >= 4 && node.nItem <= 9;
}

int64_t ReadInt(const SExpressionNode& node, size_t nItem)
{
    const unsigned int* pWords = node.values[nItem];
    const uint32_t nLow = pWords[node.operand.vComponents[0]];
    const unsigned int nUnused = node.nBytes < 4 ? 32 - 8 * static_cast<unsigned int>(node.nBytes) : 0;
    switch (node.eRead)
    {
    case ERead::Unsigned:
        return nLow << nUnused >> nUnused;
    case ERead::Long:
        return static_cast<int64_t>(uint64_t(pWords[node.operand.vComponents[1]]) << 32 | nLow);
    default:
        return static_cast<int32_t>(nLow << nUnused) >> nUnused;
    }
}

/// Where a variable is at this stop.
void FindPlace(SExpressionNode& node, IValueSource& source)
{
    const std::optional<SVariableWords> words = source.FindVariable(node.strVariable, true);
    if (!words || words->nSize != node.nBytes)
    {
        throw CCommandError("there is no " + node.strVariable + " here, or one of another type");
    }
    node.operand.strRegister = words->strRegister;
    node.operand.vComponents = words->vComponents;
}

double ReadFloat(const SExpressionNode& node, size_t nItem)
{
    const unsigned int* pWords = node.values[nItem];
    const uint32_t nLow = pWords[node.operand.vComponents[0]];
    return node.eRead == ERead::Double ? WordsToDouble(nLow, pWords[node.operand.vComponents[1]]) : WordToFloat(nLow);
}

/// An integer element's bits, extended as its type says.
int64_t LoadInteger(const SElementType& type, const unsigned char* pElement)
{
    uint64_t nBits = 0;
    std::memcpy(&nBits, pElement, type.nSize);
    const unsigned int nUnused = 64 - 8 * static_cast<unsigned int>(type.nSize);
    const uint64_t nHigh = nBits << nUnused;
    return type.eKind == SElementType::Signed ? static_cast<int64_t>(nHigh) >> nUnused
                                              : static_cast<int64_t>(nHigh >> nUnused);
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

/// && and ||: the right side isn't asked where the left one has settled the answer.
void CombineLogic(const SExpressionNode& node, SLanes& left, const SLanes& right, size_t nCount)
{
    const bool bOr = node.eNode == ENode::Or;
    for (size_t i = 0; i < nCount; ++i)
    {
        const bool bLeft = left.IsTrue(i);
        const bool bSettled = bLeft == bOr;
        left.bad[i] = left.bad[i] || (!bSettled && right.bad[i]);
        left.ints[i] = bSettled ? bOr : right.IsTrue(i);
    }
    left.bFloat = false;
}

void Combine(const SExpressionNode& node, SLanes& left, SLanes& right, size_t nCount)
{
    if (node.eNode == ENode::And || node.eNode == ENode::Or)
    {
        CombineLogic(node, left, right, nCount);
        return;
    }
    std::transform(left.bad, left.bad + nCount, right.bad, left.bad, [](bool a, bool b) { return a || b; });
    const bool bCompares = IsComparison(node.eNode);
    const bool bFloats = node.eValue == EValue::Float || (bCompares && (left.bFloat || right.bFloat));
    if (!bFloats)
    {
        left.MakeInt(nCount);
        right.MakeInt(nCount);
        for (size_t i = 0; i < nCount; ++i)
        {
            left.ints[i] = CombineInts(node.eNode, left.ints[i], right.ints[i]);
        }
        return;
    }
    left.MakeFloat(nCount);
    right.MakeFloat(nCount);
    for (size_t i = 0; i < nCount; ++i)
    {
        if (bCompares)
        {
            left.ints[i] = Compare(node.eNode, left.floats[i], right.floats[i]);
        }
        else
        {
            left.floats[i] = CombineFloats(node.eNode, left.floats[i], right.floats[i]);
        }
    }
    left.bFloat = !bCompares;
}

void Change(const SExpressionNode& node, SLanes& lanes, size_t nCount)
{
    if (node.eNode == ENode::Not)
    {
        for (size_t i = 0; i < nCount; ++i)
        {
            lanes.ints[i] = !lanes.IsTrue(i);
        }
        lanes.bFloat = false;
        return;
    }
    if (node.eValue == EValue::Float)
    {
        lanes.MakeFloat(nCount);
    }
    else
    {
        lanes.MakeInt(nCount);
    }
    for (size_t i = 0; i < nCount && node.eNode != ENode::Convert; ++i)
    {
        if (lanes.bFloat)
        {
            lanes.floats[i] = -lanes.floats[i];
        }
        else
        {
            lanes.ints[i] = node.eNode == ENode::Complement
                                ? ~lanes.ints[i]
                                : static_cast<int64_t>(-static_cast<uint64_t>(lanes.ints[i]));
        }
    }
}

} // namespace

void SLanes::MakeFloat(size_t nCount)
{
    for (size_t i = 0; i < nCount && !bFloat; ++i)
    {
        floats[i] = static_cast<double>(ints[i]);
    }
    bFloat = true;
}

void SLanes::MakeInt(size_t nCount)
{
    for (size_t i = 0; i < nCount && bFloat; ++i)
    {
        ints[i] = Truncate(floats[i]);
    }
    bFloat = false;
}

CEvaluator::CEvaluator(const std::vector<SExpressionNode>& vNodes) : m_vMissing(CExpression::BlockSize)
{
    m_Order = MakeOrder(vNodes, vNodes.size() - 1);
    for (const size_t nNode : m_Order)
    {
        const SExpressionNode& node = vNodes[nNode];
        m_bUniform = m_bUniform && node.eNode != ENode::Component && node.eNode != ENode::Item &&
                     !(node.eNode == ENode::Element && node.elements.bPerGroup);
        if (node.IsAggregate())
        {
            m_mapAggregates[nNode] = MakeOrder(vNodes, node.children[0]);
        }
    }
}

/// The nodes that make up one, without what aggregates in it are made of; the stack gets the room that they need.
CEvaluator::Order CEvaluator::MakeOrder(const std::vector<SExpressionNode>& vNodes, size_t nRoot)
{
    // From the back, an aggregate comes in front of what it is made of.
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
        const size_t nTaken = vNodes[nNode].IsAggregate() ? 0 : vNodes[nNode].nChildren;
        nDepth += 1 - nTaken;
        nMost = std::max(nMost, nDepth);
    }
    m_vStack.resize(std::max(m_vStack.size(), nMost));
    return order;
}

void CEvaluator::Bind(std::vector<SExpressionNode>& vNodes, IValueSource& source)
{
    m_pSource = &source;
    m_mapPieces.clear();
    for (size_t nNode = 0; nNode < vNodes.size(); ++nNode)
    {
        SExpressionNode& node = vNodes[nNode];
        if (!node.strVariable.empty())
        {
            FindPlace(node, source);
        }
        if (node.eNode == ENode::Component)
        {
            node.values = source.GetValues(node.operand.strRegister);
        }
        if (NeedsLocalSize(node) && !source.GetExtent().bLocalKnown)
        {
            throw CCommandError(std::string("$") + g_ItemNames[node.nItem] +
                                " isn't known: the launch leaves the size of groups to the platform");
        }
        if (node.IsAggregate() || node.eNode == ENode::Item)
        {
            node.active = source.GetActive();
        }
        if (node.IsAggregate())
        {
            node.nNumber = Aggregate(vNodes, node, m_mapAggregates[nNode]);
        }
    }
}

int64_t CEvaluator::Aggregate(const std::vector<SExpressionNode>& vNodes, const SExpressionNode& node,
                              const Order& order)
{
    const size_t nItems = m_pSource->GetExtent().Count();
    int64_t nTrue = 0;
    int64_t nAsked = 0;
    for (size_t nFirst = 0; nFirst < nItems; nFirst += CExpression::BlockSize)
    {
        const size_t nCount = std::min(CExpression::BlockSize, nItems - nFirst);
        const SLanes& lanes = Run(vNodes, order, nFirst, nCount);
        for (size_t i = 0; i < nCount; ++i)
        {
            if (!node.bAllItems && node.active.pActive != nullptr && node.active.pActive[nFirst + i] == 0)
            {
                continue;
            }
            RequireValue(vNodes, lanes, i);
            ++nAsked;
            nTrue += lanes.IsTrue(i);
        }
    }
    return node.eNode == ENode::Any ? nTrue != 0 : node.eNode == ENode::All ? nTrue == nAsked : nTrue;
}

SLanes& CEvaluator::Evaluate(const std::vector<SExpressionNode>& vNodes, size_t nFirst, size_t nCount)
{
    return Run(vNodes, m_Order, nFirst, nCount);
}

SLanes& CEvaluator::Run(const std::vector<SExpressionNode>& vNodes, const Order& order, size_t nFirst, size_t nCount)
{
    size_t nTop = 0;
    for (const size_t nNode : order)
    {
        const SExpressionNode& node = vNodes[nNode];
        if (node.nChildren == 0 || node.IsAggregate())
        {
            PushLeaf(node, m_vStack[nTop++], nFirst, nCount);
        }
        else if (node.eNode == ENode::Element)
        {
            LoadElements(node, nNode, m_vStack[nTop - 1], nFirst, nCount);
        }
        else if (node.nChildren == 1)
        {
            Change(node, m_vStack[nTop - 1], nCount);
        }
        else
        {
            --nTop;
            Combine(node, m_vStack[nTop - 1], m_vStack[nTop], nCount);
        }
    }
    return m_vStack.front();
}

void CEvaluator::PushLeaf(const SExpressionNode& node, SLanes& lanes, size_t nFirst, size_t nCount) const
{
    std::fill(lanes.bad, lanes.bad + nCount, false);
    lanes.bFloat = node.eValue == EValue::Float && !node.IsAggregate();
    for (size_t i = 0; i < nCount; ++i)
    {
        if (node.eNode == ENode::Component && lanes.bFloat)
        {
            lanes.floats[i] = ReadFloat(node, nFirst + i);
        }
        else if (node.eNode == ENode::Component)
        {
            lanes.ints[i] = ReadInt(node, nFirst + i);
        }
        else if (node.eNode == ENode::Item)
        {
            lanes.ints[i] = static_cast<int64_t>(CoordinateOf(node, m_pSource->GetExtent(), nFirst + i));
        }
        else if (lanes.bFloat)
        {
            lanes.floats[i] = node.fNumber;
        }
        else
        {
            lanes.ints[i] = node.nNumber;
        }
    }
}

/// Puts elements in the place of their indices.
void CEvaluator::LoadElements(const SExpressionNode& node, size_t nNode, SLanes& lanes, size_t nFirst, size_t nCount)
{
    const SElementType& type = *node.elements.pType;
    const SExtent& extent = m_pSource->GetExtent();
    lanes.MakeInt(nCount);
    lanes.bFloat = type.eKind == SElementType::Float;
    for (size_t i = 0; i < nCount; ++i)
    {
        const int64_t nIndex = lanes.ints[i];
        if (lanes.bad[i] || static_cast<uint64_t>(nIndex) >= node.elements.nCount)
        {
            m_vMissing[i] = lanes.bad[i] ? m_vMissing[i] : SMissing{nNode, nIndex};
            lanes.bad[i] = true;
            lanes.ints[i] = 0;
            continue;
        }
        const size_t nGroup = node.elements.bPerGroup ? extent.GroupOf(nFirst + i) : 0;
        const unsigned char* pElement = FindElement(node.elements, nGroup, static_cast<uint64_t>(nIndex) * type.nSize);
        if (lanes.bFloat)
        {
            lanes.floats[i] = ReadElement(type, pElement);
        }
        else
        {
            lanes.ints[i] = LoadInteger(type, pElement);
        }
    }
}

const unsigned char* CEvaluator::FindElement(const SElements& elements, size_t nGroup, uint64_t nOffset)
{
    const uint64_t nPiece = nOffset / s_nPieceBytes;
    std::vector<unsigned char>& vBytes = m_mapPieces[{elements.strName, {nGroup, nPiece}}];
    if (vBytes.empty())
    {
        const uint64_t nStart = nPiece * s_nPieceBytes;
        const size_t nBytes = static_cast<size_t>(std::min(s_nPieceBytes, elements.GetBytes() - nStart));
        vBytes = m_pSource->ReadElements(elements, nGroup, nStart, nBytes);
        if (vBytes.size() < nBytes)
        {
            vBytes.clear();
            throw CCommandError("the bytes of " + elements.strName + " can't be read here");
        }
    }
    return &vBytes[nOffset % s_nPieceBytes];
}

void CEvaluator::RequireValue(const std::vector<SExpressionNode>& vNodes, const SLanes& lanes, size_t nLane) const
{
    if (!lanes.bad[nLane])
    {
        return;
    }
    const SMissing& missing = m_vMissing[nLane];
    const SElements& elements = vNodes[missing.nNode].elements;
    throw CCommandError(elements.strName + "[" + std::to_string(missing.nIndex) + "] isn't there: " + elements.strName +
                        " has " + std::to_string(elements.nCount) + " elements");
}

} // namespace KestrelTool
