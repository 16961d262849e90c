#ifndef KESTREL_TOOLS_COMMAND_INTERPRETER_H
#define KESTREL_TOOLS_COMMAND_INTERPRETER_H

#include "tools/kestrel/command/CommandTable.h"
#include "tools/kestrel/command/Output.h"
#include "tools/session/Page.h"
#include "tools/session/debug/Debugger.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace KestrelTool
{

/// Gives the next line of a command's input; nothing at the end.
typedef std::function<std::optional<std::string>()> LineReader;

/// Something that is printed at every stop.
struct SDisplay
{
    unsigned int nId;
    std::string strFormat;
    std::string strExpression;
};

class CProgramSession;

/// Executes lines of text as commands of a debugger, and sends the results to an output.
class CInterpreter : public IEventSink
{
public:
    explicit CInterpreter(IOutput& output) : m_Output(output) {}
    void SetDebugger(CDebugger& debugger) { m_pDebugger = &debugger; }
    /// Debugs the launches of a program, instead of one fixed launch.
    void SetProgram(CProgramSession& program) { m_pProgram = &program; }
    void SetProgress(std::function<void(const std::string&)> progress) { m_Progress = std::move(progress); }
    /// Sets a function that asks whether to give up; without one the answer is yes.
    void SetQuestion(std::function<bool(const std::function<bool()>&)> question) { m_Question = std::move(question); }

    /// Lets the command view serve pages. Whoever reads the input has to call AwaitInput then.
    void SetPageMaker(PageMaker makePage) { m_MakePage = std::move(makePage); }
    /// Sets a function that is called before something is printed that no line of the input has caused.
    void SetAside(std::function<void()> aside) { m_Aside = std::move(aside); }

    enum EInput
    {
        Ready,
        Worked, ///< a page was answered instead
        Interrupted
    };

    /// Waits for input, or for a page that asks for something, and answers the page.
    EInput AwaitInput(int nFile);
    /// Another launch of the program is debugged, or none: null.
    void Watch(CDebugger* pDebugger);

    enum EResult
    {
        Good,
        Failed,
        Quit
    };

    /// Executes one line. An empty one repeats the last command, if that command repeats.
    EResult Execute(const std::string& strLine);
    /// Executes lines until they end, one fails, or one quits; with bGoOn continues after a failure.
    EResult ExecuteAll(const LineReader& reader, bool bGoOn);

    // ---- for the commands
    // \throws CCommandError if no launch is being debugged
    CDebugger& GetDebugger();
    /// The same, or null.
    CDebugger* FindDebugger();
    /// Null if a single launch is debugged rather than a program.
    CProgramSession* GetProgram() { return m_pProgram; }
    SSettings& GetSettings();
    CBreakpoints& GetBreakpoints();
    std::vector<SDisplay>& GetDisplays() { return m_vDisplays; }
    unsigned int MakeDisplayId() { return ++m_nLastDisplay; }
    /// The lines before the one that says "end".
    std::vector<std::string> ReadBlock();
    EResult Source(const std::string& strPath);
    /// The exit code for the first failure; EXIT_GOOD if nothing failed.
    int GetFailureCode() const { return m_nFailureCode; }
    void RequestQuit() { m_bQuit = true; }
    /// The exit code that was given to quit, if any.
    std::optional<int> GetQuitCode() const { return m_QuitCode; }
    void SetQuitCode(int nCode) { m_QuitCode = nCode; }
    /// Commands that the user has defined, with their lines.
    std::map<std::string, std::vector<std::string>>& GetUserCommands() { return m_mapUserCommands; }
    /// Aliases that the user has defined.
    std::map<std::string, std::string>& GetAliases() { return m_mapAliases; }
    /// The line that an empty line executes after this command, instead of repeating it.
    void SetRepeat(const std::string& strLine) { m_strRepeat = strLine; }
    /// Where the next list continues: a line of a file, or of IL if the file's name is empty. Line 0: around the stop.
    const SSourceLine& GetListNext() const { return m_ListNext; }
    void SetListNext(const SSourceLine& line) { m_ListNext = line; }

    /// Serves a page of this session, if there is none yet. \return its address
    /// \throws CCommandError, CPlatformError
    const std::string& OpenPage(unsigned int nPort);
    /// \return false if there is none
    bool ClosePage();

    void OnEvent(const nlohmann::json& event) override;
    void OnProgress(const std::string& strText) override;
    bool OnAskToGiveUp(const std::function<bool()>& isOver) override;
    void OnLeave() override;
    void OnProgramGoesOn() override;

private:
    EResult ExecuteCommand(const std::string& strLine);
    EResult ExecuteOwn(const std::string& strLine);
    EResult ExecuteUserCommand(const std::vector<std::string>& vLines, const std::string& strArguments);
    bool IsInterrupted();
    EResult Perform(const SCommandLine& line);
    void ShowDisplays();
    void TellPage(void (IPage::*what)());
    void NoteFailure(int nCode);

    IOutput& m_Output;
    CDebugger* m_pDebugger = nullptr;
    CProgramSession* m_pProgram = nullptr;
    std::function<void(const std::string&)> m_Progress;
    std::function<bool(const std::function<bool()>&)> m_Question;
    PageMaker m_MakePage;
    std::function<void()> m_Aside;
    std::unique_ptr<IPage> m_pPage;
    bool m_bPageMoves = false; ///< the page is being answered, which may move the session
    std::vector<SDisplay> m_vDisplays;
    unsigned int m_nLastDisplay = 0;
    const LineReader* m_pReader = nullptr;
    std::string m_strRepeat;
    SSourceLine m_ListNext;
    std::map<std::string, std::vector<std::string>> m_mapUserCommands;
    std::map<std::string, std::string> m_mapAliases;
    std::optional<int> m_QuitCode;
    int m_nFailureCode = 0;
    bool m_bStopped = false;
    bool m_bQuit = false;
    unsigned int m_nDepth = 0;
};

} // namespace KestrelTool

#endif
