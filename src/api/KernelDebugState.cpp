#include "api/KernelDebugState.h"

#include "device/ShaderDebuggerHostCL.h"

#include <utility>

#include <boost/thread/mutex.hpp>

namespace Kestrel
{

std::set<CKernelDebugState*>& g_KernelDebugStates = *new std::set<CKernelDebugState*>;
boost::mutex& g_mutexKernelDebugStates = *new boost::mutex;

namespace
{

thread_local bool s_bHeldByThisThread = false;
thread_local bool s_bOnDemandNext = false;

} // namespace

CKernelDebugState::~CKernelDebugState()
{
    SD_SAFE_DELETE(m_pShaderDebuggerHost);
}

bool CKernelDebugState::HasPrivateUAV() const
{
    const unsigned int nPrivateMemory = 8;
    return m_bTidewater || (m_pShaderDebuggerHost != nullptr && m_pShaderDebuggerHost->HasPrivateUAV(nPrivateMemory));
}

size_t CKernelDebugState::GetNumWorkItems() const
{
    size_t nItems = static_cast<unsigned int>(m_dispatchDimensions.x);
    if (m_dispatchDimensions.type == ShaderUtils::TID_2D || m_dispatchDimensions.type == ShaderUtils::TID_3D)
    {
        nItems *= static_cast<unsigned int>(m_dispatchDimensions.y);
    }
    if (m_dispatchDimensions.type == ShaderUtils::TID_3D)
    {
        nItems *= static_cast<unsigned int>(m_dispatchDimensions.z);
    }
    return nItems;
}

CSessionLock::CSessionLock() : m_bNested(s_bHeldByThisThread), m_bHeld(false)
{
    Retake();
}

CSessionLock::~CSessionLock()
{
    Release();
}

void CSessionLock::Release()
{
    if (m_bHeld)
    {
        m_bHeld = false;
        s_bHeldByThisThread = false;
        g_mutexKernelDebugStates.unlock();
    }
}

void CSessionLock::Retake()
{
    if (!m_bNested && !m_bHeld)
    {
        g_mutexKernelDebugStates.lock();
        s_bHeldByThisThread = true;
        m_bHeld = true;
    }
}

bool IsOpenSession(const CKernelDebugState* pKernelDebugState)
{
    return g_KernelDebugStates.count(const_cast<CKernelDebugState*>(pKernelDebugState)) != 0;
}

void AskForValuesOnDemand()
{
    s_bOnDemandNext = true;
}

bool TakeValuesOnDemand()
{
    return std::exchange(s_bOnDemandNext, false);
}

} // namespace Kestrel
