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
    size_t nStride = 4; ///< words from one work-item's to the next one's; 0 for one value for all

    const unsigned int* operator[](size_t nItem) const { return pWords + nStride * nItem; }
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
    /// The number of work-items in it, without the mask where the session has no need of it.
    size_t CountActive() const;
    /// Whether a text is the name of a register, be it with a value or not.
    bool IsRegister(const std::string& strName) const;
    /// No words for a register without a value.
    SRegisterView GetRegister(const std::string& strName) const;
    std::vector<std::string> GetActiveRegisters() const;
    std::string GetLastError() const;
    /// Private memory of every work-item, nBytes each, one after the other.
    std::vector<unsigned char> GetPrivateMemory(size_t nItems, uint64_t nAddress, size_t nBytes) const;
    /// Global memory from an address on, to nBytes or to where its buffer ends; nothing if no
    /// argument's buffer holds the address.
    std::vector<unsigned char> GetGlobalMemory(unsigned int nResource, uint64_t nAddress, size_t nBytes) const;
    /// The size of the buffer that holds an address; 0 if none does.
    size_t GetBufferSize(unsigned int nResource, uint64_t nAddress) const;

    /// Makes the lines the only ones with a breakpoint. \return the lines that can hold none
    std::vector<unsigned int> SetBreakpoints(const std::set<unsigned int>& lines);
    /// At the start: keeps only these registers up to date; an empty list means all.
    void SetTrackedRegisters(const std::vector<std::string>& vNames);
    /// At the start: reads registers when they are looked at, and none before.
    void ReadValuesOnDemand();

    /// What makes the calls that may take kernel runs, for a client that wants to do something meanwhile; it may throw
    /// instead of coming back. Without one they are made by whoever asks.
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
    std::set<unsigned int> m_Breakpoints; ///< as the debugger has them
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
