#ifndef KESTREL_BENCH_BENCHREPORT_H
#define KESTREL_BENCH_BENCHREPORT_H

#include <functional>
#include <string>
#include <vector>

namespace KestrelBench
{

/// Seconds of one call.
double TimeOnce(const std::function<void()>& work);

/// Seconds of each of nRuns calls, after one that isn't counted.
/// \param prepare  called in front of each, not timed
std::vector<double> Time(unsigned int nRuns, const std::function<void()>& work,
                         const std::function<void()>& prepare = nullptr);

/// The ratios of two measurements, pair by pair.
std::vector<double> Ratios(const std::vector<double>& vOver, const std::vector<double>& vUnder);

/// How often over takes the time of under: both are called in turn, so that what else the machine does meets both.
std::vector<double> TimeRatios(unsigned int nRuns, const std::function<void()>& over,
                               const std::function<void()>& under);

/// Every figure times a factor, for the unit that it is told in.
std::vector<double> Scaled(std::vector<double> vFigures, double fFactor);

/// Prints figures: a row of text each, or with --json an object a line with bench, case, min,
/// median, max, reach and holds.
class CReport
{
public:
    /// \throws std::runtime_error for an argument that isn't known
    CReport(const std::string& strBench, int argc, char** argv);

    /// \param fReach  what the median must stay under; 0 if nothing is asked of it
    void Add(const std::string& strCase, std::vector<double> vFigures, double fReach);
    /// \param fReach  what the median must come up to
    void AddAtLeast(const std::string& strCase, std::vector<double> vFigures, double fReach);

    /// A line for readers; --json leaves it out.
    void Note(const std::string& strText) const;

private:
    void Print(const std::string& strCase, const std::vector<double>& vFigures, const char* pszRelation, double fReach,
               bool bHolds) const;

    std::string m_strBench;
    bool m_bJson;
};

} // namespace KestrelBench

#endif
