#include "tools/kestrel/Visible.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ostream>

namespace KestrelTool
{

namespace
{

/// One character at a place in a text.
struct SCharacter
{
    size_t nBytes = 1;
    uint32_t nCode = 0;
    bool bBroken = false; ///< not UTF-8; nBytes is 1
    bool bCut = false;    ///< the text ends inside it
};

/// The smallest code point that needs this many bytes; longer forms than necessary are invalid.
const uint32_t s_Least[] = {0, 0, 0x80, 0x800, 0x10000};

SCharacter ReadCharacter(const std::string& strText, size_t nPlace)
{
    SCharacter character;
    const auto nFirst = static_cast<unsigned char>(strText[nPlace]);
    const size_t nBytes = nFirst < 0x80         ? 1
                          : (nFirst >> 5) == 6  ? 2
                          : (nFirst >> 4) == 14 ? 3
                          : (nFirst >> 3) == 30 ? 4
                                                : 0;
    character.nCode = nBytes < 2 ? nFirst : nFirst & (0x7F >> nBytes);
    character.bBroken = nBytes == 0;
    for (size_t i = 1; i < nBytes && !character.bBroken; ++i)
    {
        if (nPlace + i == strText.size())
        {
            character.bBroken = character.bCut = true;
            break;
        }
        const auto nNext = static_cast<unsigned char>(strText[nPlace + i]);
        character.bBroken = (nNext >> 6) != 2;
        character.nCode = character.nCode << 6 | (nNext & 0x3F);
    }
    const bool bSurrogate = character.nCode >= 0xD800 && character.nCode <= 0xDFFF;
    character.bBroken =
        character.bBroken || character.nCode < s_Least[nBytes] || character.nCode > 0x10FFFF || bSurrogate;
    character.nBytes = character.bBroken ? 1 : nBytes;
    return character;
}

bool IsPlain(uint32_t nCode)
{
    static const struct
    {
        uint32_t nFirst;
        uint32_t nLast;
    } s_Hidden[] = {{0x00, 0x08},     {0x0B, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},
                    {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}};
    return std::none_of(std::begin(s_Hidden), std::end(s_Hidden),
                        [&](const auto& range) { return nCode >= range.nFirst && nCode <= range.nLast; });
}

void AppendVisible(const std::string& strText, size_t nPlace, const SCharacter& character, std::string& strVisible)
{
    if (!character.bBroken && IsPlain(character.nCode))
    {
        strVisible.append(strText, nPlace, character.nBytes);
        return;
    }
    char szCode[16] = {};
    const auto nByte = static_cast<unsigned int>(static_cast<unsigned char>(strText[nPlace]));
    if (character.bBroken || character.nCode < 0x80)
    {
        std::snprintf(szCode, sizeof(szCode), "\\x%02x", nByte);
    }
    else
    {
        std::snprintf(szCode, sizeof(szCode), "\\u%04x", character.nCode);
    }
    strVisible += szCode;
}

} // namespace

std::string MakeVisible(const std::string& strText)
{
    std::string strVisible;
    for (size_t n = 0; n < strText.size();)
    {
        const SCharacter character = ReadCharacter(strText, n);
        AppendVisible(strText, n, character, strVisible);
        n += character.nBytes;
    }
    return strVisible;
}

CVisibleBuffer::int_type CVisibleBuffer::overflow(int_type nChar)
{
    if (traits_type::eq_int_type(nChar, traits_type::eof()))
    {
        return traits_type::not_eof(nChar);
    }
    const char c = traits_type::to_char_type(nChar);
    return xsputn(&c, 1) == 1 ? nChar : traits_type::eof();
}

std::streamsize CVisibleBuffer::xsputn(const char* pText, std::streamsize nLength)
{
    const std::string strText = m_strHeld + std::string(pText, static_cast<size_t>(nLength));
    m_strHeld.clear();
    std::string strVisible;
    for (size_t n = 0; n < strText.size();)
    {
        const SCharacter character = ReadCharacter(strText, n);
        if (character.bCut)
        {
            m_strHeld = strText.substr(n);
            break;
        }
        AppendVisible(strText, n, character, strVisible);
        n += character.nBytes;
    }
    const auto nVisible = static_cast<std::streamsize>(strVisible.size());
    return m_Target.sputn(strVisible.data(), nVisible) == nVisible ? nLength : 0;
}

int CVisibleBuffer::sync()
{
    const std::string strVisible = MakeVisible(m_strHeld);
    m_strHeld.clear();
    const auto nVisible = static_cast<std::streamsize>(strVisible.size());
    const bool bWritten = m_Target.sputn(strVisible.data(), nVisible) == nVisible;
    return m_Target.pubsync() == 0 && bWritten ? 0 : -1;
}

void CVisibleBuffer::PutCommand(const char* pszCommand)
{
    m_Target.sputn(pszCommand, static_cast<std::streamsize>(std::strlen(pszCommand)));
}

void PutCommand(std::ostream& stream, const char* pszCommand)
{
    if (auto* const pBuffer = dynamic_cast<CVisibleBuffer*>(stream.rdbuf()))
    {
        pBuffer->PutCommand(pszCommand);
        return;
    }
    stream << pszCommand;
}

CVisibleStream::CVisibleStream(std::ostream& stream)
    : m_Stream(stream), m_pOld(stream.rdbuf()), m_Buffer(*stream.rdbuf())
{
    stream.rdbuf(&m_Buffer);
}

CVisibleStream::~CVisibleStream()
{
    m_Stream.rdbuf(m_pOld);
}

} // namespace KestrelTool
