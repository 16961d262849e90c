#include "binary/ILProcessingStateMachine.h"

#include <cstring>

#include <emmintrin.h>

namespace OVK_ShaderDebugger
{

namespace
{

constexpr int s_nNumStates = 16;
constexpr int s_nMaxRules = 5;

/// What happens on a character, or on any other than those named.
struct SRule
{
    const char* szInput;  ///< the characters that the rule is for; null for any other
    const char* szOutput; ///< written first
    bool bCopies;         ///< the character itself is written
    bool bKeeps;          ///< the next state sees the character again
    int nNextState;
};

/// A state's rules. The last is for any other character.
struct SState
{
    SRule rules[s_nMaxRules];
};

constexpr SRule Any(const char* szOutput, bool bCopies, bool bKeeps, int nNextState)
{
    return {nullptr, szOutput, bCopies, bKeeps, nNextState};
}

constexpr SRule On(const char* szInput, const char* szOutput, bool bCopies, int nNextState)
{
    return {szInput, szOutput, bCopies, false, nNextState};
}

/// A state that reads a keyword: it either goes on or lets state 0 see the character.
constexpr SState Keyword(const char* szInput, int nNextState)
{
    return {{On(szInput, "", true, nNextState), Any("", false, true, 0)}};
}

constexpr bool IsComplete(const SState& state)
{
    int nRule = 0;
    while (nRule < s_nMaxRules && state.rules[nRule].szInput != nullptr)
    {
        if (state.rules[nRule].nNextState >= s_nNumStates)
        {
            return false;
        }
        ++nRule;
    }
    return nRule < s_nMaxRules && state.rules[nRule].nNextState < s_nNumStates;
}

constexpr SState s_States[s_nNumStates] = {
    /* 0 text */ {{On("\n", "", false, 2), On("\r", "", false, 3), On("f", "", true, 9), On("m", "", true, 4),
                   Any("", true, false, 0)}},
    /* 1 is never entered */ {{Any("", true, false, 0)}},
    /* 2 after "\n" */ {{On(" ", "", false, 2), Any("\n", false, true, 0)}},
    /* 3 after "\r" */ {{On(" ", "", false, 3), Any("\r", false, true, 0)}},
    /* 4 "m" */ {{On("d", "", true, 5), On("e", "", true, 7), Any("", false, true, 0)}},
    /* 5 "md" */ Keyword("e", 6),
    /* 6 "mde" */ Keyword("f", 12),
    /* 7 "me" */ Keyword("n", 8),
    /* 8 "men" */ Keyword("d", 12),
    /* 9 "f" */ Keyword("u", 10),
    /* 10 "fu" */ Keyword("n", 11),
    /* 11 "fun" */ Keyword("c", 12),
    /* 12 the rest of a keyword's line */
    {{On("\n", "", false, 15), On("\r", "", false, 13), Any("", true, false, 12)}},
    /* 13 after its "\r" */ {{On("\n", "", false, 14), Any("", false, true, 0)}},
    /* 14 after its "\r\n" */ {{On(";", " ;", false, 0), On(" \t", "", false, 14), Any("\r\n", false, true, 0)}},
    /* 15 after its "\n" */ {{On(";", " ;", false, 0), On(" \t", "", false, 15), Any("\n", false, true, 0)}}};

constexpr bool AreComplete()
{
    for (const SState& state : s_States)
    {
        if (!IsComplete(state))
        {
            return false;
        }
    }
    return true;
}
static_assert(AreComplete(), "every state has a rule for any other character and leads to a state");

/// The index of the rule for each state and character, so that a character costs one look-up, and whether the rule only
/// copies the character, as it does for most of a text.
struct SRuleIndex
{
    unsigned char nRule[s_nNumStates][256];
    bool bPlain[s_nNumStates][256];
};

constexpr bool Applies(const SRule& rule, char c)
{
    if (rule.szInput == nullptr)
    {
        return true;
    }
    for (const char* pInput = rule.szInput; *pInput != 0; ++pInput)
    {
        if (*pInput == c)
        {
            return true;
        }
    }
    return false;
}

constexpr SRuleIndex MakeRuleIndex()
{
    SRuleIndex index = {};
    for (int nState = 0; nState < s_nNumStates; ++nState)
    {
        for (int nCharacter = 0; nCharacter < 256; ++nCharacter)
        {
            unsigned char nRule = 0;
            while (!Applies(s_States[nState].rules[nRule], static_cast<char>(nCharacter)))
            {
                ++nRule;
            }
            const SRule& rule = s_States[nState].rules[nRule];
            index.nRule[nState][nCharacter] = nRule;
            index.bPlain[nState][nCharacter] =
                nCharacter != 0 && rule.bCopies && !rule.bKeeps && *rule.szOutput == 0 && rule.nNextState == nState;
        }
    }
    return index;
}

constexpr SRuleIndex s_RuleIndex = MakeRuleIndex();

/// Whether a character that leads out of state 0 leads straight back to it: a line break with no blank after it, the
/// first letter of a keyword that doesn't follow. Lines and "mov" are much more frequent than what the machine is for.
bool BeginsNothing(const char* pText, unsigned int nLeft)
{
    constexpr unsigned int s_nKeywordSize = 4;
    switch (*pText)
    {
    case '\n':
        return nLeft > 1 && pText[1] != ' ' && pText[1] != 0;
    case 'f':
        return nLeft >= s_nKeywordSize && std::memcmp(pText, "func", s_nKeywordSize) != 0;
    case 'm':
        return nLeft >= s_nKeywordSize && std::memcmp(pText, "mdef", s_nKeywordSize) != 0 &&
               std::memcmp(pText, "mend", s_nKeywordSize) != 0;
    default:
        return false;
    }
}

/// What isn't plain in state 0.
constexpr char s_TextStops[] = {'\n', '\r', 'f', 'm', 0};

constexpr bool AreTextStopsComplete()
{
    int nStops = 0;
    for (int nCharacter = 0; nCharacter < 256; ++nCharacter)
    {
        nStops += s_RuleIndex.bPlain[0][nCharacter] ? 0 : 1;
    }
    for (const char c : s_TextStops)
    {
        nStops -= s_RuleIndex.bPlain[0][static_cast<unsigned char>(c)] ? 0 : 1;
    }
    return nStops == 0;
}
static_assert(AreTextStopsComplete(), "no other character leads out of state 0");

constexpr unsigned int s_nVectorSize = 16;

/// A bit for each of 16 characters that isn't plain in state 0.
unsigned int FindTextStops(const char* pText)
{
    const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pText));
    __m128i stops = _mm_setzero_si128();
    for (const char c : s_TextStops)
    {
        stops = _mm_or_si128(stops, _mm_cmpeq_epi8(text, _mm_set1_epi8(c)));
    }
    return static_cast<unsigned int>(_mm_movemask_epi8(stops));
}

/// How many characters to pass over in state 0, whole vectors of them but for the last.
unsigned int CountPlainText(const char* pText, unsigned int nLeft)
{
    unsigned int n = 0;
    for (; nLeft - n >= s_nVectorSize; n += s_nVectorSize)
    {
        for (unsigned int nStops = FindTextStops(pText + n); nStops != 0; nStops &= nStops - 1)
        {
            const unsigned int nStop = n + static_cast<unsigned int>(__builtin_ctz(nStops));
            if (!BeginsNothing(pText + nStop, nLeft - nStop))
            {
                return nStop;
            }
        }
    }
    return n;
}

} // namespace

ILProcessingStateMachine::ILProcessingStateMachine(const char* pIn, unsigned int nInputSize, char* pOut)
    : m_in(pIn), m_out(pOut), m_inputSize(nInputSize)
{
}

void ILProcessingStateMachine::execute(unsigned int* pOutputSize)
{
    const char* pOutBegin = m_out;
    if (m_in != nullptr && m_out != nullptr)
    {
        for (AdvanceToNextChar(); !m_isDone; AdvanceToNextChar())
        {
            Act();
        }
    }
    if (pOutputSize != nullptr)
    {
        *pOutputSize = static_cast<unsigned int>(m_out - pOutBegin);
    }
}

void ILProcessingStateMachine::Act()
{
    const unsigned char nRule = s_RuleIndex.nRule[m_nextStateNum][static_cast<unsigned char>(m_currentChar)];
    const SRule& rule = s_States[m_nextStateNum].rules[nRule];
    for (const char* pText = rule.szOutput; *pText != 0; ++pText)
    {
        *m_out++ = *pText;
    }
    if (rule.bCopies)
    {
        *m_out++ = m_currentChar;
    }
    m_isCharInCache = rule.bKeeps;
    m_nextStateNum = rule.nNextState;
}

/// Passes over characters that don't change the state, or that change it and lead straight back with nothing else done.
void ILProcessingStateMachine::CopyPlain()
{
    const bool* const pPlain = s_RuleIndex.bPlain[m_nextStateNum];
    const unsigned int nLeft = m_inputSize - m_inputTraversedSoFar;
    const bool bInText = m_nextStateNum == 0;
    unsigned int n = bInText ? CountPlainText(m_in, nLeft) : 0;
    while (n < nLeft &&
           (pPlain[static_cast<unsigned char>(m_in[n])] || (bInText && BeginsNothing(m_in + n, nLeft - n))))
    {
        ++n;
    }
    if (m_in != m_out)
    {
        std::memmove(m_out, m_in, n);
    }
    m_in += n;
    m_out += n;
    m_inputTraversedSoFar += n;
}

void ILProcessingStateMachine::AdvanceToNextChar()
{
    if (m_isCharInCache)
    {
        m_isCharInCache = false;
        return;
    }
    CopyPlain();
    if (m_inputTraversedSoFar == m_inputSize)
    {
        m_isDone = true;
        return;
    }
    m_currentChar = *m_in++;
    ++m_inputTraversedSoFar;
    if (m_currentChar == 0)
    {
        *m_out++ = m_currentChar;
        m_isDone = true;
    }
}

} // namespace OVK_ShaderDebugger
