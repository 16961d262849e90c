#include "bench/BenchReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace KestrelBench
{

std::vector<double> Time(unsigned int nRuns, const std::function<void()>& work)
{
    work();
    std::vector<double> vSeconds;
    for (unsigned int i = 0; i < nRuns; ++i)
    {
        const auto start = std::chrono::steady_clock::now();
        work();
        vSeconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
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
    const double fMedian = vFigures[vFigures.size() / 2];
    const bool bHolds = fReach == 0 || fMedian < fReach;
    if (m_bJson)
    {
        const nlohmann::ordered_json line = {{"bench", m_strBench}, {"case", strCase},        {"min", vFigures.front()},
                                             {"median", fMedian},   {"max", vFigures.back()}, {"reach", fReach},
                                             {"holds", bHolds}};
        std::printf("%s\n", line.dump().c_str());
        return;
    }
    std::printf("%-44s min %10.4g  median %10.4g  max %10.4g", strCase.c_str(), vFigures.front(), fMedian,
                vFigures.back());
    if (fReach != 0)
    {
        std::printf("  under %g: %s", fReach, bHolds ? "yes" : "no");
    }
    std::printf("\n");
}

} // namespace KestrelBench
