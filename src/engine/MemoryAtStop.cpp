#include "engine/MemoryAtStop.h"

#include "binary/CLMetadata.h"
#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/PatchedRuns.h"
#include "engine/TargetBuffers.h"
#include "instrument/TargetScope.h"

#include <algorithm>
#include <set>
#include <utility>

namespace OVK_ShaderDebugger
{

namespace
{

/// A group that no dispatch has.
constexpr unsigned int s_nNoGroup = ~0u;

/// Bytes of an element of constant buffers and of the results. Blocks of local memory begin at whole ones.
constexpr unsigned int s_nElementSize = 16;

/// Before the blocks of local memory comes an element that tells that the group exists.
constexpr unsigned int s_nMarkSize = s_nElementSize;

constexpr unsigned int RoundUpToElements(unsigned int n)
{
    return (n + s_nElementSize - 1) / s_nElementSize * s_nElementSize;
}

} // namespace

CMemoryAtStop::CMemoryAtStop(CInstrumentedShaderIL& kernel, const CKernelCourse& course, CPatchedRuns& runs,
                             CTargetBuffers& buffers)
    : m_Kernel(kernel), m_Course(course), m_Runs(runs), m_Buffers(buffers)
{
}

bool CMemoryAtStop::BringGlobal(const SPosition& stop)
{
    return m_Runs.HasCopiesOf(stop) || Run(stop, s_nNoGroup, nullptr);
}

/// A run that doesn't touch the output buffers: the mask of the stop stays in them for the next step.
bool CMemoryAtStop::Run(const SPosition& stop, unsigned int nGroup, CShaderDebuggerDeviceBuffer* pLocal)
{
    if (!m_At || !(*m_At == stop))
    {
        const CInstrumentedShaderIL::CTargetScope scope(m_Kernel, stop.callStack, {});
        m_At.reset();
        m_Local.clear();
        m_Runs.ForgetImage();
        if (!m_Kernel.CreateMemoryShader(stop.pc, LocalBlocks(), m_vImage))
        {
            return false;
        }
        m_At = stop;
    }
    return m_Runs.RunImage(m_vImage, pLocal, nGroup, stop, "Failed to run the kernel for memory");
}

const std::vector<unsigned char>* CMemoryAtStop::BringLocal(const SPosition& stop, unsigned int nGroup)
{
    static const std::vector<unsigned char> s_NoGroup;
    const std::vector<SLocalBlock>& vBlocks = LocalBlocks();
    if (nGroup == s_nNoGroup || vBlocks.empty())
    {
        return &s_NoGroup;
    }
    const auto itKnown = m_At && *m_At == stop ? m_Local.find(nGroup) : m_Local.end();
    if (itKnown != m_Local.end())
    {
        return &itKnown->second;
    }
    BufferDesc desc;
    desc.m_Type = ShaderUtils::BT_Buffer;
    desc.m_Format = ShaderUtils::BF_RGBA_32F;
    desc.m_Usage = ShaderUtils::BU_Results;
    desc.m_ShaderType = m_Kernel.GetShaderType();
    desc.m_nWidth = (vBlocks.back().nOffset + RoundUpToElements(vBlocks.back().nSize)) / s_nElementSize;
    desc.m_nHeight = desc.m_nDepth = desc.m_nArraySize = 1;
    const std::unique_ptr<CShaderDebuggerDeviceBuffer> pLocal(m_Kernel.GetHost()->CreateDeviceBuffer(desc));
    if (pLocal == nullptr || !Run(stop, nGroup, pLocal.get()))
    {
        return nullptr;
    }
    const std::unique_ptr<CShaderDebuggerBuffer> pRead(pLocal->GetDataBuffer(nullptr));
    if (pRead == nullptr)
    {
        return nullptr;
    }
    std::vector<unsigned char>& vBytes = m_Local[nGroup];
    const unsigned char* pBytes = pRead->GetData();
    if (std::any_of(pBytes, pBytes + s_nMarkSize, [](unsigned char n) { return n != 0; }))
    {
        vBytes.assign(pBytes, pBytes + pRead->GetSize());
    }
    return &vBytes;
}

bool CMemoryAtStop::ReadValues(const SPosition& stop, const std::vector<Register>& vRegisters, unsigned int nPlane,
                               CShaderDebuggerDeviceBuffer& values)
{
    std::vector<char> vImage;
    {
        const CInstrumentedShaderIL::CTargetScope scope(m_Kernel, stop.callStack, {});
        if (!m_Kernel.CreateValueShader(stop.pc, vRegisters, nPlane, vImage))
        {
            return false;
        }
    }
    m_Runs.ForgetImage();
    const bool bRun = m_Runs.RunImage(vImage, &values, 0, stop, "Failed to run the kernel for values");
    m_Runs.ForgetImage();
    return bRun;
}

const SLocalBlock* CMemoryAtStop::FindLocalBlock(bool bArgument, unsigned int nNumber)
{
    const std::vector<SLocalBlock>& vBlocks = LocalBlocks();
    const auto it = std::find_if(vBlocks.begin(), vBlocks.end(),
                                 [&](const SLocalBlock& block)
                                 { return block.bArgument == bArgument && block.nNumber == nNumber; });
    return it != vBlocks.end() ? &*it : nullptr;
}

/// All of the kernel's local memory, block after block.
const std::vector<SLocalBlock>& CMemoryAtStop::LocalBlocks()
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
            nOffset += RoundUpToElements(block.nSize);
        }
        m_LocalBlocks = std::move(vBlocks);
    }
    return *m_LocalBlocks;
}

/// What the main body and the functions that it reaches declare. The largest size of a number counts.
void CMemoryAtStop::AddDeclaredBlocks(std::vector<SLocalBlock>& vBlocks) const
{
    std::set<InstructionNumber> reached;
    m_Course.AddWithCalled(0, m_Kernel.EndOfBody(0), reached);
    std::map<unsigned int, unsigned int> sizes;
    for (const auto& scope : m_Kernel.GetDeclarations())
    {
        const std::optional<InstructionNumber> nFunction = m_Kernel.FindFunction(scope.first);
        if (nFunction && reached.count(*nFunction) == 0)
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

void CMemoryAtStop::AddArgumentBlocks(std::vector<SLocalBlock>& vBlocks) const
{
    CCLMetadata metadata;
    if (!metadata.FromString(m_Kernel.GetMetadata()))
    {
        return;
    }
    unsigned int nIndex = 0;
    for (const CCLMetadataEntry* pEntry : metadata.GetEntriesByArgument(m_Buffers.CountArguments()))
    {
        const auto* pPointer = dynamic_cast<const CCLMetadataPointerEntry*>(pEntry);
        const unsigned int nSize = m_Buffers.GetLocalArgumentSize(nIndex);
        if (pPointer != nullptr && nSize != 0)
        {
            vBlocks.push_back({true, nIndex, pPointer->GetBufferNumber(),
                               pPointer->GetConstantBufferOffset() / s_nElementSize, nSize, 0});
        }
        ++nIndex;
    }
}

} // namespace OVK_ShaderDebugger
