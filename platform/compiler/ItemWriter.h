#ifndef KESTREL_PLATFORM_COMPILER_ITEMWRITER_H
#define KESTREL_PLATFORM_COMPILER_ITEMWRITER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace KestrelPlatform
{

/// Appends the marks, numbers and operands of an item to a text. Measures nothing: what it is given must decode.
class CItemWriter
{
public:
    /// \param strText must outlive the writer
    explicit CItemWriter(std::string& strText) : m_strText(strText) {}

    void Put(char c) { m_strText.push_back(c); }
    void Put(std::string_view text) { m_strText.append(text); }
    void PutDecimal(uint32_t n);
    void PutHex(uint32_t n);
    /// In decimal as long as that is easy to read.
    void PutNumber(uint32_t n);

    /// "_name", "_name(N)", "_name(0xN)", "_name(word)"
    void PutSuffix(std::string_view name);
    void PutSuffix(std::string_view name, uint32_t n);
    void PutHexSuffix(std::string_view name, uint32_t n);
    void PutSuffix(std::string_view name, std::string_view word);

    /// Puts an operand, and gives the number of its words.
    size_t PutOperand(const uint32_t* pOperand, bool bDestination);

private:
    void PutRaw(std::string_view name, uint32_t n);
    void PutRegister(uint32_t nToken);
    void PutBrackets(uint32_t nToken, const uint32_t*& pWord);
    void PutIndexRegister(const uint32_t*& pWord);
    void PutModifier(uint32_t nModifier, bool bDestination);
    bool PutMask(uint32_t nModifier);
    bool PutSourceModifier(uint32_t nModifier);

    std::string& m_strText;
};

} // namespace KestrelPlatform

#endif
