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

/// The prompt's commands for a front end that isn't the prompt. All calls come from the session's thread.
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
    /// Does one or more lines, up to the first that fails.
    virtual SAnswer Execute(const std::string& strLines) = 0;
    /// What the last word of a line that is being written can go on with, as whole words.
    virtual std::vector<std::string> Complete(const std::string& strLine, std::string& strWord) = 0;
    /// An event of the session's, as the prompt would print it.
    virtual std::string Render(const nlohmann::json& event) = 0;
};

/// Makes one for a launch, or for a program; the other is null.
using ConsoleMaker = std::function<std::unique_ptr<IConsole>(CDebugger*, CProgramSession*)>;

} // namespace KestrelTool

#endif
