#ifndef KESTREL_IL_FLOWCONTROL_H
#define KESTREL_IL_FLOWCONTROL_H

#include "core/ShaderDebuggerCommon.h"

#include <cstddef>
#include <map>
#include <vector>

/// The block tree of a kernel. The analysis builds it in one pass over the instructions and owns all constructs; they
/// live as long as the kernel. Bounds are positions of instructions, g_Inst_NULL until they are set.
namespace OVK_ShaderDebugger
{

class CIL_IfElseEndif;
class CIL_Loop;
class CIL_Switch;

/// Registers in the order in which they were first added, one entry for each RegisterID. Adding one again merges the
/// masks.
class CIL_RegisterList
{
public:
    void Add(const Register& reg);
    const std::vector<Register>& Get() const { return m_vRegisters; }

private:
    std::vector<Register> m_vRegisters;
    std::map<RegisterID, std::size_t> m_IndexOf; ///< where a register stands in m_vRegisters
};

/// A block of instructions that control can enter, repeat or pass over.
class CIL_FCConstruct
{
public:
    /// \param pParent the next construct outward, not owned; null at the outermost level of a function
    explicit CIL_FCConstruct(CIL_FCConstruct* pParent) : m_pParent(pParent), m_bHasGlobalStore(false) {}
    virtual ~CIL_FCConstruct() = default;

    CIL_FCConstruct(const CIL_FCConstruct&) = delete;
    CIL_FCConstruct& operator=(const CIL_FCConstruct&) = delete;

    virtual FC_Type GetType() const = 0;

    CIL_FCConstruct* GetParent() { return m_pParent; }
    const CIL_FCConstruct* GetParent() const { return m_pParent; }

    /// The number of loops from here to the outermost construct, this one included: 1 for an outermost loop.
    unsigned int GetLoopDepth() const;

    /// Checked downcasts: null if the construct is of another kind. The static forms also take a null pointer, and
    /// give null for it.
    CIL_IfElseEndif* AsIfElseEndif() { return AsIfElseEndif(this); }
    const CIL_IfElseEndif* AsIfElseEndif() const { return AsIfElseEndif(this); }
    CIL_Loop* AsLoop() { return AsLoop(this); }
    const CIL_Loop* AsLoop() const { return AsLoop(this); }
    CIL_Switch* AsSwitch() { return AsSwitch(this); }
    const CIL_Switch* AsSwitch() const { return AsSwitch(this); }
    static CIL_IfElseEndif* AsIfElseEndif(CIL_FCConstruct* pConstruct);
    static const CIL_IfElseEndif* AsIfElseEndif(const CIL_FCConstruct* pConstruct);
    static CIL_Loop* AsLoop(CIL_FCConstruct* pConstruct);
    static const CIL_Loop* AsLoop(const CIL_FCConstruct* pConstruct);
    static CIL_Switch* AsSwitch(CIL_FCConstruct* pConstruct);
    static const CIL_Switch* AsSwitch(const CIL_FCConstruct* pConstruct);

    /// Notes a store to global memory, here and in every construct around this one.
    void SetGlobalStoreFlag();
    bool GetGlobalStoreFlag() const { return m_bHasGlobalStore; }

private:
    CIL_FCConstruct* m_pParent;
    bool m_bHasGlobalStore; ///< a store to global memory lies inside, at any depth
};

/// An if with its endif and perhaps an else.
class CIL_IfElseEndif : public CIL_FCConstruct
{
public:
    explicit CIL_IfElseEndif(CIL_FCConstruct* pParent) : CIL_IfElseEndif(pParent, g_Inst_NULL) {}
    CIL_IfElseEndif(CIL_FCConstruct* pParent, InstructionNumber nIf)
        : CIL_FCConstruct(pParent), m_nIf(nIf), m_nElse(g_Inst_NULL), m_nEndIf(g_Inst_NULL)
    {
    }

    FC_Type GetType() const override { return FC_IfElseEndif; }

    InstructionNumber GetIf() const { return m_nIf; }
    void SetIf(InstructionNumber nIf) { m_nIf = nIf; }
    void SetElse(InstructionNumber nElse) { m_nElse = nElse; }
    InstructionNumber GetEndIf() const { return m_nEndIf; }
    void SetEndIf(InstructionNumber nEndIf) { m_nEndIf = nEndIf; }

    /// Where the if-part stops: the else, or the endif if there is none. HasElse tells the two apart.
    InstructionNumber GetElse() const { return HasElse() ? m_nElse : m_nEndIf; }
    bool HasElse() const { return m_nElse != g_Inst_NULL; }

    /// The registers written in either part, in order of first appearance.
    std::vector<Register> GetRegistersInIf() const { return m_RegistersInIf.Get(); }
    std::vector<Register> GetRegistersInElse() const { return m_RegistersInElse.Get(); }
    void AddRegisterInIf(const Register& reg) { m_RegistersInIf.Add(reg); }
    void AddRegisterInElse(const Register& reg) { m_RegistersInElse.Add(reg); }

    /// Strictly between the if and the end of the if-part.
    bool IsInIf(InstructionNumber nInst) const { return m_nIf < nInst && nInst < GetElse(); }
    /// Strictly between the else, if there is one, and the endif.
    bool IsInElse(InstructionNumber nInst) const { return HasElse() && m_nElse < nInst && nInst < m_nEndIf; }

private:
    InstructionNumber m_nIf;
    InstructionNumber m_nElse;
    InstructionNumber m_nEndIf;
    CIL_RegisterList m_RegistersInIf;
    CIL_RegisterList m_RegistersInElse;
};

/// A loop with the registers in which a patched kernel counts its passes.
class CIL_Loop : public CIL_FCConstruct
{
public:
    explicit CIL_Loop(CIL_FCConstruct* pParent) : CIL_Loop(pParent, g_Inst_NULL) {}
    CIL_Loop(CIL_FCConstruct* pParent, InstructionNumber nStart)
        : CIL_FCConstruct(pParent), m_nStart(nStart), m_nEnd(g_Inst_NULL), m_nCountRegister(0),
          m_CountComponent(COMP_None), m_nLiteralRegister(0)
    {
    }

    FC_Type GetType() const override { return FC_Loop; }

    InstructionNumber GetStart() const { return m_nStart; }
    void SetStart(InstructionNumber nStart) { m_nStart = nStart; }
    InstructionNumber GetEnd() const { return m_nEnd; }
    void SetEnd(InstructionNumber nEnd) { m_nEnd = nEnd; }

    /// The temp register that counts the passes, and its component.
    unsigned int GetCountRegister() const { return m_nCountRegister; }
    void SetCountRegister(unsigned int nRegister) { m_nCountRegister = nRegister; }
    Component GetCountComponent() const { return m_CountComponent; }
    void SetCountComponent(Component component) { m_CountComponent = component; }
    /// The literal register that holds the allowed number of passes, in the same component.
    unsigned int GetLiteralRegister() const { return m_nLiteralRegister; }
    void SetLiteralRegister(unsigned int nRegister) { m_nLiteralRegister = nRegister; }

    /// The registers written in the loop, in order of first appearance.
    std::vector<Register> GetRegisters() const { return m_Registers.Get(); }
    void AddRegister(const Register& reg) { m_Registers.Add(reg); }

    /// From the opening instruction on and before the closing one.
    bool IsInsideLoop(InstructionNumber nInst) const { return m_nStart <= nInst && nInst < m_nEnd; }
    bool IsInsideLoop(const ProgramCounter& pc) const { return IsInsideLoop(pc.m_nPos); }

private:
    InstructionNumber m_nStart;
    InstructionNumber m_nEnd;
    unsigned int m_nCountRegister;
    Component m_CountComponent;
    unsigned int m_nLiteralRegister;
    CIL_RegisterList m_Registers;
};

/// A switch with its cases (the default counts as one) and the breaks that leave it.
class CIL_Switch : public CIL_FCConstruct
{
public:
    explicit CIL_Switch(CIL_FCConstruct* pParent) : CIL_Switch(pParent, g_Inst_NULL) {}
    CIL_Switch(CIL_FCConstruct* pParent, InstructionNumber nStart)
        : CIL_FCConstruct(pParent), m_nStart(nStart), m_nEnd(g_Inst_NULL)
    {
    }

    FC_Type GetType() const override { return FC_Switch; }

    InstructionNumber GetStart() const { return m_nStart; }
    void SetStart(InstructionNumber nStart) { m_nStart = nStart; }
    InstructionNumber GetEnd() const { return m_nEnd; }
    void SetEnd(InstructionNumber nEnd) { m_nEnd = nEnd; }

    /// The registers written in the switch, in order of first appearance.
    std::vector<Register> GetRegisters() const { return m_Registers.Get(); }
    void AddRegister(const Register& reg) { m_Registers.Add(reg); }

    /// Both are called in ascending order of position.
    void AddCase(InstructionNumber nInst) { m_vCases.push_back(nInst); }
    void AddBreak(InstructionNumber nInst) { m_vBreaks.push_back(nInst); }

    bool IsSwitchBreak(InstructionNumber nInst) const;
    /// The first case after nInst; the end of the switch if there is none.
    InstructionNumber GetNextCase(InstructionNumber nInst) const;
    /// The last case before nInst; the start of the switch if there is none.
    InstructionNumber GetCaseFromBreak(InstructionNumber nInst) const;

private:
    InstructionNumber m_nStart;
    InstructionNumber m_nEnd;
    std::vector<unsigned int> m_vCases;
    std::vector<unsigned int> m_vBreaks;
    CIL_RegisterList m_Registers;
};

} // namespace OVK_ShaderDebugger

#endif // KESTREL_IL_FLOWCONTROL_H
