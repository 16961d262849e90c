#ifndef KESTREL_BENCH_BENCHREPORT_H
#define KESTREL_BENCH_BENCHREPORT_H

#include <functional>
#include <string>
#include <vector>

namespace KestrelBench
{

/// Seconds of each of nRuns calls, behind one that isn't counted.
std::vector<double> Time(unsigned int nRuns, const std::function<void()>& work);

/// The ratios of two measurements, pair by pair.
std::vector<double> Ratios(const std::vector<double>& vOver, const std::vector<double>& vUnder);

/// Prints figures: a row of text each, or with --json an object a line with bench, case, min,
/// median, max, reach and holds.
class CReport
{
public:
    /// \throws std::runtime_error for an argument that isn't known
    CReport(const std::string& strBench, int argc, char** argv);

    /// \param fReach  what the median must stay under; 0 if nothing is asked of it
    void Add(const std::string& strCase, std::vector<double> vFigures, double fReach);

private:
    std::string m_strBench;
    bool m_bJson;
};

} // namespace KestrelBench

#endif
