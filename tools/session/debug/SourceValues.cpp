#include "tools/session/debug/SourceValues.h"

#include "tools/session/debug/CommandError.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

/// \throws CCommandError if the value is too large to show
SSourceValue Unread(const SSourceType& type)
{
    const size_t nMaxBytes = 1 << 20;
    if (type.nSize > nMaxBytes)
    {
        throw CCommandError(type.strName + " is larger than what can be shown");
    }
    return {&type, std::vector<unsigned char>(type.nSize), std::vector<bool>(type.nSize)};
}

std::string NameRegister(const SValuePiece& piece)
{
    const std::string strNumber = std::to_string(piece.nNumber / 4);
    return piece.ePlace == SValuePiece::Register ? "r" + strNumber : "cb1[" + strNumber + "]";
}

} // namespace

std::vector<SSourceVariable> CSourceValues::List()
{
    m_Debugger.RequireLive();
    const std::vector<SFrame> vFrames = m_Debugger.GetFrames();
    const SFrame& frame = vFrames[std::min(m_Debugger.GetFrame(), vFrames.size() - 1)];
    std::vector<SSourceVariable> vVariables = m_Debugger.FindVariables(frame.nLine);
    vVariables.erase(std::remove_if(vVariables.begin(), vVariables.end(),
                                    [&](const SSourceVariable& variable) {
                                        return variable.nFrame != frame.nDepth &&
                                               variable.nFrame != SSourceVariable::NoFrame;
                                    }),
                     vVariables.end());
    return vVariables;
}

/// Bytes that can't be read stay unknown.
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

std::string CSourceValues::Format(const SSourceValue& value, EFormat eFormat)
{
    return FormatValue(value, eFormat, [this](uint64_t nAddress) { return m_Debugger.NameAddress(nAddress); });
}

} // namespace KestrelTool
