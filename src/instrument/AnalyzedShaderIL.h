#ifndef KESTREL_INSTRUMENT_ANALYZEDSHADERIL_H
#define KESTREL_INSTRUMENT_ANALYZEDSHADERIL_H

#include "core/ShaderDebuggerShader.h"
#include "il/FlowControl.h"
#include "il/ShaderDebuggerInstructionIL.h"
#include "il/TokenStream.h"

#include <array>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace OVK_ShaderDebugger
{

class CAnalysisPass;
struct SOperand;

/// The value of a number of the kernel that isn't known yet.
constexpr unsigned int s_nNotSet = std::numeric_limits<unsigned int>::max();

/// The constant buffer in which a kernel finds its arguments.
constexpr unsigned int s_nArgumentBuffer = 1;

/// The value of a literal register.
struct Vec4
{
    unsigned int x = 0;
    unsigned int y = 0;
    unsigned int z = 0;
    unsigned int w = 0;
};

/// A declaration of a literal, and the first instruction that stands after it.
struct SLiteralDeclaration
{
    InstructionNumber nInst;
    Vec4 value;
};

/// What one function of a kernel declares. The main body is function 0.
struct Declarations
{
    std::map<unsigned int, unsigned int> m_ConstantBufferSizes; ///< of buffers above 1, in 16-byte elements
    std::vector<CShaderDebuggerInstructionIL> m_Resources;
    std::vector<CShaderDebuggerInstructionIL> m_UAVs;                ///< dcl_uav, dcl_typed_uav and dcl_typeless_uav
    std::map<unsigned int, unsigned int> m_PrivateUAVSizes;          ///< UAV number to bytes
    std::map<unsigned int, unsigned int> m_LocalSizes;               ///< number of local memory to bytes
    std::map<unsigned int, unsigned int> m_IndexedTempRegisterSizes; ///< array number to elements
};

/// A macro that the position enters as it enters a function. Its end is no instruction.
struct SOutlineMacro
{
    unsigned int nLabel;
    InstructionNumber nFirst;
    InstructionNumber nEnd; ///< the first instruction after it
};

/// What is known of a kernel: the lowest layer of the kernel under debug. One pass over the IL, run once, finds the
/// instructions, the block structure, the registers that each instruction writes, what each function declares, and
/// which temp, literal and UAV numbers are free for the debugger. The results stay fixed from then on.
class CAnalyzedShaderIL : public CShaderDebuggerShader
{
public:
    /// The number of register numbers of one type.
    static constexpr unsigned int NUM_IL_REGISTER_INDICES = 65536;
    /// How deep blocks may nest. Deeper kernels are refused: each instruction is noted in every block around it, so
    /// without a limit the time would grow with the square of the text.
    static constexpr size_t MAX_BLOCK_DEPTH = 1024;

    /// The data is a kernel binary in ELF form with binary IL in it, or a plain array of tokens. It is copied.
    CAnalyzedShaderIL(IShaderDebugger* pDebugger, const void* pShaderData, size_t nShaderSize);
    ~CAnalyzedShaderIL() override;

    /// Fills everything below; to be called once, by the constructor of the complete object. A refusal leaves
    /// DM_Asm out of the debug modes, and its message in the debugger's last error.
    /// \return true if the kernel can be debugged
    bool AnalyzeShader();

    /// Takes the device, the address size, the size of the argument buffer and the samplers from the metadata text of
    /// the kernel. \return false for a bad text and for a device on which kernels can't be debugged
    bool AnalyzeMetadata(std::string strMetadata);

    /// Follows the index register of a destination back from instruction nInst to literals, and puts their value into
    /// the register's index.
    /// \param nMaxDepth how many instructions with a destination may be looked at
    /// \return true if reg needs no index register any more; it is unchanged otherwise
    bool ResolveIndexRegisterToConstant(Register* reg, InstructionNumber nInst, size_t nMaxDepth);

    /// Whether the kernel declares a private UAV of that number; whether an instruction stores to one.
    bool HasPrivateUAV(unsigned int nNumber) const { return m_PrivateUAVNums.count(nNumber) != 0; }
    bool IsPrivateUAVWrite(const CShaderDebuggerInstructionIL& instruction) const;

    // Facts about instructions, by their numbers.
    InstructionNumber CountInstructions() const { return static_cast<InstructionNumber>(m_Instructions.size()); }
    /// The last instruction, the end.
    InstructionNumber GetEndOfShader() const { return m_nEndOfShader; }
    /// There must be one of the number.
    const CShaderDebuggerInstructionIL& InstructionAt(InstructionNumber nInst) const { return m_Instructions[nInst]; }
    /// IL_OP_UNKNOWN after the end.
    ILOpCode OpCodeAt(InstructionNumber nInst) const
    {
        return nInst < m_Instructions.size() ? m_Instructions[nInst].GetOpCode() : IL_OP_UNKNOWN;
    }
    /// The register that an instruction writes; g_Reg_NULL if there is none.
    Register WrittenBy(InstructionNumber nInst) const;
    /// What the call of a macro that isn't entered writes besides its destination; nothing for other instructions.
    const std::vector<Register>& RegistersPassedBy(InstructionNumber nInst) const;
    /// The label of the function around an instruction; 0 for the main body.
    unsigned int FunctionOf(InstructionNumber nInst) const;
    /// The innermost block around an instruction, which may open, divide or close it; null for none.
    CIL_FCConstruct* ConstructOf(InstructionNumber nInst) const;
    /// The outline macro that an instruction stands in; null for none.
    const SOutlineMacro* MacroAround(InstructionNumber nInst) const;
    /// The first instruction of the function or outline macro around an instruction; that of the main body is 0.
    InstructionNumber StartOfBody(InstructionNumber nInst) const;
    /// The instruction with which the body around an instruction ends; of an outline macro the first one after it.
    InstructionNumber EndOfBody(InstructionNumber nInst) const;
    /// The first instruction of the function or outline macro that an instruction calls, on a condition or without.
    std::optional<InstructionNumber> FindCallee(InstructionNumber nInst) const;
    /// What each function declares, by its label.
    const std::map<unsigned int, Declarations>& GetDeclarations() const { return m_DeclsFuncScopeMap; }
    /// The first instruction of a function, by its label; nothing for the main body.
    std::optional<InstructionNumber> FindFunction(unsigned int nLabel) const;
    /// The metadata text of the kernel; empty without an ELF image.
    const std::string& GetMetadata() const { return m_strMetadata; }

    /// Reads macros from the first item inside one until the stream is after the last of the macros that follow each
    /// other directly. nNumMacroLines becomes the number of items read. Always true.
    bool SkipMacros(CInputTokenStream<unsigned int>& src, LineNumber& nNumMacroLines);

    /// The text of the comment that comes next, if one does; the stream stays.
    bool PeekFollowingComment(const CInputTokenStream<unsigned int>& src, std::string& strComment) const;

    /// The output registers of a kernel that isn't a compute kernel.
    unsigned int GetResultsOutputRegister() const { return m_nResultsOutputRegIndex; }
    unsigned int GetExecMaskOutputRegister() const { return m_nExecMaskOutputRegIndex; }

    /// The debugger's own temps, by role.
    unsigned int GetOutputTempRegister() const { return m_nTempRegisters[0]; }
    unsigned int GetOutputAddressTempRegister() const { return m_nTempRegisters[1]; }
    unsigned int GetExecMaskTempRegister() const { return m_nTempRegisters[2]; }
    unsigned int GetExecMaskAddressTempRegister() const { return m_nTempRegisters[3]; }
    unsigned int GetGIDTempRegister() const { return m_nTempRegisters[4]; }

    /// The debugger's own literals, each with one value in all four components.
    unsigned int GetLiteralRegister0() const { return m_nLiteralRegisters[0]; }
    unsigned int GetLiteralRegister1() const { return m_nLiteralRegisters[1]; }
    unsigned int GetLiteralRegister2() const { return m_nLiteralRegisters[2]; }
    unsigned int GetLiteralRegisterMinus1() const { return m_nLiteralRegisters[3]; }
    unsigned int GetLiteralRegister16() const { return m_nLiteralRegisters[4]; }

    /// The elements of constant buffer 1 that hold the three added arguments.
    unsigned int GetOutputConstantBufferIndex() const { return m_nKernelABIConstantBufferSize; }
    unsigned int GetExecMaskConstantBufferIndex() const { return m_nKernelABIConstantBufferSize + 1; }
    unsigned int GetRegisterSelectorConstantBufferIndex() const { return m_nKernelABIConstantBufferSize + 2; }

    /// The UAVs of the two output buffers: two of their own on the newer devices, the kernel's one raw UAV on others.
    unsigned int GetResultsUAVNum() const { return m_bTidewater ? m_nResultsUAVNum : m_nRawUAVNum; }
    unsigned int GetExecMaskUAVNum() const { return m_bTidewater ? m_nExecMaskUAVNum : m_nRawUAVNum; }

protected:
    /// The version and the shader type, which come before the items.
    static constexpr size_t HEADER_TOKENS = 2;

    /// One item of the token stream: an instruction, a declaration, a comment or a macro marker.
    struct SItem
    {
        const unsigned int* pTokens = nullptr; ///< in the stream's array
        unsigned int nLength = 0;

        ILOpCode GetOpCode() const { return ILFormatDecode::GetOp(pTokens[0]); }
    };

    /// Gives the next item of a stream over the analysed tokens and moves after it, without decoding it again.
    /// \return false at the end, and for a stream that isn't the analysed one
    bool ReadItem(CInputTokenStream<unsigned int>& src, SItem& item) const;

    /// Moves a stream over the analysed tokens from its start to the first item after the header.
    void SkipHeader(CInputTokenStream<unsigned int>& src) const;

    bool IsCompute() const { return GetShaderType() == ShaderUtils::ST_Compute; }

    /// Whether an instruction stands in the main body, in no function and no macro.
    bool IsInMain(InstructionNumber nInst) const;

    /// Whether a macro is an outline of this kernel: bit 16 of its modifier word, and the comment that comes next.
    bool IsOutlineMacro(IL instMod, const CInputTokenStream<unsigned int>& src) const;

    /// The name of the kernel under debug, from the host.
    std::string KernelName() const;

    /// Puts the message where every reader looks for it: all three error texts of ShaderInfo, the log and the
    /// debugger's last error. Always false.
    bool Refuse(const std::string& strMessage);
    /// Logs at logVERBOSE the text of some IL, after a title.
    void LogTokens(const char* pszTitle, const unsigned int* pTokens, size_t nTokens) const;

    // What the layers above read. The fields are here because the analysis fills them, and nothing else writes them;
    // the engine and the patcher index them directly at every step.
    unsigned int m_nVersion; ///< low 16 bits of the version token
    InstructionNumber m_nInstructionCount;
    InstructionNumber m_nEndOfShader;            ///< the last instruction, the end
    InstructionNumber m_OutlineMacroLabel;       ///< of the first outline macro; 0 for none
    InstructionNumber m_nOutlineMacroEnd;        ///< the first instruction after that macro; g_Inst_NULL for none
    std::vector<SOutlineMacro> m_vOutlineMacros; ///< all that aren't empty, in the order of the text
    std::set<unsigned int> m_MacroLabels;        ///< of all macros
    PC_LineNumberMap m_PC_LineNumberMap;         ///< instructions and items of the text
    std::vector<CShaderDebuggerInstructionIL> m_Instructions;        ///< by InstructionNumber
    std::map<InstructionNumber, CIL_FCConstruct*> m_FlowControl;     ///< the innermost construct; null for none
    std::map<InstructionNumber, unsigned int> m_FunctionScope;       ///< label of the function around an instruction
    std::map<unsigned int, InstructionNumber> m_FunctionInstruction; ///< label to the func instruction
    std::map<InstructionNumber, Register> m_RegisterOutput;          ///< only for instructions that write one
    std::map<unsigned int, Declarations> m_DeclsFuncScopeMap;        ///< by function label

    std::set<unsigned int> m_Samplers;
    unsigned int m_nRuntimeABIConstantBufferSize; ///< constant buffer 0, in elements
    unsigned int m_nKernelABIConstantBufferSize;  ///< constant buffer 1, in elements
    std::string m_DeviceName; ///< set by the complete object's constructor, or else from the metadata
    bool m_bTidewater;        ///< a device of the newer generation
    bool m_b64BitAddressSpace;
    std::map<unsigned int, int> m_maxThreadPerGroup;      ///< by function label
    std::map<unsigned int, ThreadID> m_numThreadPerGroup; ///< by function label

    unsigned int m_nTempRegisterCount;
    unsigned int m_nPatchedTempRegisterCount;
    std::vector<unsigned int> m_nPatchedTempRegisters; ///< all of the debugger's own temps
    std::vector<unsigned int> m_vTempRegisterNumbers;  ///< the kernel's temps, ascending
    std::deque<unsigned int> m_qUnusedLiteralRegs;     ///< free literals left after allocation, ascending
    std::map<unsigned int, Vec4> m_vLiteralRegisterValues;
    std::map<unsigned int, std::vector<SLiteralDeclaration>> m_LiteralDeclarations; ///< by number, as in the text
    unsigned int m_nLiteralRegisterCount;
    unsigned int m_nPatchedLiteralRegisterCount;
    std::array<unsigned int, 5> m_nTempRegisters;
    std::array<unsigned int, 5> m_nLiteralRegisters;
    unsigned int m_nResultsOutputRegIndex;
    unsigned int m_nExecMaskOutputRegIndex;

    unsigned int m_nRawUAVNum;
    std::set<unsigned int> m_UAVNums;        ///< taken by typed and typeless declarations
    std::set<unsigned int> m_PrivateUAVNums; ///< those of them with private access
    unsigned int m_nResultsUAVNum;
    unsigned int m_nExecMaskUAVNum;

    std::map<RegisterID, RegisterMask> m_InputRegisters;   ///< kernels of other kinds only
    std::map<unsigned int, RegisterMask> m_OutputRegMasks; ///< kernels of other kinds only

    // The kernel as it was taken apart, so that a patch needn't do it again.
    std::vector<unsigned int> m_vTokens; ///< the IL; out of the ELF image if the shader data is one
    bool m_bIsElf;
    std::string m_strMetadata; ///< of the kernel; empty without an ELF image

private:
    friend class CAnalysisPass; ///< the pass over the tokens, which fills the fields

    bool InitShaderInfo();
    bool TakeTokens();
    bool ReadHeader(CInputTokenStream<unsigned int>& src, LineNumber& nLine);
    bool CheckComputeKernel();
    void NoteTemps(const CShaderDebuggerInstructionIL& instruction);
    bool UseTemp(const SOperand& operand);
    void NoteLiteral(const CShaderDebuggerInstructionIL& declaration);
    void NoteMacroItem(const CShaderDebuggerInstructionIL& item);
    bool IsMacroCalled(unsigned int nLabel);
    std::optional<InstructionNumber> CalleeOf(const CShaderDebuggerInstructionIL& instruction) const;
    /// The register that an instruction writes, a slot of private memory among them. \return false for none
    bool MakeWrittenRegister(const CShaderDebuggerInstructionIL& instruction, Register& reg) const;

    // Macros that aren't entered (PassedMacros.cpp).
    void NotePassedInstruction(const CShaderDebuggerInstructionIL& instruction);
    void FindRegistersOfPassedMacros();
    std::vector<Register> CollectPassedRegisters(const CShaderDebuggerInstructionIL& call) const;
    void AddWritten(InstructionNumber nInst, std::vector<Register>& vRegisters) const;
    static void AddCall(const CShaderDebuggerInstructionIL& instruction,
                        std::vector<const CShaderDebuggerInstructionIL*>& vCalls);
    bool AllocateRegisters(unsigned int nMaxLoopDepth);
    bool AllocateUAVs();
    void AssignLoopCounters(const std::vector<unsigned int>& vLoopTempRegs,
                            const std::vector<unsigned int>& vLoopLiteralRegs);
    /// Decodes the next item, and notes its length for ReadItem.
    bool DecodeItem(CInputTokenStream<unsigned int>& src, CShaderDebuggerInstructionIL& item);
    /// Both log the text of the condition that doesn't hold and tell the client that the kernel is invalid; only the
    /// first leaves its message in ShaderInfo too. Always false.
    bool RefuseInvalid(const char* pszText);
    bool Malformed(const char* pszText);
    void TellClient(const std::string& strMessage);

    std::vector<bool> m_vTempRegisterUsed;
    std::vector<bool> m_vLiteralRegisterUsed;
    unsigned int m_nNotedMacro = 0; ///< the label of the macro whose items are noted
    std::map<unsigned int, std::vector<CShaderDebuggerInstructionIL>>
        m_PassedMacros;                                              ///< by label: what matters of them
    std::map<unsigned int, std::vector<Register>> m_PassedRegisters; ///< what their calls write
    std::optional<std::set<unsigned int>> m_CalledMacros;            ///< labels, found when first asked for
    std::vector<unsigned int> m_vItemLengths; ///< by token position: the length of the item that begins there, or 0
    std::vector<std::unique_ptr<CIL_FCConstruct>> m_vConstructs; ///< owns what m_FlowControl points at
};

} // namespace OVK_ShaderDebugger

#endif
