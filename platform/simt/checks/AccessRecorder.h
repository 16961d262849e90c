#ifndef KESTREL_PLATFORM_SIMT_CHECKS_ACCESSRECORDER_H
#define KESTREL_PLATFORM_SIMT_CHECKS_ACCESSRECORDER_H

#include "platform/simt/BlockRecorder.h"
#include "platform/simt/WideLaunch.h"

#include <map>
#include <vector>

namespace KestrelPlatform
{

/// Records each access to the bytes that a launch watches. All recorders of a launch belong to one thread.
class CAccessRecorder : public IBlockRecorder
{
public:
    CAccessRecorder(const SLaunch& launch, std::vector<SPlatformAccess>& vAccesses);

    void Start(const CBlock& block) override;
    void Flow(const CBlock& /*block*/, uint32_t /*nInstruction*/) override {}
    void Written(const CBlock& /*block*/, const SCode& /*code*/, const SMicroOp& /*step*/) override {}
    void Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access) override;
    void Accessed(const CBlock& block, const SMicroOp& step, const SAccess& access) override;
    bool SeesMemory() const override { return true; }

private:
    struct STouch
    {
        uint32_t nLane;
        SPlatformAccess access;
    };

    void CopyWatched(uint8_t* pBytes) const;

    const SPlatformWatch m_Watch;
    const unsigned char* m_pData = nullptr; ///< of global memory: the first watched byte
    std::vector<SPlatformAccess>& m_vAccesses;
    std::vector<STouch> m_vTouches;                        ///< of the access under way
    std::map<uint32_t, std::vector<uint64_t>> m_mapPasses; ///< by instruction and lane
};

} // namespace KestrelPlatform

#endif
