#ifndef KESTREL_TOOLS_SESSION_PAGE_H
#define KESTREL_TOOLS_SESSION_PAGE_H

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <memory>
#include <string>

namespace KestrelTool
{

class CDebugger;
class CProgramSession;

/// A page in a browser that looks at the session of another front end and moves it. All calls come from the session's
/// thread. What the page is asked for waits until that thread has time for it.
class IPage
{
public:
    virtual ~IPage() = default;

    virtual const std::string& GetAddress() const = 0;
    /// A file descriptor that is readable while something is asked for.
    virtual int GetFile() const = 0;
    /// Does what is asked for.
    virtual void Work() = 0;

    /// An event of the session, whoever caused it.
    virtual void OnEvent(const nlohmann::json& event) = 0;
    virtual void OnProgress(const std::string& strText) = 0;
    /// The other front end begins with a command, and has ended it.
    virtual void OnCommand() = 0;
    virtual void OnAnswer() = 0;
    /// Another launch of the program is debugged, or none: null.
    virtual void Watch(CDebugger* pDebugger) = 0;
};

/// Makes a page for a launch or for a program; the other one is null.
/// \param nPort  0 for one that is free
/// \throws CPlatformError
using PageMaker = std::function<std::unique_ptr<IPage>(CDebugger*, CProgramSession*, unsigned int nPort)>;

} // namespace KestrelTool

#endif
