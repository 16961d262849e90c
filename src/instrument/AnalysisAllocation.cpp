#include "instrument/AnalyzedShaderIL.h"
#include "instrument/OperandTokens.h"

#include "core/ErrorStrings.h"
#include "core/Log.h"

#include <limits>

namespace OVK_ShaderDebugger
{

namespace
{

/// One counter component for each loop of a nest, so one register for four.
constexpr unsigned int s_nLoopsPerRegister = 4;

/// The UAV that the runtime gives a kernel of an older device.
constexpr unsigned int s_nDefaultRawUAV = 11;

/// The UAV numbers that may be taken for the output buffers.
constexpr unsigned int s_nFirstUAV = 12;
constexpr unsigned int s_nLastUAV = 32;

/// The first number of [nFirst, s_nLastUAV] that isn't taken; one above s_nLastUAV if there is none.
unsigned int FindFreeUAV(const std::set<unsigned int>& taken, unsigned int nFirst)
{
    while (nFirst <= s_nLastUAV && taken.count(nFirst) != 0)
    {
        ++nFirst;
    }

    return nFirst;
}

} // namespace

/// Every temp that an instruction names counts as used, also one that nothing has written: the debugger's own temps
/// must never be the kernel's.
void CAnalyzedShaderIL::NoteTemps(const CShaderDebuggerInstructionIL& instruction)
{
    bool bWritesTemp = false;

    if (const std::uint32_t nDest = instruction.GetDestRegTokenOffset())
    {
        const SOperand dest = ReadOperand(instruction, nDest);
        bWritesTemp = dest.type == IL_REGTYPE_TEMP;
        UseTemp(dest);

        if (dest.nIndexOffset != 0)
        {
            UseTemp(ReadOperand(instruction, dest.nIndexOffset));
        }
    }

    const std::uint32_t nSources = instruction.GetSrcRegCount();

    for (std::uint32_t i = 0; i < nSources; ++i)
    {
        const SOperand source = ReadOperand(instruction, instruction.GetSrcRegTokenOffset(i));
        const bool bNew = UseTemp(source);
        SD_AssertText(GetHost(), !bNew || bWritesTemp,
                      "m_vTempRegisterUsed[ instruction.GetSrcRegister( i ).reg.number ] == true");

        if (source.nIndexOffset != 0)
        {
            UseTemp(ReadOperand(instruction, source.nIndexOffset));
        }
    }
}

/// Marks the operand if it is a temp. \return true if it is one that wasn't marked before
bool CAnalyzedShaderIL::UseTemp(const SOperand& operand)
{
    // Negative temps are a set of their own, which the debugger doesn't take from.
    if (operand.type != IL_REGTYPE_TEMP || operand.nNumber >= NUM_IL_REGISTER_INDICES)
    {
        return false;
    }

    const bool bNew = !m_vTempRegisterUsed[operand.nNumber];
    m_vTempRegisterUsed[operand.nNumber] = true;
    return bNew;
}

void CAnalyzedShaderIL::NoteLiteral(const CShaderDebuggerInstructionIL& declaration)
{
    const std::uint32_t nValues = declaration.GetLength() - 4;
    const unsigned int nNumber = declaration.GetSrcRegister(0).reg.number;
    const Vec4 value = {declaration.GetToken(nValues), declaration.GetToken(nValues + 1),
                        declaration.GetToken(nValues + 2), declaration.GetToken(nValues + 3)};
    m_vLiteralRegisterUsed[nNumber % NUM_IL_REGISTER_INDICES] = true;
    m_LiteralDeclarations[nNumber].push_back({m_nInstructionCount, value});
}

/// A macro shares the registers of the kernel that calls it.
void CAnalyzedShaderIL::NoteMacroItem(const CShaderDebuggerInstructionIL& item)
{
    if (item.GetOpCode() == IL_OP_MACRODEF)
    {
        m_nNotedMacro = item.GetOpToken().bits.controls;
        m_MacroLabels.insert(m_nNotedMacro);
    }
    else if (item.IsDCLLiteral())
    {
        NoteLiteral(item);
    }
    else if (!item.IsDCL())
    {
        NoteTemps(item);
        NotePassedInstruction(item);
    }
}

bool CAnalyzedShaderIL::AllocateRegisters(unsigned int nMaxLoopDepth)
{
    std::deque<unsigned int> qUnusedTempRegs;

    for (unsigned int i = 0; i < NUM_IL_REGISTER_INDICES; ++i)
    {
        if (m_vTempRegisterUsed[i])
        {
            m_vTempRegisterNumbers.push_back(i);
        }
        else
        {
            qUnusedTempRegs.push_back(i);
        }

        if (m_vLiteralRegisterUsed[i])
        {
            ++m_nLiteralRegisterCount;
        }
        else
        {
            m_qUnusedLiteralRegs.push_back(i);
        }
    }

    const unsigned int nLoopRegs = (nMaxLoopDepth + s_nLoopsPerRegister - 1) / s_nLoopsPerRegister;
    m_nTempRegisterCount = static_cast<unsigned int>(m_vTempRegisterNumbers.size());
    m_nPatchedTempRegisterCount = m_nTempRegisterCount + 5 + nLoopRegs;
    m_nPatchedLiteralRegisterCount = m_nLiteralRegisterCount + 5 + nLoopRegs;

    if (m_nPatchedTempRegisterCount > NUM_IL_REGISTER_INDICES ||
        m_nPatchedLiteralRegisterCount > NUM_IL_REGISTER_INDICES)
    {
        return Refuse(ES_CanNotDebug_InsufficientFreeTempRegisters);
    }

    const auto Take = [](std::deque<unsigned int>& qRegs)
    {
        const unsigned int nReg = qRegs.front();
        qRegs.pop_front();
        return nReg;
    };
    const auto TakeTemp = [&]
    {
        m_nPatchedTempRegisters.push_back(Take(qUnusedTempRegs));
        return m_nPatchedTempRegisters.back();
    };

    for (unsigned int& nReg : m_nLiteralRegisters)
    {
        nReg = Take(m_qUnusedLiteralRegs);
    }

    for (unsigned int& nReg : m_nTempRegisters)
    {
        nReg = TakeTemp();
    }

    std::vector<unsigned int> vLoopTempRegs;
    std::vector<unsigned int> vLoopLiteralRegs;

    for (unsigned int i = 0; i < nLoopRegs; ++i)
    {
        vLoopTempRegs.push_back(TakeTemp());
        vLoopLiteralRegs.push_back(Take(m_qUnusedLiteralRegs));
    }

    AssignLoopCounters(vLoopTempRegs, vLoopLiteralRegs);
    return true;
}

void CAnalyzedShaderIL::AssignLoopCounters(const std::vector<unsigned int>& vLoopTempRegs,
                                           const std::vector<unsigned int>& vLoopLiteralRegs)
{
    for (const std::unique_ptr<CIL_FCConstruct>& pConstruct : m_vConstructs)
    {
        CIL_Loop* pLoop = pConstruct->AsLoop();

        if (pLoop == nullptr)
        {
            continue;
        }

        const unsigned int nLoopDepth = pLoop->GetLoopDepth() - 1;
        const unsigned int nRegister = nLoopDepth / s_nLoopsPerRegister;

        if (!SD_AssertText(GetHost(), nRegister < vLoopTempRegs.size(), "nLoopDepth / 4 < vLoopTempRegs.size()"))
        {
            continue;
        }

        pLoop->SetCountRegister(vLoopTempRegs[nRegister]);
        pLoop->SetCountComponent(GetComponent(nLoopDepth % s_nLoopsPerRegister));
        pLoop->SetLiteralRegister(vLoopLiteralRegs[nRegister]);
    }
}

bool CAnalyzedShaderIL::AllocateUAVs()
{
    if (IsCompute() && !m_bTidewater && m_nRawUAVNum == std::numeric_limits<unsigned int>::max())
    {
        SD_Log(GetHost(), logWARNING, "No raw UAV declared. Using UAV 11.");
        m_nRawUAVNum = s_nDefaultRawUAV;
    }

    m_nResultsUAVNum = FindFreeUAV(m_UAVNums, s_nFirstUAV);
    m_nExecMaskUAVNum = FindFreeUAV(m_UAVNums, m_nResultsUAVNum + 1);

    // The mask's lies after the results'.
    if (m_nExecMaskUAVNum > s_nLastUAV)
    {
        return Refuse(ES_CanNotDebug_InsufficientFreeUAVs);
    }

    return true;
}

} // namespace OVK_ShaderDebugger
