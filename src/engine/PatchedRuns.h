#ifndef KESTREL_ENGINE_PATCHEDRUNS_H
#define KESTREL_ENGINE_PATCHEDRUNS_H

#include "engine/KernelCourse.h"
#include "engine/StopHistory.h"

#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace OVK_ShaderDebugger
{

class CInstrumentedShaderIL;
class CShaderDebuggerBuffer;
class CShaderDebuggerDeviceBuffer;
class CTargetBuffers;

/// The kernel runs of a session: gives the device a patched kernel and runs it over the whole dispatch, and knows of
/// which position the last run has left the mask, memory or all outputs.
class CPatchedRuns
{
public:
    /// All three must outlive this object.
    CPatchedRuns(CInstrumentedShaderIL& kernel, const CKernelCourse& course, CTargetBuffers& buffers);

    /// Patches the kernel for a target and registers, and gives it to the device; the last one is kept for the next
    /// time. The kernel has been told which call and which jumps are meant (CTargetScope).
    /// \param bOnDemand  a list without a register then makes a kernel for the mask alone
    bool Switch(const ProgramCounter& pc, const std::vector<Register>& vTargetRegs, bool bOnDemand);
    /// One run of the kernel that Switch has set, on fresh working copies. \return false, with the reason logged
    bool Run(unsigned int nSelector);
    /// Reads a register, if there is one, and the mask at a position that isn't the present stop.
    bool Capture(const SFiling& what, bool bOnDemand, std::unique_ptr<CShaderDebuggerBuffer>& pResult,
                 std::unique_ptr<CShaderDebuggerBuffer>& pExecMask);
    /// One run of another kernel for what it leaves at a stop: memory, and what it stores to a buffer in place of the
    /// results. The output buffers stay as they are. \param pResults  null for none \return false, with the reason
    /// logged
    bool RunImage(const std::vector<char>& vImage, CShaderDebuggerDeviceBuffer* pResults, unsigned int nSelector,
                  const SPosition& stop, const char* pszFailure);
    /// The last image's memory holds another image.
    void ForgetImage() { m_pImageOnDevice = nullptr; }
    /// Makes sure that the last run was one of the kernel as it is, so that the working copies hold its outputs. Says
    /// in the last error where they differ from what the session's own runs left.
    /// \param bCountsDiffer  runs have disagreed on how many work-items come to a place
    bool Complete(bool bCountsDiffer);

    /// The runs of the present stop have all succeeded.
    void NoteStop(const SPosition& stop);
    /// Memory at that stop is as it was at the one before, and the working copies hold it.
    void KeepCopiesFor(const SPosition& stop) { m_CopiesAt = stop; }
    /// What the last run left doesn't belong to a stop.
    void Forget();
    /// The next patched kernel is made anew.
    void DropPatchedKernel();

    /// Whether the output buffers hold the mask of the present position.
    bool HasPresentMask() const { return m_bMaskIsPresent; }
    void SetPresentMask(bool bPresent) { m_bMaskIsPresent = bPresent; }
    /// Whether the last run was one for the mask alone of that stop.
    bool HasMaskOf(const SPosition& stop) const { return m_MaskAt && *m_MaskAt == stop; }
    /// Whether the working copies hold memory as it is at that stop.
    bool HasCopiesOf(const SPosition& stop) const { return m_CopiesAt && *m_CopiesAt == stop; }
    /// Whether the last patched kernel stores the values of a register besides the mask.
    bool StoresValues() const;

private:
    bool RunPlain();
    /// Whether a work-item may leave the kernel, or not enter a function, without coming to the stores to the output
    /// buffers.
    bool CanMissStores() const;

    CInstrumentedShaderIL& m_Kernel;
    const CKernelCourse& m_Course;
    CTargetBuffers& m_Buffers;
    SPosition m_PatchedAt; ///< target of the last patched kernel, with the next two; g_PC_NULL for none
    std::vector<Register> m_PatchedRegs;
    std::set<InstructionNumber> m_PatchedLeaving;
    bool m_bMaskIsPresent = false;             ///< the output buffers hold the mask of the current position
    bool m_bComplete = false;                  ///< the last run was one of the kernel as it is
    std::optional<SPosition> m_MaskAt;         ///< where the last run was one for the mask alone
    std::optional<SPosition> m_CopiesAt;       ///< the stop whose memory the working copies hold
    const char* m_pImageOnDevice = nullptr;    ///< the bytes of the last image; null if the device holds another kernel
    mutable std::optional<bool> m_bMissStores; ///< found when first asked for
};

} // namespace OVK_ShaderDebugger

#endif
