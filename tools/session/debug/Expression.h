#ifndef KESTREL_TOOLS_DEBUG_EXPRESSION_H
#define KESTREL_TOOLS_DEBUG_EXPRESSION_H

#include "tools/session/debug/SourceValue.h"
#include "tools/session/debug/ValueSource.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A register with components: "r3", "r3.x", "cb1[2].xy".
struct SOperand
{
    std::string strRegister;
    std::vector<unsigned int> vComponents; ///< 0 to 3; all four if none were named

    std::string ToString() const;
};

struct SExpressionNode;
class CEvaluator;
class CTypeStore;

/// An expression of C over what a work-item has, made once and evaluated for many.
///
/// Variables of the source have their types, and what is computed of them has the type that C gives it. Components of
/// registers are bits without a type. They are read as floats beside a float, and as ints otherwise; int(), uint(),
/// float(), and for pairs long() and double(), say it outright; what is computed of them has 64 bits, and two NaNs are
/// equal, as they are beside the word nan. Elements of arguments (out[3], in[r0.x]) are computed with in the same way.
/// What isn't there is an error for the work-item that asks for it. any, all and count() look at the active work-items,
/// with "/a" at all of them. However long an expression is, nothing in it recurses but what its parentheses nest.
class CExpression
{
public:
    /// \param pNames  knows the names of elements; without it there are none
    /// \throws CCommandError
    explicit CExpression(const std::string& strText, IValueSource* pNames = nullptr);
    ~CExpression();
    CExpression(CExpression&&) noexcept;
    CExpression& operator=(CExpression&&) noexcept;

    const std::string& GetText() const { return m_strText; }
    /// The names of the registers in it.
    const std::set<std::string>& GetRegisters() const { return m_Registers; }
    /// Whether nothing but a register, perhaps with components, makes it up.
    bool IsOperand() const { return m_bOperand; }
    const SOperand& GetOperand() const { return m_Operand; }
    /// Whether its value is the same for all work-items.
    bool IsUniform() const;
    bool IsFloat() const;
    /// Whether it is the name of a place: a variable, a part of one, or what a pointer points to.
    bool IsPlace() const;
    /// Whether its values are single numbers, which can be counted and drawn.
    bool IsNumber() const;
    /// The type of its values; null as long as that is open.
    const SSourceType* GetType() const;
    /// Takes a lone component as a float or an int, for expressions whose type nothing has settled.
    void SetFloat(bool bFloat);
    bool IsTypeOpen() const { return m_bTypeOpen; }

    /// Fetches the values that the expression needs at this stop; again at each stop.
    void Bind(IValueSource& source);

    static constexpr size_t BlockSize = 512;
    /// The values of up to BlockSize work-items from nFirst on. What isn't float is converted.
    void Evaluate(size_t nFirst, size_t nCount, double* pValues);
    void Evaluate(size_t nFirst, size_t nCount, int64_t* pValues);
    /// Of the last Evaluate.
    /// \throws CCommandError if the value asks for an element that isn't there
    void RequireValue(size_t nLane) const;
    /// Whether none of the first values of the last Evaluate asks for what isn't there.
    bool HasAllValues(size_t nCount) const;
    /// The same of one of them.
    bool HasValue(size_t nLane) const;
    /// The value for one work-item, as text.
    std::string Format(size_t nItem, bool bHex);
    /// The value for one work-item.
    SSourceValue Read(size_t nItem);
    bool IsTrue(size_t nItem);
    /// Whether it holds for any of the work-items that a stop has active; for the one in focus if it is the same for
    /// all of them.
    bool HoldsForAny(IValueSource& source);

private:
    void Parse(IValueSource* pNames);
    template <typename T>
    void EvaluateAs(size_t nFirst, size_t nCount, T* pValues);

    std::string m_strText;
    std::shared_ptr<const void> m_pKept; ///< the types of the variables
    std::unique_ptr<CTypeStore> m_pTypes;
    std::vector<SExpressionNode> m_vNodes; ///< children in front of their parents; the root is the last one
    std::unique_ptr<CEvaluator> m_pEvaluator;
    std::set<std::string> m_Registers;
    SOperand m_Operand;
    bool m_bOperand = false;
    bool m_bTypeOpen = false;
};

/// Reads "r3.x" and the like.
/// \throws CCommandError
SOperand ReadOperand(const std::string& strText);

} // namespace KestrelTool

#endif
