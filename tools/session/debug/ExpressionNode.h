#ifndef KESTREL_TOOLS_DEBUG_EXPRESSIONNODE_H
#define KESTREL_TOOLS_DEBUG_EXPRESSIONNODE_H

#include "tools/session/debug/Expression.h"
#include "tools/source/CTypes.h"

namespace KestrelTool
{

enum class ENode
{
    Number,
    Component,   ///< of a register: one word or a pair
    Item,        ///< a coordinate of the work-item
    Element,     ///< of an argument; its child is the index
    Variable,    ///< a source variable's place, or that of a part at a constant offset
    Dereference, ///< the place that a pointer points to
    Index,       ///< the element of a place at an index
    Member,      ///< of a place or of a value
    Address,     ///< of a place
    Swizzle,     ///< components of a vector
    Construct,   ///< a vector of numbers and vectors
    Convert,     ///< to the node's type
    Reread,      ///< the same bits as another type
    Choose,      ///< ?:
    Call,        ///< of a built-in function
    Advance,     ///< a pointer plus a number of elements
    Distance,    ///< between two pointers, in elements
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

inline bool IsBitwise(ENode eNode)
{
    return (eNode >= ENode::ShiftLeft && eNode <= ENode::BitXor) || eNode == ENode::Complement;
}

enum class ERead
{
    Int,
    Unsigned,
    Float,
    Long,
    Double
};

struct SBuiltIn;

/// The place of a variable at a stop.
struct SBoundVariable
{
    struct SPiece
    {
        size_t nFirst = 0; ///< first byte within the variable
        size_t nBytes = 0;
        SRegisterView values; ///< if in a register
        unsigned int nComponent = 0;
        std::vector<unsigned char> vBytes; ///< common to all work-items, or one work-item's after the other
        bool bForAll = true;
    };

    bool bMemory = false; ///< it has an address in the memory of the node's space
    uint64_t nBase = 0;
    std::vector<SPiece> vPieces;
    std::vector<bool> vKnown; ///< by byte, if it has no address
};

/// A node of an expression. The nodes are in one list, each after its children, so that no code has to recurse over
/// them.
///
/// A node gives a value or a place. With bLoad a place is replaced by the value there, which is then converted to pAs
/// if that is set: operands are built before the operator that wants them converted.
struct SExpressionNode
{
    ENode eNode = ENode::Number;
    const SSourceType* pType = nullptr; ///< null: only registers, so that the other operand decides
    const SSourceType* pAs = nullptr;
    std::vector<size_t> vChildren; ///< indices in the list
    size_t nBegin = 0;             ///< the first node of the subtree, whose last one is this node

    bool bPlace = false;
    bool bLoad = false;
    bool bDecay = false;                                    ///< an array that becomes a pointer to its first element
    size_t nRoot = 0;                                       ///< of a place: the variable or pointer at its start
    SSourceType::ESpace eSpace = SSourceType::PrivateSpace; ///< of that root

    std::vector<unsigned char> vConstant; ///< of a number; also the result of an aggregate
    SOperand operand;
    ERead eRead = ERead::Int;
    bool bReadGiven = false;
    unsigned int nItem = 0; ///< index into the coordinates' names
    bool bAllItems = false; ///< for an aggregate
    bool bNaN = false;      ///< a number written as the word nan
    bool bNaNsEqual = false;
    size_t nOffset = 0; ///< of a variable's part, or of a member
    size_t nScale = 1;  ///< bytes of an element
    std::string strVariable;
    const SSourceType* pWhole = nullptr; ///< the variable's type
    std::vector<unsigned int> vParts;    ///< of a swizzle
    const SBuiltIn* pBuiltIn = nullptr;
    SElements elements;
    SRegisterView values;                            ///< once bound
    SMaskView active;                                ///< once bound
    std::shared_ptr<const SBoundVariable> pVariable; ///< once bound

    bool IsAggregate() const { return eNode == ENode::Any || eNode == ENode::All || eNode == ENode::Count; }
    /// The type of the result.
    const SSourceType* GetType() const { return pAs != nullptr ? pAs : pType; }
    bool IsValue() const { return !bPlace || bLoad || bDecay; }
};

/// The names of a work-item's coordinates in expressions, with "$".
extern const char* const g_ItemNames[];
extern const size_t g_nItemNames;

/// Parses a text into nodes, with all types determined except those of single components.
std::vector<SExpressionNode> ParseExpression(const std::string& strText, IValueSource* pNames, CTypeStore& types);
/// The type that a text names; null if it names none.
const SSourceType* ParseTypeName(const std::string& strText, IValueSource* pNames, CTypeStore& types);
/// Determines the type of a subtree where that is still open.
void SettleType(std::vector<SExpressionNode>& vNodes, size_t nNode, bool bFloat);
/// Whether a text has the form of a register's name.
bool IsSpelledAsRegister(const std::string& strName);

} // namespace KestrelTool

#endif
