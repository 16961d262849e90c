// No memory is allocated while groups run. This program counts every allocation by operator new; a launch's allocations
// before its groups run depend neither on the number of groups nor on how long they run.

#include <CL/cl.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/platform/simt/RecordedLaunch.h"

namespace
{

std::atomic<unsigned int> s_nAllocations(0);

void* AllocateOrNot(size_t nBytes)
{
    ++s_nAllocations;
    return std::malloc(nBytes ? nBytes : 1);
}

void* Allocate(size_t nBytes)
{
    void* const p = AllocateOrNot(nBytes);
    if (!p)
    {
        throw std::bad_alloc();
    }
    return p;
}

} // namespace

void* operator new(size_t nBytes)
{
    return Allocate(nBytes);
}

void* operator new[](size_t nBytes)
{
    return Allocate(nBytes);
}

void* operator new(size_t nBytes, const std::nothrow_t&) noexcept
{
    return AllocateOrNot(nBytes);
}

void* operator new[](size_t nBytes, const std::nothrow_t&) noexcept
{
    return AllocateOrNot(nBytes);
}

void operator delete(void* p) noexcept
{
    std::free(p);
}

void operator delete[](void* p) noexcept
{
    std::free(p);
}

void operator delete(void* p, size_t) noexcept
{
    std::free(p);
}

void operator delete[](void* p, size_t) noexcept
{
    std::free(p);
}

namespace KestrelPlatformTest
{
namespace
{

using KestrelPlatform::SLaunchResult;

struct SAllocationCase
{
    const char* pszName;
    const char* pszLoop; ///< one pass of the loop; r100.y is an address, r0.x counts passes
    const char* pszDeclarations;
    const char* pszFunctions;
};

const SAllocationCase s_Cases[] = {
    {"arithmetic", "mad r1, r1, r2, r3\ndadd r2.xy, r2.xy, r3.xy\nsin r3, r1\n", "", ""},
    {"branches and switches",
     "and r1.x, r100.x, l0.y\nif_logicalnz r1.x\ncontinue\nendif\nswitch r100.x\ncase 1\niadd r2.x, r2.x, l0.y\n"
     "break\ndefault\nbreak\nendswitch\n",
     "", ""},
    {"calls", "call 7\ncall_logicalnz r100.x, 8\n", "",
     "func 7\niadd r2.x, r2.x, l0.y\ncall 8\nret\nendfunc\nfunc 8\nret_logicalnz r100.x\nmov r3, r2\nret\nendfunc\n"},
    {"global memory",
     "uav_raw_load_id(11) r1, r100.y\nuav_raw_store_id(11) mem0, r100.y, r1\nuav_byte_load_id(11) r1.x, r100.y\n", "",
     ""},
    {"accesses outside", "uav_raw_load_id(11) r1, l0.x\nuav_raw_store_id(11) mem0, l0.y, r1\n", "", ""},
    {"global atomics",
     "uav_add_id(11) r100.y, l0.y\nuav_read_max_id(11) r1.x, r100.y, l0.z\nuav_add_id(11) cb1[0].x, l0.y\n"
     "fence_memory\n",
     "", ""},
    {"local memory and barriers",
     "lds_add_id(1) l0.x, l0.y\nfence_threads_lds\nlds_load_id(1) r1.x, l0.x\nlds_store_id(1) l0.x, r1.x\n"
     "lds_add64_id(1) l0.x, l0.yz\nfence_threads_lds\n",
     "dcl_lds_id(1) 1024\n", ""},
    {"private memory and arrays",
     "and r1.x, r100.x, l0.w\nmov x1[r1.x], r100\nmov r2, x1[r1.x+1]\nuav_raw_store_id(9) mem0.x, l0.x, r2.x\n"
     "uav_raw_load_id(9) r3.x, l0.x\nmov r4, cb1[r1.x]\n",
     "dcl_indexed_temp_array x1[8]\ndcl_typeless_uav_id(9)_stride(4)_length(64)_access(private)\n", ""},
    {"images",
     "sample_resource(1)_sampler(1) r1, r2\nuav_load_id(2) r2, r100\nuav_store_id(2) r100, r1\n"
     "sample_resource(1)_sampler(9) r1, r2\n",
     "dcl_resource_id(1)_type(2d) 0x0\ndcl_typed_uav_id(2)_access(rw) 0x2\n", ""},
    {"waves", "ballot r1, r100.x\nmbcnt r2, r1\nreadlane r3, r2, r100.x\n", "", ""},
};

void BindImages(CKernelRun& run, std::vector<uint32_t>& vTexels)
{
    KestrelPlatform::SImageBinding image;
    image.pData = reinterpret_cast<unsigned char*>(vTexels.data());
    image.nChannelOrder = CL_RGBA;
    image.nChannelType = CL_UNORM_INT8;
    image.nType = CL_MEM_OBJECT_IMAGE2D;
    image.nWidth = image.nHeight = 8;
    image.nRowPitch = 32;
    image.nSlicePitch = 256;
    run.launch.mapResources[1] = image;
    run.launch.mapUavImages[2] = image;
    run.launch.mapSamplers[1] = {true, CL_ADDRESS_REPEAT, CL_FILTER_LINEAR};
}

unsigned int AllocationsOf(CKernelRun& run, size_t nGroups, size_t nLocal, uint32_t nPasses)
{
    run.SetSize(nGroups * nLocal, nLocal);
    run.launch.nMaxThreads = 1;
    run.launch.vConstantBuffer1.resize(32, 0);
    run.launch.vConstantBuffer1[8] = nPasses;
    run.vOutput.assign(64 * 1024 * 4, 0);
    run.Run();
    const unsigned int nBefore = s_nAllocations;
    const SLaunchResult result = KestrelPlatform::RunLaunch(run.launch);
    const unsigned int nAfter = s_nAllocations;
    EXPECT_EQ(result.eStatus, SLaunchResult::Complete);
    return nAfter - nBefore;
}

TEST(Allocation, RunningGroupsMakesNothing)
{
    for (const SAllocationCase& test : s_Cases)
    {
        CKernelRun run(IndexLines() +
                           std::string("whileloop\nige r5.x, r0.x, cb1[2].x\nbreak_logicalnz r5.x\n"
                                       "iadd r0.x, r0.x, l0.y\n") +
                           test.pszLoop + "endloop\n---\n" + test.pszFunctions,
                       IndexLiterals() + std::string("dcl_literal l0, 0, 1, 2, 3\n") + test.pszDeclarations);
        std::vector<uint32_t> vTexels(64, 0x40302010);
        BindImages(run, vTexels);
        // Several groups in a block, a block of its own, several blocks.
        for (const size_t nLocal : {16u, 256u, 1024u})
        {
            const unsigned int nOnce = AllocationsOf(run, 1024 / nLocal, nLocal, 1);
            EXPECT_GT(nOnce, 0u) << test.pszName;
            EXPECT_EQ(AllocationsOf(run, 4096 / nLocal, nLocal, 8), nOnce) << test.pszName << ", groups of " << nLocal;
        }
    }
}

} // namespace
} // namespace KestrelPlatformTest
