#ifndef KESTREL_TOOLS_DEBUG_FAULTS_H
#define KESTREL_TOOLS_DEBUG_FAULTS_H

#include "tools/session/debug/KernelArguments.h"
#include "tools/session/launch/Listing.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <set>
#include <tuple>

struct SPlatformControl;
struct SPlatformBuffer;

namespace KestrelTool
{

/// Something that a work-item did and shouldn't have.
struct SFault
{
    unsigned int nLine = CListing::NoLine; ///< NoLine if it isn't known
    uint64_t nWorkItem = 0;
    uint64_t nAddress = 0;
    bool bWrite = false;
    bool bBarrier = false;    ///< it didn't reach a barrier that others of its group have reached; else an access
    unsigned int nMemory = 0; ///< an EPlatformMemory
    std::string strSource;    ///< "file:line" of the source; empty if it isn't known
    std::string strPlace;     ///< "out+0x80" for an address near a buffer of the kernel's; else empty
};

/// What is new about a kernel run.
struct SFaults
{
    std::vector<SFault> vShown; ///< those that haven't been told of before, by work-item
    uint64_t nAccesses = 0;     ///< of the run, all of them
    uint64_t nBarriers = 0;
    bool bIncomplete = false; ///< the platform has recorded no more than a part
};

/// The faults that the software platform records. Another platform records none.
class CFaults
{
public:
    /// \param pControl  the platform's; null if it has none
    explicit CFaults(const SPlatformControl* pControl) : m_pControl(pControl) {}

    void Forget();
    /// Whose buffers are named.
    void SetArguments(const std::vector<SKernelArgument>& vArguments) { m_vArguments = vArguments; }
    /// The faults of the last kernel run, if there is more to it than was known.
    /// \param listing  the kernel's text
    /// \param vImage   the image that the run was built from; empty if it was the kernel itself
    std::optional<SFaults> Check(const CListing& listing, const std::vector<char>& vImage);
    /// Why the platform has ended the last kernel run under way, and where it was; empty if it hasn't.
    /// \param vImage  as above
    std::string DescribeEnd(const CListing& listing, const std::vector<char>& vImage) const;
    /// Where the work-items were when the last kernel run was stopped under way, as an event has it; an empty list if
    /// it wasn't, or if nobody can tell.
    /// \param vImage  as above
    nlohmann::json DescribePlaces(const CListing& listing, const std::vector<char>& vImage) const;
    /// All that have been found since Forget.
    const SFaults& GetAll() const { return m_All; }
    bool HasAny() const { return m_nKnownAccesses + m_nKnownBarriers != 0; }

private:
    typedef std::tuple<bool, unsigned int, uint64_t, uint64_t> Key;

    /// Where in its source an instruction of the last run stands, if that was the kernel itself; empty if unknown.
    std::string FindSource(const CListing& listing, unsigned int nLine, uint32_t nInstruction, bool bPatched) const;
    std::string NamePlace(const std::vector<SPlatformBuffer>& vBuffers, uint64_t nAddress) const;

    const SPlatformControl* m_pControl;
    std::vector<SKernelArgument> m_vArguments;
    uint64_t m_nKnownAccesses = 0;
    uint64_t m_nKnownBarriers = 0;
    std::set<Key> m_Known;
    SFaults m_All;
};

/// Faults as an answer or event has them.
/// \param nShown  how many of them one by one
nlohmann::json DescribeFaults(const SFaults& faults, size_t nShown);

/// The lines of a kernel binary's text, with the call of the kernel where its placeholder stands.
std::vector<std::string> ReadLinesWithCall(const std::vector<char>& vBinary, unsigned int nLabel);
/// The same with the lines' places in the source.
CListing ReadListing(const std::vector<char>& vBinary, unsigned int nLabel);

} // namespace KestrelTool

#endif
