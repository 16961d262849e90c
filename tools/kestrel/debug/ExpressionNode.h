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
    Convert,   ///< to nType
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

struct SExpressionNode
{
    ENode eNode = ENode::Number;
    EValue eValue = EValue::Int;
    std::vector<std::unique_ptr<SExpressionNode>> vChildren;

    int64_t nNumber = 0; ///< also what an aggregate gave
    double fNumber = 0;
    SOperand operand;
    ERead eRead = ERead::Int;
    bool bReadGiven = false;
    unsigned int nItem = 0; ///< index into the coordinates' names
    bool bAllItems = false; ///< of an aggregate
    SRegisterView values;   ///< once bound
    SMaskView active;       ///< once bound
    const SExtent* pExtent = nullptr;
};

/// The coordinates of a work-item that expressions know, with "$" in front.
extern const char* const g_ItemNames[];
extern const size_t g_nItemNames;

/// Makes the tree of a text, with all types settled but that of a lone component.
std::unique_ptr<SExpressionNode> ParseExpression(const std::string& strText);
/// Settles the type of a subtree that is still open.
void SettleType(SExpressionNode& node, EValue eValue);

} // namespace KestrelTool

#endif
