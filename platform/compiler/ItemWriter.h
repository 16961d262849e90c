#ifndef KESTREL_PLATFORM_COMPILER_ITEMWRITER_H
#define KESTREL_PLATFORM_COMPILER_ITEMWRITER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace KestrelPlatform
{

/// Writes the marks, numbers and operands of items as text. Checks no lengths: what it is given must decode.
class CItemWriter
{
public:
    /// \param strText   receives the text, complete when Finish returns; must outlive the writer
    /// \param nExpected about how many characters the text will need
    CItemWriter(std::string& strText, size_t nExpected) : m_strText(strText)
    {
        strText.clear();
        Grow(nExpected);
    }

    /// Cuts the text after what has been put.
    void Finish() { m_strText.resize(Length()); }

    /// Characters put so far.
    size_t Length() const { return static_cast<size_t>(m_p - m_strText.data()); }

    void Put(char c)
    {
        NeedRoom(1);
        *m_p++ = c;
    }

    void Put(std::string_view text)
    {
        NeedRoom(text.size());
        std::memcpy(m_p, text.data(), text.size());
        m_p += text.size();
    }

    void PutDecimal(uint32_t n);
    void PutHex(uint32_t n);
    /// Decimal for numbers that are easy to read that way, else hexadecimal.
    void PutNumber(uint32_t n);

    /// "_name", "_name(N)", "_name(0xN)", "_name(word)"
    void PutSuffix(std::string_view name);
    void PutSuffix(std::string_view name, uint32_t n);
    void PutHexSuffix(std::string_view name, uint32_t n);
    void PutSuffix(std::string_view name, std::string_view word);

    /// Puts an operand. Gives the number of its words.
    size_t PutOperand(const uint32_t* pOperand, bool bDestination);

private:
    void PutRaw(std::string_view name, uint32_t n);
    void PutRegister(uint32_t nToken);
    void PutBrackets(uint32_t nToken, const uint32_t*& pWord);
    void PutRawParts(uint32_t nToken, const uint32_t*& pWord);
    void PutIndexRegister(const uint32_t*& pWord);
    void PutModifier(uint32_t nModifier, bool bDestination);
    void PutSourceFields(uint32_t nModifier);
    bool PutMask(uint32_t nModifier);
    bool PutSourceModifier(uint32_t nModifier);

    void NeedRoom(size_t nCharacters)
    {
        if (static_cast<size_t>(m_pEnd - m_p) < nCharacters)
        {
            Grow(nCharacters);
        }
    }
    void Grow(size_t nCharacters);

    std::string& m_strText; ///< longer than what has been put, until Finish
    char* m_p = nullptr;    ///< where the next character goes
    char* m_pEnd = nullptr;
};

} // namespace KestrelPlatform

#endif
