#ifndef KESTREL_BENCH_BENCHREPORT_H
#define KESTREL_BENCH_BENCHREPORT_H

#include <functional>
#include <string>
#include <vector>

namespace KestrelBench
{

/// Seconds of one call.
double TimeOnce(const std::function<void()>& work);

/// The time in seconds of each of nRuns calls, after one call that isn't counted.
/// \param prepare  called before each one, not timed
std::vector<double> Time(unsigned int nRuns, const std::function<void()>& work,
                         const std::function<void()>& prepare = nullptr);

/// The ratios of two measurements, pair by pair.
std::vector<double> Ratios(const std::vector<double>& vOver, const std::vector<double>& vUnder);

/// The ratio of over's time to under's. The calls alternate, so that other load on the machine affects both.
std::vector<double> TimeRatios(unsigned int nRuns, const std::function<void()>& over,
                               const std::function<void()>& under);

/// All figures multiplied by a factor, to convert them to the unit to report.
std::vector<double> Scaled(std::vector<double> vFigures, double fFactor);

/// Prints figures: one row of text each, or with --json one object a line with bench, case, min, median, max, reach and
/// holds.
class CReport
{
public:
    /// \throws std::runtime_error for an unknown argument
    CReport(const std::string& strBench, int argc, char** argv);

    /// \param fReach  upper limit for the median; 0 for none
    void Add(const std::string& strCase, std::vector<double> vFigures, double fReach);
    /// \param fReach  lower limit for the median
    void AddAtLeast(const std::string& strCase, std::vector<double> vFigures, double fReach);

    /// A line of text for people; omitted with --json.
    void Note(const std::string& strText) const;

private:
    void Print(const std::string& strCase, const std::vector<double>& vFigures, const char* pszRelation, double fReach,
               bool bHolds) const;

    std::string m_strBench;
    bool m_bJson;
};

} // namespace KestrelBench

#endif
