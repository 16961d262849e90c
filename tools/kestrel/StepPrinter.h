#ifndef KESTREL_TOOLS_STEPPRINTER_H
#define KESTREL_TOOLS_STEPPRINTER_H

#include "tools/session/launch/Session.h"

#include <iosfwd>

namespace KestrelTool
{

/// Steps a kernel to its end and prints each stop: its IL line, the number of active work-items, and the register that
/// the line wrote, for a few of them.
class CStepPrinter : public ISessionClient
{
public:
    /// \param nMaxStops   after these the kernel runs to its end; 0 means no limit
    CStepPrinter(std::ostream& output, size_t nMaxStops) : m_Output(output), m_nMaxStops(nMaxStops) {}

    ovkclDebugCommand OnStarted(CSession& session) override;
    ovkclDebugCommand OnHalted(CSession& session) override;
    void OnFinished(CSession& session) override;
    void OnError(CSession& session) override;

    size_t GetStops() const { return m_nStops; }
    bool IsFinished() const { return m_bFinished; }

private:
    void PrintRegister(const std::string& strName, const SRegisterView& values, const SMaskView& mask);

    std::ostream& m_Output;
    size_t m_nMaxStops;
    size_t m_nStops = 0;
    bool m_bFinished = false;
};

} // namespace KestrelTool

#endif
