#include "fuzz/Targets.h"

#include "tools/kestrel/Visible.h"
#include "tools/kestrel/command/CommandTable.h"
#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Expression.h"
#include "tools/source/CTypes.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace KestrelFuzz
{

using namespace KestrelTool;

namespace
{

constexpr size_t s_nItems = 6;

/// Six work-items in groups of three, with two registers, elements of each kind, and variables in each kind of place.
class CItems : public IValueSource
{
public:
    CItems()
    {
        const SSourceType& number = *FindScalarType("int");
        m_Array = {SSourceType::Array, "int[4]", 16, 4, &number, {}, SSourceType::PrivateSpace};
        m_Struct.eKind = SSourceType::Struct;
        m_Struct.strName = "node";
        m_Struct.nSize = 24;
        m_Struct.vMembers = {{"next", 0, &m_Types.MakePointer(m_Struct, SSourceType::GlobalSpace)},
                             {"vector", 8, m_Types.Find("uchar8")},
                             {"real", 16, FindScalarType("half")},
                             {"flag", 18, FindScalarType("bool")}};
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

    /// "i" and "d" are in registers, "v" and half of "u" are constants, "a" is in private and "m" in local memory; the
    /// others are pointers.
    std::optional<SSourceVariable> FindVariable(const std::string& strName, bool bHere) override
    {
        const std::vector<unsigned char> vEight(8, 0x41);
        const auto pointer = [&](const SSourceType& type, SSourceType::ESpace eSpace)
        { return &m_Types.MakePointer(type, eSpace); };
        const struct
        {
            const char* pszName;
            const SSourceType* pType;
            SValuePiece::EPlace ePlace;
            size_t nBytes;
            uint64_t nNumber;
        } known[] = {{"i", FindScalarType("int"), SValuePiece::Register, 4, 1},
                     {"d", FindScalarType("double"), SValuePiece::Constant, 8, 0},
                     {"v", m_Types.Find("short4"), SValuePiece::Constant, 8, 0},
                     {"u", m_Types.Find("float4"), SValuePiece::Constant, 8, 0},
                     {"a", &m_Array, SValuePiece::Private, 16, 8},
                     {"m", &m_Array, SValuePiece::Local, 16, 0},
                     {"s", &m_Struct, SValuePiece::Private, 24, 24},
                     {"p", pointer(m_Struct, SSourceType::GlobalSpace), SValuePiece::Constant, 8, 0},
                     {"q", pointer(*FindScalarType("char"), SSourceType::LocalSpace), SValuePiece::Register, 4, 2},
                     {"t", pointer(m_Array, SSourceType::PrivateSpace), SValuePiece::Register, 4, 0},
                     {"gone", FindScalarType("ulong"), SValuePiece::Nowhere, 8, 0}};
        for (const auto& variable : known)
        {
            if (bHere && strName == variable.pszName)
            {
                const SValuePiece piece{variable.ePlace, variable.nBytes, variable.nNumber, vEight};
                return SSourceVariable{strName, variable.pType, false, 0, {piece}};
            }
        }
        return std::nullopt;
    }
    const SSourceType* FindType(const std::string& strName) override
    {
        return strName == m_Struct.strName ? &m_Struct : nullptr;
    }
    std::vector<SMemory> ListMemory(SSourceType::ESpace eSpace) override
    {
        return eSpace == SSourceType::LocalSpace ? std::vector<SMemory>{{0, 16, 0}, {16, 5, 1}}
                                                 : std::vector<SMemory>{{0x4141414141414100, 200000, 2}};
    }
    std::vector<unsigned char> ReadMemory(SSourceType::ESpace, const SMemory& memory, size_t nGroup, uint64_t nOffset,
                                          size_t nBytes) override
    {
        Require(nOffset <= memory.nSize && nBytes <= memory.nSize - nOffset && nGroup < 2,
                "no bytes are asked for but those of the memory");
        return std::vector<unsigned char>(nBytes, static_cast<unsigned char>(0x41 + memory.nPlace));
    }
    std::vector<unsigned char> ReadAllPrivate(uint64_t nAddress, size_t nBytes) override
    {
        if (nAddress > 64 || nBytes > 64 - nAddress)
        {
            throw CCommandError("no private memory there");
        }
        // A byte has the same value whatever is read around it.
        std::vector<unsigned char> vBytes(s_nItems * nBytes);
        for (size_t n = 0; n < vBytes.size(); ++n)
        {
            vBytes[n] = static_cast<unsigned char>(nAddress + n % nBytes);
        }
        return vBytes;
    }

private:
    CTypeStore m_Types;
    SSourceType m_Array;
    SSourceType m_Struct;
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
        if (!expression.IsNumber())
        {
            for (size_t i = 0; i < s_nItems; ++i)
            {
                Require(!expression.Format(i, i % 2 == 0).empty(), "a value has a text", strText);
            }
        }
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

/// Each line is a command of the prompt; the rest of the line is also used as an expression, a number and a text to
/// print.
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
