#include "binary/CLMetadata.h"
#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/CallStackScope.h"
#include "engine/OpCodeRoles.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <cstring>

/// Memory as it is at a stop. The run that read the stop's registers leaves it so in many cases, and then nothing else
/// is done. Where it doesn't, because text after the target stands in its kernel or because there was no run, a memory
/// kernel runs when memory is first asked for.
namespace OVK_ShaderDebugger
{

namespace
{

/// A group that no dispatch has.
constexpr unsigned int s_nNoGroup = ~0u;

/// In front of the blocks of local memory stands an element that tells that the group has been there.
constexpr unsigned int s_nMarkSize = 16;

constexpr unsigned int RoundUpTo16(unsigned int n)
{
    return (n + 15) & ~15u;
}

} // namespace

/// A store, an atomic, or a call of a macro whose text the analysis doesn't know.
bool CShaderDebuggerShaderIL::MayWrite(InstructionNumber nInst) const
{
    const CShaderDebuggerInstructionIL& instruction = m_Instructions[nInst];
    return (instruction.GetOpCode() == IL_OP_MACROCALL && !FindCallee(nInst)) ||
           (ILShaderUtils::WritesGlobalMemory(instruction.GetOpCode()) && !IsPrivateUAVWrite(instruction));
}

/// Whether the text that follows an instruction may be executed again before what comes after the block, or, in a
/// switch, is kept behind a target.
bool CShaderDebuggerShaderIL::IsInRepeatedText(InstructionNumber nInst) const
{
    for (const CIL_FCConstruct* p = ConstructOf(nInst); p != nullptr; p = p->GetParent())
    {
        const CIL_Loop* pLoop = p->AsLoop();
        const CIL_Switch* pSwitch = p->AsSwitch();
        if ((pLoop != nullptr && pLoop->IsInsideLoop(nInst)) ||
            (pSwitch != nullptr && pSwitch->GetStart() <= nInst && nInst < pSwitch->GetEnd()))
        {
            return true;
        }
    }
    return false;
}

/// Whether the patched kernel of a place executes the place and nothing that comes after it.
bool CShaderDebuggerShaderIL::IsCutExactly(const SPlace& place) const
{
    const InstructionNumber nPos = place.pc.m_nPos;
    if (nPos >= m_Instructions.size() || IsInRepeatedText(nPos))
    {
        return false;
    }
    // What has no destination is left out at the target.
    if (MayWrite(nPos) && OpCodeAt(nPos) != IL_OP_MACROCALL && !m_Instructions[nPos].HasDestReg())
    {
        return false;
    }
    for (const ProgramCounter& call : place.path)
    {
        if (IsInRepeatedText(call.m_nPos))
        {
            return false;
        }
    }
    if (place.path.empty())
    {
        return true;
    }
    // The main body isn't cut.
    for (InstructionNumber n = place.path.FromOutside(0).m_nPos + 1; OpCodeAt(n) != IL_OP_ENDMAIN; ++n)
    {
        if (n >= m_nEndOfShader || MayWrite(n) || FindCallee(n))
        {
            return false;
        }
    }
    return true;
}

bool CShaderDebuggerShaderIL::MayHaveWritten(const SPlace& place) const
{
    const std::set<InstructionNumber> before = FindAround(place, true);
    return std::any_of(before.begin(), before.end(), [this](InstructionNumber n) { return MayWrite(n); });
}

bool CShaderDebuggerShaderIL::MayStillWrite(const SPlace& place) const
{
    const std::set<InstructionNumber> behind = FindAround(place, false);
    return std::any_of(behind.begin(), behind.end(), [this](InstructionNumber n) { return MayWrite(n); });
}

/// The instructions that work-items may have executed at a place, with the place's own; or those that they may execute
/// after it.
std::set<InstructionNumber> CShaderDebuggerShaderIL::FindAround(const SPlace& place, bool bBefore) const
{
    std::set<InstructionNumber> found;
    std::vector<InstructionNumber> vFrames = {place.pc.m_nPos};
    for (const ProgramCounter& call : place.path)
    {
        vFrames.push_back(call.m_nPos);
    }
    for (size_t i = 0; i < vFrames.size(); ++i)
    {
        const InstructionNumber nPos = vFrames[i];
        if (!bBefore)
        {
            AddWithCalled(nPos + 1, EndOfBody(nPos), found);
        }
        else
        {
            // Of the call in which the place lies the rest is to come.
            AddWithCalled(StartOfBody(nPos), i == 0 ? nPos + 1 : nPos, found);
        }
        for (const CIL_FCConstruct* p = ConstructOf(nPos); p != nullptr; p = p->GetParent())
        {
            if (const CIL_Loop* pLoop = p->AsLoop())
            {
                AddWithCalled(pLoop->GetStart(), pLoop->GetEnd(), found);
            }
        }
    }
    return found;
}

/// Adds the instructions from one in front of another, and those of the functions that they call.
void CShaderDebuggerShaderIL::AddWithCalled(InstructionNumber nFirst, InstructionNumber nEnd,
                                            std::set<InstructionNumber>& found) const
{
    std::vector<std::pair<InstructionNumber, InstructionNumber>> vRanges = {{nFirst, nEnd}};
    while (!vRanges.empty())
    {
        const auto range = vRanges.back();
        vRanges.pop_back();
        for (InstructionNumber n = range.first; n < range.second && n < m_Instructions.size(); ++n)
        {
            const std::optional<InstructionNumber> nCallee = FindCallee(n);
            if (found.insert(n).second && nCallee)
            {
                vRanges.push_back({*nCallee, EndOfBody(*nCallee)});
            }
        }
    }
}

bool CShaderDebuggerShaderIL::BringMemory()
{
    return (m_CopiesAt && *m_CopiesAt == Here()) || RunMemoryKernel(s_nNoGroup, nullptr);
}

/// A run that doesn't touch the output buffers: the mask of the stop stays in them for the next step.
bool CShaderDebuggerShaderIL::RunMemoryKernel(unsigned int nGroup, CShaderDebuggerDeviceBuffer* pLocal)
{
    const SPlace here = Here();
    if (!m_MemoryAt || !(*m_MemoryAt == here))
    {
        const CCallStackScope scope(*this, m_CurrentCallStack, {});
        m_MemoryAt.reset();
        m_LocalMemory.clear();
        if (!CreateMemoryShader(here.pc, LocalBlocks(), m_vMemoryImage))
        {
            return false;
        }
        m_MemoryAt = here;
        m_bMemoryOnDevice = false;
    }
    m_CopiesAt.reset();
    m_bComplete = false;
    m_bMemoryOnDevice =
        m_bMemoryOnDevice || GetHost()->SetShader(GetShaderType(), m_vMemoryImage.data(), m_vMemoryImage.size());
    if (!m_bMemoryOnDevice || !GetDebuggerIL()->SwitchMemoryBuffers(pLocal) ||
        !GetDebuggerIL()->SetRegisterSelectorValue(nGroup) || !GetHost()->ExecuteShader())
    {
        SD_Log(GetHost(), logERROR, "Failed to run the kernel for memory");
        return false;
    }
    m_CopiesAt = here;
    return true;
}

const std::vector<unsigned char>* CShaderDebuggerShaderIL::BringLocalMemory(unsigned int nGroup)
{
    static const std::vector<unsigned char> s_NoGroup;
    const std::vector<SLocalBlock>& vBlocks = LocalBlocks();
    if (nGroup == s_nNoGroup || vBlocks.empty())
    {
        return &s_NoGroup;
    }
    const auto itKnown = m_MemoryAt && *m_MemoryAt == Here() ? m_LocalMemory.find(nGroup) : m_LocalMemory.end();
    if (itKnown != m_LocalMemory.end())
    {
        return &itKnown->second;
    }
    BufferDesc desc;
    desc.m_Type = ShaderUtils::BT_Buffer;
    desc.m_Format = ShaderUtils::BF_RGBA_32F;
    desc.m_Usage = ShaderUtils::BU_Results;
    desc.m_ShaderType = GetShaderType();
    desc.m_nWidth = (vBlocks.back().nOffset + RoundUpTo16(vBlocks.back().nSize)) / 16;
    desc.m_nHeight = desc.m_nDepth = desc.m_nArraySize = 1;
    const std::unique_ptr<CShaderDebuggerDeviceBuffer> pLocal(GetHost()->CreateDeviceBuffer(desc));
    if (pLocal == nullptr || !RunMemoryKernel(nGroup, pLocal.get()))
    {
        return nullptr;
    }
    const std::unique_ptr<CShaderDebuggerBuffer> pRead(pLocal->GetDataBuffer(nullptr));
    if (pRead == nullptr)
    {
        return nullptr;
    }
    std::vector<unsigned char>& vBytes = m_LocalMemory[nGroup];
    const unsigned char* pBytes = pRead->GetData();
    if (std::any_of(pBytes, pBytes + s_nMarkSize, [](unsigned char n) { return n != 0; }))
    {
        vBytes.assign(pBytes, pBytes + pRead->GetSize());
    }
    return &vBytes;
}

const SLocalBlock* CShaderDebuggerShaderIL::FindLocalBlock(bool bArgument, unsigned int nNumber)
{
    const std::vector<SLocalBlock>& vBlocks = LocalBlocks();
    const auto it = std::find_if(vBlocks.begin(), vBlocks.end(),
                                 [&](const SLocalBlock& block)
                                 { return block.bArgument == bArgument && block.nNumber == nNumber; });
    return it != vBlocks.end() ? &*it : nullptr;
}

/// All of the kernel's local memory, block behind block.
const std::vector<SLocalBlock>& CShaderDebuggerShaderIL::LocalBlocks()
{
    if (!m_LocalBlocks)
    {
        std::vector<SLocalBlock> vBlocks;
        AddDeclaredBlocks(vBlocks);
        AddArgumentBlocks(vBlocks);
        unsigned int nOffset = s_nMarkSize;
        for (SLocalBlock& block : vBlocks)
        {
            block.nOffset = nOffset;
            nOffset += RoundUpTo16(block.nSize);
        }
        m_LocalBlocks = std::move(vBlocks);
    }
    return *m_LocalBlocks;
}

/// What the main body and the functions that it reaches declare. The largest size of a number counts.
void CShaderDebuggerShaderIL::AddDeclaredBlocks(std::vector<SLocalBlock>& vBlocks) const
{
    std::set<InstructionNumber> reached;
    AddWithCalled(0, EndOfBody(0), reached);
    std::map<unsigned int, unsigned int> sizes;
    for (const auto& scope : m_DeclsFuncScopeMap)
    {
        const auto itFunction = m_FunctionInstruction.find(scope.first);
        if (itFunction != m_FunctionInstruction.end() && reached.count(itFunction->second) == 0)
        {
            continue;
        }
        for (const auto& local : scope.second.m_LocalSizes)
        {
            sizes[local.first] = std::max(sizes[local.first], local.second);
        }
    }
    for (const auto& local : sizes)
    {
        if (local.second != 0)
        {
            vBlocks.push_back({false, local.first, local.first, 0, local.second, 0});
        }
    }
}

void CShaderDebuggerShaderIL::AddArgumentBlocks(std::vector<SLocalBlock>& vBlocks) const
{
    CCLMetadata metadata;
    if (!metadata.FromString(m_strMetadata))
    {
        return;
    }
    unsigned int nIndex = 0;
    for (const CCLMetadataEntry* pEntry : metadata.GetEntriesByArgument(GetDebuggerIL()->CountArguments()))
    {
        const auto* pPointer = dynamic_cast<const CCLMetadataPointerEntry*>(pEntry);
        const unsigned int nSize = GetDebuggerIL()->GetLocalArgumentSize(nIndex);
        if (pPointer != nullptr && nSize != 0)
        {
            vBlocks.push_back(
                {true, nIndex, pPointer->GetBufferNumber(), pPointer->GetConstantBufferOffset() / 16, nSize, 0});
        }
        ++nIndex;
    }
}

} // namespace OVK_ShaderDebugger
