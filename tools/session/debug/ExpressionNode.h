#ifndef KESTREL_TOOLS_DEBUG_EXPRESSIONNODE_H
#define KESTREL_TOOLS_DEBUG_EXPRESSIONNODE_H

#include "tools/session/debug/Expression.h"
#include "tools/source/CTypes.h"

namespace KestrelTool
{

enum class ENode
{
    Number,
    Component,   ///< of a register, one word or a pair
    Item,        ///< a coordinate of the work-item
    Element,     ///< of an argument; the child is the index
    Variable,    ///< of the source: the place of it, or of a part at a fixed offset
    Dereference, ///< the place that a pointer points to
    Index,       ///< a place, an element's number after it
    Member,      ///< of a place or of a value
    Address,     ///< of a place
    Swizzle,     ///< components of a vector
    Construct,   ///< a vector of numbers and vectors
    Convert,     ///< to the node's type
    Reread,      ///< the same bits as another type
    Choose,      ///< ?:
    Call,        ///< of a built-in function
    Advance,     ///< a pointer and a number of elements
    Distance,    ///< of two pointers, in elements
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

/// Where a variable is at a stop.
struct SBoundVariable
{
    struct SPiece
    {
        size_t nFirst = 0; ///< byte of the variable
        size_t nBytes = 0;
        SRegisterView values; ///< of a register
        unsigned int nComponent = 0;
        std::vector<unsigned char> vBytes; ///< the same for all, or a work-item's after the other's
        bool bForAll = true;
    };

    bool bMemory = false; ///< it has an address, in the memory of the node's space
    uint64_t nBase = 0;
    std::vector<SPiece> vPieces;
    std::vector<bool> vKnown; ///< by byte, where it has no address
};

/// A node of an expression. Nodes stand in one list, each after those that it is made of, so that nothing that walks
/// over them has to recurse.
///
/// What a node gives is a value, or the place of one. A place is loaded where bLoad says so, and the value then
/// converted to pAs where that is given: operands are known before the operator that wants them converted.
struct SExpressionNode
{
    ENode eNode = ENode::Number;
    const SSourceType* pType = nullptr; ///< null: registers alone, so that what stands beside decides
    const SSourceType* pAs = nullptr;
    std::vector<size_t> vChildren; ///< places in the list
    size_t nBegin = 0;             ///< the first node of the subtree; the node itself is its last

    bool bPlace = false;
    bool bLoad = false;
    bool bDecay = false;                                    ///< an array, which stands for a pointer to its first
    size_t nRoot = 0;                                       ///< of a place: the variable or pointer that it begins with
    SSourceType::ESpace eSpace = SSourceType::PrivateSpace; ///< of such a root

    std::vector<unsigned char> vConstant; ///< of a number; also what an aggregate gave
    SOperand operand;
    ERead eRead = ERead::Int;
    bool bReadGiven = false;
    unsigned int nItem = 0; ///< index into the coordinates' names
    bool bAllItems = false; ///< of an aggregate
    bool bNaN = false;      ///< a number, the word nan
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
    /// Of what it leaves.
    const SSourceType* GetType() const { return pAs != nullptr ? pAs : pType; }
    bool IsValue() const { return !bPlace || bLoad || bDecay; }
};

/// The coordinates of a work-item that expressions know, with "$" in front.
extern const char* const g_ItemNames[];
extern const size_t g_nItemNames;

/// Makes the nodes of a text, with all types settled but that of lone components.
std::vector<SExpressionNode> ParseExpression(const std::string& strText, IValueSource* pNames, CTypeStore& types);
/// The type that a text is the name of; null if it is none.
const SSourceType* ParseTypeName(const std::string& strText, IValueSource* pNames, CTypeStore& types);
/// Settles the type of a subtree that is still open.
void SettleType(std::vector<SExpressionNode>& vNodes, size_t nNode, bool bFloat);
/// Whether a text is spelled as a register is.
bool IsSpelledAsRegister(const std::string& strName);

} // namespace KestrelTool

#endif
