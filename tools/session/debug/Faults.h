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

/// A fault of a work-item.
struct SFault
{
    unsigned int nLine = CListing::NoLine; ///< NoLine if unknown
    uint64_t nWorkItem = 0;
    uint64_t nAddress = 0;
    bool bWrite = false;
    bool bBarrier = false;    ///< it missed a barrier that others of its group reached; else a bad access
    unsigned int nMemory = 0; ///< an EPlatformMemory
    std::string strSource;    ///< "file:line" of the source; empty if unknown
    std::string strPlace;     ///< "out+0x80" for an address near one of the kernel's buffers; else empty
};

/// The new faults of a kernel run.
struct SFaults
{
    std::vector<SFault> vShown; ///< faults not reported before, by work-item
    uint64_t nAccesses = 0;     ///< the run's total
    uint64_t nBarriers = 0;
    bool bIncomplete = false; ///< the platform has recorded only some of them
};

/// The faults that the software platform records; other platforms record none.
class CFaults
{
public:
    /// \param pControl  the platform's; null if it has none
    explicit CFaults(const SPlatformControl* pControl) : m_pControl(pControl) {}

    void Forget();
    /// Arguments whose buffers are named.
    void SetArguments(const std::vector<SKernelArgument>& vArguments) { m_vArguments = vArguments; }
    /// The faults of the last kernel run, if there are more than known before.
    /// \param listing  the kernel's text
    /// \param vImage   the image that the run was built from; empty if it was the kernel itself
    std::optional<SFaults> Check(const CListing& listing, const std::vector<char>& vImage);
    /// Why and where the platform has stopped the last kernel run early; empty if it hasn't.
    /// \param vImage  as above
    std::string DescribeEnd(const CListing& listing, const std::vector<char>& vImage) const;
    /// Where the work-items were when the last kernel run was stopped early, as in an event; an empty list if it
    /// wasn't, or if that is unknown.
    /// \param vImage  as above
    nlohmann::json DescribePlaces(const CListing& listing, const std::vector<char>& vImage) const;
    /// All faults found since Forget.
    const SFaults& GetAll() const { return m_All; }
    bool HasAny() const { return m_nKnownAccesses + m_nKnownBarriers != 0; }

private:
    typedef std::tuple<bool, unsigned int, uint64_t, uint64_t> Key;

    /// The source place of an instruction of the last run, if that ran the kernel itself; empty if unknown.
    std::string FindSource(const CListing& listing, unsigned int nLine, uint32_t nInstruction, bool bPatched) const;
    std::string NamePlace(const std::vector<SPlatformBuffer>& vBuffers, uint64_t nAddress) const;

    const SPlatformControl* m_pControl;
    std::vector<SKernelArgument> m_vArguments;
    uint64_t m_nKnownAccesses = 0;
    uint64_t m_nKnownBarriers = 0;
    std::set<Key> m_Known;
    SFaults m_All;
};

/// "at", "barrier", "beside", "ended" or "not begun", for an EPlatformWhere.
const char* NameWhere(uint32_t nWhere);

/// Faults as in an answer or event.
/// \param nShown  how many are listed one by one
nlohmann::json DescribeFaults(const SFaults& faults, size_t nShown);

} // namespace KestrelTool

#endif
