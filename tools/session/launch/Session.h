#ifndef KESTREL_TOOLS_SESSION_H
#define KESTREL_TOOLS_SESSION_H

#include "tools/session/launch/Launch.h"
#include "tools/session/launch/Listing.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace KestrelTool
{

/// An unexpected failure of a debugger call.
class CSessionError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A register's values for all work-items, four components each; valid until the next command.
struct SRegisterView
{
    const unsigned int* pWords = nullptr; ///< null if the debugger has no value
    size_t nItems = 0;
    size_t nStride = 4; ///< words between consecutive work-items; 0 if all share one value

    const unsigned int* operator[](size_t nItem) const { return pWords + nStride * nItem; }
};

/// The execution mask of a stop; valid until the next command.
struct SMaskView
{
    const cl_bool* pActive = nullptr;
    size_t nItems = 0;

    size_t Count() const;
};

/// One debug session, as a front end sees it within the callback. It doesn't know how anything is shown or entered.
class CSession
{
public:
    CSession(const CLibraries& libraries, ovkclDebugContext context) : m_Lib(libraries), m_Context(context) {}

    /// The kernel's text, read from the debugger on first use.
    const CListing& GetListing();
    /// At a stop: the line to be executed next.
    unsigned int GetNextLine() const;
    /// At a stop: the line that was just executed, derived from the stops so far; NoLine if unknown.
    unsigned int GetExecutedLine() const { return m_nExecutedLine; }
    SMaskView GetMask() const;
    /// The number of active work-items, without fetching the mask unless necessary.
    size_t CountActive() const;
    /// Whether a text names a register, with a value or not.
    bool IsRegister(const std::string& strName) const;
    /// Null words for a register without a value.
    SRegisterView GetRegister(const std::string& strName) const;
    std::vector<std::string> GetActiveRegisters() const;
    std::string GetLastError() const;
    /// The private memory of every work-item, nBytes each, in order.
    std::vector<unsigned char> GetPrivateMemory(size_t nItems, uint64_t nAddress, size_t nBytes) const;
    /// Global memory from an address on, at most nBytes and up to the end of its buffer; nothing if no argument's
    /// buffer contains the address.
    std::vector<unsigned char> GetGlobalMemory(unsigned int nResource, uint64_t nAddress, size_t nBytes) const;
    /// The size of the buffer that contains an address; 0 if none does.
    size_t GetBufferSize(unsigned int nResource, uint64_t nAddress) const;

    /// Sets breakpoints on exactly these lines. \return the lines that can't have one
    std::vector<unsigned int> SetBreakpoints(const std::set<unsigned int>& lines);
    /// At the start: keeps only these registers up to date; an empty list means all.
    void SetTrackedRegisters(const std::vector<std::string>& vNames);
    /// At the start: reads registers only when they are looked at.
    void ReadValuesOnDemand();

    /// Sets a function that makes the calls that may need kernel runs, for a client that wants to do something
    /// meanwhile. It may throw instead of returning. If empty, the caller makes them itself.
    void SetAsker(std::function<void(const std::function<void()>&)> asker) { m_Asker = std::move(asker); }

    ovkclDebugContext GetContext() const { return m_Context; }

private:
    friend class CSessionDriver;

    ovkclDebugError Ask(const std::function<ovkclDebugError()>& query) const;

    void NoteStop();

    const CLibraries& m_Lib;
    ovkclDebugContext m_Context;
    std::function<void(const std::function<void()>&)> m_Asker;
    std::unique_ptr<CListing> m_pListing;
    unsigned int m_nExecutedLine = CListing::NoLine;
    unsigned int m_nUpcomingLine = CListing::NoLine;
    std::set<unsigned int> m_Breakpoints; ///< as set in the debugger
};

/// Controls a session.
class ISessionClient
{
public:
    virtual ~ISessionClient() = default;

    virtual ovkclDebugCommand OnStarted(CSession& session) = 0;
    virtual ovkclDebugCommand OnHalted(CSession& session) = 0;
    virtual void OnFinished(CSession&) {}
    virtual void OnError(CSession&) {}
};

/// Runs a launch under the debugger with a client. An exception of the client ends the session like a
/// continue, and is thrown again here.
/// \return the enqueue's code
cl_int RunSession(const CLibraries& libraries, CLaunch& launch, ISessionClient& client);

} // namespace KestrelTool

#endif
