#ifndef KESTREL_TESTS_API_UNIT_SESSIONFIXTURE_H
#define KESTREL_TESTS_API_UNIT_SESSIONFIXTURE_H

#include "OVKKestrel.h"
#include "api/KernelDebugState.h"
#include "tests/api/unit/ScriptedDebugger.h"
#include "tests/support/FakeCL.h"
#include "tests/support/KernelImage.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

/// What the next debugger is set up with; the debugger of the library isn't linked into these tests.
extern std::function<void(CScriptedDebugger&)> g_setUpDebugger;

/// Sessions of a kernel "k" with a buffer and a value, on the small runtime and with a scripted debugger.
class CSessionFixture : public testing::Test
{
protected:
    typedef std::vector<ovkclDebugEvent> Events;

    void SetUp() override;
    void TearDown() override;

    void Open();
    void Close();

    /// The other path: the platform has no object metadata.
    void UseFallback() { m_fake.strExtensions = "cl_ovk_event_callback"; }

    /// Debugs a launch of 4 x 2 work-items and lets it come to its end.
    cl_int Debug(const std::function<ovkclDebugCommand(ovkclDebugContext, ovkclDebugEvent)>& client,
                 cl_event* pEvent = nullptr);

    /// The same with a list of answers, the last of which is repeated.
    cl_int Debug(const std::vector<int>& vAnswers);

    /// Runs queries at the first halt.
    void AtHalt(const std::function<void(ovkclDebugContext)>& queries);

    static std::string LastError(ovkclDebugContext context);

    CFakeCL& m_fake = CFakeCL::Get();
    CFakeCL::SObject* m_pMemory = nullptr;
    cl_context m_context = nullptr;
    cl_command_queue m_queue = nullptr;
    cl_kernel m_kernel = nullptr;
    size_t m_local[2] = {2, 1};
    Events m_vEvents;
    std::vector<std::string> m_vDone; ///< what the last debugger was asked for

private:
    static ovkclDebugCommand CL_CALLBACK OnEvent(ovkclDebugContext context, ovkclDebugEvent eEvent, void* pUser);

    std::function<ovkclDebugCommand(ovkclDebugContext, ovkclDebugEvent)> m_client;
};

#endif
