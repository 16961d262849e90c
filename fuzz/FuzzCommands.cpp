#include "fuzz/Targets.h"

#include "tools/kestrel/Visible.h"
#include "tools/kestrel/command/CommandTable.h"
#include "tools/kestrel/command/Commands.h"
#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/debug/Expression.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace KestrelFuzz
{

using namespace KestrelTool;

namespace
{

constexpr size_t s_nItems = 6;

/// Six work-items in groups of three, two registers, and elements of each kind.
class CItems : public IValueSource
{
public:
    CItems()
    {
        m_Extent.nGlobal[0] = s_nItems;
        m_Extent.nLocal[0] = 3;
        for (size_t i = 0; i < 4 * s_nItems; ++i)
        {
            m_Words[i] = static_cast<unsigned int>(i * 0x2F000001u);
        }
    }

    SRegisterView GetValues(const std::string& strRegister) override
    {
        if (strRegister != "r0" && strRegister != "x1[2]")
        {
            throw CCommandError(strRegister + " has no value here");
        }
        SRegisterView view;
        view.pWords = m_Words;
        view.nItems = s_nItems;
        return view;
    }
    SMaskView GetActive() override
    {
        SMaskView mask;
        mask.pActive = m_Active;
        mask.nItems = s_nItems;
        return mask;
    }
    const SExtent& GetExtent() const override { return m_Extent; }
    size_t GetFocus() const override { return 4; }
    std::optional<SElements> FindElements(const std::string& strName) override
    {
        static const struct
        {
            const char* pszName;
            const char* pszType;
        } s_Known[] = {{"in", "f32"}, {"out", "i8"}, {"n", "u64"}, {"tmp", "f64"}};
        for (size_t i = 0; i < std::size(s_Known); ++i)
        {
            if (strName == s_Known[i].pszName)
            {
                return SElements{strName, FindElementType(s_Known[i].pszType), i == 2 ? 1u : 5u, i == 3, i == 2, i};
            }
        }
        return std::nullopt;
    }
    std::vector<unsigned char> ReadElements(const SElements& elements, size_t nGroup, uint64_t nOffset,
                                            size_t nBytes) override
    {
        Require(nOffset <= elements.GetBytes() && nBytes <= elements.GetBytes() - nOffset && nGroup < 2,
                "no bytes are asked for but those of the elements");
        return std::vector<unsigned char>(nBytes, static_cast<unsigned char>(nGroup + 1));
    }

private:
    SExtent m_Extent;
    unsigned int m_Words[4 * s_nItems] = {};
    const cl_bool m_Active[s_nItems] = {0, 1, 1, 0, 1, 1};
};

bool HasValue(CExpression& expression, size_t nLane)
{
    try
    {
        expression.RequireValue(nLane);
        return true;
    }
    catch (const CCommandError&)
    {
        return false;
    }
}

void CheckExpression(const std::string& strText)
{
    CItems items;
    try
    {
        CExpression expression(strText, &items);
        expression.Bind(items);
        double values[s_nItems];
        bool there[s_nItems];
        expression.Evaluate(0, s_nItems, values);
        for (size_t i = 0; i < s_nItems; ++i)
        {
            there[i] = HasValue(expression, i);
        }
        for (size_t i = 0; i < s_nItems; ++i)
        {
            double fValue = 0;
            expression.Evaluate(i, 1, &fValue);
            Require(HasValue(expression, 0) == there[i] &&
                        (!there[i] || std::memcmp(&fValue, &values[i], sizeof(fValue)) == 0),
                    "a work-item's value is the same alone and among others", strText);
            Require(!there[i] || !expression.Format(i, true).empty(), "a value has a text", strText);
        }
        expression.HoldsForAny(items);
    }
    catch (const CCommandError& error)
    {
        Require(error.what()[0] != '\0', "what is refused has a reason", strText);
    }
}

void CheckVisible(const std::string& strText)
{
    const std::string strVisible = MakeVisible(strText);
    const bool bClean = std::none_of(strVisible.begin(), strVisible.end(),
                                     [](unsigned char c) { return (c < 0x20 && c != '\n' && c != '\t') || c == 0x7F; });
    Require(bClean, "no control character is printed", strText);
    Require(MakeVisible(strVisible) == strVisible, "what is visible stays as it is", strText);
    std::ostringstream stream;
    {
        const CVisibleStream visible(stream);
        for (const char c : strText)
        {
            stream.put(c);
        }
        stream.flush();
    }
    Require(stream.str() == strVisible, "text that comes in pieces is printed as the whole is");
}

} // namespace

/// Each line is a command of the prompt; what stands behind its name is an expression, a number and a text to print.
void FuzzCommands(const uint8_t* pData, size_t nSize)
{
    std::istringstream stream(std::string(reinterpret_cast<const char*>(pData), nSize));
    for (std::string strLine; std::getline(stream, strLine);)
    {
        CheckVisible(strLine);
        std::string strArguments = strLine;
        try
        {
            const std::string strToken = TakeToken(strLine);
            const SCommandLine line = ParseCommandLine(strLine);
            Require(line.pCommand != nullptr, "a command that is known is in the table", strLine);
            strArguments = line.strArguments;
            ReadNumber(strArguments);
        }
        catch (const CCommandError& error)
        {
            Require(error.what()[0] != '\0', "what is refused has a reason", strLine);
        }
        CheckExpression(strArguments);
    }
}

} // namespace KestrelFuzz
