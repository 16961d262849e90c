#include "il/ShaderDebuggerInstructionIL.h"

#include "core/Log.h"
#include "il/ILOpCodeTable.h"
#include "il/InstructionCursor.h"
#include "il/ShaderDebuggerUtilsIL.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace OVK_ShaderDebugger
{

namespace
{

constexpr std::uint32_t s_nNoOffset = std::numeric_limits<std::uint32_t>::max();

/// Null, too, when there is nothing to copy.
template <typename T>
std::unique_ptr<T[]> CopyArray(const T* pArray, std::uint32_t nCount)
{
    std::unique_ptr<T[]> pCopy(nCount != 0 ? new (std::nothrow) T[nCount] : nullptr);

    if (pCopy != nullptr)
    {
        std::copy_n(pArray, nCount, pCopy.get());
    }

    return pCopy;
}

constexpr SOperandTexts s_DestTexts = {"stream.ReadToken(tokens[m_nDestRegTokenOffset + nDestTokenLen])",
                                       "dst->bits.dimension == 0"};
constexpr SOperandTexts s_SrcTexts = {"stream.ReadToken(tokens[nSrcRegOffset])", "src->bits.dimension == 0"};
constexpr const char* s_pszModifierTruncated = "stream.ReadToken(tokens[nOpcodeTokenLen])";
constexpr const char* s_pszTrailingTruncated = "stream.ReadToken(tokens[m_nLength])";

} // namespace

CShaderDebuggerInstructionIL::CShaderDebuggerInstructionIL(IShaderDebugger* pDebugger) : m_pDebugger(pDebugger)
{
    Clear();
}

CShaderDebuggerInstructionIL::CShaderDebuggerInstructionIL(const CShaderDebuggerInstructionIL& other)
    : m_OpCode(other.m_OpCode), m_pTokens(CopyArray(other.m_pTokens.get(), other.m_nLength)),
      m_nLength(other.m_nLength), m_nReadTokens(other.m_nReadTokens),
      m_nDestRegTokenOffset(other.m_nDestRegTokenOffset),
      m_nExtendedSrcRegTokenOffsetsCount(other.m_nExtendedSrcRegTokenOffsetsCount),
      m_vnExtendedSrcRegTokenOffsets(
          CopyArray(other.m_vnExtendedSrcRegTokenOffsets.get(), other.m_nExtendedSrcRegTokenOffsetsCount)),
      m_pDebugger(other.m_pDebugger)
{
    std::copy_n(other.m_nSrcRegTokenOffsets, MAX_BASE_SRC_REG_COUNT, m_nSrcRegTokenOffsets);

    const bool bComplete = (m_nLength == 0 || m_pTokens != nullptr) &&
                           (m_nExtendedSrcRegTokenOffsetsCount == 0 || m_vnExtendedSrcRegTokenOffsets != nullptr);

    if (!SD_AssertText(GetHost(), bComplete, "out of memory"))
    {
        Clear();
    }
}

CShaderDebuggerInstructionIL& CShaderDebuggerInstructionIL::operator=(const CShaderDebuggerInstructionIL& other)
{
    if (this != &other)
    {
        *this = CShaderDebuggerInstructionIL(other);
    }

    return *this;
}

CShaderDebuggerInstructionIL::CShaderDebuggerInstructionIL(CShaderDebuggerInstructionIL&& other) noexcept
    : CShaderDebuggerInstructionIL(other.m_pDebugger)
{
    *this = std::move(other);
}

CShaderDebuggerInstructionIL& CShaderDebuggerInstructionIL::operator=(CShaderDebuggerInstructionIL&& other) noexcept
{
    if (this != &other)
    {
        m_OpCode = other.m_OpCode;
        m_pTokens = std::move(other.m_pTokens);
        m_nLength = other.m_nLength;
        m_nReadTokens = other.m_nReadTokens;
        m_nDestRegTokenOffset = other.m_nDestRegTokenOffset;
        std::copy_n(other.m_nSrcRegTokenOffsets, MAX_BASE_SRC_REG_COUNT, m_nSrcRegTokenOffsets);
        m_nExtendedSrcRegTokenOffsetsCount = other.m_nExtendedSrcRegTokenOffsetsCount;
        m_vnExtendedSrcRegTokenOffsets = std::move(other.m_vnExtendedSrcRegTokenOffsets);
        m_pDebugger = other.m_pDebugger;
        other.Clear();
    }

    return *this;
}

void CShaderDebuggerInstructionIL::Clear()
{
    m_OpCode = IL_OP_UNKNOWN;
    m_pTokens.reset();
    m_nLength = 0;
    m_nReadTokens = 0;
    m_nDestRegTokenOffset = 0;
    std::fill_n(m_nSrcRegTokenOffsets, MAX_BASE_SRC_REG_COUNT, 0);
    m_nExtendedSrcRegTokenOffsetsCount = 0;
    m_vnExtendedSrcRegTokenOffsets.reset();
}

bool CShaderDebuggerInstructionIL::ReadInstruction(CInputTokenStream<unsigned int>& stream)
{
    Clear();

    CInstructionCursor cursor(stream);
    const bool bDecoded = Decode(cursor);
    stream.SkipTokens(cursor.GetLength());

    if (!bDecoded || !TakeTokens(cursor))
    {
        Clear();
        return false;
    }

    return true;
}

bool CShaderDebuggerInstructionIL::Decode(CInstructionCursor& cursor)
{
    if (cursor.IsAtEnd())
    {
        return false;
    }

    IL instMod = 0;
    return DecodeOpCode(cursor) && DecodeModifiers(cursor, instMod) && DecodeOperands(cursor, instMod) &&
           DecodeTrailingWords(cursor);
}

bool CShaderDebuggerInstructionIL::DecodeOpCode(CInstructionCursor& cursor)
{
    IL opToken = 0;
    cursor.Read(opToken, s_pszModifierTruncated);
    m_OpCode = ILFormatDecode::GetOp(opToken);
    return SD_Assert(GetHost(), m_OpCode != IL_OP_UNKNOWN) && ILShaderUtils::HasDescription(m_OpCode);
}

bool CShaderDebuggerInstructionIL::DecodeModifiers(CInstructionCursor& cursor, IL& instMod)
{
    const IL_OpCode opToken{cursor.GetTokens()[0]};

    if (HasInstructionModifier() && !cursor.Read(instMod, "stream.ReadToken(instMod)"))
    {
        return false;
    }

    // A call has one destination operand at most: with more results it can't be told where its operands end.
    if (m_OpCode == IL_OP_MACROCALL && !SD_Assert(GetHost(), instMod >> 16 <= 1))
    {
        return false;
    }

    if (!ILShaderUtils::UsesStandardModifiers(m_OpCode))
    {
        return true;
    }

    IL priMod = 0;

    if (opToken.bits.pri_modifier_present && !cursor.Read(priMod, "stream.ReadToken(priMod)"))
    {
        return false;
    }

    // The primary modifier of a constant buffer's declaration counts the values of its inline table.
    const std::uint32_t nTableWords = m_OpCode == IL_DCL_CONST_BUFFER ? priMod : 0;
    return cursor.Skip(nTableWords, s_pszModifierTruncated) &&
           cursor.Skip(opToken.bits.sec_modifier_present, s_pszModifierTruncated);
}

bool CShaderDebuggerInstructionIL::DecodeOperands(CInstructionCursor& cursor, IL instMod)
{
    const IL opToken = cursor.GetTokens()[0];

    if (ILShaderUtils::HasDestReg(opToken, instMod))
    {
        m_nDestRegTokenOffset = cursor.GetLength();

        if (!cursor.SkipOperand(s_DestTexts))
        {
            return false;
        }
    }

    const std::uint32_t nSrcRegCount = ILShaderUtils::GetSrcRegCount(opToken, instMod);

    // Every source has a token at least: a count that the stream can't hold needs no memory.
    if (nSrcRegCount > cursor.GetTokensLeft())
    {
        return cursor.Skip(nSrcRegCount, s_SrcTexts.pszTruncated);
    }

    if (!ReserveExtendedOffsets(nSrcRegCount))
    {
        return false;
    }

    for (std::uint32_t nSrcReg = 0; nSrcReg < nSrcRegCount; ++nSrcReg)
    {
        SetSrcRegTokenOffset(nSrcReg, cursor.GetLength());

        if (!cursor.SkipOperand(s_SrcTexts))
        {
            return false;
        }
    }

    return true;
}

bool CShaderDebuggerInstructionIL::DecodeTrailingWords(CInstructionCursor& cursor) const
{
    switch (ILShaderUtils::GetTail(m_OpCode))
    {
    case ILT_COUNTED:
    {
        IL nCount = 0;
        return cursor.Read(nCount, "stream.ReadToken(nCommentLength)") && cursor.Skip(nCount, s_pszTrailingTruncated);
    }
    case ILT_BY_CONTROLS:
        return cursor.Skip(IL_OpCode{cursor.GetTokens()[0]}.bits.controls, s_pszTrailingTruncated);
    case ILT_FOUR:
        return cursor.Skip(4, s_pszTrailingTruncated);
    case ILT_TWO:
        return cursor.Skip(2, s_pszTrailingTruncated);
    case ILT_ONE:
        return cursor.Skip(1, s_pszTrailingTruncated);
    case ILT_NONE:
        break;
    }
    return true;
}

bool CShaderDebuggerInstructionIL::ReserveExtendedOffsets(std::uint32_t nSrcRegCount)
{
    if (nSrcRegCount <= MAX_BASE_SRC_REG_COUNT)
    {
        return true;
    }

    m_nExtendedSrcRegTokenOffsetsCount = nSrcRegCount - MAX_BASE_SRC_REG_COUNT;
    m_vnExtendedSrcRegTokenOffsets.reset(new (std::nothrow) std::uint32_t[m_nExtendedSrcRegTokenOffsetsCount]());
    return SD_AssertText(GetHost(), m_vnExtendedSrcRegTokenOffsets != nullptr, "out of memory");
}

bool CShaderDebuggerInstructionIL::TakeTokens(const CInstructionCursor& cursor)
{
    m_nLength = cursor.GetLength();
    m_pTokens = CopyArray(cursor.GetTokens(), m_nLength);
    return SD_AssertText(GetHost(), m_pTokens != nullptr, "out of memory");
}

bool CShaderDebuggerInstructionIL::WriteInstruction(COutputTokenStream<unsigned int>& stream) const
{
    return m_nLength != 0 && stream.WriteTokens(m_pTokens.get(), m_nLength);
}

bool CShaderDebuggerInstructionIL::HasDestReg() const
{
    Register reg;
    return GetDestRegister(reg);
}

ILRegType CShaderDebuggerInstructionIL::GetDestRegType() const
{
    return m_nDestRegTokenOffset != 0 ? ILShaderUtils::GetOpCodeDestType(m_pTokens[m_nDestRegTokenOffset])
                                      : IL_REGTYPE_LAST;
}

bool CShaderDebuggerInstructionIL::GetDestRegister(Register& reg) const
{
    if (m_nDestRegTokenOffset == 0)
    {
        return false;
    }

    std::uint32_t nOffset = m_nDestRegTokenOffset;
    const IL_Dst* dst = ILFormatDecode::AsDest(&m_pTokens[nOffset]);
    const RegisterType regType = ShaderDebuggerUtilsIL::ILtoSDRegisterType(ILFormatDecode::RegisterType(dst));

    if (!SD_Assert(GetHost(), regType != RT_Unknown))
    {
        return false;
    }

    RegisterMask mask = COMP_All;

    if (dst->bits.modifier_present)
    {
        mask = ShaderDebuggerUtilsIL::GetMask(*ILFormatDecode::AsDestMod(&m_pTokens[++nOffset]));
    }

    if (!SD_Assert(GetHost(), dst->bits.relative_address == IL_ADDR_ABSOLUTE ||
                                  dst->bits.relative_address == IL_ADDR_REG_RELATIVE))
    {
        return false;
    }

    const bool bDynamicIndex = dst->bits.relative_address == IL_ADDR_REG_RELATIVE;
    Register indexReg;

    if (bDynamicIndex && !GetIndexRegister(nOffset, indexReg))
    {
        return false;
    }

    nOffset += dst->bits.dimension; // an index word of its own, before the constant index
    const IL nIndex = dst->bits.immediate_present ? m_pTokens[++nOffset] : 0;
    reg.reg = RegisterID(regType, static_cast<unsigned int>(ILFormatDecode::RegisterNumber(dst)), nIndex,
                         bDynamicIndex ? &indexReg : nullptr);
    reg.mask = mask;
    return true;
}

bool CShaderDebuggerInstructionIL::GetIndexRegister(std::uint32_t& nOffset, Register& indexReg) const
{
    const IL_Src* indexSrc = ILFormatDecode::AsSource(&m_pTokens[++nOffset]);
    const RegisterType indexRegType = ShaderDebuggerUtilsIL::ILtoSDRegisterType(ILFormatDecode::RegisterType(indexSrc));

    if (!SD_Assert(GetHost(), indexRegType != RT_Unknown))
    {
        return false;
    }

    if (!SD_Assert(GetHost(),
                   indexSrc->bits.relative_address == IL_ADDR_ABSOLUTE && indexSrc->bits.immediate_present == 0))
    {
        return false;
    }

    if (!indexSrc->bits.modifier_present)
    {
        return SD_Break(GetHost(), "Modifier not present");
    }

    indexReg.reg =
        RegisterID(indexRegType, static_cast<unsigned int>(ILFormatDecode::RegisterNumber(indexSrc)), 0, nullptr);
    indexReg.mask = ShaderDebuggerUtilsIL::GetMask(*ILFormatDecode::AsSourceMod(&m_pTokens[++nOffset]));
    return true;
}

Register CShaderDebuggerInstructionIL::GetDestRegister() const
{
    Register reg;
    SD_Assert(GetHost(), GetDestRegister(reg));
    return reg;
}

bool CShaderDebuggerInstructionIL::SetDestRegister(const RegisterID& id)
{
    const ILRegType type = ShaderDebuggerUtilsIL::SDtoILRegisterType(id.type);

    if (m_nDestRegTokenOffset == 0 || type == IL_REGTYPE_LAST)
    {
        return false;
    }

    IL_Dst* dst = ILFormatDecode::AsDest(&m_pTokens[m_nDestRegTokenOffset]);
    const bool bModifier = dst->bits.modifier_present;
    *dst = ShaderDebuggerUtilsIL::DestRegister(type, static_cast<int>(id.number), bModifier);

    const std::uint32_t nOldEnd = m_nSrcRegTokenOffsets[0] != 0 ? m_nSrcRegTokenOffsets[0] : m_nLength;
    const std::uint32_t nNewEnd = m_nDestRegTokenOffset + (bModifier ? 2 : 1);
    RemoveTokens(nNewEnd, nOldEnd - nNewEnd);
    return true;
}

void CShaderDebuggerInstructionIL::RemoveTokens(std::uint32_t nFirst, std::uint32_t nCount)
{
    IL* pFirst = &m_pTokens[nFirst];
    std::copy(pFirst + nCount, m_pTokens.get() + m_nLength, pFirst);

    const std::uint32_t nSrcRegCount = GetSrcRegCount();

    for (std::uint32_t nSrcReg = 0; nSrcReg < nSrcRegCount; ++nSrcReg)
    {
        SetSrcRegTokenOffset(nSrcReg, GetSrcRegTokenOffset(nSrcReg) - nCount);
    }

    m_nLength -= nCount;
}

std::uint32_t CShaderDebuggerInstructionIL::GetSrcRegCount() const
{
    return ILShaderUtils::GetSrcRegCount(GetToken(0), GetInstructionModifier());
}

bool CShaderDebuggerInstructionIL::GetSrcRegister(std::uint32_t nSrcReg, Register& reg) const
{
    const std::uint32_t nOffset = GetSrcRegTokenOffset(nSrcReg);

    if (nOffset == s_nNoOffset)
    {
        reg = g_Reg_NULL;
        return false;
    }

    const IL_Src* src = ILFormatDecode::AsSource(&m_pTokens[nOffset]);
    reg.reg = RegisterID(ShaderDebuggerUtilsIL::ILtoSDRegisterType(ILFormatDecode::RegisterType(src)),
                         static_cast<unsigned int>(ILFormatDecode::RegisterNumber(src)), 0, nullptr);
    reg.mask = src->bits.modifier_present
                   ? ShaderDebuggerUtilsIL::GetMask(*ILFormatDecode::AsSourceMod(&m_pTokens[nOffset + 1]))
                   : static_cast<RegisterMask>(COMP_All);
    return true;
}

Register CShaderDebuggerInstructionIL::GetSrcRegister(std::uint32_t nSrcReg) const
{
    Register reg;
    SD_Assert(GetHost(), GetSrcRegister(nSrcReg, reg));
    return reg;
}

std::uint32_t CShaderDebuggerInstructionIL::GetSrcRegTokenOffset(std::uint32_t nSrcReg) const
{
    if (nSrcReg >= GetSrcRegCount())
    {
        return s_nNoOffset;
    }

    return nSrcReg < MAX_BASE_SRC_REG_COUNT ? m_nSrcRegTokenOffsets[nSrcReg]
                                            : m_vnExtendedSrcRegTokenOffsets[nSrcReg - MAX_BASE_SRC_REG_COUNT];
}

void CShaderDebuggerInstructionIL::SetSrcRegTokenOffset(std::uint32_t nSrcReg, std::uint32_t nOffset)
{
    (nSrcReg < MAX_BASE_SRC_REG_COUNT ? m_nSrcRegTokenOffsets[nSrcReg]
                                      : m_vnExtendedSrcRegTokenOffsets[nSrcReg - MAX_BASE_SRC_REG_COUNT]) = nOffset;
}

bool CShaderDebuggerInstructionIL::ReadToken(IL& token)
{
    if (m_nReadTokens >= m_nLength)
    {
        return false;
    }

    token = m_pTokens[m_nReadTokens++];
    return true;
}

bool CShaderDebuggerInstructionIL::WritesToReg(const Register& reg) const
{
    Register dest;
    return GetDestRegister(dest) && dest.reg == reg.reg;
}

bool CShaderDebuggerInstructionIL::ReadsFromReg(const Register& reg) const
{
    const std::uint32_t nSrcRegCount = GetSrcRegCount();

    for (std::uint32_t nSrcReg = 0; nSrcReg < nSrcRegCount; ++nSrcReg)
    {
        Register source;

        if (GetSrcRegister(nSrcReg, source) && source.reg == reg.reg)
        {
            return true;
        }
    }

    return false;
}

CShaderDebuggerHost* CShaderDebuggerInstructionIL::GetHost() const
{
    return m_pDebugger != nullptr ? m_pDebugger->GetHost() : nullptr;
}

} // namespace OVK_ShaderDebugger
