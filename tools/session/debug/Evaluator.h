#ifndef KESTREL_TOOLS_DEBUG_EVALUATOR_H
#define KESTREL_TOOLS_DEBUG_EVALUATOR_H

#include "tools/session/debug/StopMemory.h"

#include <algorithm>

namespace KestrelTool
{

/// The values of a block of work-items in order. Places are 64-bit addresses, or offsets into a variable that has no
/// address.
struct SBlock
{
    std::vector<unsigned char> vBytes;
    bool bad[CExpression::BlockSize]; ///< used something that doesn't exist
};

/// Reads bytes of a variable that has no address.
/// \return false if some of them aren't known
bool ReadPieces(const SBoundVariable& variable, size_t nOffset, size_t nItem, unsigned char* pBytes, size_t nBytes);

/// Evaluates the nodes of an expression in order, on a stack of blocks of values.
class CEvaluator
{
public:
    explicit CEvaluator(const std::vector<SExpressionNode>& vNodes);

    bool IsUniform() const { return m_bUniform; }
    void Bind(std::vector<SExpressionNode>& vNodes, IValueSource& source);
    /// The root's values; valid until the next call.
    const SBlock& Evaluate(const std::vector<SExpressionNode>& vNodes, size_t nFirst, size_t nCount);
    /// \throws CCommandError if a lane of the last block used something that doesn't exist
    void RequireValue(const std::vector<SExpressionNode>& vNodes, const SBlock& block, size_t nLane) const;
    /// Whether none of the first lanes of the last block did.
    bool HasAll(size_t nCount) const
    {
        const bool* const pBad = m_vStack.front().bad;
        return std::find(pBad, pBad + nCount, true) == pBad + nCount;
    }
    const SBlock& GetLast() const { return m_vStack.front(); }

private:
    /// Something that doesn't exist.
    struct SMissing
    {
        size_t nNode;
        int64_t nNumber; ///< an element's index, or an address
    };
    typedef std::vector<size_t> Order;

    Order MakeOrder(const std::vector<SExpressionNode>& vNodes, size_t nRoot);
    const SBlock& Run(const std::vector<SExpressionNode>& vNodes, const Order& order, size_t nFirst, size_t nCount);
    int64_t Aggregate(const std::vector<SExpressionNode>& vNodes, size_t nNode, const Order& order);
    void Perform(const std::vector<SExpressionNode>& vNodes, size_t nNode, SBlock* pBlocks, size_t nFirst,
                 size_t nCount);
    void PushLeaf(const SExpressionNode& node, SBlock& block, size_t nFirst, size_t nCount);
    void LoadElements(const SExpressionNode& node, size_t nNode, SBlock& block, size_t nFirst, size_t nCount);
    void FindPlaces(const SExpressionNode& node, size_t nNode, SBlock* pBlocks, size_t nCount);
    void Load(const std::vector<SExpressionNode>& vNodes, size_t nNode, SBlock& block, size_t nFirst, size_t nCount);
    bool LoadFromRegister(const SExpressionNode& node, SBlock& block, size_t nFirst, size_t nCount);
    void Call(const SExpressionNode& node, const SSourceType* pArgument, SBlock* pBlocks, size_t nFirst, size_t nCount);
    void Compose(const std::vector<SExpressionNode>& vNodes, const SExpressionNode& node, SBlock* pBlocks,
                 size_t nCount);
    void Finish(const SExpressionNode& node, SBlock& block, size_t nCount);
    void Miss(SBlock& block, size_t nLane, size_t nNode, int64_t nNumber);

    Order m_Order;
    std::map<size_t, Order> m_mapAggregates; ///< by node
    bool m_bUniform = true;
    std::vector<SBlock> m_vStack;
    std::vector<unsigned char> m_vScratch;
    std::vector<SMissing> m_vMissing; ///< by lane
    IValueSource* m_pSource = nullptr;
    CStopMemory m_Memory;
};

} // namespace KestrelTool

#endif
