#include "platform/runtime/Enqueue.h"

namespace KestrelPlatform::Runtime
{

namespace
{

/// Calls a function in its destructor, unless the function has been taken out.
class CUndo
{
public:
    explicit CUndo(std::function<void()> undo) : m_Undo(std::move(undo)) {}
    CUndo(const CUndo&) = delete;
    CUndo& operator=(const CUndo&) = delete;
    ~CUndo()
    {
        if (m_Undo)
        {
            m_Undo();
        }
    }
    std::function<void()> Take() { return std::exchange(m_Undo, nullptr); }

private:
    std::function<void()> m_Undo;
};

/// Whether commands of this type have little or nothing to do, since host and devices share their memory.
bool IsInstant(cl_command_type eType)
{
    switch (eType)
    {
    case CL_COMMAND_MAP_BUFFER:
    case CL_COMMAND_MAP_IMAGE:
    case CL_COMMAND_UNMAP_MEM_OBJECT:
    case CL_COMMAND_MARKER:
    case CL_COMMAND_BARRIER:
    case CL_COMMAND_MIGRATE_MEM_OBJECTS:
        return true;
    default:
        return false;
    }
}

} // namespace

CEnqueue::~CEnqueue()
{
    if (m_pCommand)
    {
        m_pQueue->Push(std::move(m_pCommand));
    }
}

cl_int CEnqueue::Open()
{
    m_pQueue = Lookup<CCommandQueue>(m_Arguments.m_hQueue);
    return m_pQueue ? CL_SUCCESS : CL_INVALID_COMMAND_QUEUE;
}

cl_int CEnqueue::MakeCommand(cl_command_type eType, bool bBlocking, std::unique_ptr<SCommand>& pCommand)
{
    pCommand = std::make_unique<SCommand>();
    if (const cl_int nError =
            ReadWaitList(GetContext(), m_Arguments.m_nWaits, m_Arguments.m_phWaits, pCommand->m_vWaitList))
    {
        return nError;
    }
    if (bBlocking && m_pQueue->IsOwnThread())
    {
        return CL_INVALID_OPERATION;
    }
    pCommand->m_pEvent = MakeObject<CEvent>(CRef<CContext>(&GetContext()), m_pQueue, eType);
    m_pQueue->Expect();
    return CL_SUCCESS;
}

cl_int CEnqueue::Submit(cl_command_type eType, bool bBlocking, std::function<cl_int()> run, std::function<void()> undo)
{
    CUndo undoing(std::move(undo));
    std::unique_ptr<SCommand> pCommand;
    if (const cl_int nError = MakeCommand(eType, bBlocking, pCommand))
    {
        return nError;
    }
    pCommand->m_Run = std::move(run);
    pCommand->m_Undo = undoing.Take();
    pCommand->m_bInstant = IsInstant(eType) && pCommand->m_vWaitList.empty();
    if (bBlocking)
    {
        return SubmitBlocking(std::move(pCommand));
    }
    if (m_Arguments.m_phEvent)
    {
        *m_Arguments.m_phEvent = GiveToClient(pCommand->m_pEvent);
    }
    m_pCommand = std::move(pCommand);
    return CL_SUCCESS;
}

cl_int CEnqueue::SubmitBlocking(std::unique_ptr<SCommand> pCommand)
{
    const CRef<CEvent> pEvent = pCommand->m_pEvent;
    m_pQueue->Push(std::move(pCommand), true);
    const cl_int nStatus = pEvent->WaitAndRun();
    if (nStatus < 0)
    {
        return nStatus;
    }
    if (m_Arguments.m_phEvent)
    {
        *m_Arguments.m_phEvent = GiveToClient(pEvent);
    }
    return CL_SUCCESS;
}

} // namespace KestrelPlatform::Runtime
