#ifndef KESTREL_TOOLS_DEBUG_EXPRESSIONPARSER_H
#define KESTREL_TOOLS_DEBUG_EXPRESSIONPARSER_H

#include "tools/session/debug/ExpressionBuilder.h"

#include <cctype>

namespace KestrelTool
{

/// Parses an expression from left to right.
class CExpressionParser : private CExpressionBuilder
{
public:
    CExpressionParser(const std::string& strText, IValueSource* pNames, CTypeStore& types)
        : CExpressionBuilder(types), m_strText(strText), m_pNames(pNames)
    {
    }
    std::vector<SExpressionNode> Parse();
    const SSourceType* ParseTypeAlone();

private:
    struct SOperator
    {
        const char* pszText;
        ENode eNode;
        int nLevel; ///< higher binds tighter
    };

    static const SOperator s_Operators[];

    [[noreturn]] void Fail(const std::string& strExpected) const;
    std::string Explain(const std::string& strWhy) const override;

    void SkipBlanks()
    {
        while (m_nPos < m_strText.size() && std::isspace(static_cast<unsigned char>(m_strText[m_nPos])))
        {
            ++m_nPos;
        }
    }

    char Peek() const { return m_nPos < m_strText.size() ? m_strText[m_nPos] : '\0'; }
    bool Take(const char* pszText);
    std::string TakeWord();
    bool IsBracketNext() const;
    const SOperator* TakeOperator(int nLevel);
    /// "any A && any B": the first any ends before an operator that is followed by another aggregate.
    bool IsBetweenAggregates(const SOperator& entry) const;

    // ---- operators

    Node ParseChoice();
    Node ParseBinary(int nLevel);

    /// Counts the depth of everything that nests.
    class CNesting
    {
    public:
        explicit CNesting(CExpressionParser& parser) : m_Parser(parser)
        {
            const int nMaxDepth = 200;
            if (parser.m_nDepth >= nMaxDepth)
            {
                parser.Fail("less that is nested");
            }
            ++parser.m_nDepth;
        }
        ~CNesting() { --m_Parser.m_nDepth; }
        CNesting(const CNesting&) = delete;
        CNesting& operator=(const CNesting&) = delete;

    private:
        CExpressionParser& m_Parser;
    };

    Node ParseUnary();
    Node ParseSuffixes(Node nNode);
    Node ParsePrimary();
    std::optional<Node> ParseKeyword(const std::string& strWord);
    /// A source variable takes precedence over a register and an argument with the same name. A pointer argument
    /// without a place at the stop stands for its buffer.
    std::optional<Node> ParseName(const std::string& strWord, size_t nStart);

    // ---- types

    /// Takes "const unsigned int" or similar, as FindScalarType expects it; empty if no type begins here.
    std::string TakeTypeWords();
    void NoteSpace(const std::string& strWord);
    const SSourceType* FindType(const std::string& strName);
    /// Takes a type with its stars; null, with nothing taken, if there is none.
    const SSourceType* TakeType();
    const SSourceType* TakeTypeInBrackets();
    /// To be called after "(type)".
    Node ParseCast(const SSourceType& type, size_t nAt);
    /// Reads a single component as the type; converts any other value to it.
    Node Convert(Node nChild, const SSourceType& type);
    Node ParseSize();

    // ---- calls

    /// To be called after "("; parses up to ")".
    std::vector<Node> ParseArguments();
    /// Parses the call of a built-in function, or of a type: float(x), convert_int4(v), as_uint(f).
    Node ParseCall(const std::string& strName, size_t nStart);

    // ---- leaves

    /// To be called after the name of an argument.
    Node ParseElement(const SElements& elements);
    void CloseIndex();
    void Close();
    Node ParseNumber();
    Node ParseCharacter();
    /// The type of an integer, by its value and suffix. As in C, decimal numbers are signed unless the suffix says
    /// otherwise.
    const SSourceType& TakeSuffix(uint64_t nValue, bool bDecimal);
    Node ParseItem();
    Node ParseAggregate(const std::string& strName);
    Node ParseComponent();

    const std::string& m_strText;
    IValueSource* m_pNames;
    size_t m_nPos = 0;
    size_t m_nBlame = 0; ///< where the part begins that errors refer to
    SSourceType::ESpace m_eSpace = SSourceType::PrivateSpace;
    int m_nPairsAllowed = 0;
    bool m_bInAggregate = false;
    int m_nAggregateDepth = 0; ///< nesting depth where the aggregate began
    int m_nDepth = 0;
};

} // namespace KestrelTool

#endif
