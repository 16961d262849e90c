#ifndef KESTREL_TOOLS_COMMAND_OUTPUT_H
#define KESTREL_TOOLS_COMMAND_OUTPUT_H

#include "tools/kestrel/command/TextStyle.h"

#include <nlohmann/json_fwd.hpp>

#include <iosfwd>
#include <string>

namespace KestrelTool
{

struct SSettings;

/// Receives a session's answers and events.
class IOutput
{
public:
    virtual ~IOutput() = default;

    /// \param strToken  the command's number, to match answers to commands; may be empty
    /// \param answer    null for a command without an answer
    virtual void OnAnswer(const std::string& strCommand, const std::string& strToken, const nlohmann::json& answer) = 0;
    virtual void OnError(const std::string& strCommand, const std::string& strToken, const std::string& strError) = 0;
    virtual void OnEvent(const nlohmann::json& event) = 0;
    virtual void OnCommand(const std::string& /*strLine*/) {}
};

/// Output for people.
class CTextOutput : public IOutput
{
public:
    /// \param bEcho  print each command before its answer
    CTextOutput(std::ostream& output, std::ostream& errors, bool bEcho)
        : m_Output(output), m_Errors(errors), m_bEcho(bEcho), m_Style(CTextStyle::Of(output))
    {
    }
    /// Sets the settings for pictures.
    void SetSettings(const SSettings& settings) { m_pSettings = &settings; }

    void OnAnswer(const std::string& strCommand, const std::string& strToken, const nlohmann::json& answer) override;
    void OnError(const std::string& strCommand, const std::string& strToken, const std::string& strError) override;
    void OnEvent(const nlohmann::json& event) override;
    void OnCommand(const std::string& strLine) override;

private:
    std::ostream& m_Output;
    std::ostream& m_Errors;
    bool m_bEcho;
    CTextStyle m_Style;
    const SSettings* m_pSettings = nullptr;
};

/// Output for programs: one JSON object a line.
class CJsonOutput : public IOutput
{
public:
    explicit CJsonOutput(std::ostream& output) : m_Output(output) {}

    void OnAnswer(const std::string& strCommand, const std::string& strToken, const nlohmann::json& answer) override;
    void OnError(const std::string& strCommand, const std::string& strToken, const std::string& strError) override;
    void OnEvent(const nlohmann::json& event) override;

private:
    std::ostream& m_Output;
};

/// An answer or event as text for people, with its line ends.
std::string RenderText(const nlohmann::json& answer, bool bUnicode);

/// The faults in an event, one a line.
std::string RenderFaults(const nlohmann::json& event);

/// The command line's report at the end of a launch: outputs, and where they differ from what was expected.
std::string RenderOutputs(const nlohmann::json& finished);

} // namespace KestrelTool

#endif
