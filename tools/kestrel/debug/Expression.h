#ifndef KESTREL_TOOLS_DEBUG_EXPRESSION_H
#define KESTREL_TOOLS_DEBUG_EXPRESSION_H

#include "tools/kestrel/Session.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace KestrelTool
{

/// The extent of a dispatch; sizes of dimensions that it hasn't got are 1.
struct SExtent
{
    unsigned int nDimensions = 1;
    size_t nGlobal[3] = {1, 1, 1};
    size_t nLocal[3] = {1, 1, 1}; ///< 1 where the launch leaves it to the platform

    size_t Count() const { return nGlobal[0] * nGlobal[1] * nGlobal[2]; }
};

/// Where an expression takes the values of a stop from.
class IValueSource
{
public:
    virtual ~IValueSource() = default;

    /// \throws CCommandError if the register has no value
    virtual SRegisterView GetValues(const std::string& strRegister) = 0;
    virtual SMaskView GetActive() = 0;
    virtual const SExtent& GetExtent() const = 0;
    /// The linear index of the work-item in focus.
    virtual size_t GetFocus() const = 0;
};

/// A register with components: "r3", "r3.x", "cb1[2].xy".
struct SOperand
{
    std::string strRegister;
    std::vector<unsigned int> vComponents; ///< 0 to 3; all four if none were named

    std::string ToString() const;
};

struct SExpressionNode;

/// An expression over the registers of a work-item, made once and evaluated for many.
///
/// Components are bits without a type. They are read as floats beside a float, and as ints
/// otherwise; int(), uint(), float(), and for pairs long() and double(), say it outright. Two NaNs
/// are equal. any, all and count() look at the active work-items, with "/a" at all of them.
class CExpression
{
public:
    /// \throws CCommandError
    explicit CExpression(const std::string& strText);
    ~CExpression();
    CExpression(CExpression&&) noexcept;
    CExpression& operator=(CExpression&&) noexcept;

    const std::string& GetText() const { return m_strText; }
    /// The names of the registers in it.
    const std::set<std::string>& GetRegisters() const { return m_Registers; }
    /// Whether nothing but a register, perhaps with components, makes it up.
    bool IsOperand() const { return m_bOperand; }
    const SOperand& GetOperand() const { return m_Operand; }
    bool IsFloat() const;
    /// Takes a lone component as a float or an int, for expressions whose type nothing has settled.
    void SetFloat(bool bFloat);
    bool IsTypeOpen() const { return m_bTypeOpen; }

    /// Fetches the values that the expression needs at this stop; again at each stop.
    void Bind(IValueSource& source);

    static constexpr size_t BlockSize = 512;
    /// The values of up to BlockSize work-items from nFirst on. What isn't float is converted.
    void Evaluate(size_t nFirst, size_t nCount, double* pValues) const;
    void Evaluate(size_t nFirst, size_t nCount, int64_t* pValues) const;
    /// The value for one work-item, as text.
    std::string Format(size_t nItem, bool bHex) const;
    bool IsTrue(size_t nItem) const;

private:
    std::string m_strText;
    std::unique_ptr<SExpressionNode> m_pRoot;
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
