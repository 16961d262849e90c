#include "bench/BenchMemory.h"

#include <fstream>
#include <stdexcept>
#include <string>

namespace KestrelBench
{

namespace
{

/// Reads a value of /proc/self/status, in KiB.
double Status(const std::string& strName)
{
    std::ifstream status("/proc/self/status");
    std::string strWord;
    while (status >> strWord)
    {
        double fKilobytes = 0;
        if (strWord == strName + ":" && status >> fKilobytes)
        {
            return fKilobytes;
        }
    }
    throw std::runtime_error("the system doesn't tell " + strName);
}

} // namespace

double StartMemoryPeak()
{
    // Writing 5 resets the peak to the current use.
    std::ofstream clear("/proc/self/clear_refs");
    clear << 5 << std::flush;
    if (!clear)
    {
        throw std::runtime_error("the system doesn't set the memory peak back");
    }
    return Status("VmRSS");
}

double MemoryPeak()
{
    return Status("VmHWM");
}

} // namespace KestrelBench
