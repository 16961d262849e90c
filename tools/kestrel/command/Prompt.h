#ifndef KESTREL_TOOLS_COMMAND_PROMPT_H
#define KESTREL_TOOLS_COMMAND_PROMPT_H

#include "tools/kestrel/command/Interpreter.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct editline;
struct history;

namespace KestrelTool
{

/// The interactive prompt: line editing, history across sessions, completion. One at a time.
class CPrompt
{
public:
    explicit CPrompt(CInterpreter& interpreter);
    ~CPrompt();
    CPrompt(const CPrompt&) = delete;
    CPrompt& operator=(const CPrompt&) = delete;

    /// The next line without its end; nothing at the end of the input. An interrupt gives a fresh prompt.
    std::optional<std::string> ReadLine();

private:
    static unsigned char Complete(editline* pEdit, int nKey);
    void LoadHistory();

    CInterpreter& m_Interpreter;
    editline* m_pEdit = nullptr;
    history* m_pHistory = nullptr;
    std::string m_strHistoryFile;
};

/// What a line that is being written can go on with.
struct SCompletion
{
    std::string strWord;               ///< the word at the line's end that is completed
    std::vector<std::string> vChoices; ///< whole words
};
SCompletion CompleteLine(CInterpreter& interpreter, const std::string& strLine);

/// While it lives, an interrupt stops what the debugger does and not the program, and long work
/// shows how far it is on a terminal.
class CInterruptScope
{
public:
    CInterruptScope(CDebugger* pDebugger, CInterpreter& interpreter, bool bInteractive);
    ~CInterruptScope();
    CInterruptScope(const CInterruptScope&) = delete;
    CInterruptScope& operator=(const CInterruptScope&) = delete;

    /// Another debugger is at work now, or none.
    void Watch(CDebugger* pDebugger) const;

private:
    bool m_bInteractive;
};

} // namespace KestrelTool

#endif
