#ifndef KESTREL_TOOLS_DEBUG_EXPRESSIONBUILDER_H
#define KESTREL_TOOLS_DEBUG_EXPRESSIONBUILDER_H

#include "tools/session/debug/BuiltIns.h"

namespace KestrelTool
{

/// Builds the nodes of an expression, with the types that C gives them.
class CExpressionBuilder
{
public:
    typedef size_t Node; ///< an index in the list

    virtual ~CExpressionBuilder() = default;

protected:
    explicit CExpressionBuilder(CTypeStore& types) : m_Types(types) {}

    /// \throws CCommandError
    [[noreturn]] void Refuse(const std::string& strWhy) const;
    /// Adds the place of a fault to its description.
    virtual std::string Explain(const std::string& strWhy) const = 0;

    Node Append(SExpressionNode node);
    /// Null if not determined yet.
    const SSourceType* TypeOf(Node nNode) const { return m_vNodes[nNode].GetType(); }
    Node MakeConstant(const SSourceType& type, uint64_t nBits);
    Node MakeDouble(double fValue);
    Node MakeVariable(const SSourceVariable& variable);
    Node MakeUnary(ENode eNode, Node nChild);
    Node MakePlus(Node nChild);
    Node MakeBinary(ENode eNode, Node nLeft, Node nRight);
    Node MakeChoice(Node nCondition, Node nTrue, Node nFalse);
    Node MakeConversion(Node nChild, const SSourceType& type);
    Node MakeReread(Node nChild, const SSourceType& type);
    Node MakeVector(const SSourceType& type, const std::vector<Node>& vParts);
    Node MakeDereference(Node nPointer);
    Node MakeAddress(Node nPlace);
    Node MakeMember(Node nWhole, const std::string& strName);
    Node MakeIndex(Node nWhole, Node nIndex);
    Node MakeCall(const SBuiltIn& builtIn, const std::vector<Node>& vArguments);

    /// Turns a place into the value there.
    void TakeValue(Node nNode);
    /// The same, but an array becomes a pointer to its first element.
    void TakeOperand(Node nNode);
    /// Converts the node's value.
    void TakeAs(Node nNode, const SSourceType& type);
    void Settle(Node nNode, bool bFloat) { SettleType(m_vNodes, nNode, bFloat); }
    /// Requires a condition: a number or a pointer.
    void TakeCondition(Node nNode);

    CTypeStore& m_Types;
    std::vector<SExpressionNode> m_vNodes;

private:
    SExpressionNode MakeParent(ENode eNode, const std::vector<Node>& vChildren, const SSourceType* pType) const;
    Node MakePlace(ENode eNode, const std::vector<Node>& vChildren, const SSourceType& type);
    const SSourceType& RequireArithmetic(Node nNode, const char* pszWhat);
    const SSourceType& FindCommon(Node nLeft, Node nRight, const char* pszWhat);
    const SSourceType& TruthOf(const SSourceType& type);
    void SettleBeside(Node nOpen, const SSourceType& other);
    std::optional<Node> MakePointerOperation(ENode eNode, Node nLeft, Node nRight);
    Node MakeArithmetic(ENode eNode, Node nLeft, Node nRight);
    Node MakeShift(ENode eNode, Node nLeft, Node nRight);
    Node MakeComponents(Node nVector, const std::string& strName);
    Node MakePart(Node nWhole, size_t nOffset, const SSourceType& type);
    size_t RequireElementSize(const SSourceType& pointer) const;
};

} // namespace KestrelTool

#endif
