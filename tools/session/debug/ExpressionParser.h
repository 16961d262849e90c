#ifndef KESTREL_TOOLS_DEBUG_EXPRESSIONPARSER_H
#define KESTREL_TOOLS_DEBUG_EXPRESSIONPARSER_H

#include "tools/session/debug/ExpressionBuilder.h"

#include <cctype>

namespace KestrelTool
{

/// Reads an expression from the left to the right.
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
        int nLevel; ///< binds closer when higher
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
    /// "any A && any B": the first any ends in front of an operator after which the next one begins.
    bool IsBetweenAggregates(const SOperator& entry) const;

    // ---- operators

    Node ParseChoice();
    Node ParseBinary(int nLevel);

    /// Everything that nests counts here.
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
    /// A variable of the source goes before a register and an argument of the same name. A pointer argument that has no
    /// place at the stop stands for the buffer of the launch.
    std::optional<Node> ParseName(const std::string& strWord, size_t nStart);

    // ---- types

    /// "const unsigned int" and the like, as FindScalarType has it; empty if no type begins here.
    std::string TakeTypeWords();
    void NoteSpace(const std::string& strWord);
    const SSourceType* FindType(const std::string& strName);
    /// A type with its stars; null, and nothing taken, if there is none.
    const SSourceType* TakeType();
    const SSourceType* TakeTypeInBrackets();
    /// Behind "(type)".
    Node ParseCast(const SSourceType& type, size_t nAt);
    /// A lone component is read as the type, and a value converted to it.
    Node Convert(Node nChild, const SSourceType& type);
    Node ParseSize();

    // ---- calls

    /// Behind "(", up to ")".
    std::vector<Node> ParseArguments();
    /// A built-in function, or a type as one: float(x), convert_int4(v), as_uint(f).
    Node ParseCall(const std::string& strName, size_t nStart);

    // ---- leaves

    /// Behind the name of an argument.
    Node ParseElement(const SElements& elements);
    void CloseIndex();
    void Close();
    Node ParseNumber();
    Node ParseCharacter();
    /// The type of an integer, with the letters after it. As in C, decimal numbers are signed unless they say
    /// otherwise.
    const SSourceType& TakeSuffix(uint64_t nValue, bool bDecimal);
    Node ParseItem();
    Node ParseAggregate(const std::string& strName);
    Node ParseComponent();

    const std::string& m_strText;
    IValueSource* m_pNames;
    size_t m_nPos = 0;
    size_t m_nBlame = 0; ///< where that begins which may be refused
    SSourceType::ESpace m_eSpace = SSourceType::PrivateSpace;
    int m_nPairsAllowed = 0;
    bool m_bInAggregate = false;
    int m_nAggregateDepth = 0; ///< of what nests where the aggregate began
    int m_nDepth = 0;
};

} // namespace KestrelTool

#endif
