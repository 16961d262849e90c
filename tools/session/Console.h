#ifndef KESTREL_TOOLS_SESSION_CONSOLE_H
#define KESTREL_TOOLS_SESSION_CONSOLE_H

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace KestrelTool
{

class CDebugger;
class CProgramSession;

/// The prompt's commands for another front end. All calls come from the session's thread.
class IConsole
{
public:
    struct SAnswer
    {
        bool bGood = true;
        bool bQuit = false;  ///< the user wants the session to end
        std::string strText; ///< what the prompt would have printed
    };

    virtual ~IConsole() = default;
    /// Executes one or more lines, up to the first that fails.
    virtual SAnswer Execute(const std::string& strLines) = 0;
    /// Completions of the last word of a line, as whole words.
    virtual std::vector<std::string> Complete(const std::string& strLine, std::string& strWord) = 0;
    /// A session event as the prompt would print it.
    virtual std::string Render(const nlohmann::json& event) = 0;
};

/// Makes a console for a launch or for a program; the other one is null.
using ConsoleMaker = std::function<std::unique_ptr<IConsole>(CDebugger*, CProgramSession*)>;

} // namespace KestrelTool

#endif
