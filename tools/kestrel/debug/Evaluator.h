#ifndef KESTREL_TOOLS_DEBUG_EVALUATOR_H
#define KESTREL_TOOLS_DEBUG_EVALUATOR_H

#include "tools/kestrel/debug/ExpressionNode.h"

#include <map>
#include <utility>

namespace KestrelTool
{

/// The values of a block of work-items.
struct SLanes
{
    bool bFloat = false;
    bool bad[CExpression::BlockSize]; ///< asked for an element that isn't there
    union
    {
        int64_t ints[CExpression::BlockSize];
        double floats[CExpression::BlockSize];
    };

    bool IsTrue(size_t nLane) const { return bFloat ? floats[nLane] != 0 : ints[nLane] != 0; }
    void MakeFloat(size_t nCount);
    void MakeInt(size_t nCount);
};

/// Works out an expression's nodes one after the other, with a stack of blocks of values.
class CEvaluator
{
public:
    explicit CEvaluator(const std::vector<SExpressionNode>& vNodes);

    bool IsUniform() const { return m_bUniform; }
    void Bind(std::vector<SExpressionNode>& vNodes, IValueSource& source);
    /// The root's values; they live until the next call.
    SLanes& Evaluate(const std::vector<SExpressionNode>& vNodes, size_t nFirst, size_t nCount);
    /// \throws CCommandError if the value of a lane of the last block asked for an element that isn't there
    void RequireValue(const std::vector<SExpressionNode>& vNodes, const SLanes& lanes, size_t nLane) const;
    const SLanes& GetLast() const { return m_vStack.front(); }

private:
    /// An element that isn't there.
    struct SMissing
    {
        size_t nNode;
        int64_t nIndex;
    };
    typedef std::vector<size_t> Order;

    Order MakeOrder(const std::vector<SExpressionNode>& vNodes, size_t nRoot);
    SLanes& Run(const std::vector<SExpressionNode>& vNodes, const Order& order, size_t nFirst, size_t nCount);
    int64_t Aggregate(const std::vector<SExpressionNode>& vNodes, const SExpressionNode& node, const Order& order);
    void PushLeaf(const SExpressionNode& node, SLanes& lanes, size_t nFirst, size_t nCount) const;
    void LoadElements(const SExpressionNode& node, size_t nNode, SLanes& lanes, size_t nFirst, size_t nCount);
    const unsigned char* FindElement(const SElements& elements, size_t nGroup, uint64_t nOffset);

    Order m_Order;
    std::map<size_t, Order> m_mapAggregates; ///< by node
    bool m_bUniform = true;
    std::vector<SLanes> m_vStack;
    std::vector<SMissing> m_vMissing; ///< by lane
    IValueSource* m_pSource = nullptr;
    /// What has been read at this stop, in pieces, by name, group and number of the piece.
    std::map<std::pair<std::string, std::pair<size_t, uint64_t>>, std::vector<unsigned char>> m_mapPieces;
};

} // namespace KestrelTool

#endif
