#ifndef KESTREL_TOOLS_DEBUG_EXPRESSIONNODE_H
#define KESTREL_TOOLS_DEBUG_EXPRESSIONNODE_H

#include "tools/kestrel/debug/Expression.h"

namespace KestrelTool
{

enum class ENode
{
    Number,
    Component, ///< of a register, one word or a pair
    Item,      ///< a coordinate of the work-item
    Element,   ///< of memory with a name; the child is the index
    Convert,   ///< to the node's type
    Negate,
    Not,
    Complement,
    Add,
    Subtract,
    Multiply,
    Divide,
    Remainder,
    ShiftLeft,
    ShiftRight,
    BitAnd,
    BitOr,
    BitXor,
    Less,
    LessEqual,
    Greater,
    GreaterEqual,
    Equal,
    NotEqual,
    And,
    Or,
    Any,
    All,
    Count
};

inline bool IsComparison(ENode eNode)
{
    return eNode >= ENode::Less && eNode <= ENode::NotEqual;
}

/// What a node gives. Open: registers alone, so that what stands beside decides.
enum class EValue
{
    Open,
    Int,
    Float
};

enum class ERead
{
    Int,
    Unsigned,
    Float,
    Long,
    Double
};

/// A node of an expression. Nodes stand in one list, each behind those that it is made of, so that nothing that walks
/// over them has to recurse.
struct SExpressionNode
{
    ENode eNode = ENode::Number;
    EValue eValue = EValue::Int;
    unsigned int nChildren = 0;
    size_t children[2] = {0, 0}; ///< places in the list
    size_t nBegin = 0;           ///< the first node of the subtree; the node itself is its last

    int64_t nNumber = 0; ///< also what an aggregate gave
    double fNumber = 0;
    SOperand operand;
    std::string strVariable; ///< of the source, for which the operand is found at each stop
    size_t nBytes = 4;       ///< that count of the word, or of both
    ERead eRead = ERead::Int;
    bool bReadGiven = false;
    unsigned int nItem = 0; ///< index into the coordinates' names
    bool bAllItems = false; ///< of an aggregate
    SElements elements;
    SRegisterView values; ///< once bound
    SMaskView active;     ///< once bound

    bool IsAggregate() const { return eNode == ENode::Any || eNode == ENode::All || eNode == ENode::Count; }
};

/// The coordinates of a work-item that expressions know, with "$" in front.
extern const char* const g_ItemNames[];
extern const size_t g_nItemNames;

/// Makes the nodes of a text, with all types settled but that of a lone component.
std::vector<SExpressionNode> ParseExpression(const std::string& strText, IValueSource* pNames);
/// Settles the type of a subtree that is still open.
void SettleType(std::vector<SExpressionNode>& vNodes, size_t nNode, EValue eValue);
/// Whether a text is spelled as a register is, so that it can't be an argument's name.
bool IsSpelledAsRegister(const std::string& strName);

} // namespace KestrelTool

#endif
