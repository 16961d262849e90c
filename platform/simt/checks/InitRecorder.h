#ifndef KESTREL_PLATFORM_SIMT_CHECKS_INITRECORDER_H
#define KESTREL_PLATFORM_SIMT_CHECKS_INITRECORDER_H

#include "platform/simt/BlockRecorder.h"
#include "platform/simt/WideLaunch.h"
#include "platform/simt/checks/AccessSpan.h"
#include "platform/simt/checks/RowShadow.h"
#include "platform/simt/checks/ShadowRules.h"

#include <vector>

namespace KestrelPlatform
{

class CFindings;
class CWrittenPages;
struct SIndexed;
struct SLaunchContext;

/// Tracks unwritten values through a block's registers and memory, and reports branches, addresses and outputs that
/// depend on one. Values that are only copied from buffer to buffer aren't reported, nor is the padding of a structure
/// that is copied as a whole.
class CInitRecorder
{
public:
    /// \param vLocal  the shadow of local memory, which the blocks of a group share
    /// \param bFirst  the first block of its thread
    CInitRecorder(const SLaunchContext& context, CFindings& findings, CWrittenPages& written,
                  std::vector<unsigned char>& vLocal, bool bFirst);

    void Start(const CBlock& block);
    void Stepping(const CBlock& block, const SMicroOp& step);
    void Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access);

private:
    bool IsDirty(const CBlock& block, uint32_t nRow, bool bUniform) const;
    /// \return a source row with something unwritten, or 0
    uint32_t FindDirty(const CBlock& block, const SLaneRows& rows, bool bUniform) const;
    void Compute(const CBlock& block, const SMicroOp& step, bool bUniform);
    void ComputeLane(const CBlock& block, const SMicroOp& step, EShadowRule eRule, uint32_t nLane, uint32_t nTo);
    void ComputeWave(const CBlock& block, const SMicroOp& step);
    void LoadIndexed(const CBlock& block, const SMicroOp& step);
    void StoreIndexed(const CBlock& block, const SMicroOp& step);
    void MovePrivate(const CBlock& block, const SMicroOp& step, const SAccess& access);
    void ClearLoaded(const CBlock& block, const SAccess& access);
    void LoadShadow(const CBlock& block, const SMicroOp& step, const SAccess& access);
    void StoreShadow(const CBlock& block, const SMicroOp& step, const SAccess& access);
    uint32_t StoredShadow(const SAccess& access, uint32_t nWord, uint32_t nLane) const;
    void TouchAtomic(const CBlock& block, const SMicroOp& step, const SAccess& access);
    unsigned char* Find(const CBlock& block, const SAccess& access, uint32_t nLane, uint32_t nBytes);
    bool HasShadow(const SAccess& access) const;
    bool HoldRange(uint64_t nAddress, uint64_t nBytes);
    bool IsWritten(const CBlock& block, const SAccess& access, uint32_t nBytes);
    bool StoreWritten(const CBlock& block, const SAccess& access);
    bool ArePrivateClean(const CBlock& block, const SAccess& access) const;
    bool MovePrivateRows(const CBlock& block, const SMicroOp& step, const SAccess& access);
    bool StoreElementRow(const CBlock& block, const SIndexed& indexed, uint32_t nComponent, uint32_t nSource);
    void StoreElements(const CBlock& block, const SIndexed& indexed, uint32_t nComponent, uint32_t nSource);
    void Put(uint32_t nRow, uint32_t nLane, uint32_t nShadow, bool bUnwritten);
    void SettleChanged(uint32_t nSource);
    void MoveRow(uint32_t nFromRow, uint32_t nTo, uint32_t nFrom);
    bool AreElementsClean(const CBlock& block, const SIndexed& indexed, uint32_t nComponent) const;
    /// Reports active work-items whose value in a row is unwritten. It then counts as written, so that it is reported
    /// once.
    void Demand(const CBlock& block, const SMicroOp& step, uint32_t nRow, uint32_t nFault, bool bUniform = false);
    void Tell(const CBlock& block, const SMicroOp& step, uint32_t nLane, uint32_t nFault, uint32_t nShadow,
              uint32_t nFrom, uint64_t nAddress = 0);

    const SLaunchContext& m_Context;
    CFindings& m_Findings;
    CWrittenPages& m_Written;
    std::vector<unsigned char>& m_vLocal;
    const bool m_bFirst;
    bool m_bGlobal = false; ///< some memory has a shadow
    CRowShadow m_Rows;
    std::vector<unsigned char> m_vOrigins; ///< of the rows to clear, EPlatformOrigin
    std::vector<uint64_t> m_vAddresses;    ///< of the access under way, from the block's first lane
    size_t m_nRange = 0;                   ///< the memory object found last
    /// A row of which some lanes have changed.
    struct SChanged
    {
        uint32_t nRow;
        bool bUnwritten; ///< something was put there
    };
    std::vector<SChanged> m_vChanged; ///< by the step under way
    SAccessSpan m_Span;               ///< of the access that IsWritten has last looked at
};

} // namespace KestrelPlatform

#endif
