#ifndef KESTREL_INSTRUMENT_INSTRUMENTEDSHADERIL_H
#define KESTREL_INSTRUMENT_INSTRUMENTEDSHADERIL_H

#include "il/ShaderDebuggerUtilsIL.h"
#include "instrument/AnalyzedShaderIL.h"
#include "instrument/LocalMemory.h"

class CElf;

namespace OVK_ShaderDebugger
{

class CCLMetadata;

/// How a kernel is rewritten: the middle layer of the kernel under debug. A patched kernel computes what the kernel
/// computes up to a target. There it copies a register and the execution mask aside, closes the open blocks, stores
/// both copies to the two output buffers and returns. It consists of the kernel's own tokens, kept or left out but
/// never changed, and of what the emitters here add.
///
/// The output buffers hold one element a work-item, at its linear index (z * height + y) * width + x in the dispatch:
/// 16 bytes of the results buffer, the raw bits of the captured register's components x, y, z, w; and 4 bytes of the
/// execution mask buffer, 1 for a work-item that passed the target, else 0. A results element is -1 in all components
/// if the selector names no register of the list. A work-item that has left the kernel before writes nothing.
class CInstrumentedShaderIL : public CAnalyzedShaderIL
{
public:
    CInstrumentedShaderIL(IShaderDebugger* pDebugger, const void* pShaderData, size_t nShaderSize);
    ~CInstrumentedShaderIL() override;

    /// The kernel patched for a target and the registers to read there. A selector in constant buffer 1 says at run
    /// time which register of the list is copied. The target g_PC_NULL with a list reads at the entry of the kernel.
    /// The call stack says which call of a function is meant.
    /// \return m_pPatchedShader, an image of the kind that the shader data is, valid until the next call or the
    /// destructor. Null, with the last image kept and the reason logged, for no target and no list, a target that
    /// isn't in the kernel or is the end or endmain, and for a binary that can't be rewritten.
    IL* CreatePatchedShader(ProgramCounter nTargetInstruction, const std::vector<Register>& vTargetRegs);

    /// The rewrite of the tokens alone. src must begin at the first of the analysed tokens.
    bool PatchIL(CInputTokenStream<unsigned int>& src, COutputTokenStream<unsigned int>& dest,
                 ProgramCounter nTargetInstruction, const std::vector<Register>& vTargetRegs);

    /// The kernel up to a position, for what it leaves in memory: every work-item executes everything up to and
    /// including the position, and nothing after. Of the group whose linear number the selector has, the blocks of
    /// local memory go to the results buffer, after a first element of 1; nothing else is written there.
    /// \return false, with the reason logged
    bool CreateMemoryShader(const ProgramCounter& target, const std::vector<SLocalBlock>& vBlocks,
                            std::vector<char>& vImage);

    /// The same kernel, for what registers hold at the position, also of work-items that aren't active there. All four
    /// components of each register of the list go to the results buffer, for every work-item at its linear index, one
    /// register after the other. \param nPlane  bytes that one of them takes \return false, with the reason logged
    bool CreateValueShader(const ProgramCounter& target, const std::vector<Register>& vRegisters, unsigned int nPlane,
                           std::vector<char>& vImage);
    /// Whether a register can be read in this way: memory isn't one, and outputs can't be read.
    static bool IsCaptured(const Register& reg);

    /// The rewrite of the tokens alone, as PatchIL.
    bool PatchMemoryIL(CInputTokenStream<unsigned int>& src, COutputTokenStream<unsigned int>& dest,
                       const ProgramCounter& target, const std::vector<SLocalBlock>& vBlocks);

    /// The kernel as it was given, in an image that can be built. \return false, with the reason logged, if the image
    /// can't be made
    bool CreatePlainShader(std::vector<char>& vImage);

    /// A kernel with the arguments of this one that stores constant buffer 1, which holds the arguments, to the results
    /// buffer, element by element. \return false, with the reason logged
    bool CreateArgumentDump(std::vector<char>& vImage);
    /// The elements of constant buffer 1.
    unsigned int GetKernelABIConstantBufferSize() const { return m_nKernelABIConstantBufferSize; }

    /// Appends the two output buffers and the register selector to the arguments.
    /// \param pstrPatchedMetadata receives the text, if given
    bool PatchMetadata(CCLMetadata& metadata, std::string* pstrPatchedMetadata);

    /// The last patched kernel, null for none, and its bytes.
    const IL* GetPatchedShader() const { return m_pPatchedShader; }
    size_t GetPatchedShaderSize() const { return m_nPatchedShaderSize; }
    /// Gives up the last patched kernel.
    void DropPatchedShader();

    // What the next patched kernels are made for, besides their target.
    /// Which call of its function the target is in.
    const CCallPath& GetTargetCalls() const { return m_CallStack; }
    /// Jumps of the target's function before which the capture is made as well, for the work-items that take them.
    const std::set<InstructionNumber>& GetLeaving() const { return m_Leaving; }
    /// Whether they store the mask alone.
    bool IsMaskOnly() const { return m_bMaskOnly; }
    void SetMaskOnly(bool bMaskOnly) { m_bMaskOnly = bMaskOnly; }
    /// Whether the mask's buffer has a byte for each work-item, not a word: the same for all of a session.
    bool HasByteMask() const { return m_bByteMask; }
    void SetByteMask(bool bByteMask) { m_bByteMask = bByteMask; }
    class CTargetScope;

    /// What the mask says of a work-item that has taken one of the jumps in GetLeaving().
    static constexpr unsigned char s_nLeaverFlag = 2;

    /// Whether a register belongs to the debugger's outputs of a kernel that isn't a compute kernel.
    bool IsPatchedOutputRegister(const Register& reg) const;

protected:
    typedef CInputTokenStream<unsigned int> CSource;
    typedef COutputTokenStream<unsigned int> CDest;

    /// Copies macros from the first item inside one, or from an mdef, through the last that follows directly; nothing
    /// before a header.
    bool CopyMacros(CSource& src, CDest& dest);

    // Writers of tokens. A failed write isn't reported: it shows in the stream.
    static void WriteInstruction(CDest& dest, ILOpCode opCode, unsigned int nControls = 0);
    static void WriteDestReg(CDest& dest, ILRegType type, unsigned int nRegNum, RegisterMask mask = COMP_All,
                             unsigned int nIndex = ~0u);
    static void WriteDestReg(CDest& dest, const Register& destReg);
    static void WriteSourceReg(CDest& dest, ILRegType type, unsigned int nRegNum, RegisterMask mask = COMP_All,
                               unsigned int nIndex = 0, ComponentExtend extend = EXTD_Repeat);
    static void WriteSourceReg(CDest& dest, const Register& srcReg, ComponentExtend extend = EXTD_Repeat);
    static void WriteImmediate32(CDest& dest, unsigned int i);
    static void WriteImmediate32_3(CDest& dest, unsigned int x, unsigned int y, unsigned int z);
    static void WriteImmediate32_4(CDest& dest, unsigned int x, unsigned int y, unsigned int z, unsigned int w);
    static void WriteImmediate32f(CDest& dest, float f);
    static void WriteImmediate32f_4(CDest& dest, float x, float y, float z, float w);
    static void WriteComment(CDest& dest, const std::string& strComment);

    // Writers of instructions.
    static void MovDestSrc(CDest& dest, const Register& destReg, const Register& srcReg);
    static void IAddDestSrcSrc(CDest& dest, const Register& destReg, const Register& srcReg0, const Register& srcReg1);
    /// destReg = condition ? srcReg1 : srcReg2, component by component; any bit set counts as true.
    static void CMovDestSrcSrcSrc(CDest& dest, const Register& destReg, const Register& condition,
                                  const Register& srcReg1, const Register& srcReg2);
    void UavRawLoad(CDest& dest, unsigned int nId, const Register& destReg, const Register& srcReg,
                    IL_UAV_CACHE_TYPE readType) const;
    void UavRawStore(CDest& dest, unsigned int nId, const Register& destReg, const Register& offsetReg,
                     const Register& srcReg, IL_UAV_CACHE_TYPE writeType) const;
    /// The same with a store of another width.
    void UavStore(CDest& dest, ILOpCode opCode, unsigned int nId, const Register& destReg, const Register& offsetReg,
                  const Register& srcReg, IL_UAV_CACHE_TYPE writeType) const;

    // Writers of blocks.
    /// The capture: each register of the list, one of them chosen by the selector, into the output temp.
    void WriteRegsToOutputTempReg(CDest& dest, const std::vector<Register>& vTargetRegs);
    /// Sets the execution mask temp to 1 or 0.
    void WriteExecMaskTempReg(CDest& dest, bool bVal);
    /// The capture at the entry of a kernel.
    virtual void CopyInputRegs(CDest& dest, const std::vector<Register>& vTargetRegs);
    /// What stands before the first instruction: declarations, and 0 in every temp.
    virtual void InitResourcesAndRegisters(CDest& dest, bool bInitLoopRegisters, ProgramCounter pc);
    void WriteDebuggerNumericLiteralDeclarations(CDest& dest);
    /// The passes that each loop around the target may run.
    void WriteDebuggerLoopLiteralDeclarations(CDest& dest, const ProgramCounter& pc);
    /// The declarations of one function. \return false for a function without any
    bool WriteDecls(CDest& dest, unsigned int nFuncLabel);
    /// The mask of the target's pass, both stores into the output buffers, and in a function the mask's flag cleared.
    virtual void WriteOutputs(CDest& dest, InstructionNumber nCurrentInstruction);

private:
    /// The UAV through which the older devices reach memory of all widths. The preamble declares it.
    static constexpr unsigned int ARENA_UAV = 8;

    struct SPass;
    struct SMemoryPatch;

    /// A place where a function ends in a patched kernel: the target, or a call on the way to it.
    struct SCut
    {
        ProgramCounter pc;
        unsigned int nCopy; ///< the label of the cut copy of the function that is called there; 0 for the target

        bool IsTarget() const { return nCopy == 0; }
    };

    // The pass (Patcher.cpp).
    bool PatchAll(CSource& src, CDest& dest, const ProgramCounter& target, const std::vector<Register>& vTargetRegs,
                  SMemoryPatch* pMemory);
    bool IsStopPosition(const ProgramCounter& target) const;
    bool PatchHeader(SPass& pass);
    bool PatchItem(SPass& pass, const SItem& item);
    bool PatchMacroDef(SPass& pass, const SItem& item);
    bool PatchInstruction(SPass& pass, const SItem& item);
    bool IsKept(const SPass& pass, const CShaderDebuggerInstructionIL& instruction) const;
    void PatchTarget(SPass& pass, const CShaderDebuggerInstructionIL& instruction);
    void WriteSelectorCapture(CDest& dest, const CShaderDebuggerInstructionIL& instruction);
    void WriteCaptureOfLeavers(const SPass& pass, const CShaderDebuggerInstructionIL& instruction);
    void WriteOutputsOfReturning(CDest& dest, const unsigned int* pTokens, unsigned int nLength,
                                 InstructionNumber nTarget);
    bool EndAtEntry(SPass& pass);
    bool EndAtTarget(SPass& pass, const CShaderDebuggerInstructionIL& instruction);
    bool EndAtCall(SPass& pass);
    bool EndFunction(SPass& pass);
    bool IsReplacedDeclaration(const SItem& item) const;
    void WriteFollowingComment(CSource& src, CDest& dest) const;

    // Memory kernels (MemoryPatcher.cpp).
    bool EndMainAtCall(SPass& pass);
    bool EndMemoryAtTarget(SPass& pass, const SItem& item);
    bool EndMemoryAtCall(SPass& pass);
    bool EndMemoryFunction(SPass& pass, unsigned int nInner);
    const CIL_Loop* InnermostCountedLoop(const SCut& cut) const;
    void WriteLeave(CDest& dest, const SCut& cut);
    void CopyRestOfLoops(SPass& pass, unsigned int nInner);
    void CloseOpenBlocks(CDest& dest);
    void WriteMemoryEnd(SPass& pass);
    bool PatchMemory(CSource& src, CDest& dest, const ProgramCounter& target, SMemoryPatch& memory);
    bool CreateMemoryImage(const ProgramCounter& target, SMemoryPatch& memory, std::vector<char>& vImage);
    void WriteWhatIsAskedFor(SPass& pass);
    void WriteValues(SPass& pass);
    void WriteLocalMemory(SPass& pass);
    void WriteLocalBlock(SPass& pass, const SLocalBlock& block);
    void WriteToResults(CDest& dest, RegisterMask mask, const Register& offset);

    // Called functions (CalledFunctions.cpp).
    bool IsRepeatedCall(InstructionNumber nCall) const;
    void CountCalls() const;
    const CIL_Loop* LoopWith(InstructionNumber nInst) const;
    std::vector<SCut> FindCuts(const ProgramCounter& target) const;
    void WriteCopyLiterals(CDest& dest, const std::vector<SCut>& vCuts);
    void WriteCutCall(CDest& dest, const SCut& cut);
    void WriteLiteralsInForce(CDest& dest, InstructionNumber nBody);
    static void WriteCallOf(CDest& dest, const CShaderDebuggerInstructionIL& call, unsigned int nLabel);
    static unsigned int WithLabel(unsigned int token, unsigned int nLabel);
    bool WriteCopy(const SPass& pass, const SCut& cut, unsigned int nLabel);
    bool FindBody(CSource& src, const SOutlineMacro* pMacro, const CShaderDebuggerInstructionIL& func, SItem& item);

    // Flow control (FlowControlPatcher.cpp).
    bool PatchFlowControlInstruction(CSource& src, CDest& dest, InstructionNumber nCurrentInstruction,
                                     const ProgramCounter& pc, const CShaderDebuggerInstructionIL& instruction);
    bool WriteFunctionHead(CSource& src, CDest& dest, InstructionNumber nFunc);
    const CIL_Loop* LoopAround(InstructionNumber nWhile, const ProgramCounter& pc) const;
    void WriteLoopEntry(CDest& dest, const CIL_Loop& loop, const ProgramCounter& pc);
    void WriteLoopHead(CDest& dest, const CIL_Loop& loop);
    static bool IsCounted(const CIL_Loop& loop, const ProgramCounter& pc);
    static const CIL_Loop* EnclosingLoop(const CIL_FCConstruct& construct);
    bool FinalizeFlowControl(CSource& src, CDest& dest, const SCut& cut);
    void CopyRestOfBlock(CSource& src, CDest& dest, ILOpCode opOpen, ILOpCode opClose, const SCut& cut,
                         InstructionNumber& nPosition);
    void WriteDeclarationAfterTarget(CDest& dest, const SItem& item) const;
    bool FinalizeFunctions(CSource& src, CDest& dest, InstructionNumber nCurrentInstruction);
    bool IsDroppedAfterTarget(const SItem& item) const;
    const CShaderDebuggerInstructionIL& PopFlowControlInstruction();
    void PopThrough(bool (*pfnIsLast)(ILOpCode));
    bool InBlock(ILOpCode op) const;
    bool InLoop() const { return InBlock(IL_OP_WHILE); }
    bool InSwitch() const { return InBlock(IL_OP_SWITCH); }

    // Blocks (OutputsEmitter.cpp, PatchedMask.cpp, Preamble.cpp).
    void WriteMaskOfPass(CDest& dest, InstructionNumber nTarget);
    /// Both stores into the output buffers.
    void WriteStores(CDest& dest, InstructionNumber nTarget);
    void WriteUavOpCode(CDest& dest, ILOpCode opCode, unsigned int nId, IL_UAV_CACHE_TYPE cacheType) const;
    void WriteLiteralDeclaration(CDest& dest, unsigned int nRegister, unsigned int nValue);
    void WriteSelectorSwitch(CDest& dest);
    void WriteSelectorDefault(CDest& dest);
    void WriteCaptureOf(CDest& dest, const Register& reg, std::deque<unsigned int>::const_iterator& itFreeLiteral);
    void WriteThreadGroupSize(CDest& dest, unsigned int nFunction);
    void WriteElementIndex(CDest& dest);
    void WriteElementAddress(CDest& dest, unsigned int nAddressTemp, unsigned int nConstantBufferIndex);
    void WriteOffsetTimesFour(CDest& dest);
    void WriteOutputDeclarations(CDest& dest);
    void WriteBufferDeclarations(CDest& dest);
    void WriteSamplerStubs(CDest& dest);
    void WriteMacroPreamble(CDest& dest, const ProgramCounter& pc);
    void WriteZero(CDest& dest, unsigned int nTemp);

    // The image (PatchedShader.cpp).
    bool MakeImage(const CDest& tokens, std::vector<char>& vImage);
    bool PrepareElf();
    bool PatchKernelMetadata(CElf& elf);
    void RemoveLocalMemory(CElf& elf);

    // Metadata (MetadataPatcher.cpp).
    bool PatchMetadataAppendOutputBuffers(CCLMetadata& metadata);
    bool PatchMetadataAppendValue(CCLMetadata& metadata);

    // The argument dump (DumpKernel.cpp).
    void WriteArgumentDump(CSource& src, CDest& dest, const std::string& strKernelName, unsigned int nUniqueID,
                           unsigned int nFuncLabel);
    void WriteArgumentStores(CDest& dest);
    bool InsertArgumentDump(const CDest& tokens, const std::string& strKernelName, CCLMetadata& metadata,
                            std::vector<char>& vImage);
    bool RefuseForMemory();
    void LogArgumentDump(const CDest& tokens) const;

    IL* m_pPatchedShader; ///< owned, from malloc
    size_t m_nPatchedShaderSize;
    std::set<InstructionNumber> m_Leaving;
    bool m_bMaskOnly = false;
    bool m_bByteMask = false;
    std::deque<InstructionNumber> m_FlowControlStack;         ///< blocks open in the pass, the innermost at the back
    std::map<InstructionNumber, unsigned int> m_CopyLiterals; ///< the passes of loops in copies, by the loop's start
    std::vector<char> m_vPreparedElf; ///< the kernel binary with all that is the same for every target patched in
    std::string m_strPatchedMetadata;
    /// How many instructions call each function or macro, by its first instruction. Counted when first asked for.
    mutable std::map<InstructionNumber, unsigned int> m_CallsOf;
    /// Where macros (true) and functions begin in the tokens, by label; found when they are first wanted.
    std::map<std::pair<bool, unsigned int>, size_t> m_BodyStarts;
};

} // namespace OVK_ShaderDebugger

#endif
