#ifndef KESTREL_TOOLS_CHECK_CHECKWORDS_H
#define KESTREL_TOOLS_CHECK_CHECKWORDS_H

#include "KestrelPlatform.h"
#include "tools/session/debug/KernelArguments.h"

#include <string>
#include <vector>

namespace KestrelTool
{

/// Puts findings of a run into words.
class CCheckWords
{
public:
    /// \param vBuffers  of the run
    CCheckWords(std::vector<SPlatformBuffer> vBuffers, std::vector<SKernelArgument> vArguments);

    /// What is wrong, in a line.
    std::string Describe(const SPlatformFinding& finding) const;
    /// "work-items 3, 7, 11 and others"; of a race both.
    std::string NameItems(const SPlatformFinding& finding) const;

    /// The buffer that an address is in, or the one that it is the least after, or in front of; null if none is near.
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

} // namespace KestrelTool

#endif
