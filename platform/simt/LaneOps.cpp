#include "platform/simt/LaneOps.h"

#include <atomic>

namespace KestrelPlatform
{

extern const SLaneTable g_LaneTableBaseline;
extern const SLaneTable g_LaneTableAvx2;
extern const SLaneTable g_LaneTableAvx512;

namespace
{

bool HasAvx2()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

bool HasAvx512()
{
    return HasAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
}

const SLaneTable* Best()
{
    if (HasAvx512())
    {
        return &g_LaneTableAvx512;
    }
    return HasAvx2() ? &g_LaneTableAvx2 : &g_LaneTableBaseline;
}

std::atomic<const SLaneTable*>& Chosen()
{
    static std::atomic<const SLaneTable*> s_pChosen(Best());
    return s_pChosen;
}

} // namespace

const SLaneTable& GetLaneTable()
{
    return *Chosen().load(std::memory_order_relaxed);
}

bool ChooseInstructionSet(EInstructionSet eSet)
{
    if (eSet == EInstructionSet::Avx512 && !HasAvx512())
    {
        return false;
    }
    if (eSet == EInstructionSet::Avx2 && !HasAvx2())
    {
        return false;
    }
    const SLaneTable* const pTables[] = {&g_LaneTableBaseline, &g_LaneTableAvx2, &g_LaneTableAvx512};
    Chosen().store(pTables[static_cast<int>(eSet)], std::memory_order_relaxed);
    return true;
}

} // namespace KestrelPlatform
