#ifndef KESTREL_TOOLS_CHECK_CHECKWORDS_H
#define KESTREL_TOOLS_CHECK_CHECKWORDS_H

#include "KestrelPlatform.h"
#include "tools/session/debug/KernelArguments.h"

#include <string>
#include <vector>

namespace KestrelTool
{

/// Describes a run's findings in words.
class CCheckWords
{
public:
    /// \param vBuffers  the run's buffers
    CCheckWords(std::vector<SPlatformBuffer> vBuffers, std::vector<SKernelArgument> vArguments);

    /// The fault, in one line.
    std::string Describe(const SPlatformFinding& finding) const;
    /// "work-items 3, 7, 11 and others"; for a race, those of both sides.
    std::string NameItems(const SPlatformFinding& finding) const;

    /// The buffers that a number reaches, "out+0x0, sums+0x0"; empty if there is none.
    std::string NameOutputs(const SPlatformFinding& finding) const;

    /// The buffer that contains the address, else a near one before it, or after it; null if none is near.
    const SPlatformBuffer* FindBuffer(uint64_t nAddress) const;

private:
    std::string NameAddress(uint64_t nAddress) const;
    std::string NameOrigin(const SPlatformFinding& finding) const;
    std::string DescribeInit(const SPlatformFinding& finding) const;
    std::string DescribeNumber(const SPlatformFinding& finding) const;
    std::string NamePlace(const SPlatformFinding& finding) const;
    std::string NameExtent(const SPlatformFinding& finding) const;

    std::vector<SPlatformBuffer> m_vBuffers;
    std::vector<SKernelArgument> m_vArguments;
};

/// Work-items of a kernel that was stopped, "63 work-items, pass 200 to 210", without the line where they were.
std::string DescribeStanding(const SPlatformPlace& place);

} // namespace KestrelTool

#endif
