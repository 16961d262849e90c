#ifndef KESTREL_TESTS_PLATFORM_COMPILER_STREAMGENERATOR_H
#define KESTREL_TESTS_PLATFORM_COMPILER_STREAMGENERATOR_H

#include "il/ILShaderUtils.h"

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

/// Generates token streams that decode, with random bits in every field. The shapes come from the library's opcode
/// queries, which share no code with the compiler's own tables.
class CStreamGenerator
{
public:
    explicit CStreamGenerator(uint32_t nSeed) : m_random(nSeed) {}

    /// All opcodes that a table names, except 0.
    static std::vector<uint32_t> KnownOpcodes()
    {
        std::vector<uint32_t> vOpcodes;
        for (uint32_t n = 1; n < IL_OP_LAST; ++n)
        {
            if (ILShaderUtils::GetFormatCode(static_cast<ILOpCode>(n)) != 0)
            {
                vOpcodes.push_back(n);
            }
        }
        return vOpcodes;
    }

    uint32_t Below(uint32_t n) { return static_cast<uint32_t>(m_random() % n); }

    /// A word: random, small, or with few bits set, so that both natural and generic spellings occur.
    uint32_t Word()
    {
        switch (Below(4))
        {
        case 0:
            return Below(64);
        case 1:
            return 1u << Below(32);
        case 2:
            return static_cast<uint32_t>(m_random() & m_random());
        default:
            return static_cast<uint32_t>(m_random());
        }
    }

    void Operand(std::vector<uint32_t>& v, bool bPlain)
    {
        uint32_t nToken = Word() ^ (Below(2) != 0 ? Word() : 0);
        nToken = bPlain ? nToken & 0x047F00FF : nToken;
        const uint32_t nKind = (nToken >> 23) & 3;
        if (nKind == 2)
        {
            nToken &= ~(1u << 25);
        }
        v.push_back(nToken);
        const auto Modifier = [&] { return bPlain ? Word() & 0x5555 : Word() ^ Word(); };
        if ((nToken >> 22) & 1)
        {
            v.push_back(Modifier());
        }
        if (nKind == 1 || (nKind == 0 && ((nToken >> 25) & 1) != 0))
        {
            v.push_back(Word());
        }
        if (nKind == 2)
        {
            const uint32_t nIndex = Word() ^ Word();
            v.push_back(nIndex);
            if ((nIndex >> 22) & 1)
            {
                v.push_back(Modifier());
            }
        }
        if ((nToken >> 26) & 1)
        {
            v.push_back(Word());
        }
        if ((nToken >> 31) & 1)
        {
            v.push_back(Word());
        }
    }

    void Words(std::vector<uint32_t>& v, uint32_t nCount)
    {
        for (uint32_t i = 0; i < nCount; ++i)
        {
            v.push_back(Word());
        }
    }

    void Item(std::vector<uint32_t>& v, uint32_t nOpcode)
    {
        const ILOpCode op = static_cast<ILOpCode>(nOpcode);
        const bool bPlain = Below(2) != 0;
        uint32_t nToken = nOpcode | (Word() & 0xFFFF0000u);
        const bool bCounted = nOpcode == 212 || nOpcode == 213;
        if (bCounted)
        {
            nToken = (nToken & 0xC000FFFFu) | Below(6) << 16;
        }
        v.push_back(nToken);
        uint32_t nModifier = 0;
        if (ILShaderUtils::HasInstructionModifier(op))
        {
            nModifier = nOpcode == 347 ? Below(2) << 16 | Below(10) : Word();
            v.push_back(nModifier);
        }
        if (ILShaderUtils::UsesStandardModifiers(op))
        {
            if (nToken >> 31)
            {
                const uint32_t nWord = nOpcode == 118 ? Below(5) : Word();
                v.push_back(nWord);
                Words(v, nOpcode == 118 ? nWord : 0);
            }
            Words(v, (nToken >> 30) & 1);
        }
        const bool bShaped = nOpcode != 213;
        const uint32_t nOperands = bShaped ? ILShaderUtils::GetDestRegCount(nToken, nModifier) +
                                                 ILShaderUtils::GetSrcRegCount(nToken, nModifier)
                                           : 0;
        for (uint32_t i = 0; i < nOperands; ++i)
        {
            Operand(v, bPlain);
        }
        Trailing(v, nOpcode, (nToken >> 16) & 0x3FFF);
    }

    void Trailing(std::vector<uint32_t>& v, uint32_t nOpcode, uint32_t nControls)
    {
        switch (nOpcode)
        {
        case 8:
        case 9:
        case 50:
        case 103:
        case 104:
        case 105:
        case 128:
        case 262:
        case 352:
        case 423:
            return Words(v, 1);
        case 424:
            return Words(v, 2);
        case 121:
            return Words(v, 4);
        case 212:
        case 213:
            return Words(v, nControls);
        case 15:
            return Comment(v);
        default:
            return;
        }
    }

    void Comment(std::vector<uint32_t>& v)
    {
        static const char* const s_Texts[] = {"",     "a",          "abc",  "abcd",      " func 1",
                                              "mend", "two\nlines", "cr\r", "\xC3\xA9;x"};
        const std::string strText = s_Texts[Below(9)];
        const uint32_t nWords = static_cast<uint32_t>(strText.size() / 4 + 1) + (Below(4) == 0 ? 1 : 0);
        const bool bText = Below(3) != 0;
        v.push_back(bText ? nWords : Below(5));
        const uint32_t nCount = v.back();
        if (!bText)
        {
            return Words(v, nCount);
        }
        std::vector<uint32_t> vText(nWords, 0);
        std::memcpy(vText.data(), strText.data(), strText.size());
        v.insert(v.end(), vText.begin(), vText.end());
    }

    /// A whole stream: up to two macros, the opening words, nItems items of any opcode.
    std::vector<uint32_t> Stream(uint32_t nItems)
    {
        static const std::vector<uint32_t> s_Opcodes = KnownOpcodes();
        const auto AnyItem = [&](std::vector<uint32_t>& v)
        {
            uint32_t nOpcode = Below(5) == 0 ? 15 : s_Opcodes[Below(static_cast<uint32_t>(s_Opcodes.size()))];
            Item(v, nOpcode == 346 ? 75 : nOpcode);
        };
        std::vector<uint32_t> v;
        for (uint32_t nMacro = Below(3); nMacro != 0; --nMacro)
        {
            Item(v, 345);
            for (uint32_t i = Below(4); i != 0; --i)
            {
                AnyItem(v);
            }
            Item(v, 346);
        }
        v.push_back(Below(2) == 0 ? 0 : Below(256));
        v.push_back(Below(2) == 0 ? 0x00030200 : Word());
        for (uint32_t i = 0; i < nItems; ++i)
        {
            AnyItem(v);
        }
        return v;
    }

private:
    std::mt19937 m_random;
};

#endif
