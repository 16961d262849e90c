#include "tools/kestrel/command/Prompt.h"

#include <histedit.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <iostream>

namespace KestrelTool
{

namespace
{

const int s_nHistoryLines = 1000;

char s_szPrompt[] = "(kestrel) ";

char* GetPromptText(EditLine*)
{
    return s_szPrompt;
}

/// The user's history file, unless the environment names another one; "" for none.
std::string ChooseHistoryFile()
{
    const char* pszFile = std::getenv("KESTREL_HISTORY");
    if (pszFile != nullptr)
    {
        return pszFile;
    }
    const char* pszHome = std::getenv("HOME");
    return pszHome != nullptr ? std::string(pszHome) + "/.kestrel_history" : std::string();
}

/// Whether the file can be read like any other; pipes, devices and endless files can't hold a history.
bool IsFitForHistory(const std::string& strFile)
{
    const size_t nMax = size_t(16) << 20;
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(strFile, error);
    if (status.type() == std::filesystem::file_type::not_found)
    {
        return true;
    }
    return status.type() == std::filesystem::file_type::regular && std::filesystem::file_size(strFile, error) <= nMax &&
           !error;
}

std::string FindCommonBeginning(const std::vector<std::string>& vChoices)
{
    std::string strCommon = vChoices.front();
    for (const std::string& strChoice : vChoices)
    {
        size_t n = 0;
        while (n < strCommon.size() && n < strChoice.size() && strCommon[n] == strChoice[n])
        {
            ++n;
        }
        strCommon.resize(n);
    }
    return strCommon;
}

// Global, since a signal handler can reach nothing else.
std::atomic<CDebugger*> s_pInterrupted{nullptr};
struct sigaction s_OldAction;
pthread_t s_CommandingThread;

void OnInterrupt(int nSignal)
{
    // Whichever thread gets the signal, it has to wake the one that may be reading a line.
    if (pthread_equal(pthread_self(), s_CommandingThread) == 0)
    {
        pthread_kill(s_CommandingThread, nSignal);
        return;
    }
    CDebugger* pDebugger = s_pInterrupted;
    if (pDebugger != nullptr)
    {
        pDebugger->Interrupt();
    }
}

void WriteRaw(const std::string& strText)
{
    std::fputs(strText.c_str(), stderr);
    std::fflush(stderr);
}

/// While a command runs, the terminal is in its usual mode. Text that was typed ahead counts as the answer.
bool AskToGiveUp(const std::function<bool()>& isOver)
{
    WriteRaw("\r\033[KGive up waiting? The session goes back to where the command began. (y or n) ");
    std::string strAnswer;
    while (!isOver())
    {
        pollfd request = {STDIN_FILENO, POLLIN, 0};
        const int nReady = poll(&request, 1, 100);
        char c = 'y';
        // Another interrupt counts as a yes.
        if (nReady < 0 || (nReady > 0 && read(STDIN_FILENO, &c, 1) != 1))
        {
            std::cerr << "\n" << std::flush;
            return true;
        }
        if (nReady > 0 && c == '\n')
        {
            return strAnswer[0] == 'y' || strAnswer[0] == 'Y';
        }
        strAnswer.append(nReady > 0 ? 1 : 0, c);
    }
    std::cerr << "\n" << std::flush;
    return false;
}

} // namespace

CPrompt::CPrompt(CInterpreter& interpreter) : m_Interpreter(interpreter), m_strHistoryFile(ChooseHistoryFile())
{
    m_pEdit = el_init("kestrel", stdin, stdout, stderr);
    m_pHistory = history_init();
    el_set(m_pEdit, EL_CLIENTDATA, this);
    el_set(m_pEdit, EL_PROMPT, &GetPromptText);
    el_set(m_pEdit, EL_EDITOR, "emacs");
    el_set(m_pEdit, EL_HIST, history, m_pHistory);
    el_wset(m_pEdit, EL_GETCFN, &CPrompt::ReadCharacter);
    interpreter.SetAside(
        [this]
        {
            std::cout << (m_bAside ? "" : "\n");
            m_bAside = true;
        });
    // The variant for char strings leaks copies of them.
    el_wset(m_pEdit, EL_ADDFN, L"kestrel-complete", L"Complete the word", &CPrompt::Complete);
    el_set(m_pEdit, EL_BIND, "^I", "kestrel-complete", nullptr);
    el_set(m_pEdit, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    // While a line is being edited, the interrupt key is an ordinary key.
    el_set(m_pEdit, EL_BIND, "^C", "em-kill-line", nullptr);
    if (!m_strHistoryFile.empty() && !IsFitForHistory(m_strHistoryFile))
    {
        std::cerr << "no history is kept: " << m_strHistoryFile << " is no file, or too large" << std::endl;
        m_strHistoryFile.clear();
    }
    LoadHistory();
}

CPrompt::~CPrompt()
{
    if (!m_strHistoryFile.empty())
    {
        HistEvent event;
        history(m_pHistory, &event, H_SAVE, m_strHistoryFile.c_str());
    }
    history_end(m_pHistory);
    el_end(m_pEdit);
}

void CPrompt::LoadHistory()
{
    HistEvent event;
    history(m_pHistory, &event, H_SETSIZE, s_nHistoryLines);
    history(m_pHistory, &event, H_SETUNIQUE, 1);
    if (!m_strHistoryFile.empty())
    {
        history(m_pHistory, &event, H_LOAD, m_strHistoryFile.c_str());
    }
}

std::optional<std::string> CPrompt::ReadLine()
{
    std::cout << std::flush;
    while (true)
    {
        int nLength = 0;
        const char* pszLine = el_gets(m_pEdit, &nLength);
        if (pszLine == nullptr && nLength == -1 && errno == EINTR)
        {
            std::clearerr(stdout); // the line editor will redraw what it couldn't write
            std::cout << std::endl;
            el_reset(m_pEdit);
            continue;
        }
        if (pszLine == nullptr || nLength <= 0)
        {
            std::cout << std::endl;
            return std::nullopt;
        }
        std::string strLine(pszLine, static_cast<size_t>(nLength));
        strLine.erase(strLine.find_last_not_of("\r\n") + 1);
        if (strLine.find_first_not_of(" \t") != std::string::npos)
        {
            HistEvent event;
            history(m_pHistory, &event, H_ENTER, strLine.c_str());
        }
        return strLine;
    }
}

/// Waits for a key. Meanwhile a page is answered, which may print over the line. \return false after an interrupt
bool CPrompt::Await()
{
    while (true)
    {
        const CInterpreter::EInput eInput = m_Interpreter.AwaitInput(STDIN_FILENO);
        if (m_bAside)
        {
            m_bAside = false;
            std::cout << std::flush;
            el_set(m_pEdit, EL_REFRESH);
        }
        if (eInput != CInterpreter::Worked)
        {
            return eInput == CInterpreter::Ready;
        }
    }
}

/// Of the locale's encoding. \return 1, 0 at the end, and -1 with errno
int CPrompt::ReadCharacter(editline* pEdit, wchar_t* pCharacter)
{
    void* pClient = nullptr;
    el_get(pEdit, EL_CLIENTDATA, &pClient);
    std::mbstate_t mbState = {};
    size_t nLength = static_cast<size_t>(-2); // incomplete
    while (nLength == static_cast<size_t>(-2))
    {
        char cByte = 0;
        if (!static_cast<CPrompt*>(pClient)->Await())
        {
            errno = EINTR;
            return -1;
        }
        const ssize_t nRead = read(STDIN_FILENO, &cByte, 1);
        if (nRead <= 0)
        {
            return static_cast<int>(nRead);
        }
        nLength = std::mbrtowc(pCharacter, &cByte, 1, &mbState);
        if (nLength == static_cast<size_t>(-1))
        {
            mbState = {}; // bytes of no character are passed over
            nLength = static_cast<size_t>(-2);
        }
    }
    return 1;
}

unsigned char CPrompt::Complete(editline* pEdit, int)
{
    void* pClient = nullptr;
    el_get(pEdit, EL_CLIENTDATA, &pClient);
    CPrompt& prompt = *static_cast<CPrompt*>(pClient);
    const LineInfo* pLine = el_line(pEdit);
    const SCompletion completion = CompleteLine(prompt.m_Interpreter, std::string(pLine->buffer, pLine->cursor));
    if (completion.vChoices.empty())
    {
        return CC_REFRESH_BEEP;
    }
    std::string strAdded = FindCommonBeginning(completion.vChoices).substr(completion.strWord.size());
    strAdded += completion.vChoices.size() == 1 ? " " : "";
    if (!strAdded.empty())
    {
        return el_insertstr(pEdit, strAdded.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;
    }
    std::cout << "\n";
    for (const std::string& strChoice : completion.vChoices)
    {
        std::cout << strChoice << "  ";
    }
    std::cout << std::endl;
    return CC_REDISPLAY;
}

CInterruptScope::CInterruptScope(CDebugger* pDebugger, CInterpreter& interpreter, bool bInteractive)
    : m_bInteractive(bInteractive)
{
    if (!m_bInteractive)
    {
        return;
    }
    Watch(pDebugger);
    s_CommandingThread = pthread_self();
    struct sigaction action = {};
    action.sa_handler = &OnInterrupt;
    sigaction(SIGINT, &action, &s_OldAction);
    if (isatty(STDERR_FILENO) != 0 && isatty(STDIN_FILENO) != 0)
    {
        interpreter.SetProgress(
            [](const std::string& strText)
            {
                // An empty text clears the line. The text is the debugger's own, so it needn't be made visible.
                WriteRaw("\r\033[K" + strText);
            });
        interpreter.SetQuestion(&AskToGiveUp);
    }
}

void CInterruptScope::Watch(CDebugger* pDebugger) const
{
    if (m_bInteractive && pDebugger != nullptr)
    {
        pDebugger->SetInterruptible(true);
    }
    s_pInterrupted = m_bInteractive ? pDebugger : nullptr;
}

CInterruptScope::~CInterruptScope()
{
    if (m_bInteractive)
    {
        sigaction(SIGINT, &s_OldAction, nullptr);
        s_pInterrupted = nullptr;
    }
}

} // namespace KestrelTool
