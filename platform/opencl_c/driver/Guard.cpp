#include "platform/opencl_c/driver/Guard.h"

#include <llvm/Support/ErrorHandling.h>

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <unistd.h>

namespace KestrelOpenCL
{
namespace
{

/// Enough for brackets and operator chains much deeper than any real program's. Pages are only touched when used.
const size_t s_nStackBytes = size_t{256} << 20;
const size_t s_nSignalStackBytes = size_t{64} << 10;

const char* const s_pszOutOfMemory = "the compiler ran out of memory";

const int s_Signals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
const size_t s_nSignals = std::size(s_Signals);

/// One compilation on its thread.
struct SRun
{
    const std::function<bool()>* pCompile;
    sigjmp_buf jump;
    std::string strFault; ///< why it was aborted
    bool bOk = false;
};

/// The compilation of this thread. A signal handler on any thread reads it, so access must not allocate: see the
/// thread-local storage model that this file is compiled with.
thread_local SRun* t_pRun = nullptr;

/// The previous handlers, and the number of compilations that rely on ours.
struct SHandlers
{
    std::mutex mutex;
    unsigned int nUsers = 0;
    struct sigaction before[s_nSignals];
};

SHandlers& Handlers()
{
    static SHandlers& s_Handlers = *new SHandlers;
    return s_Handlers;
}

size_t SlotOf(int nSignal)
{
    size_t n = 0;
    while (n + 1 < s_nSignals && s_Signals[n] != nSignal)
    {
        ++n;
    }
    return n;
}

/// For signals of threads that don't compile: does what would have happened without our handler.
void PassOn(int nSignal, siginfo_t* pInfo, void* pContext)
{
    const struct sigaction& before = Handlers().before[SlotOf(nSignal)];
    if ((before.sa_flags & SA_SIGINFO) != 0)
    {
        before.sa_sigaction(nSignal, pInfo, pContext);
    }
    else if (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN)
    {
        before.sa_handler(nSignal);
    }
    else
    {
        // When this returns, the instruction faults again, with the default action. A signal that was sent is sent
        // again.
        sigaction(nSignal, &before, nullptr);
        if (pInfo->si_code <= 0)
        {
            raise(nSignal);
        }
    }
}

void OnSignal(int nSignal, siginfo_t* pInfo, void* pContext)
{
    if (t_pRun != nullptr)
    {
        siglongjmp(t_pRun->jump, nSignal);
    }
    PassOn(nSignal, pInfo, pContext);
}

void TakeSignals()
{
    SHandlers& handlers = Handlers();
    const std::lock_guard<std::mutex> lock(handlers.mutex);
    if (handlers.nUsers++ != 0)
    {
        return;
    }
    for (size_t n = 0; n < s_nSignals; ++n)
    {
        struct sigaction action = {};
        action.sa_sigaction = OnSignal;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        sigaction(s_Signals[n], &action, &handlers.before[n]);
    }
}

/// Restores the previous handlers, unless somebody else has set one meanwhile.
void ReturnSignals()
{
    SHandlers& handlers = Handlers();
    const std::lock_guard<std::mutex> lock(handlers.mutex);
    if (--handlers.nUsers != 0)
    {
        return;
    }
    for (size_t n = 0; n < s_nSignals; ++n)
    {
        struct sigaction now = {};
        sigaction(s_Signals[n], nullptr, &now);
        if ((now.sa_flags & SA_SIGINFO) != 0 && now.sa_sigaction == OnSignal)
        {
            sigaction(s_Signals[n], &handlers.before[n], nullptr);
        }
    }
}

/// LLVM calls this for a fatal error. It must not return.
void OnFatalError(void*, const char* pszReason, bool)
{
    if (t_pRun != nullptr)
    {
        t_pRun->strFault = std::string("the compiler gave up: ") + pszReason;
        siglongjmp(t_pRun->jump, SIGABRT);
    }
    std::abort();
}

void OnOutOfMemory(void*, const char*, bool)
{
    if (t_pRun != nullptr)
    {
        t_pRun->strFault = s_pszOutOfMemory;
        siglongjmp(t_pRun->jump, SIGABRT);
    }
    std::abort();
}

void InstallErrorHandlers()
{
    static std::once_flag s_Once;
    std::call_once(s_Once,
                   []
                   {
                       llvm::install_fatal_error_handler(OnFatalError);
                       llvm::install_bad_alloc_error_handler(OnOutOfMemory);
                   });
}

void RunToItsEnd(SRun& run)
{
    const int nSignal = sigsetjmp(run.jump, 1);
    if (nSignal != 0)
    {
        t_pRun = nullptr;
        if (run.strFault.empty())
        {
            run.strFault = nSignal == SIGSEGV ? "the compiler crashed, perhaps because the source is nested too deeply"
                                              : "the compiler crashed";
        }
        return;
    }
    t_pRun = &run;
    try
    {
        run.bOk = (*run.pCompile)();
    }
    catch (const std::bad_alloc&)
    {
        run.strFault = s_pszOutOfMemory;
    }
    t_pRun = nullptr;
}

void* ThreadMain(void* pArgument)
{
    SRun& run = *static_cast<SRun*>(pArgument);
    const std::unique_ptr<char[]> pStack(new (std::nothrow) char[s_nSignalStackBytes]);
    stack_t before = {};
    stack_t stack = {};
    stack.ss_sp = pStack.get();
    stack.ss_size = s_nSignalStackBytes;
    sigaltstack(pStack ? &stack : nullptr, &before);
    RunToItsEnd(run);
    sigaltstack(&before, nullptr);
    return nullptr;
}

bool StartThread(SRun& run, size_t nStackBytes, pthread_t& thread)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, nStackBytes);
    const int nError = pthread_create(&thread, &attributes, ThreadMain, &run);
    pthread_attr_destroy(&attributes);
    return nError == 0;
}

} // namespace

bool RunGuarded(const std::function<bool()>& compile, std::string& strLog)
{
    InstallErrorHandlers();
    SRun run;
    run.pCompile = &compile;
    TakeSignals();
    pthread_t thread{};
    // With little address space left, a smaller stack has to do.
    if (StartThread(run, s_nStackBytes, thread) || StartThread(run, s_nStackBytes / 16, thread))
    {
        pthread_join(thread, nullptr);
    }
    else
    {
        run.strFault = "the compiler's thread can't be started";
    }
    ReturnSignals();
    if (!run.strFault.empty())
    {
        strLog += "error: " + run.strFault + "\n";
        return false;
    }
    return run.bOk;
}

} // namespace KestrelOpenCL
