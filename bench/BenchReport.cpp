#include "bench/BenchReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace KestrelBench
{

double TimeOnce(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::vector<double> Time(unsigned int nRuns, const std::function<void()>& work, const std::function<void()>& prepare)
{
    work();
    std::vector<double> vSeconds;
    for (unsigned int i = 0; i < nRuns; ++i)
    {
        if (prepare)
        {
            prepare();
        }
        vSeconds.push_back(TimeOnce(work));
    }
    return vSeconds;
}

std::vector<double> Ratios(const std::vector<double>& vOver, const std::vector<double>& vUnder)
{
    std::vector<double> vRatios;
    for (size_t i = 0; i < std::min(vOver.size(), vUnder.size()); ++i)
    {
        vRatios.push_back(vOver[i] / vUnder[i]);
    }
    return vRatios;
}

std::vector<double> TimeRatios(unsigned int nRuns, const std::function<void()>& over,
                               const std::function<void()>& under)
{
    over();
    under();
    std::vector<double> vRatios;
    for (unsigned int i = 0; i < nRuns; ++i)
    {
        const double fOver = TimeOnce(over);
        vRatios.push_back(fOver / TimeOnce(under));
    }
    return vRatios;
}

std::vector<double> Scaled(std::vector<double> vFigures, double fFactor)
{
    for (double& fFigure : vFigures)
    {
        fFigure *= fFactor;
    }
    return vFigures;
}

CReport::CReport(const std::string& strBench, int argc, char** argv) : m_strBench(strBench), m_bJson(false)
{
    for (int i = 1; i < argc; ++i)
    {
        if (std::string(argv[i]) != "--json")
        {
            throw std::runtime_error(std::string("unknown argument: ") + argv[i]);
        }
        m_bJson = true;
    }
}

void CReport::Add(const std::string& strCase, std::vector<double> vFigures, double fReach)
{
    std::sort(vFigures.begin(), vFigures.end());
    Print(strCase, vFigures, "under", fReach, fReach == 0 || vFigures[vFigures.size() / 2] < fReach);
}

void CReport::AddAtLeast(const std::string& strCase, std::vector<double> vFigures, double fReach)
{
    std::sort(vFigures.begin(), vFigures.end());
    Print(strCase, vFigures, "at least", fReach, vFigures[vFigures.size() / 2] >= fReach);
}

void CReport::Note(const std::string& strText) const
{
    if (!m_bJson)
    {
        std::printf("%s\n", strText.c_str());
    }
}

void CReport::Print(const std::string& strCase, const std::vector<double>& vFigures, const char* pszRelation,
                    double fReach, bool bHolds) const
{
    const double fMedian = vFigures[vFigures.size() / 2];
    if (m_bJson)
    {
        const nlohmann::ordered_json line = {{"bench", m_strBench}, {"case", strCase},        {"min", vFigures.front()},
                                             {"median", fMedian},   {"max", vFigures.back()}, {"reach", fReach},
                                             {"holds", bHolds}};
        std::printf("%s\n", line.dump().c_str());
        return;
    }
    std::printf("%-52s min %10.4g  median %10.4g  max %10.4g", strCase.c_str(), vFigures.front(), fMedian,
                vFigures.back());
    if (fReach != 0)
    {
        std::printf("  %s %g: %s", pszRelation, fReach, bHolds ? "yes" : "no");
    }
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace KestrelBench
