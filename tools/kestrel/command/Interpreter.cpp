#include "tools/kestrel/command/Interpreter.h"

#include "tools/kestrel/command/Commands.h"
#include "tools/session/ExitCode.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/launch/Files.h"
#include "tools/session/program/ProgramSession.h"

#include <nlohmann/json.hpp>

#include <poll.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <new>
#include <sstream>

namespace KestrelTool
{

namespace
{

const unsigned int s_nMaxDepth = 32; ///< of files that read files, and breakpoints whose commands continue

std::string Trim(const std::string& strText)
{
    const size_t nFirst = strText.find_first_not_of(" \t\r\n");
    return nFirst == std::string::npos ? std::string()
                                       : strText.substr(nFirst, strText.find_last_not_of(" \t\r\n") - nFirst + 1);
}

} // namespace

CInterpreter::EResult CInterpreter::Execute(const std::string& strLine)
{
    std::string strCommand = Trim(strLine);
    if (strCommand.empty())
    {
        strCommand = m_strRepeat;
    }
    if (strCommand.empty() || strCommand[0] == '#')
    {
        return Good;
    }
    m_Output.OnCommand(strCommand);
    EResult eResult = ExecuteCommand(strCommand);
    // Commands of a breakpoint may continue to the next breakpoint.
    const auto takeCommands = [this]
    {
        CDebugger* const pDebugger = FindDebugger();
        return pDebugger != nullptr ? pDebugger->TakeCommands() : std::vector<std::string>();
    };
    for (std::vector<std::string> vCommands = takeCommands(); eResult == Good && !vCommands.empty();
         vCommands = takeCommands())
    {
        for (size_t i = 0; i < vCommands.size() && eResult == Good; ++i)
        {
            if (IsInterrupted())
            {
                m_Output.OnError(strCommand, std::string(),
                                 "interrupted: the breakpoint's commands aren't gone on with");
                NoteFailure(EXIT_COMMAND_FAILED);
                return Failed;
            }
            eResult = ExecuteCommand(vCommands[i]);
        }
    }
    return eResult;
}

CDebugger* CInterpreter::FindDebugger()
{
    return m_pProgram != nullptr ? m_pProgram->GetDebugger() : m_pDebugger;
}

CDebugger& CInterpreter::GetDebugger()
{
    CDebugger* const pDebugger = FindDebugger();
    if (pDebugger == nullptr)
    {
        throw CCommandError("no launch waits to be debugged; run starts the program");
    }
    return *pDebugger;
}

SSettings& CInterpreter::GetSettings()
{
    return m_pProgram != nullptr ? m_pProgram->GetSettings() : m_pDebugger->GetSettings();
}

CBreakpoints& CInterpreter::GetBreakpoints()
{
    return m_pProgram != nullptr ? m_pProgram->GetBreakpoints() : m_pDebugger->GetBreakpoints();
}

bool CInterpreter::IsInterrupted()
{
    CDebugger* const pDebugger = FindDebugger();
    return pDebugger != nullptr && pDebugger->IsInterrupted();
}

void CInterpreter::OnProgramGoesOn()
{
    std::cout << std::flush;
}

/// Only the first failure counts; later ones usually follow from it.
void CInterpreter::NoteFailure(int nCode)
{
    m_nFailureCode = m_nFailureCode == EXIT_GOOD ? nCode : m_nFailureCode;
}

bool CInterpreter::OnAskToGiveUp(const std::function<bool()>& isOver)
{
    return m_bPageMoves || !m_Question || !GetSettings().bConfirm || m_Question(isOver);
}

/// The lines of a user-defined command, with $arg0 and so on replaced by the words after its name.
CInterpreter::EResult CInterpreter::ExecuteUserCommand(const std::vector<std::string>& vLines,
                                                       const std::string& strArguments)
{
    std::istringstream stream(strArguments);
    std::vector<std::string> vWords;
    for (std::string strWord; stream >> strWord;)
    {
        vWords.push_back(strWord);
    }
    EResult eResult = Good;
    for (size_t n = 0; n < vLines.size() && eResult == Good && !IsInterrupted(); ++n)
    {
        std::string strLine = vLines[n];
        for (size_t nWord = vWords.size(); nWord-- > 0;)
        {
            const std::string strName = "$arg" + std::to_string(nWord);
            for (size_t nAt = strLine.find(strName); nAt != std::string::npos;
                 nAt = strLine.find(strName, nAt + vWords[nWord].size()))
            {
                strLine.replace(nAt, strName.size(), vWords[nWord]);
            }
        }
        eResult = strLine.empty() || strLine[0] == '#' ? Good : ExecuteCommand(strLine);
    }
    m_strRepeat.clear();
    return eResult;
}

/// Executes a line that begins with a command of the user or of the debugger.
CInterpreter::EResult CInterpreter::ExecuteCommand(const std::string& strLine)
{
    std::string strCommand = strLine;
    const std::string strToken = TakeToken(strCommand);
    const size_t nEnd = std::min(strCommand.find_first_of(" \t/"), strCommand.size());
    const std::string strWord = strCommand.substr(0, nEnd);
    const auto itAlias = m_mapAliases.find(strWord);
    const auto itOwn = m_mapUserCommands.find(strWord);
    if (itAlias == m_mapAliases.end() && itOwn == m_mapUserCommands.end())
    {
        return ExecuteOwn(strLine);
    }
    if (m_nDepth >= s_nMaxDepth)
    {
        m_Output.OnError(strWord, strToken, strWord + ": too many commands that use each other");
        NoteFailure(EXIT_COMMAND_FAILED);
        return Failed;
    }
    ++m_nDepth;
    const std::string strRest = strCommand.substr(nEnd);
    const std::vector<std::string> vLines = itAlias == m_mapAliases.end() ? itOwn->second : std::vector<std::string>();
    const EResult eResult = itAlias != m_mapAliases.end() ? ExecuteCommand(strToken + itAlias->second + strRest)
                                                          : ExecuteUserCommand(vLines, strRest);
    --m_nDepth;
    return eResult;
}

CInterpreter::EResult CInterpreter::ExecuteOwn(const std::string& strLine)
{
    SCommandLine line;
    std::string strCommand = strLine;
    const std::string strToken = TakeToken(strCommand);
    try
    {
        line = ParseCommandLine(strCommand.empty() ? strLine : strCommand);
        line.strToken = strToken;
        m_strRepeat = line.pCommand->bRepeats ? strLine : std::string();
        return Perform(line);
    }
    catch (const CCommandError& error)
    {
        m_Output.OnError(line.pCommand != nullptr ? line.pCommand->pszName : strCommand, strToken, error.what());
        NoteFailure(EXIT_COMMAND_FAILED);
        return Failed;
    }
}

CInterpreter::EResult CInterpreter::Perform(const SCommandLine& line)
{
    m_bStopped = false;
    m_bQuit = false;
    CCommandContext context(*this, line);
    try
    {
        const nlohmann::json answer = line.pCommand->pFunction(context);
        if (m_bStopped)
        {
            m_bStopped = false;
            ShowDisplays();
        }
        m_Output.OnAnswer(line.pCommand->pszName, line.strToken, answer);
    }
    catch (const CSessionError& error)
    {
        throw CCommandError(error.what());
    }
    catch (const CLaunchFileError& error)
    {
        NoteFailure(EXIT_USAGE);
        throw CCommandError(error.what()); // an output that can't be written, or sizes that the runtime refuses
    }
    catch (const CPlatformError& error)
    {
        NoteFailure(EXIT_PLATFORM_FAILED);
        throw CCommandError(error.what());
    }
    catch (const std::bad_alloc&)
    {
        throw CCommandError("there isn't enough memory for that");
    }
    return m_bQuit ? Quit : Good;
}

void CInterpreter::ShowDisplays()
{
    for (const SDisplay& display : m_vDisplays)
    {
        nlohmann::json answer;
        try
        {
            answer = PrintExpression(GetDebugger(), display.strFormat, display.strExpression);
        }
        catch (const CCommandError& error)
        {
            answer = {{"view", "print"}, {"expression", display.strExpression}, {"value", error.what()}};
        }
        answer["event"] = "display";
        answer["display"] = display.nId;
        m_Output.OnEvent(answer);
    }
}

CInterpreter::EResult CInterpreter::ExecuteAll(const LineReader& reader, bool bGoOn)
{
    const LineReader* pOuter = m_pReader;
    m_pReader = &reader;
    EResult eResult = Good;
    for (std::optional<std::string> line = reader(); line; line = reader())
    {
        TellPage(&IPage::OnCommand);
        const EResult eLine = Execute(*line);
        TellPage(&IPage::OnAnswer);
        eResult = eLine == Good ? eResult : eLine;
        // An interrupt ends a script; at a prompt, the next line is read.
        if (eLine == Quit || (!bGoOn && (eLine == Failed || IsInterrupted())))
        {
            break;
        }
    }
    m_pReader = pOuter;
    return eResult;
}

std::vector<std::string> CInterpreter::ReadBlock()
{
    std::vector<std::string> vLines;
    while (m_pReader != nullptr)
    {
        const std::optional<std::string> line = (*m_pReader)();
        if (!line)
        {
            break;
        }
        m_Output.OnCommand(Trim(*line));
        if (Trim(*line) == "end")
        {
            break;
        }
        vLines.push_back(Trim(*line));
    }
    return vLines;
}

CInterpreter::EResult CInterpreter::Source(const std::string& strPath)
{
    std::string strText;
    try
    {
        strText = ReadFileBytes(strPath);
    }
    catch (const CFileError& error)
    {
        throw CCommandError(error.what());
    }
    std::istringstream stream(strText);
    if (m_nDepth >= s_nMaxDepth)
    {
        throw CCommandError(strPath + ": too many files that read files");
    }
    const LineReader reader = [&stream]() -> std::optional<std::string>
    {
        std::string strLine;
        // An empty line in a file doesn't repeat the last command.
        return std::getline(stream, strLine) ? std::optional<std::string>(strLine.empty() ? "#" : strLine)
                                             : std::nullopt;
    };
    ++m_nDepth;
    const EResult eResult = ExecuteAll(reader, false);
    --m_nDepth;
    if (eResult == Failed)
    {
        throw CCommandError("a command of " + strPath + " failed");
    }
    return eResult;
}

void CInterpreter::OnEvent(const nlohmann::json& event)
{
    m_ListNext = SSourceLine();
    m_bStopped = m_bStopped || event["event"] == "stopped";
    if (m_bPageMoves && m_Aside)
    {
        m_Aside();
    }
    m_Output.OnEvent(event);
    if (m_pPage != nullptr)
    {
        m_pPage->OnEvent(event);
    }
}

const std::string& CInterpreter::OpenPage(unsigned int nPort)
{
    if (!m_MakePage)
    {
        throw CCommandError("a page is served while a prompt waits for commands; kestrel view serves one without");
    }
    if (m_pPage == nullptr)
    {
        m_pPage = m_MakePage(m_pDebugger, m_pProgram, nPort);
    }
    return m_pPage->GetAddress();
}

bool CInterpreter::ClosePage()
{
    const bool bServed = m_pPage != nullptr;
    m_pPage.reset();
    return bServed;
}

/// Lines of files and of breakpoints belong to the command that reads them.
void CInterpreter::TellPage(void (IPage::*what)())
{
    if (m_pPage != nullptr && m_nDepth == 0)
    {
        (m_pPage.get()->*what)();
    }
}

void CInterpreter::Watch(CDebugger* pDebugger)
{
    if (m_pPage != nullptr)
    {
        m_pPage->Watch(pDebugger);
    }
}

CInterpreter::EInput CInterpreter::AwaitInput(int nFile)
{
    if (m_pPage == nullptr)
    {
        return Ready;
    }
    std::cout << std::flush;
    pollfd requests[] = {{nFile, POLLIN, 0}, {m_pPage->GetFile(), POLLIN, 0}};
    if (poll(requests, std::size(requests), -1) < 0)
    {
        return errno == EINTR ? Interrupted : Ready;
    }
    if (requests[0].revents != 0)
    {
        return Ready;
    }
    m_bPageMoves = true;
    m_pPage->Work();
    m_bPageMoves = false;
    if (m_bStopped)
    {
        m_bStopped = false;
        ShowDisplays();
    }
    return Worked;
}

/// The kernel run can't be aborted, and waiting for its thread could take forever.
void CInterpreter::OnLeave()
{
    OnProgress(std::string());
    std::cout << std::flush;
    std::_Exit(EXIT_COMMAND_FAILED);
}

void CInterpreter::OnProgress(const std::string& strText)
{
    // While a page moves the session, the terminal shows a line that is being edited.
    if (m_Progress && !m_bPageMoves)
    {
        m_Progress(strText);
    }
    if (m_pPage != nullptr)
    {
        m_pPage->OnProgress(strText);
    }
}

} // namespace KestrelTool
