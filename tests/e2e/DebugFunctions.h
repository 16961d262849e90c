#ifndef KESTREL_TESTS_E2E_DEBUGFUNCTIONS_H
#define KESTREL_TESTS_E2E_DEBUGFUNCTIONS_H

#include "tests/e2e/LibrariesFixture.h"
#include "tools/session/launch/Session.h"

#include <map>
#include <string>
#include <vector>

namespace KestrelTest
{

#define KESTREL_MORE_DEBUG_FUNCTIONS(X)                                                                                \
    X(ovkclDebugClearBreakpoint)                                                                                       \
    X(ovkclDebugClearAllBreakpoints)                                                                                   \
    X(ovkclDebugGetNumBreakpoints)                                                                                     \
    X(ovkclDebugGetAllBreakpoints)                                                                                     \
    X(ovkclDebugSetTrackPrivateMemory)                                                                                 \
    X(ovkclDebugGetPrivateMemoryValues)                                                                                \
    X(ovkclDebugGetGlobalMemoryValues)

/// Functions of the debugger library that the command-line tool doesn't use.
struct SDebugFunctions
{
#define DECLARE_FUNCTION(name) decltype(&::name) name;
    KESTREL_MORE_DEBUG_FUNCTIONS(DECLARE_FUNCTION)
#undef DECLARE_FUNCTION
};

/// From the library that GetLibraries has opened.
const SDebugFunctions& GetDebugFunctions();

/// Tracks only these registers; to be called for the started event. \return the call's code
ovkclDebugError Track(const KestrelTool::CSession& session, const std::vector<std::string>& vNames);

/// What a client sees at a stop, with the values of all work-items. The mask is that of the register read last, so with
/// tracking on it may be older than the stop.
struct SSnapshot
{
    unsigned int nNextLine = 0;
    std::vector<bool> vMask; ///< empty if there is none
    std::map<std::string, std::vector<unsigned int>> mapRegisters;
    std::vector<unsigned char> vPrivate; ///< the first 64 bytes of every work-item

    explicit SSnapshot(const KestrelTool::CSession& session, bool bWithMask = true);
    /// The first difference in words; empty if there is none.
    std::string CompareWith(const SSnapshot& other) const;
};

} // namespace KestrelTest

#endif
