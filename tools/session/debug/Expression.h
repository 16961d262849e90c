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

/// A register with components, such as "r3", "r3.x" or "cb1[2].xy".
struct SOperand
{
    std::string strRegister;
    std::vector<unsigned int> vComponents; ///< 0 to 3; all four if none were given

    std::string ToString() const;
};

struct SExpressionNode;
class CEvaluator;
class CTypeStore;

/// A C expression over a work-item's values, parsed once and evaluated for many work-items.
///
/// Source variables have their types, and results have the types that C gives them. Register components are bits
/// without a type. They are read as floats next to a float, and as ints otherwise; int(), uint(), float(), and for
/// pairs long() and double(), choose explicitly. Results computed from them have 64 bits, and two NaNs are equal, as
/// they are in comparisons with the word nan. Elements of arguments (out[3], in[r0.x]) are computed in the same way.
/// Using something that doesn't exist is an error for that work-item. any, all and count() apply to the active
/// work-items, or with "/a" to all. Only nested parentheses cause recursion, however long an expression is.
class CExpression
{
public:
    /// \param pNames  knows the names of elements; null if there are none
    /// \throws CCommandError
    explicit CExpression(const std::string& strText, IValueSource* pNames = nullptr);
    ~CExpression();
    CExpression(CExpression&&) noexcept;
    CExpression& operator=(CExpression&&) noexcept;

    const std::string& GetText() const { return m_strText; }
    /// The names of the registers in it.
    const std::set<std::string>& GetRegisters() const { return m_Registers; }
    /// Whether it is just a register, perhaps with components.
    bool IsOperand() const { return m_bOperand; }
    const SOperand& GetOperand() const { return m_Operand; }
    /// Whether its value is the same for all work-items.
    bool IsUniform() const;
    bool IsFloat() const;
    /// Whether it names a place: a variable, a part of one, or the target of a pointer.
    bool IsPlace() const;
    /// Whether its values are single numbers, which can be counted and drawn.
    bool IsNumber() const;
    /// The type of its values; null if it isn't determined yet.
    const SSourceType* GetType() const;
    /// Decides whether a single component is a float or an int, if nothing else determines the type.
    void SetFloat(bool bFloat);
    bool IsTypeOpen() const { return m_bTypeOpen; }

    /// Reads the values that the expression needs at this stop; to be called at each stop.
    void Bind(IValueSource& source);

    static constexpr size_t BlockSize = 512;
    /// The values of up to BlockSize work-items from nFirst on, converted to double.
    void Evaluate(size_t nFirst, size_t nCount, double* pValues);
    void Evaluate(size_t nFirst, size_t nCount, int64_t* pValues);
    /// For the last Evaluate.
    /// \throws CCommandError if the value uses an element that doesn't exist
    void RequireValue(size_t nLane) const;
    /// Whether none of the first nCount values of the last Evaluate uses something that doesn't exist.
    bool HasAllValues(size_t nCount) const;
    /// The same for a single one.
    bool HasValue(size_t nLane) const;
    /// The value for one work-item, as text.
    std::string Format(size_t nItem, bool bHex);
    /// The value for one work-item.
    SSourceValue Read(size_t nItem);
    bool IsTrue(size_t nItem);
    /// Whether it is true for any active work-item; if it is uniform, whether it is true for the focused one.
    bool HoldsForAny(IValueSource& source);

private:
    void Parse(IValueSource* pNames);
    template <typename T>
    void EvaluateAs(size_t nFirst, size_t nCount, T* pValues);

    std::string m_strText;
    std::shared_ptr<const void> m_pKept; ///< keeps the variables' types alive
    std::unique_ptr<CTypeStore> m_pTypes;
    std::vector<SExpressionNode> m_vNodes; ///< children before their parents; the root comes last
    std::unique_ptr<CEvaluator> m_pEvaluator;
    std::set<std::string> m_Registers;
    SOperand m_Operand;
    bool m_bOperand = false;
    bool m_bTypeOpen = false;
};

/// Parses a register such as "r3.x".
/// \throws CCommandError
SOperand ReadOperand(const std::string& strText);

} // namespace KestrelTool

#endif
