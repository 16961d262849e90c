#ifndef KESTREL_TOOLS_SESSION_H
#define KESTREL_TOOLS_SESSION_H

#include "tools/kestrel/Launch.h"
#include "tools/kestrel/Listing.h"

#include <memory>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A call of the debugger that failed where it shouldn't.
class CSessionError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A register's values for all work-items, four components each; lives until the next command.
struct SRegisterView
{
    const unsigned int* pWords = nullptr; ///< null if the debugger has no value
    size_t nItems = 0;

    const unsigned int* operator[](size_t nItem) const { return pWords + 4 * nItem; }
};

/// The execution mask of a stop; lives until the next command.
struct SMaskView
{
    const cl_bool* pActive = nullptr;
    size_t nItems = 0;

    size_t Count() const;
};

/// One debug session, as a front end sees it inside the callback. It knows nothing of a prompt or of
/// how things are shown.
class CSession
{
public:
    CSession(const CLibraries& libraries, ovkclDebugContext context) : m_Lib(libraries), m_Context(context) {}

    /// The kernel's text, read from the debugger on first use.
    const CListing& GetListing();
    /// At a stop: the line that is executed next.
    unsigned int GetNextLine() const;
    /// At a stop: the line that has just been executed, worked out from the stops so far; NoLine if
    /// it isn't known.
    unsigned int GetExecutedLine() const { return m_nExecutedLine; }
    SMaskView GetMask() const;
    /// No words for a register without a value.
    SRegisterView GetRegister(const std::string& strName) const;
    std::vector<std::string> GetActiveRegisters() const;
    std::string GetLastError() const;
    ovkclDebugContext GetContext() const { return m_Context; }

private:
    friend class CSessionDriver;

    void NoteStop();

    const CLibraries& m_Lib;
    ovkclDebugContext m_Context;
    std::unique_ptr<CListing> m_pListing;
    unsigned int m_nExecutedLine = CListing::NoLine;
    unsigned int m_nUpcomingLine = CListing::NoLine;
};

/// What drives a session.
class ISessionClient
{
public:
    virtual ~ISessionClient() = default;

    virtual ovkclDebugCommand OnStarted(CSession& session) = 0;
    virtual ovkclDebugCommand OnHalted(CSession& session) = 0;
    virtual void OnFinished(CSession&) {}
    virtual void OnError(CSession&) {}
};

/// Runs a launch under the debugger with a client. An exception of the client ends the session as
/// a continue would, and comes out here.
/// \return the enqueue's code
cl_int RunSession(const CLibraries& libraries, CLaunch& launch, ISessionClient& client);

} // namespace KestrelTool

#endif
