#ifndef KESTREL_PLATFORM_COMPILER_CHARCLASS_H
#define KESTREL_PLATFORM_COMPILER_CHARCLASS_H

#include <cstdint>

namespace KestrelPlatform
{

/// What a character of an IL text can be part of, as bits.
enum ECharClass : uint8_t
{
    CharLetter = 1,
    CharDigit = 2,
    CharUnderscore = 4,
    CharOperandPart = 8 ///< opens a part of an operand after its register
};

/// The classes of each character. The character 0 has none.
class CCharClasses
{
public:
    constexpr CCharClasses()
    {
        AddRange('a', 'z', CharLetter);
        AddRange('A', 'Z', CharLetter);
        AddRange('0', '9', CharDigit);
        Add('_', CharUnderscore);
        Add('[', CharOperandPart);
        Add('.', CharOperandPart);
        Add('_', CharOperandPart);
        Add('{', CharOperandPart);
    }

    constexpr uint8_t Of(char c) const { return m_nClasses[static_cast<unsigned char>(c)]; }

private:
    constexpr void Add(unsigned char c, ECharClass eClass) { m_nClasses[c] |= eClass; }

    constexpr void AddRange(unsigned char cFirst, unsigned char cLast, ECharClass eClass)
    {
        for (unsigned char c = cFirst; c <= cLast; ++c)
        {
            Add(c, eClass);
        }
    }

    uint8_t m_nClasses[256] = {};
};

inline constexpr CCharClasses s_CharClasses;

inline bool IsOfClass(char c, unsigned int nClasses)
{
    return (s_CharClasses.Of(c) & nClasses) != 0;
}

} // namespace KestrelPlatform

#endif
