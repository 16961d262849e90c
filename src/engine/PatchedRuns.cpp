#include "engine/PatchedRuns.h"

#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/TargetBuffers.h"
#include "instrument/TargetScope.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

namespace
{

const char s_szOrderMatters[] =
    "The session's own runs left other values in the kernel's buffers than a plain run does: "
    "the kernel's results depend on the order in which its work-groups run, and so may "
    "what the stops have shown.";

const char s_szPlacesDiffer[] = "Runs of the session disagree about how many work-items come to a place: the kernel's "
                                "course depends on the order in which its work-groups run, and so may what the stops "
                                "have shown.";

} // namespace

CPatchedRuns::CPatchedRuns(CInstrumentedShaderIL& kernel, const CKernelCourse& course, CTargetBuffers& buffers)
    : m_Kernel(kernel), m_Course(course), m_Buffers(buffers), m_PatchedAt({g_PC_NULL, {}})
{
}

bool CPatchedRuns::StoresValues() const
{
    return !m_Kernel.IsMaskOnly();
}

bool CPatchedRuns::CanMissStores() const
{
    if (!m_bMissStores)
    {
        m_bMissStores = m_Course.CanMissStores();
    }
    return *m_bMissStores;
}

bool CPatchedRuns::Switch(const ProgramCounter& pc, const std::vector<Register>& vTargetRegs, bool bOnDemand)
{
    // At a switch the selectors are read in the place of a register.
    m_Kernel.SetMaskOnly(
        bOnDemand && m_Kernel.OpCodeAt(pc.m_nPos) != IL_OP_SWITCH &&
        std::all_of(vTargetRegs.begin(), vTargetRegs.end(), [](const Register& reg) { return reg == g_Reg_NULL; }));
    const SPosition at = {pc, m_Kernel.GetTargetCalls()};
    if (!(at == m_PatchedAt) || vTargetRegs != m_PatchedRegs || m_Kernel.GetLeaving() != m_PatchedLeaving)
    {
        m_PatchedAt = at;
        m_PatchedRegs = vTargetRegs;
        m_PatchedLeaving = m_Kernel.GetLeaving();
        if (m_Kernel.CreatePatchedShader(pc, vTargetRegs) == nullptr)
        {
            // The last image is for another target. The key of the failed one stays, so that it isn't tried again.
            m_Kernel.DropPatchedShader();
        }
    }
    ForgetImage();
    const IL* pPatched = m_Kernel.GetPatchedShader();
    return pPatched != nullptr &&
           m_Kernel.GetHost()->SetShader(m_Kernel.GetShaderType(), pPatched, m_Kernel.GetPatchedShaderSize());
}

bool CPatchedRuns::Run(unsigned int nSelector)
{
    m_CopiesAt.reset();
    m_MaskAt.reset();
    m_bComplete = false;
    if (!m_Buffers.Switch(StoresValues(), CanMissStores()))
    {
        SD_Log(m_Kernel.GetHost(), logERROR, "Failed to switch buffers");
        return false;
    }
    if (!m_Buffers.SetSelector(nSelector))
    {
        SD_Log(m_Kernel.GetHost(), logERROR, "Failed to set register selector value");
        return false;
    }
    if (!m_Kernel.GetHost()->ExecuteShader())
    {
        SD_Log(m_Kernel.GetHost(), logERROR, "Failed to execute shader");
        return false;
    }
    return true;
}

bool CPatchedRuns::Capture(const SFiling& what, bool bOnDemand, std::unique_ptr<CShaderDebuggerBuffer>& pResult,
                           std::unique_ptr<CShaderDebuggerBuffer>& pExecMask)
{
    const CInstrumentedShaderIL::CTargetScope scope(m_Kernel, what.callStack, what.leaving);
    m_bMaskIsPresent = false;
    if (!Switch(what.pc, {what.reg}, bOnDemand) || !Run(0))
    {
        return false;
    }
    pResult = StoresValues() ? m_Buffers.ReadValues() : nullptr;
    pExecMask = pResult != nullptr || !StoresValues() ? m_Buffers.ReadMask() : nullptr;
    return pExecMask != nullptr;
}

bool CPatchedRuns::RunImage(const std::vector<char>& vImage, CShaderDebuggerDeviceBuffer* pResults,
                            unsigned int nSelector, const SPosition& stop, const char* pszFailure)
{
    m_CopiesAt.reset();
    m_bComplete = false;
    CShaderDebuggerHost* const pHost = m_Kernel.GetHost();
    if (m_pImageOnDevice == nullptr || m_pImageOnDevice != vImage.data())
    {
        const bool bSet = pHost->SetShader(m_Kernel.GetShaderType(), vImage.data(), vImage.size());
        m_pImageOnDevice = bSet ? vImage.data() : nullptr;
    }
    if (m_pImageOnDevice == nullptr || !m_Buffers.SwitchForMemory(pResults) || !m_Buffers.SetSelector(nSelector) ||
        !pHost->ExecuteShader())
    {
        SD_Log(pHost, logERROR, "%s", pszFailure);
        return false;
    }
    m_CopiesAt = stop;
    return true;
}

bool CPatchedRuns::Complete(bool bCountsDiffer)
{
    if (m_bComplete)
    {
        return true;
    }
    // If nothing is written after the stop whose memory the copies hold, the kernel must leave the same.
    const bool bComparable = m_CopiesAt && !m_Course.MayStillWrite(*m_CopiesAt);
    const std::vector<size_t> vBefore = bComparable ? m_Buffers.HashWorkingCopies() : std::vector<size_t>();
    if (!RunPlain())
    {
        return false;
    }
    const bool bBuffersDiffer = !vBefore.empty() && vBefore != m_Buffers.HashWorkingCopies();
    if (bBuffersDiffer || bCountsDiffer)
    {
        const char* pszWarning = bBuffersDiffer ? s_szOrderMatters : s_szPlacesDiffer;
        SD_Log(m_Kernel.GetHost(), logWARNING, "%s", pszWarning);
        m_Kernel.GetDebugger()->SetLastError(pszWarning);
    }
    m_bComplete = true;
    return true;
}

/// Runs the kernel as the client built it, on the working copies, so that the outputs don't depend on how well the
/// kernel is understood here.
bool CPatchedRuns::RunPlain()
{
    m_CopiesAt.reset();
    ForgetImage();
    std::vector<char> vImage;
    CShaderDebuggerHost* const pHost = m_Kernel.GetHost();
    if (!m_Kernel.CreatePlainShader(vImage) ||
        !pHost->SetShader(m_Kernel.GetShaderType(), vImage.data(), vImage.size()) || !m_Buffers.SwitchPlain() ||
        !pHost->ExecuteShader())
    {
        SD_Log(pHost, logERROR, "Failed to run the kernel to its end");
        return false;
    }
    return true;
}

void CPatchedRuns::NoteStop(const SPosition& stop)
{
    if (m_Kernel.IsMaskOnly())
    {
        m_MaskAt = stop;
    }
    if (m_Course.IsCutExactly(stop))
    {
        m_CopiesAt = stop;
    }
}

void CPatchedRuns::Forget()
{
    DropPatchedKernel();
    ForgetImage();
    m_CopiesAt.reset();
    m_MaskAt.reset();
    m_bComplete = false;
    m_bMaskIsPresent = false;
}

void CPatchedRuns::DropPatchedKernel()
{
    m_Kernel.DropPatchedShader();
    m_PatchedAt.pc = g_PC_NULL;
    m_PatchedRegs.clear();
}

} // namespace OVK_ShaderDebugger
