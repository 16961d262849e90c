#include "tools/kestrel/command/SessionConsole.h"

#include "tools/kestrel/Visible.h"
#include "tools/kestrel/command/Interpreter.h"
#include "tools/kestrel/command/Prompt.h"
#include "tools/session/program/ProgramSession.h"

#include <nlohmann/json.hpp>

#include <sstream>
#include <utility>

namespace KestrelTool
{

namespace
{

class CSessionConsole : public IConsole
{
public:
    CSessionConsole(CDebugger* pDebugger, CProgramSession* pProgram)
        : m_Text(m_Stream, m_Stream, false), m_Interpreter(m_Text)
    {
        if (pDebugger != nullptr)
        {
            m_Interpreter.SetDebugger(*pDebugger);
        }
        if (pProgram != nullptr)
        {
            m_Interpreter.SetProgram(*pProgram);
        }
        m_Text.SetSettings(m_Interpreter.GetSettings());
    }

    SAnswer Execute(const std::string& strLines) override
    {
        std::istringstream lines(strLines);
        const LineReader reader = [&lines]() -> std::optional<std::string>
        {
            std::string strLine;
            return std::getline(lines, strLine) ? std::optional<std::string>(strLine) : std::nullopt;
        };
        const CInterpreter::EResult eResult = m_Interpreter.ExecuteAll(reader, false);
        return {eResult != CInterpreter::Failed, eResult == CInterpreter::Quit, TakeText()};
    }

    std::vector<std::string> Complete(const std::string& strLine, std::string& strWord) override
    {
        SCompletion completion = CompleteLine(m_Interpreter, strLine);
        strWord = completion.strWord;
        return std::move(completion.vChoices);
    }

    std::string Render(const nlohmann::json& event) override
    {
        m_Text.OnEvent(event);
        return TakeText();
    }

private:
    std::string TakeText()
    {
        std::string strText = m_Stream.str();
        m_Stream.str(std::string());
        return strText;
    }

    std::ostringstream m_Stream;
    CTextOutput m_Text;
    CInterpreter m_Interpreter;
};

} // namespace

std::unique_ptr<IConsole> MakeSessionConsole(CDebugger* pDebugger, CProgramSession* pProgram)
{
    return std::make_unique<CSessionConsole>(pDebugger, pProgram);
}

} // namespace KestrelTool
