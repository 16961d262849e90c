#ifndef KESTREL_IL_SHADERDEBUGGERINSTRUCTIONIL_H
#define KESTREL_IL_SHADERDEBUGGERINSTRUCTIONIL_H

#include "core/ShaderDebuggerCommon.h"
#include "il/ILFormatDecode.h"
#include "il/ILShaderUtils.h"
#include "il/TokenStream.h"

#include <cstdint>
#include <memory>
#include <string>

namespace OVK_ShaderDebugger
{

class CInstructionCursor;
class CShaderDebuggerHost;
class IShaderDebugger;

/// One decoded instruction: its tokens exactly as they stood in the stream, and where its operands begin. What is read
/// and written again comes out bit for bit. Objects are independent of each other: threads may decode at once.
class CShaderDebuggerInstructionIL
{
public:
    /// The number of sources with an inline offset; only `mcall` can have more.
    static constexpr std::uint32_t MAX_BASE_SRC_REG_COUNT = 6;

    /// An empty instruction. \param pDebugger the way to the log; not owned, may be null
    explicit CShaderDebuggerInstructionIL(IShaderDebugger* pDebugger);
    /// Copies have arrays of their own. If memory is short the copy is empty (length 0).
    CShaderDebuggerInstructionIL(const CShaderDebuggerInstructionIL& other);
    CShaderDebuggerInstructionIL& operator=(const CShaderDebuggerInstructionIL& other);
    /// What is moved from is empty.
    CShaderDebuggerInstructionIL(CShaderDebuggerInstructionIL&& other) noexcept;
    CShaderDebuggerInstructionIL& operator=(CShaderDebuggerInstructionIL&& other) noexcept;
    ~CShaderDebuggerInstructionIL() = default;

    /// Decodes the next instruction in place of the present one.
    /// \return false, with the instruction empty, at the end of the stream; and, logged, for an unknown opcode, a
    /// truncated instruction, an operand that can't be decoded, or when memory is short
    bool ReadInstruction(CInputTokenStream<unsigned int>& stream);
    /// Appends all tokens. \return false for an empty instruction or a failed write
    bool WriteInstruction(COutputTokenStream<unsigned int>& stream) const;

    ILOpCode GetOpCode() const { return m_OpCode; }
    std::string GetOpCodeName() const { return ILShaderUtils::GetOpCodeName(m_OpCode); }
    IL_OpCode GetOpToken() const { return IL_OpCode{GetToken(0)}; }

    bool HasInstructionModifier() const { return ILShaderUtils::HasInstructionModifier(m_OpCode); }
    /// The word after the opcode token of `mdef` and `mcall`, 0 for the others.
    IL GetInstructionModifier() const { return HasInstructionModifier() ? GetToken(1) : 0; }

    /// Whether there is a destination that GetDestRegister can name.
    bool HasDestReg() const;
    /// The type of the destination token, IL_REGTYPE_LAST when there is none.
    ILRegType GetDestRegType() const;
    /// The written register with its index and index register.
    /// \return false, with reg unchanged, when there is none; logged, when its form is one that this can't name
    bool GetDestRegister(Register& reg) const;
    /// The same for an instruction that is known to have one; failure is logged and gives g_Reg_NULL.
    Register GetDestRegister() const;
    /// Makes another register, without index, the destination. The modifier word, if there is one, stays; index words
    /// are dropped. \return false, with nothing changed, when there is no destination or the IL has no such register
    bool SetDestRegister(const RegisterID& id);

    std::uint32_t GetSrcRegCount() const;
    /// Source nSrcReg, with the component that it reads as mask. The index isn't read: it is always 0.
    /// \return false, with reg g_Reg_NULL, when there is no such source
    bool GetSrcRegister(std::uint32_t nSrcReg, Register& reg) const;
    /// The same for a source that is known to exist; failure is logged.
    Register GetSrcRegister(std::uint32_t nSrcReg) const;

    /// Token n, 0 past the end.
    IL GetToken(std::uint32_t n) const { return n < m_nLength ? m_pTokens[n] : 0; }
    /// All GetLength() tokens; null when empty. Valid until the instruction changes.
    const IL* GetTokens() const { return m_pTokens.get(); }
    std::uint32_t GetLength() const { return m_nLength; }
    /// Where the destination token stands, 0 for none.
    std::uint32_t GetDestRegTokenOffset() const { return m_nDestRegTokenOffset; }
    /// Where the token of a source stands; the largest 32-bit number when there is no such source.
    std::uint32_t GetSrcRegTokenOffset(std::uint32_t nSrcReg) const;

    /// How many tokens ReadToken has given.
    std::uint32_t GetReadTokens() const { return m_nReadTokens; }
    /// The next token by the instruction's own cursor. \return false at the end
    bool ReadToken(IL& token);

    bool IsInstruction() const { return ILShaderUtils::IsInstruction(m_OpCode); }
    bool IsDCL() const { return ILShaderUtils::IsDCL(m_OpCode); }
    bool IsDCLInput() const { return ILShaderUtils::IsDCLInput(m_OpCode); }
    bool IsDCLOutput() const { return ILShaderUtils::IsDCLOutput(m_OpCode); }
    bool IsDCLLiteral() const { return ILShaderUtils::IsDCLLiteral(m_OpCode); }
    bool IsFlowControlOp() const { return ILShaderUtils::IsFlowControlOp(m_OpCode); }

    /// Whether the destination's, or some source's, RegisterID equals the register's; masks don't matter.
    bool WritesToReg(const Register& reg) const;
    bool ReadsFromReg(const Register& reg) const;

    CShaderDebuggerHost* GetHost() const;

private:
    void Clear();
    bool Decode(CInstructionCursor& cursor);
    bool DecodeOpCode(CInstructionCursor& cursor);
    bool DecodeModifiers(CInstructionCursor& cursor, IL& instMod);
    bool DecodeOperands(CInstructionCursor& cursor, IL instMod);
    bool DecodeTrailingWords(CInstructionCursor& cursor) const;
    bool ReserveExtendedOffsets(std::uint32_t nSrcRegCount);
    bool TakeTokens(const CInstructionCursor& cursor);
    /// Walks from the word before an index operand to its last word.
    bool GetIndexRegister(std::uint32_t& nOffset, Register& indexReg) const;
    void SetSrcRegTokenOffset(std::uint32_t nSrcReg, std::uint32_t nOffset);
    void RemoveTokens(std::uint32_t nFirst, std::uint32_t nCount);

    ILOpCode m_OpCode;
    std::unique_ptr<IL[]> m_pTokens;
    std::uint32_t m_nLength;
    std::uint32_t m_nReadTokens;
    std::uint32_t m_nDestRegTokenOffset; ///< 0 for none: token 0 is the opcode token
    std::uint32_t m_nSrcRegTokenOffsets[MAX_BASE_SRC_REG_COUNT];
    std::uint32_t m_nExtendedSrcRegTokenOffsetsCount;
    std::unique_ptr<std::uint32_t[]> m_vnExtendedSrcRegTokenOffsets; ///< source 6 onward
    IShaderDebugger* m_pDebugger;
};

} // namespace OVK_ShaderDebugger

#endif // KESTREL_IL_SHADERDEBUGGERINSTRUCTIONIL_H
