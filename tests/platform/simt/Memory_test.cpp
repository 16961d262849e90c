#include <cmath>

#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

using KestrelPlatform::SLaunchResult;

/// Runs a body over nItems work-items; each one's four words are at r100.y.
struct SRun
{
    SRun(const std::string& strBody, const std::string& strDeclarations, size_t nItems, size_t nLocal,
         std::vector<uint32_t> vInput = {})
        : run(IndexLines() + strBody, IndexLiterals() + std::string("dcl_literal l0, 0, 1, 2, 3\n") + strDeclarations)
    {
        run.SetSize(nItems, nLocal);
        run.vOutput.assign(nItems * 4, 0);
        run.vInput = vInput;
        result = run.Run();
    }

    uint32_t Out(uint32_t nItem, uint32_t n = 0) const { return run.vOutput[nItem * 4 + n]; }

    CKernelRun run;
    SLaunchResult result;
};

const char* const s_pszStore = "uav_raw_store_id(11) mem0, r100.y, r0\n";

TEST(Memory, NarrowLoadsAndStores)
{
    const SRun run("uav_byte_load_id(11) r0.x, cb1[1].x\nuav_ubyte_load_id(11) r0.y, cb1[1].x\n"
                   "uav_short_load_id(11) r0.z, cb1[1].x\nuav_ushort_load_id(11) r0.w, cb1[1].x\n"
                   "uav_raw_store_id(11) mem0, r100.y, r0\n"
                   "iadd r1.x, r100.y, l0.y\nuav_byte_store_id(11) mem0, r1.x, l5.x\n"
                   "iadd r1.x, r100.y, l5.y\nuav_short_store_id(11) mem0, r1.x, l5.x\n",
                   "dcl_literal l5, 0x12345678, 6, 0, 0\n", 3, 1, {0x8180});
    for (uint32_t n = 0; n < 3; ++n)
    {
        EXPECT_EQ(run.Out(n, 0), 0xFFFF7880u);
        EXPECT_EQ(run.Out(n, 1), 0x56780080u);
        EXPECT_EQ(run.Out(n, 2), 0xFFFF8180u);
        EXPECT_EQ(run.Out(n, 3), 0x8180u);
    }
}

TEST(Memory, WordsGoInOrderOfTheComponentsWritten)
{
    // The load overwrites its address register; scattered, uniform and consecutive addresses.
    const SRun run("iadd r0.x, cb1[1].x, l0.x\nuav_raw_load_id(11) r0.x_z_, r0.x\n" + std::string(s_pszStore), "", 5, 5,
                   {11, 22, 33});
    EXPECT_EQ(run.Out(4, 0), 11u);
    EXPECT_EQ(run.Out(4, 1), 0u);
    EXPECT_EQ(run.Out(4, 2), 22u);
    const SRun scattered(
        "imul r1.x, r100.x, l5.x\nand r1.x, r1.x, l5.y\nishl r1.x, r1.x, l0.z\niadd r1.x, r1.x, cb1[1].x\n"
        "uav_raw_load_id(11) r0.xy, r1.x\n" +
            std::string(s_pszStore),
        "dcl_literal l5, 5, 7, 0, 0\n", 16, 16, {0, 10, 20, 30, 40, 50, 60, 70, 80});
    for (uint32_t n = 0; n < 16; ++n)
    {
        EXPECT_EQ(scattered.Out(n, 0), (n * 5 & 7) * 10);
        EXPECT_EQ(scattered.Out(n, 1), ((n * 5 & 7) + 1) * 10);
    }
}

TEST(Memory, OutsideReadsZeroAndIsCounted)
{
    // Work-items 2 and 3 reach beyond the three words of the input; one word of work-item 2's pair is inside.
    const SRun run(
        "ishl r1.x, r100.x, l0.z\niadd r1.x, r1.x, cb1[1].x\nmov r0, l0.w\nuav_raw_load_id(11) r0.xy, r1.x\n" +
            std::string(s_pszStore),
        "", 4, 4, {7, 8, 9});
    EXPECT_EQ(run.Out(1, 1), 9u);
    EXPECT_EQ(run.Out(2, 0), 9u);
    EXPECT_EQ(run.Out(2, 1), 0u);
    EXPECT_EQ(run.Out(3, 0), 0u);
    EXPECT_EQ(run.result.nBadAccesses, 2u);
    EXPECT_EQ(run.result.firstBadAccess.nInstruction, 6u);
    EXPECT_EQ(run.result.firstBadAccess.nWorkItem, 2u);
    EXPECT_EQ(run.result.firstBadAccess.nAddress, 0x10000Cu);
    EXPECT_FALSE(run.result.firstBadAccess.bWrite);
}

TEST(Memory, ReadOnlyAndNullDropWrites)
{
    const SRun run("uav_raw_store_id(11) mem0.x, cb1[1].x, l0.w\nuav_raw_store_id(11) mem0.x, l0.x, l0.w\n", "", 2, 1,
                   {5});
    EXPECT_EQ(run.run.vInput[0], 5u);
    EXPECT_EQ(run.result.nBadAccesses, 4u);
    EXPECT_TRUE(run.result.firstBadAccess.bWrite);
    EXPECT_EQ(run.result.firstBadAccess.nWorkItem, 0u);
    EXPECT_EQ(run.result.firstBadAccess.nAddress, 0x100000u);
}

TEST(Memory, Addresses64)
{
    CKernelRun run(
        "mov r1.x, cb1[0].x\nmov r1.y, cb1[0].y\nuav_raw_load_id(11)_addr64 r2.xy, r1.xy\niadd r2.x, r2.x, l0.y\n"
        "uav_raw_store_id(11)_addr64 mem0.x, r1.xy, r2.x\n",
        "dcl_literal l0, 0, 1, 2, 3\n");
    uint32_t nWords[] = {41, 1};
    run.launch.vMemory.push_back({0x1234500000000ull, 8, reinterpret_cast<unsigned char*>(nWords), false});
    run.launch.vConstantBuffer1.assign(32, 0);
    run.launch.vConstantBuffer1[1] = 0x12345;
    EXPECT_EQ(RunLaunch(run.launch).nBadAccesses, 0u);
    EXPECT_EQ(nWords[0], 42u);
}

TEST(Memory, PrivateBytesOfEachWorkItem)
{
    const SRun run("mov r1.x, r100.x\nuav_raw_store_id(8) mem0.x, l5.x, r1.x\n"       // aligned, uniform
                   "iadd r1.y, r100.x, l5.y\nuav_byte_store_id(8) mem0, r1.y, l5.z\n" // a byte at 16 + item
                   "uav_raw_load_id(8) r0.x, l5.x\nuav_raw_load_id(8) r0.y, r1.y\n"   // unaligned word
                   "uav_raw_load_id(8) r0.z, l5.w\n" +
                       std::string(s_pszStore), // outside
                   "dcl_literal l5, 8, 16, 0xAB, 32\ndcl_typeless_uav_id(8)_stride(4)_length(20)_access(private)\n", 6,
                   3);
    for (uint32_t n = 0; n < 6; ++n)
    {
        EXPECT_EQ(run.Out(n, 0), n);
        EXPECT_EQ(run.Out(n, 1), 0xABu);
        EXPECT_EQ(run.Out(n, 2), 0u);
    }
    EXPECT_EQ(run.result.nBadAccesses, 6u);
}

TEST(Memory, ChosenPlacesReadZeroInEveryGroup)
{
    // What a group writes at fixed places is cleared before the thread's next group selects those places.
    const char* const pszPrivate = "uav_raw_load_id(8) r0.x, r2.x\nuav_raw_store_id(8) mem0.xy, l5.x, l5.zw\n"
                                   "uav_raw_load_id(8) r0.yz, l5.y\n";
    const char* const pszArray = "mov r0.x, x1[r2.y].x\nmov x1[16].x, l5.z\nmov x1[17].x, l5.w\n"
                                 "mov r0.y, x1[17].x\nmov r0.z, x1[18].x\n";
    for (const char* const pszBody : {pszPrivate, pszArray})
    {
        const SRun run("iadd r2.y, vTidInGrp.x, l5.z\nishl r2.x, r2.y, l0.z\n" + std::string(pszBody) + s_pszStore,
                       "dcl_literal l5, 64, 68, 16, 7\ndcl_indexed_temp_array x1[20]\n"
                       "dcl_typeless_uav_id(8)_stride(4)_length(80)_access(private)\n",
                       64 * 64, 4);
        EXPECT_EQ(run.result.nBadAccesses, 0u);
        for (uint32_t n = 0; n < 64 * 64; ++n)
        {
            ASSERT_EQ(run.Out(n, 0), 0u) << pszBody << n;
            ASSERT_EQ(run.Out(n, 1), 7u) << pszBody << n;
            ASSERT_EQ(run.Out(n, 2), 0u) << pszBody << n;
        }
    }
}

TEST(Memory, IndexedArraysAndConstants)
{
    const SRun run("mov x1[0].xy, l0.y\nmov x1[vTidInGrp.x+1].xy, r100.x\nmov r0.x, x1[r100.x+1].x\n"
                   "mov r0.y, x1[9].x\nmov r0.z, cb1[vTidInGrp.x+0].y\nmov r0.w, x1[r100.w].y\n" +
                       std::string(s_pszStore),
                   "dcl_indexed_temp_array x1[5]\n", 4, 4);
    for (uint32_t n = 0; n < 4; ++n)
    {
        EXPECT_EQ(run.Out(n, 0), n);
        EXPECT_EQ(run.Out(n, 1), 0u);
        EXPECT_EQ(run.Out(n, 2), 0u);
        EXPECT_EQ(run.Out(n, 3), 1u);
    }
    EXPECT_EQ(run.result.nBadAccesses, 4u);
    EXPECT_EQ(run.result.firstBadAccess.nAddress, 9u);
    const SRun outside("mov x1[r100.x].x, l0.y\nmov r0.x, x1[r100.x].x\n" + std::string(s_pszStore),
                       "dcl_indexed_temp_array x1[2]\n", 4, 4);
    EXPECT_EQ(outside.Out(1), 1u);
    EXPECT_EQ(outside.Out(2), 0u);
    EXPECT_EQ(outside.result.nBadAccesses, 4u);
}

TEST(Memory, LocalReductionWithBarriers)
{
    const std::string strBody =
        "ishl r1.x, vTidInGrp.x, l0.z\nlds_store_id(1) r1.x, r100.x\nfence_threads_lds\nmov r2.x, l5.x\n"
        "whileloop\nbreak_logicalz r2.x\nilt r3.x, vTidInGrp.x, r2.x\nif_logicalnz r3.x\n"
        "ishl r3.y, r2.x, l0.z\niadd r3.y, r3.y, r1.x\nlds_load_id(1) r4.x, r3.y\nlds_load_id(1) r4.y, r1.x\n"
        "iadd r4.x, r4.x, r4.y\nlds_store_id(1) r1.x, r4.x\nendif\nfence_threads_lds\nushr r2.x, r2.x, l0.y\n"
        "endloop\nlds_load_id(1) r0.x, l0.x\n";
    for (const uint32_t nLocal : {8u, 64u, 256u, 1024u})
    {
        const std::string strLocal = std::to_string(nLocal);
        const SRun run(strBody + s_pszStore,
                       "dcl_literal l5, " + std::to_string(nLocal / 2) + ", 0, 0, 0\ndcl_lds_id(1) " +
                           std::to_string(nLocal * 4) + "\n",
                       nLocal * 3, nLocal);
        EXPECT_EQ(run.result.nBadAccesses, 0u);
        EXPECT_EQ(run.result.nUnreachedBarriers, 0u);
        for (uint32_t n = 0; n < nLocal * 3; ++n)
        {
            const uint32_t nFirst = n / nLocal * nLocal;
            ASSERT_EQ(run.Out(n), nLocal * nFirst + nLocal * (nLocal - 1) / 2) << "group of " << nLocal;
        }
    }
}

TEST(Memory, LocalAreasAndArguments)
{
    // Two areas, then 8 dynamic bytes after both, at address 32 + 16.
    CKernelRun run(
        std::string(IndexLines()) +
            "lds_store_id(1) l5.x, r100.x\nlds_store_id(2) l5.x, l0.w\nlds_store_id(2) l5.y, l0.z\nlds_store_id(1) "
            "l5.z, l0.y\n"
            "lds_load_id(1) r0.x, l5.x\nlds_load_id(2) r0.y, l5.x\nlds_load_id(1) r0.z, l5.y\nlds_load_id(2) r0.w, "
            "l5.z\n" +
            s_pszStore,
        std::string(IndexLiterals()) +
            "dcl_literal l0, 0, 1, 2, 3\ndcl_literal l5, 4, 48, 20, 0\ndcl_lds_id(1) 20\ndcl_lds_id(2) 16\n");
    run.SetSize(4, 1);
    run.launch.nDynamicLocalBytes = 8;
    run.vOutput.assign(16, 0);
    const SLaunchResult result = run.Run();
    for (uint32_t n = 0; n < 4; ++n)
    {
        EXPECT_EQ(std::vector<uint32_t>(&run.vOutput[n * 4], &run.vOutput[n * 4] + 4),
                  (std::vector<uint32_t>{n, 3, 2, 0}));
    }
    EXPECT_EQ(result.nBadAccesses, 8u);
}

TEST(Memory, PartOfAGroupAtABarrierIsCounted)
{
    for (const uint32_t nLocal : {4u, 300u})
    {
        const SRun run("if_logicalnz r100.x\nfence_threads\nendif\nmov r0.x, l0.y\n" + std::string(s_pszStore), "",
                       nLocal, nLocal);
        EXPECT_EQ(run.result.eStatus, SLaunchResult::Complete);
        EXPECT_EQ(run.result.nUnreachedBarriers, 1u);
        EXPECT_EQ(run.Out(nLocal - 1), 1u);
    }
}

struct SAtomicCase
{
    const char* pszName;   ///< after uav_read_ or lds_read_
    const char* pszSource; ///< sources after the address
    uint32_t nStart;
    uint32_t nEnd; ///< after one application with a = 5, b = 9
};

const SAtomicCase s_AtomicCases[] = {
    {"add", "l5.x", 7, 12},
    {"sub", "l5.x", 7, 2},
    {"rsub", "l5.x", 7, 0xFFFFFFFE},
    {"min", "l5.x", 0xFFFFFFFF, 0xFFFFFFFF},
    {"max", "l5.x", 0xFFFFFFFF, 5},
    {"umin", "l5.x", 0xFFFFFFFF, 5},
    {"umax", "l5.x", 0xFFFFFFFF, 0xFFFFFFFF},
    {"and", "l5.x", 6, 4},
    {"or", "l5.x", 6, 7},
    {"xor", "l5.x", 6, 3},
    {"xchg", "l5.x", 6, 5},
    {"cmp_xchg", "l5.x, l5.y", 5, 9},
    {"cmp_xchg", "l5.x, l5.y", 6, 6},
};

TEST(Memory, AtomicsReturnTheOldValue)
{
    for (const SAtomicCase& test : s_AtomicCases)
    {
        const std::string strRest = std::string(test.pszName);
        const SRun global("uav_raw_store_id(11) mem0.x, r100.y, l5.z\nuav_read_" + strRest + "_id(11) r0.x, r100.y, " +
                              test.pszSource + "\niadd r1.x, r100.y, l5.w\nuav_raw_store_id(11) mem0.x, r1.x, r0.x\n",
                          "dcl_literal l5, 5, 9, " + std::to_string(test.nStart) + ", 4\n", 1, 1);
        EXPECT_EQ(global.Out(0, 0), test.nEnd) << test.pszName;
        EXPECT_EQ(global.Out(0, 1), test.nStart) << test.pszName;
        const SRun local("lds_store_id(1) l5.w, l5.z\nlds_read_" + strRest + "_id(1) r0.y, l5.w, " + test.pszSource +
                             "\nlds_load_id(1) r0.x, l5.w\n" + s_pszStore,
                         "dcl_lds_id(1) 16\ndcl_literal l5, 5, 9, " + std::to_string(test.nStart) + ", 4\n", 1, 1);
        EXPECT_EQ(local.Out(0, 0), test.nEnd) << test.pszName;
        EXPECT_EQ(local.Out(0, 1), test.nStart) << test.pszName;
    }
}

TEST(Memory, AtomicsOfManyGroupsAddUp)
{
    const uint32_t nItems = 20000;
    const SRun run(
        "uav_add_id(11) cb1[0].x, l0.y\nlds_inc_id(1) l0.x, l5.x\nlds_add64_id(1) l5.y, l5.zw\nfence_threads_lds\n"
        "lds_load_id(1) r0.y, l0.x\nlds_load64_id(1) r0.zw, l5.y\niadd r1.x, r100.y, l0.w\niadd r1.x, r1.x, l0.y\n"
        "uav_raw_store_id(11) mem0.xyz, r1.x, r0.yzw\n",
        "dcl_literal l5, -1, 8, -1, 0\ndcl_lds_id(1) 16\n", nItems, 100);
    EXPECT_EQ(run.Out(0), nItems);
    for (uint32_t n = 0; n < nItems; ++n)
    {
        ASSERT_EQ(run.Out(n, 1), 100u);
        ASSERT_EQ(run.Out(n, 2), 0xFFFFFF9Cu);
        ASSERT_EQ(run.Out(n, 3), 99u);
    }
}

TEST(Memory, ConstantBufferZeroHoldsTheDispatch)
{
    CKernelRun run("imad r0.xyz, vThreadGrpId, cb0[1], vTidInGrp\nimad r1.x, r0.z, cb0[0].y, r0.y\nimad r1.x, r1.x, "
                   "cb0[0].x, r0.x\n"
                   "ishl r1.x, r1.x, l0.z\niadd r1.x, r1.x, cb1[0].x\niadd r2.xyz, r0, cb0[6]\niadd r2.x, r2.x, "
                   "r2.y\niadd r2.x, r2.x, r2.z\n"
                   "iadd r2.x, r2.x, cb0[2].z\niadd r2.x, r2.x, cb0[0].w\ninegate r3, cb0[9]\niadd r2.x, r2.x, "
                   "r3.x\nuav_raw_store_id(11) mem0.x, r1.x, r2.x\n",
                   "dcl_literal l0, 0, 1, 2, 3\n");
    const size_t nGlobal[] = {6, 4, 2};
    const size_t nLocal[] = {3, 2, 1};
    for (int n = 0; n < 3; ++n)
    {
        run.launch.nGlobalSize[n] = nGlobal[n];
        run.launch.nLocalSize[n] = nLocal[n];
        run.launch.nGlobalOffset[n] = 100 * (n + 1);
    }
    run.launch.nDimensions = 3;
    run.vOutput.assign(48, 0);
    run.Run();
    for (uint32_t z = 0; z < 2; ++z)
    {
        for (uint32_t y = 0; y < 4; ++y)
        {
            for (uint32_t x = 0; x < 6; ++x)
            {
                ASSERT_EQ(run.vOutput[(z * 4 + y) * 6 + x], x + y + z + 600 + 2 + 3 - 100);
            }
        }
    }
}

TEST(Memory, EndlessKernelsStopAtTheLimit)
{
    CKernelRun run("whileloop\nendloop\n");
    run.SetSize(1000, 10);
    run.launch.nInstructionLimit = 10000;
    EXPECT_EQ(run.Run().eStatus, SLaunchResult::InstructionLimit);
    // 99 passes of three instructions, the last two, and the instructions around the loop: 302 in all.
    CKernelRun finite("whileloop\nige r1.x, r0.x, l0.x\nbreak_logicalnz r1.x\niadd r0.x, r0.x, l0.y\nendloop\n",
                      "dcl_literal l0, 99, 1, 0, 0\n");
    finite.launch.nInstructionLimit = 600;
    EXPECT_EQ(finite.Run().eStatus, SLaunchResult::Complete);
    finite.launch.nInstructionLimit = 300;
    EXPECT_EQ(finite.Run().eStatus, SLaunchResult::InstructionLimit);
}

} // namespace
} // namespace KestrelPlatformTest
