#include "tools/kestrel/debug/SourceValues.h"

#include "tools/kestrel/debug/CommandError.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

namespace KestrelTool
{

namespace
{

const size_t s_nMaxElements = 200; ///< of an array that is shown

/// A part of a value as a value of its own.
SSourceValue PartOf(const SSourceValue& whole, size_t nOffset, const SSourceType& type)
{
    if (nOffset > whole.vBytes.size() || type.nSize > whole.vBytes.size() - nOffset)
    {
        throw CCommandError("the debug data give " + whole.pType->strName + " parts outside of itself");
    }
    const auto nFirst = static_cast<std::ptrdiff_t>(nOffset);
    const auto nEnd = static_cast<std::ptrdiff_t>(nOffset + type.nSize);
    return {&type,
            {whole.vBytes.begin() + nFirst, whole.vBytes.begin() + nEnd},
            {whole.vKnown.begin() + nFirst, whole.vKnown.begin() + nEnd},
            whole.nOffset + nOffset};
}

uint64_t BitsOf(const SSourceValue& value)
{
    uint64_t nBits = 0;
    std::memcpy(&nBits, value.vBytes.data(), std::min(value.vBytes.size(), sizeof(nBits)));
    return nBits;
}

float HalfToFloat(uint16_t nHalf)
{
    const int nExponent = nHalf >> 10 & 31;
    const float fFraction = static_cast<float>(nHalf & 1023);
    const float fSign = (nHalf & 0x8000) != 0 ? -1.0f : 1.0f;
    if (nExponent == 31)
    {
        return fFraction != 0 ? NAN : fSign * INFINITY;
    }
    return fSign * (nExponent == 0 ? std::ldexp(fFraction, -24) : std::ldexp(1024 + fFraction, nExponent - 25));
}

std::string FormatFloating(const SSourceValue& value)
{
    const uint64_t nBits = BitsOf(value);
    switch (value.vBytes.size())
    {
    case 8:
        return FormatDouble(WordsToDouble(static_cast<uint32_t>(nBits), static_cast<uint32_t>(nBits >> 32)));
    case 2:
        return FormatFloat(HalfToFloat(static_cast<uint16_t>(nBits)));
    default:
        return FormatFloat(WordToFloat(static_cast<uint32_t>(nBits)));
    }
}

std::string FormatInteger(const SSourceValue& value, EFormat eFormat)
{
    const uint64_t nBits = BitsOf(value);
    const size_t nUnused = 64 - 8 * std::clamp<size_t>(value.vBytes.size(), 1, 8);
    const bool bSigned =
        eFormat == EFormat::Int || (eFormat != EFormat::Unsigned && value.pType->eKind == SSourceType::Signed);
    if (eFormat == EFormat::Hex)
    {
        return FormatHex(nBits);
    }
    return bSigned ? std::to_string(static_cast<int64_t>(nBits << nUnused) >> nUnused) : std::to_string(nBits);
}

/// Which element of a vector a name means: x y z w, s0 to sf; none for another one.
std::optional<size_t> FindComponent(const std::string& strName)
{
    const size_t nLetter = std::string("xyzw").find(strName);
    if (strName.size() == 1 && nLetter != std::string::npos)
    {
        return nLetter;
    }
    const bool bNumbered = strName.size() == 2 && (strName[0] == 's' || strName[0] == 'S') &&
                           std::isxdigit(static_cast<unsigned char>(strName[1])) != 0;
    return bNumbered ? std::optional<size_t>(std::stoul(strName.substr(1), nullptr, 16)) : std::nullopt;
}

/// \throws CCommandError for more than can be shown
SSourceValue Unread(const SSourceType& type)
{
    const size_t nMaxBytes = 1 << 20;
    if (type.nSize > nMaxBytes)
    {
        throw CCommandError(type.strName + " is larger than what can be shown");
    }
    return {&type, std::vector<unsigned char>(type.nSize), std::vector<bool>(type.nSize), 0};
}

/// What an expression can compute with.
bool IsNumber(const SSourceType& type)
{
    const bool bInteger =
        type.eKind == SSourceType::Signed || type.eKind == SSourceType::Unsigned || type.eKind == SSourceType::Pointer;
    return (bInteger && type.nSize >= 1 && type.nSize <= 8) ||
           (type.eKind == SSourceType::Float && (type.nSize == 4 || type.nSize == 8));
}

std::string NameRegister(const SValuePiece& piece)
{
    const std::string strNumber = std::to_string(piece.nNumber / 4);
    return piece.ePlace == SValuePiece::Register ? "r" + strNumber : "cb1[" + strNumber + "]";
}

/// The words of a part of a variable, if one register has them all.
bool FindRegisters(const SSourceVariable& variable, size_t nOffset, SVariableWords& words)
{
    size_t nPlace = 0;
    size_t nWanted = nOffset;
    for (const SValuePiece& piece : variable.vPieces)
    {
        const bool bRegister = piece.ePlace == SValuePiece::Register || piece.ePlace == SValuePiece::Argument;
        if (nPlace == nWanted && bRegister && nWanted < nOffset + words.nSize && piece.nBytes <= words.nSize)
        {
            const std::string strRegister = NameRegister(piece);
            if (!words.strRegister.empty() && words.strRegister != strRegister)
            {
                return false;
            }
            words.strRegister = strRegister;
            words.vComponents.push_back(piece.nNumber % 4);
            nWanted += piece.nBytes;
        }
        nPlace += piece.nBytes;
    }
    return nWanted == nOffset + words.nSize && words.vComponents.size() == (words.nSize + 3) / 4;
}

} // namespace

bool SSourceValue::IsKnown() const
{
    return std::find(vKnown.begin(), vKnown.end(), false) == vKnown.end();
}

// ---------------------------------------------------------------------------------------- paths

/// Reads a path and follows it.
class CSourceValues::CPath
{
public:
    CPath(CSourceValues& values, const std::string& strText) : m_Values(values), m_strText(strText) {}

    /// \param read  gives the value of the variable that the path begins with
    template <class Read>
    std::optional<SSourceValue> Follow(const std::vector<SSourceVariable>& vVariables, const Read& read)
    {
        size_t nStars = 0;
        while (Take("*"))
        {
            ++nStars;
        }
        const std::string strName = TakeWord();
        const auto it = std::find_if(vVariables.begin(), vVariables.end(),
                                     [&](const SSourceVariable& variable) { return variable.strName == strName; });
        if (strName.empty() || it == vVariables.end() || !IsPath())
        {
            return std::nullopt;
        }
        SSourceValue value = read(*it);
        while (m_nPos < m_strText.size())
        {
            value = FollowOne(value);
        }
        for (; nStars > 0; --nStars)
        {
            value = m_Values.Follow(value, 0);
        }
        return value;
    }

private:
    void SkipBlanks()
    {
        while (m_nPos < m_strText.size() && std::isspace(static_cast<unsigned char>(m_strText[m_nPos])) != 0)
        {
            ++m_nPos;
        }
    }

    bool Take(const char* pszText)
    {
        SkipBlanks();
        const bool bThere = m_strText.compare(m_nPos, std::strlen(pszText), pszText) == 0;
        m_nPos += bThere ? std::strlen(pszText) : 0;
        return bThere;
    }

    std::string TakeWord()
    {
        SkipBlanks();
        const size_t nStart = m_nPos;
        while (m_nPos < m_strText.size() &&
               (std::isalnum(static_cast<unsigned char>(m_strText[m_nPos])) != 0 || m_strText[m_nPos] == '_'))
        {
            ++m_nPos;
        }
        std::string strWord = m_strText.substr(nStart, m_nPos - nStart);
        SkipBlanks();
        return strWord;
    }

    /// Whether what is left are members, and elements by number, alone.
    bool IsPath()
    {
        const size_t nStart = m_nPos;
        bool bPath = true;
        while (bPath && m_nPos < m_strText.size())
        {
            if (Take("->") || Take("."))
            {
                bPath = !TakeWord().empty();
                continue;
            }
            const bool bIndex = Take("[");
            const std::string strIndex = TakeWord();
            bPath = bIndex && !strIndex.empty() &&
                    std::all_of(strIndex.begin(), strIndex.end(),
                                [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }) &&
                    strIndex.size() < 18 && Take("]");
            SkipBlanks();
        }
        m_nPos = nStart;
        return bPath;
    }

    SSourceValue FollowOne(const SSourceValue& value)
    {
        if (Take("->"))
        {
            return MemberOf(m_Values.Follow(value, 0), TakeWord());
        }
        if (Take("."))
        {
            return MemberOf(value, TakeWord());
        }
        Take("[");
        const auto nIndex = static_cast<size_t>(std::stoull(TakeWord()));
        Take("]");
        SkipBlanks();
        const bool bElements = value.pType->eKind == SSourceType::Array || value.pType->eKind == SSourceType::Vector;
        if (!bElements)
        {
            return m_Values.Follow(value, static_cast<int64_t>(nIndex));
        }
        if (nIndex >= value.pType->nCount)
        {
            throw CCommandError(value.pType->strName + " has no element " + std::to_string(nIndex));
        }
        return PartOf(value, nIndex * value.pType->pElement->nSize, *value.pType->pElement);
    }

    static SSourceValue MemberOf(const SSourceValue& value, const std::string& strName)
    {
        const SSourceType& type = *value.pType;
        const std::optional<size_t> nComponent =
            type.eKind == SSourceType::Vector ? FindComponent(strName) : std::nullopt;
        if (nComponent && *nComponent < type.nCount)
        {
            return PartOf(value, *nComponent * type.pElement->nSize, *type.pElement);
        }
        for (const SSourceType::SMember& member : type.vMembers)
        {
            if (member.strName == strName)
            {
                return PartOf(value, member.nOffset, *member.pType);
            }
        }
        throw CCommandError(type.strName + " has no member " + strName);
    }

    CSourceValues& m_Values;
    const std::string& m_strText;
    size_t m_nPos = 0;
};

// ---------------------------------------------------------------------------------------- values

std::vector<SSourceVariable> CSourceValues::List()
{
    m_Debugger.RequireLive();
    const std::vector<SFrame> vFrames = m_Debugger.GetFrames();
    const SFrame& frame = vFrames[std::min(m_Debugger.GetFrame(), vFrames.size() - 1)];
    std::vector<SSourceVariable> vVariables = m_Debugger.GetDebugInfo().FindVariables(frame.nLine);
    vVariables.erase(std::remove_if(vVariables.begin(), vVariables.end(),
                                    [&](const SSourceVariable& variable) {
                                        return variable.nFrame != frame.nDepth &&
                                               variable.nFrame != SSourceVariable::NoFrame;
                                    }),
                     vVariables.end());
    return vVariables;
}

/// What can't be had isn't known.
void CSourceValues::ReadPiece(const SValuePiece& piece, size_t nItem, SSourceValue& value, size_t nOffset)
{
    std::vector<unsigned char> vBytes;
    try
    {
        uint32_t nWord = 0;
        switch (piece.ePlace)
        {
        case SValuePiece::Register:
        case SValuePiece::Argument:
            nWord = m_Debugger.GetValues(NameRegister(piece))[nItem][piece.nNumber % 4];
            for (size_t n = 0; n < sizeof(nWord); ++n)
            {
                vBytes.push_back(static_cast<unsigned char>(nWord >> (8 * n)));
            }
            break;
        case SValuePiece::Constant:
            vBytes = piece.vBytes;
            break;
        case SValuePiece::Private:
            vBytes = m_Debugger.ReadPrivate(nItem, piece.nNumber, piece.nBytes);
            break;
        case SValuePiece::Local:
            vBytes = m_Debugger.ReadLocal(m_Debugger.FindDeclaredLocal(), m_Debugger.GetExtent().GroupOf(nItem),
                                          piece.nNumber, piece.nBytes);
            break;
        case SValuePiece::Nowhere:
            break;
        }
    }
    catch (const CCommandError&)
    {
        return;
    }
    const size_t nBytes = std::min({vBytes.size(), piece.nBytes, value.vBytes.size() - nOffset});
    for (size_t n = 0; n < nBytes; ++n)
    {
        value.vBytes[nOffset + n] = vBytes[n];
        value.vKnown[nOffset + n] = true;
    }
}

SSourceValue CSourceValues::Read(const SSourceVariable& variable, size_t nItem)
{
    SSourceValue value = Unread(*variable.pType);
    size_t nOffset = 0;
    for (const SValuePiece& piece : variable.vPieces)
    {
        if (nOffset >= value.vBytes.size())
        {
            break;
        }
        ReadPiece(piece, nItem, value, nOffset);
        nOffset += piece.nBytes;
    }
    return value;
}

/// What a pointer into global memory points to, or the element behind it.
SSourceValue CSourceValues::Follow(const SSourceValue& pointer, int64_t nIndex)
{
    if (pointer.pType->eKind != SSourceType::Pointer)
    {
        throw CCommandError(pointer.pType->strName + " is no pointer");
    }
    if (!pointer.IsKnown())
    {
        throw CCommandError("the pointer has no value here");
    }
    const SSourceType& type = *pointer.pType->pElement;
    const uint64_t nAddress = BitsOf(pointer) + static_cast<uint64_t>(nIndex) * type.nSize;
    const std::vector<unsigned char> vBytes = m_Debugger.ReadGlobal(nAddress, Unread(type).vBytes.size());
    if (vBytes.size() < type.nSize || vBytes.empty())
    {
        throw CCommandError("there is no " + type.strName + " at " + m_Debugger.NameAddress(nAddress));
    }
    return {&type, vBytes, std::vector<bool>(type.nSize, true), 0};
}

std::optional<SSourceValue> CSourceValues::ReadPath(const std::string& strPath)
{
    return CPath(*this, strPath)
        .Follow(List(), [this](const SSourceVariable& variable) { return Read(variable, m_Debugger.GetFocus()); });
}

std::optional<SVariableWords> CSourceValues::FindWords(const std::string& strPath, bool bHere)
{
    std::vector<SSourceVariable> vVariables = m_Debugger.IsLive() ? List() : std::vector<SSourceVariable>();
    if (!bHere)
    {
        const std::string strName = strPath.substr(0, strPath.find_first_of(".["));
        const std::vector<SSourceVariable> vAnywhere = m_Debugger.GetDebugInfo().FindByName(strName);
        vVariables.insert(vVariables.end(), vAnywhere.begin(), vAnywhere.end());
    }
    SSourceVariable found;
    std::optional<SSourceValue> value;
    try
    {
        value = CPath(*this, strPath)
                    .Follow(vVariables,
                            [&found](const SSourceVariable& variable)
                            {
                                found = variable;
                                return Unread(*variable.pType);
                            });
    }
    catch (const CCommandError&)
    {
        // A path over a pointer, or to a part that isn't there, is no single number of the variable's.
    }
    if (!value || !IsNumber(*value->pType))
    {
        return std::nullopt;
    }
    SVariableWords words;
    words.eKind = value->pType->eKind == SSourceType::Float    ? SElementType::Float
                  : value->pType->eKind == SSourceType::Signed ? SElementType::Signed
                                                               : SElementType::Unsigned;
    words.nSize = value->pType->nSize;
    if (bHere && !FindRegisters(found, value->nOffset, words))
    {
        throw CCommandError(found.vPieces.empty() ? strPath + " is optimized out here"
                                                  : strPath + " isn't in a register here; print shows it");
    }
    return words;
}

// ---------------------------------------------------------------------------------------- text

std::string CSourceValues::Format(const SSourceValue& value, EFormat eFormat)
{
    const SSourceType& type = *value.pType;
    std::string strText;
    if (type.nSize == 0)
    {
        return "<optimized out>";
    }
    switch (type.eKind)
    {
    case SSourceType::Vector:
    case SSourceType::Array:
        for (size_t n = 0; n < type.nCount; ++n)
        {
            if (n == s_nMaxElements)
            {
                strText += ", ...";
                break;
            }
            strText += (n == 0 ? "" : ", ") + Format(PartOf(value, n * type.pElement->nSize, *type.pElement), eFormat);
        }
        return type.eKind == SSourceType::Vector ? "(" + strText + ")" : "{" + strText + "}";
    case SSourceType::Struct:
        for (const SSourceType::SMember& member : type.vMembers)
        {
            strText += (strText.empty() ? "" : ", ") + member.strName + " = " +
                       Format(PartOf(value, member.nOffset, *member.pType), eFormat);
        }
        return "{" + strText + "}";
    default:
        break;
    }
    if (!value.IsKnown())
    {
        return "<optimized out>";
    }
    if (type.eKind == SSourceType::Pointer)
    {
        return m_Debugger.NameAddress(BitsOf(value));
    }
    return type.eKind == SSourceType::Float && eFormat != EFormat::Hex ? FormatFloating(value)
                                                                       : FormatInteger(value, eFormat);
}

} // namespace KestrelTool
