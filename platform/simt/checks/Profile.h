#ifndef KESTREL_PLATFORM_SIMT_CHECKS_PROFILE_H
#define KESTREL_PLATFORM_SIMT_CHECKS_PROFILE_H

#include "platform/simt/BlockRecorder.h"
#include "platform/simt/Program.h"
#include "platform/simt/WideLaunch.h"

#include <map>
#include <mutex>
#include <vector>

namespace KestrelPlatform
{

/// How many were active at a place, summed over all times that it was reached.
struct SPresence
{
    uint64_t nItems = 0;
    uint64_t nWaves = 0;
    uint64_t nLanes = 0; ///< lanes of these waves, active or not

    void Add(const SPresence& other)
    {
        nItems += other.nItems;
        nWaves += other.nWaves;
        nLanes += other.nLanes;
    }
};

/// What a recorder keeps of an instruction. For flow control, who is active after it; for the start of a loop, its
/// passes too. For an access, its bytes and cache lines.
struct SProfileEntry
{
    SPresence after;
    uint64_t nEntries = 0;
    uint64_t nLeast = ~uint64_t(0);
    uint64_t nMost = 0;
    uint64_t nLoaded[3] = {};
    uint64_t nStored[3] = {};
    uint64_t nAccesses = 0;
    uint64_t nLines = 0;

    void Add(const SProfileEntry& other);
};

/// The profile of a launch, recorded in the plain form of the code. Who is active changes at flow control only. So it
/// is recorded only there, and worked out from the text for the instructions in between.
class CProfileTotals
{
public:
    /// Takes what one thread has recorded, and who came to each body. Any thread.
    void Add(const std::vector<SProfileEntry>& vEntries, const std::vector<SPresence>& vBodies);
    /// The profile of each instruction. To be called after the launch. Throws std::bad_alloc.
    std::vector<SPlatformProfile> Spread(const CProgram& program) const;

private:
    std::mutex m_Mutex;
    std::vector<SProfileEntry> m_vEntries; ///< by instruction
    std::vector<SPresence> m_vBodies;
};

/// Which work-items of a block make up a wave: up to 64 of one group that follow each other.
class CWaveLanes
{
public:
    /// Finds them for a block that has new groups.
    void Start(const CBlock& block);
    size_t GetCount() const { return m_vEnds.size(); }
    uint32_t GetBegin(size_t nWave) const { return nWave == 0 ? 0 : m_vEnds[nWave - 1]; }
    uint32_t GetEnd(size_t nWave) const { return m_vEnds[nWave]; }

private:
    std::vector<uint32_t> m_vEnds;
    uint32_t m_nLive = 0;
};

/// The different cache lines that a wave's access touches.
class CLineSet
{
public:
    void Clear()
    {
        ++m_nSet;
        m_nLast = ~uint64_t(0); // not a line: a line's number has zeros at its top
        m_nCount = 0;
    }
    void Insert(uint64_t nLine);
    uint32_t GetCount() const { return m_nCount; }

private:
    struct SPlace
    {
        uint64_t nLine = 0;
        uint64_t nSet = 0; ///< number of the set to which the line belongs
    };
    static constexpr size_t s_nPlaces = 256;
    static_assert(s_nPlaces > s_nWaveSize * 2, "each work-item may touch two");

    SPlace m_Places[s_nPlaces];
    uint64_t m_nSet = 0;
    uint64_t m_nLast = 0;
    uint32_t m_nCount = 0;
};

/// Records one thread's part of the profile.
class CProfileRecorder : public IBlockRecorder
{
public:
    explicit CProfileRecorder(CProfileTotals& totals) : m_Totals(totals) {}
    ~CProfileRecorder() override { m_Totals.Add(m_vEntries, m_vBodies); }

    void Start(const CBlock& block) override;
    void Flow(const CBlock& block, uint32_t nInstruction) override;
    void Written(const CBlock& /*block*/, const SCode& /*code*/, const SMicroOp& /*step*/) override {}
    void Entered(const CBlock& block, uint32_t nBody) override;
    void Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access) override;
    void OpenLoop(uint32_t nStart, uint32_t nEnd) override;
    void CloseLoop() override;

private:
    struct SLoop
    {
        uint32_t nStart = 0;
        uint32_t nActive = 0; ///< work-items that began the last pass
        uint64_t nPasses = 0;
    };

    SProfileEntry& Entry(uint32_t nInstruction);
    SPresence Look(const CBlock& block) const;
    void BeginPass(SProfileEntry& entry, uint32_t nActive);
    void InsertLines(const CBlock& block, const SAccess& access, uint32_t nBegin, uint32_t nEnd);
    void CountLines(const CBlock& block, const SAccess& access, SProfileEntry& entry);

    CProfileTotals& m_Totals;
    std::vector<SProfileEntry> m_vEntries;
    std::vector<SPresence> m_vBodies;
    std::vector<SLoop> m_vLoops;
    CWaveLanes m_Waves;
    CLineSet m_Lines;
};

} // namespace KestrelPlatform

#endif
