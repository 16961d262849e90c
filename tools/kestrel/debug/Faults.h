#ifndef KESTREL_TOOLS_DEBUG_FAULTS_H
#define KESTREL_TOOLS_DEBUG_FAULTS_H

#include "tools/kestrel/Libraries.h"
#include "tools/kestrel/Listing.h"

#include <cstdint>
#include <optional>

struct SPlatformControl;

namespace KestrelTool
{

/// What a kernel run did that it shouldn't have.
struct SFault
{
    uint64_t nBadAccesses = 0;
    unsigned int nLine = CListing::NoLine; ///< of the first bad access; NoLine if it isn't known
    uint64_t nWorkItem = 0;
    uint64_t nAddress = 0;
    bool bWrite = false;
    uint64_t nUnreachedBarriers = 0;
};

/// The faults that the software platform records. Another platform records none.
class CFaults
{
public:
    explicit CFaults(const CLibraries& libraries);

    void Forget() { m_nKnownAccesses = m_nKnownBarriers = 0; }
    /// The fault of the last kernel run, if there is more to it than was known.
    /// \param listing  the kernel's text
    /// \param vImage   the image that the run was built from; empty if it was the kernel itself
    std::optional<SFault> Check(const CListing& listing, const std::vector<char>& vImage);

private:
    const SPlatformControl* m_pControl = nullptr;
    uint64_t m_nKnownAccesses = 0;
    uint64_t m_nKnownBarriers = 0;
};

/// The lines of a kernel binary's text, with the call of the kernel where its placeholder stands.
std::vector<std::string> ReadLinesWithCall(const std::vector<char>& vBinary, unsigned int nLabel);

} // namespace KestrelTool

#endif
