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

/// The interactive prompt: line editing, history across sessions, completion. Only one may exist at a time.
class CPrompt
{
public:
    explicit CPrompt(CInterpreter& interpreter);
    ~CPrompt();
    CPrompt(const CPrompt&) = delete;
    CPrompt& operator=(const CPrompt&) = delete;

    /// The next line without its end; nothing at the end of the input. After an interrupt it prompts again.
    std::optional<std::string> ReadLine();

private:
    static unsigned char Complete(editline* pEdit, int nKey);
    static int ReadCharacter(editline* pEdit, wchar_t* pCharacter);
    bool Await();
    void LoadHistory();

    CInterpreter& m_Interpreter;
    editline* m_pEdit = nullptr;
    history* m_pHistory = nullptr;
    std::string m_strHistoryFile;
    bool m_bAside = false; ///< something has been printed over the line that is being edited
};

/// The possible completions of a line.
struct SCompletion
{
    std::string strWord;               ///< the last word of the line, to be completed
    std::vector<std::string> vChoices; ///< whole words
};
SCompletion CompleteLine(CInterpreter& interpreter, const std::string& strLine);

/// While it exists, an interrupt stops the debugger's work rather than the program, and long work shows its progress on
/// a terminal.
class CInterruptScope
{
public:
    CInterruptScope(CDebugger* pDebugger, CInterpreter& interpreter, bool bInteractive);
    ~CInterruptScope();
    CInterruptScope(const CInterruptScope&) = delete;
    CInterruptScope& operator=(const CInterruptScope&) = delete;

    /// Sets the debugger to interrupt, or none.
    void Watch(CDebugger* pDebugger) const;

private:
    bool m_bInteractive;
};

} // namespace KestrelTool

#endif
