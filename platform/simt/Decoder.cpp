#include "platform/simt/Decoder.h"

namespace KestrelPlatform
{

namespace
{

const uint32_t s_nShaderCompute = 3;

uint32_t Bits(uint32_t nWord, uint32_t nFirst, uint32_t nCount)
{
    return (nWord >> nFirst) & ((1u << nCount) - 1);
}

/// Decodes the words in one pass; every read is checked against the end.
class CStreamDecoder
{
public:
    CStreamDecoder(SDecodedStream& stream, SDecodeError& error) : m_Stream(stream), m_Error(error) {}

    bool Run()
    {
        bool bHeader = false;
        while (m_nPos < m_Stream.nTokens)
        {
            // Only macro definitions may come before the language token, whose value isn't that of a macro definition.
            const bool bMacro = m_bInMacro || (m_Stream.pTokens[m_nPos] & 0xFFFF) == IL_OP_MACRODEF;
            if (!bHeader && !bMacro)
            {
                if (!ReadHeader())
                {
                    return false;
                }
                bHeader = true;
                continue;
            }
            if (!ReadItem())
            {
                return false;
            }
            const ILOpCode eOpCode = m_Stream.vItems.back().eOpCode;
            if (eOpCode == IL_OP_MACRODEF)
            {
                m_bInMacro = true;
            }
            if (eOpCode == IL_OP_MACROEND)
            {
                m_bInMacro = false;
            }
            if (eOpCode == IL_OP_END)
            {
                return true;
            }
        }
        return Fail(bHeader ? "the stream has no end" : "the stream has no language token");
    }

private:
    bool Fail(const std::string& strMessage)
    {
        m_Error.nInstruction = m_Stream.nInstructions;
        m_Error.strMessage = strMessage;
        return false;
    }

    /// Apart from the reads, which are small enough then to be compiled into where they are called.
    [[gnu::cold]] [[gnu::noinline]] bool FailShort()
    {
        return Fail(std::string(m_pszName) + ": the stream is cut short");
    }

    bool Next(uint32_t& nWord)
    {
        if (m_nPos >= m_Stream.nTokens)
        {
            return FailShort();
        }
        nWord = m_Stream.pTokens[m_nPos++];
        return true;
    }

    bool Skip(size_t nWords)
    {
        if (nWords > m_Stream.nTokens - m_nPos)
        {
            return FailShort();
        }
        m_nPos += nWords;
        return true;
    }

    bool ReadHeader()
    {
        m_pszName = "header";
        uint32_t nLanguage = 0;
        uint32_t nVersion = 0;
        if (!Next(nLanguage) || !Next(nVersion))
        {
            return false;
        }
        if (nLanguage >> 8)
        {
            return Fail("the language token has reserved bits set");
        }
        if ((nVersion & 0xFFFF) == 0)
        {
            return Fail("the version is 0");
        }
        if (Bits(nVersion, 16, 8) != s_nShaderCompute)
        {
            return Fail("the stream isn't a compute kernel");
        }
        return true;
    }

    bool ReadItem()
    {
        SItem item;
        m_pszName = "opcode";
        if (!Next(item.nToken))
        {
            return false;
        }
        const uint32_t nOpCode = item.nToken & 0xFFFF;
        const SInstructionShape& shape = GetInstructionShape(nOpCode);
        if (!shape.pName)
        {
            return Fail("opcode " + std::to_string(nOpCode) + " isn't known");
        }
        item.eOpCode = static_cast<ILOpCode>(nOpCode);
        m_pszName = shape.pName;
        if (!ReadModifiers(item, shape) || !SkipOperands(item, shape) || !ReadTrailing(item, shape))
        {
            return false;
        }
        if (shape.bInstruction)
        {
            item.nInstruction = m_Stream.nInstructions++;
        }
        m_Stream.vItems.push_back(item);
        return true;
    }

    bool ReadModifiers(SItem& item, const SInstructionShape& shape)
    {
        if (shape.bInstructionModifier && !Next(item.nModifier))
        {
            return false;
        }
        if (!shape.bModifierWords)
        {
            return true;
        }
        uint32_t nPrimary = 0;
        const bool bPrimary = (item.nToken >> 31) != 0;
        if (bPrimary && !Next(nPrimary))
        {
            return false;
        }
        if (bPrimary && item.eOpCode == IL_DCL_CONST_BUFFER)
        {
            item.nFirstWord = static_cast<uint32_t>(m_nPos);
            item.nWords = nPrimary;
            if (!Skip(nPrimary))
            {
                return false;
            }
        }
        if (!shape.bInstructionModifier)
        {
            item.nModifier = nPrimary;
        }
        uint32_t nSecondary = 0;
        return Bits(item.nToken, 30, 1) == 0 || Next(nSecondary);
    }

    bool SkipOperands(SItem& item, const SInstructionShape& shape)
    {
        item.bDestination = shape.bDestination;
        item.nSources = shape.nSources;
        if (item.eOpCode == IL_OP_MACROCALL)
        {
            if ((item.nModifier >> 16) > 1)
            {
                return Fail("mcall: more than one destination");
            }
            item.bDestination = (item.nModifier >> 16) == 1;
            item.nSources = item.nModifier & 0xFFFF;
        }
        if (item.eOpCode == IL_DCL_CONST_BUFFER && (item.nToken >> 31))
        {
            item.nSources = 0;
        }
        item.nFirstOperand = static_cast<uint32_t>(m_nPos);
        const uint32_t nOperands = item.nSources + (item.bDestination ? 1 : 0);
        for (uint32_t n = 0; n < nOperands; ++n)
        {
            if (!SkipOperand())
            {
                return false;
            }
        }
        return true;
    }

    /// Advances past an operand, whose words must all be there.
    bool SkipOperand()
    {
        uint32_t nToken = 0;
        const bool bModifiers = Next(nToken) && Skip(Bits(nToken, 22, 1));
        return bModifiers && SkipAddressing(nToken) && Skip(Bits(nToken, 26, 1) + (nToken >> 31));
    }

    bool SkipAddressing(uint32_t nToken)
    {
        const uint32_t nDimension = Bits(nToken, 25, 1);
        uint32_t nRegister = 0;
        switch (Bits(nToken, 23, 2))
        {
        case 0:
            return Skip(nDimension);
        case 1:
            return Skip(1);
        case 2:
            if (nDimension)
            {
                return Fail(std::string(m_pszName) + ": an operand with an index register has a second dimension");
            }
            return Next(nRegister) && Skip(Bits(nRegister, 22, 1));
        default:
            return true;
        }
    }

    bool TrailingWords(const SItem& item, EILTail eTail, uint32_t& nWords)
    {
        switch (eTail)
        {
        case ILT_NONE:
            break;
        case ILT_ONE:
            nWords = 1;
            break;
        case ILT_TWO:
            nWords = 2;
            break;
        case ILT_FOUR:
            nWords = 4;
            break;
        case ILT_BY_CONTROLS:
            nWords = item.Controls();
            break;
        case ILT_COUNTED:
            return Next(nWords);
        }
        return true;
    }

    bool ReadTrailing(SItem& item, const SInstructionShape& shape)
    {
        uint32_t nWords = 0;
        if (!TrailingWords(item, shape.eTail, nWords))
        {
            return false;
        }
        if (nWords == 0)
        {
            return true;
        }
        item.nFirstWord = static_cast<uint32_t>(m_nPos);
        item.nWords = nWords;
        return Skip(nWords);
    }

    SDecodedStream& m_Stream;
    SDecodeError& m_Error;
    size_t m_nPos = 0;
    bool m_bInMacro = false;
    const char* m_pszName = "header";
};

/// Decodes operands whose words are known to be there.
class COperandReader
{
public:
    explicit COperandReader(const uint32_t* pTokens) : m_pNext(pTokens) {}

    void Read(bool bDestination, SOperand& operand)
    {
        const uint32_t nToken = *m_pNext++;
        operand.nType = Bits(nToken, 16, 6);
        operand.nNumber = RegisterNumber(nToken);
        if (Bits(nToken, 22, 1))
        {
            if (bDestination)
            {
                DestinationModifiers(operand, *m_pNext++);
            }
            else
            {
                SourceModifiers(operand, *m_pNext++);
            }
        }
        ReadAddressing(operand, nToken);
        operand.bImmediate = Bits(nToken, 26, 1) != 0;
        if (operand.bImmediate)
        {
            operand.nImmediate = *m_pNext++;
        }
        m_pNext += nToken >> 31;
    }

private:
    static int32_t RegisterNumber(uint32_t nToken)
    {
        const bool bSigned = Bits(nToken, 16, 6) == IL_REGTYPE_TEMP && Bits(nToken, 27, 1);
        return bSigned ? static_cast<int16_t>(nToken & 0xFFFF) : static_cast<int32_t>(nToken & 0xFFFF);
    }

    static void SourceModifiers(SOperand& operand, uint32_t nWord)
    {
        for (uint32_t n = 0; n < 4; ++n)
        {
            const uint32_t nSelect = Bits(nWord, n * 4, 3);
            operand.select[n] = static_cast<uint8_t>(nSelect);
            if (nSelect > SOperand::SelectOne)
            {
                operand.select[n] = SOperand::SelectZero;
            }
            operand.bNegate[n] = Bits(nWord, n * 4 + 3, 1) != 0;
        }
        operand.bInvert = Bits(nWord, 16, 1) != 0;
        operand.bBias = Bits(nWord, 17, 1) != 0;
        operand.bTimes2 = Bits(nWord, 18, 1) != 0;
        operand.bSign = Bits(nWord, 19, 1) != 0;
        operand.bAbs = Bits(nWord, 20, 1) != 0;
        operand.bClamp = Bits(nWord, 24, 1) != 0;
    }

    static void DestinationModifiers(SOperand& operand, uint32_t nWord)
    {
        for (uint32_t n = 0; n < 4; ++n)
        {
            operand.write[n] = static_cast<uint8_t>(Bits(nWord, n * 2, 2));
        }
        operand.bClamp = Bits(nWord, 8, 1) != 0;
        operand.nShift = static_cast<uint8_t>(Bits(nWord, 9, 4));
    }

    void ReadAddressing(SOperand& operand, uint32_t nToken)
    {
        const uint32_t nMode = Bits(nToken, 23, 2);
        if (nMode == 0)
        {
            m_pNext += Bits(nToken, 25, 1);
        }
        if (nMode != 1 && nMode != 2)
        {
            return;
        }
        const uint32_t nWord = *m_pNext++;
        operand.bIndexed = true;
        if (nMode == 1)
        {
            operand.nIndexType = IL_REGTYPE_ADDR;
            operand.nIndexNumber = static_cast<int32_t>(nWord & 0xFFFF);
            operand.nIndexComponent = static_cast<uint8_t>(Bits(nWord, 17, 3) & 3);
            return;
        }
        operand.nIndexType = Bits(nWord, 16, 6);
        operand.nIndexNumber = RegisterNumber(nWord);
        if (Bits(nWord, 22, 1))
        {
            operand.nIndexComponent = static_cast<uint8_t>(Bits(*m_pNext++, 0, 3) & 3);
        }
    }

    const uint32_t* m_pNext;
};

} // namespace

bool DecodeStream(const uint32_t* pTokens, size_t nCount, SDecodedStream& stream, SDecodeError& error)
{
    stream.vItems.clear();
    stream.nInstructions = 0;
    stream.pTokens = pTokens;
    stream.nTokens = nCount;
    // An instruction with an operand has at least three tokens, usually five or six.
    stream.vItems.reserve(nCount / 5 + 1);
    return CStreamDecoder(stream, error).Run();
}

void ReadOperands(const SDecodedStream& stream, const SItem& item, std::vector<SOperand>& vOperands)
{
    static const SOperand s_Plain;
    vOperands.resize(item.nSources + (item.bDestination ? 1 : 0));
    COperandReader reader(stream.pTokens + item.nFirstOperand);
    for (size_t n = 0; n < vOperands.size(); ++n)
    {
        vOperands[n] = s_Plain;
        reader.Read(item.bDestination && n == 0, vOperands[n]);
    }
}

} // namespace KestrelPlatform
