#include "tools/kestrel/StepPrinter.h"

#include "tools/session/debug/Format.h"

#include <iomanip>
#include <ostream>
#include <sstream>

namespace KestrelTool
{

namespace
{

const size_t s_nShownItems = 4;
const int s_nTextWidth = 44;

std::string FormatValue(const unsigned int* pWords)
{
    std::string strValue = "(";
    for (int i = 0; i < 4; ++i)
    {
        strValue += (i != 0 ? ", " : "") + FormatWord(pWords[i], EFormat::Auto);
    }
    return strValue + ")";
}

/// The first active work-items, or the first of all if none is active.
std::vector<size_t> ChooseItems(const SMaskView& mask)
{
    std::vector<size_t> vItems;
    for (size_t i = 0; i < mask.nItems && vItems.size() < s_nShownItems; ++i)
    {
        if (mask.pActive[i] != 0)
        {
            vItems.push_back(i);
        }
    }
    return vItems;
}

} // namespace

ovkclDebugCommand CStepPrinter::OnStarted(CSession& session)
{
    const CListing& listing = session.GetListing();
    const unsigned int nEntry = listing.GetEntry();
    m_Output << "started  line " << nEntry << "  " << listing.GetLine(nEntry) << "\n";
    return OVKCLDEBUG_COMMAND_STEP;
}

ovkclDebugCommand CStepPrinter::OnHalted(CSession& session)
{
    ++m_nStops;
    const CListing& listing = session.GetListing();
    const unsigned int nLine = session.GetExecutedLine();
    const SMaskView mask = session.GetMask();

    std::ostringstream where;
    where << "stop " << std::setw(3) << m_nStops << "  line " << std::setw(3) << nLine << "  active " << std::setw(3)
          << mask.Count() << " of " << mask.nItems << "  ";
    m_Output << where.str();
    const std::string strRegister = listing.GetWrittenRegister(nLine);
    const SRegisterView values = strRegister.empty() ? SRegisterView() : session.GetRegister(strRegister);
    if (values.pWords != nullptr && mask.Count() != 0)
    {
        m_Output << std::left << std::setw(s_nTextWidth) << listing.GetLine(nLine) << std::right;
        PrintRegister(strRegister, values, mask);
    }
    else
    {
        m_Output << listing.GetLine(nLine);
    }
    m_Output << "\n";
    return m_nMaxStops != 0 && m_nStops >= m_nMaxStops ? OVKCLDEBUG_COMMAND_CONTINUE : OVKCLDEBUG_COMMAND_STEP;
}

void CStepPrinter::PrintRegister(const std::string& strName, const SRegisterView& values, const SMaskView& mask)
{
    m_Output << " " << strName << " =";
    for (const size_t nItem : ChooseItems(mask))
    {
        m_Output << " [" << nItem << "] " << FormatValue(values[nItem]);
    }
}

void CStepPrinter::OnFinished(CSession&)
{
    m_bFinished = true;
    m_Output << "finished\n";
}

void CStepPrinter::OnError(CSession& session)
{
    m_Output << "error: " << session.GetLastError() << "\n";
}

} // namespace KestrelTool
