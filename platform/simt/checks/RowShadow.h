#ifndef KESTREL_PLATFORM_SIMT_CHECKS_ROWSHADOW_H
#define KESTREL_PLATFORM_SIMT_CHECKS_ROWSHADOW_H

#include "platform/simt/LaneOps.h"

#include <cstdlib>
#include <memory>
#include <vector>

namespace KestrelPlatform
{

class CBlock;

/// The shadows of a block's rows. Rows with something unwritten are dirty. Most rows aren't, and have shadows of 0.
class CRowShadow
{
public:
    /// Throws std::bad_alloc.
    explicit CRowShadow(uint32_t nRows);

    bool IsAny() const { return m_nDirty != 0; }
    bool IsDirty(uint32_t nRow) const { return m_vDirty[nRow] != 0; }
    const uint32_t* Row(uint32_t nRow) const { return m_pRows[nRow].w; }
    /// Gives a row's shadows to be changed. Settle is to be called afterwards.
    uint32_t* Change(uint32_t nRow);
    /// Finds out whether a changed row is dirty.
    /// \param nFrom  the instruction that read the unwritten value
    void Settle(uint32_t nRow, uint32_t nFrom);
    uint32_t GetFrom(uint32_t nRow) const { return m_vFrom[nRow]; }
    void Fill(uint32_t nRow, uint32_t nShadow, uint32_t nFrom);
    /// The active work-items have written the row.
    void Clear(const CBlock& block, uint32_t nRow);
    void Clear(uint32_t nRow);

private:
    struct SFree
    {
        void operator()(void* p) const { std::free(p); }
    };

    std::unique_ptr<SLaneRow, SFree> m_pOwner;
    SLaneRow* m_pRows;
    std::vector<unsigned char> m_vDirty;
    std::vector<uint32_t> m_vFrom;
    uint32_t m_nDirty = 0;
};

} // namespace KestrelPlatform

#endif
