#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <string_view>

/// The end of a session: the kernel as the client built it runs on the working copies, and what it leaves goes to the
/// client. So the outputs don't depend on how well the kernel is understood here.
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

/// The end of the main body follows, so that there is no stop behind it.
bool CShaderDebuggerShaderIL::IsLastInstruction(const ProgramCounter& pc) const
{
    return m_CallStack.empty() && OpCodeAt(pc.m_nPos) != IL_OP_UNKNOWN && OpCodeAt(pc.m_nPos + 1) == IL_OP_ENDMAIN;
}

bool CShaderDebuggerShaderIL::CompleteKernel()
{
    if (m_bComplete)
    {
        return true;
    }
    // What the last run left is what the kernel leaves, if nothing is written behind its place.
    const bool bComparable = m_CopiesAt && !MayStillWrite(*m_CopiesAt);
    const std::vector<size_t> vBefore = bComparable ? GetDebuggerIL()->HashWorkingCopies() : std::vector<size_t>();
    if (!RunPlainKernel())
    {
        return false;
    }
    const bool bBuffersDiffer = !vBefore.empty() && vBefore != GetDebuggerIL()->HashWorkingCopies();
    if (bBuffersDiffer || m_bRunsDiffer)
    {
        const char* pszWarning = bBuffersDiffer ? s_szOrderMatters : s_szPlacesDiffer;
        SD_Log(GetHost(), logWARNING, "%s", pszWarning);
        GetDebugger()->SetLastError(pszWarning);
    }
    m_bComplete = true;
    return true;
}

bool CShaderDebuggerShaderIL::RunPlainKernel()
{
    m_CopiesAt.reset();
    m_bMemoryOnDevice = false;
    std::vector<char> vImage;
    if (!CreatePlainShader(vImage) || !GetHost()->SetShader(GetShaderType(), vImage.data(), vImage.size()) ||
        !GetDebuggerIL()->SwitchPlainBuffers() || !GetHost()->ExecuteShader())
    {
        SD_Log(GetHost(), logERROR, "Failed to run the kernel to its end");
        return false;
    }
    return true;
}

/// A number for each working copy that stands for its contents. Empty if one can't be read, and without any.
std::vector<size_t> CShaderDebuggerIL::HashWorkingCopies()
{
    std::vector<size_t> vHashes;
    for (const auto& pCopy : m_vpModifiedTargetBuffers)
    {
        if (pCopy == nullptr)
        {
            continue;
        }
        const std::unique_ptr<CShaderDebuggerBuffer> pBytes(pCopy->GetDataBuffer(nullptr));
        if (pBytes == nullptr)
        {
            return {};
        }
        const std::string_view bytes(reinterpret_cast<const char*>(pBytes->GetData()), pBytes->GetSize());
        vHashes.push_back(std::hash<std::string_view>()(bytes));
    }
    return vHashes;
}

/// The kernel's own arguments alone, on fresh working copies.
bool CShaderDebuggerIL::SwitchPlainBuffers()
{
    return ReloadWorkingCopies() && BindOwnArguments();
}

} // namespace OVK_ShaderDebugger
