#include "tests/platform/simt/RecordedLaunch.h"

#include <cstring>

namespace KestrelPlatformTest
{
namespace
{

const uint32_t s_nScaledItems = 300;
const uint32_t s_nWords = 400;
/// Adding offsets to it carries into the upper word in the middle of the memory.
const uint64_t s_nBase = 0x5FFFFFF00ull;
const uint64_t s_nIndices = 0x1000;
const uint64_t s_nResults = 0x100000;

struct SIndices
{
    const char* pszName;
    uint32_t (*pfIndex)(uint32_t nItem);
};

const SIndices s_IndexKinds[] = {
    {"one after the other", [](uint32_t n) { return n; }},
    {"one for all", [](uint32_t) { return 3u; }},
    {"rows of sixteen", [](uint32_t n) { return n / 16 * 20 + n % 16; }},
    {"scattered", [](uint32_t n) { return n * 37 % 101; }},
    {"backwards", [](uint32_t n) { return s_nScaledItems - n; }},
    {"past the end", [](uint32_t n) { return n + 260; }},
    {"one of them outside", [](uint32_t n) { return n == 77 ? 0x40000000u : n; }},
    {"negative", [](uint32_t n) { return n - 5; }},
    {"the largest", [](uint32_t n) { return n % 2 ? 0xFFFFFFFFu : 0x7FFFFFFFu; }},
};

/// Lines that use r1.x as the index and r2.x as the work-item's number, and may leave a result in r3.x.
struct SOperation
{
    const char* pszName;
    const char* pszLines;
    uint32_t nScale;
    uint32_t nBytes;
    bool bWrites;
    /// Their effect on the memory at a valid address. \return the expected r3.x
    uint32_t (*pfDo)(unsigned char* pData, uint32_t nItem);
};

uint32_t WordAt(const unsigned char* pData)
{
    uint32_t n = 0;
    std::memcpy(&n, pData, sizeof n);
    return n;
}

uint32_t Put(unsigned char* pData, uint32_t nWord)
{
    std::memcpy(pData, &nWord, sizeof nWord);
    return 0;
}

const SOperation s_Operations[] = {
    {"word over its index", "MAD r1.xy, r1.x, SCALE, cb1[2].xyxy\nuav_raw_load_id(11)_addr64 r3.x, r1.xy\n", 4, 4,
     false, [](unsigned char* p, uint32_t) { return WordAt(p); }},
    {"two words over their address",
     "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nuav_raw_load_id(11)_addr64 r1.zw, r1.zw\niadd r3.x, r1.z, r1.w\n", 8, 8,
     false, [](unsigned char* p, uint32_t) { return WordAt(p) + WordAt(p + 4); }},
    {"word of an element of twelve bytes",
     "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nuav_raw_load_id(11)_addr64 r3.x, r1.zw\n", 12, 4, false,
     [](unsigned char* p, uint32_t) { return WordAt(p); }},
    {"byte", "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nuav_byte_load_id(11)_addr64 r3.x, r1.zw\n", 1, 1, false,
     [](unsigned char* p, uint32_t) { return static_cast<uint32_t>(static_cast<int8_t>(*p)); }},
    {"half of a word, over its index",
     "MAD r1.xy, r1.x, SCALE, cb1[2].xyxy\nuav_short_load_id(11)_addr64 r3.x, r1.xy\n", 2, 2, false,
     [](unsigned char* p, uint32_t) { return static_cast<uint32_t>(static_cast<int16_t>(p[0] | p[1] << 8)); }},
    {"half of a word without a sign",
     "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nuav_ushort_load_id(11)_addr64 r3.x, r1.zw\n", 2, 2, false,
     [](unsigned char* p, uint32_t) { return static_cast<uint32_t>(p[0] | p[1] << 8); }},
    {"store of a byte", "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nuav_byte_store_id(11)_addr64 mem0, r1.zw, r2.x\n", 1, 1,
     true,
     [](unsigned char* p, uint32_t n)
     {
         *p = static_cast<unsigned char>(n);
         return 0u;
     }},
    {"address that is read besides",
     "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nuav_raw_load_id(11)_addr64 r3.x, r1.zw\niadd r3.x, r3.x, r1.z\n"
     "isub r3.x, r3.x, r1.z\n",
     4, 4, false, [](unsigned char* p, uint32_t) { return WordAt(p); }},
    {"index that changes before",
     "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nmov r1.x, r2.x\nuav_raw_load_id(11)_addr64 r3.x, r1.zw\n", 4, 4, false,
     [](unsigned char* p, uint32_t) { return WordAt(p); }},
    {"address after a branch",
     "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nif_logicalz cb1[7].x\nuav_raw_load_id(11)_addr64 r3.x, r1.zw\nendif\n", 4, 4,
     false, [](unsigned char* p, uint32_t) { return WordAt(p); }},
    {"store", "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nuav_raw_store_id(11)_addr64 mem0.x, r1.zw, r2.x\n", 4, 4, true,
     [](unsigned char* p, uint32_t n) { return Put(p, n); }},
    {"sum", "MAD r1.zw, r1.x, SCALE, cb1[2].xyxy\nuav_add_id(11)_addr64 r1.zw, r2.x\n", 4, 4, true,
     [](unsigned char* p, uint32_t n) { return Put(p, WordAt(p) + n); }},
};

std::string Replaced(std::string strText, const std::string& strFrom, const std::string& strTo)
{
    for (size_t n = strText.find(strFrom); n != std::string::npos; n = strText.find(strFrom, n + strTo.size()))
    {
        strText.replace(n, strFrom.size(), strTo);
    }
    return strText;
}

struct SCase
{
    const SOperation& operation;
    const SIndices& indices;
    bool bSigned;
    bool bMasked;
};

bool IsActive(const SCase& testCase, uint32_t nItem)
{
    return !testCase.bMasked || nItem % 3 != 1;
}

CKernelRun MakeRun(const SCase& testCase)
{
    std::string strLines =
        Replaced(testCase.operation.pszLines, "MAD", testCase.bSigned ? "vmad_i64_i32" : "vmad_u64_u32");
    strLines = Replaced(strLines, "SCALE", "l1.x");
    CKernelRun run(
        "mov r2.x, vAbsTidFlat.x\nishl r2.y, r2.x, l0.z\niadd r2.z, r2.y, cb1[0].x\nuav_raw_load_id(11) r1.x, r2.z\n"
        "mov r3.x, l0.x\numod r2.w, r2.x, l0.w\nieq r2.w, r2.w, l0.y\n" +
            (testCase.bMasked ? "if_logicalz r2.w\n" + strLines + "endif\n" : strLines) +
            "iadd r2.z, r2.y, cb1[1].x\nuav_raw_store_id(11) mem0.x, r2.z, r3.x\n",
        "dcl_literal l0, 0, 1, 2, 3\ndcl_literal l1, " + std::to_string(testCase.operation.nScale) + ", 0, 0, 0\n");
    run.SetSize(s_nScaledItems, s_nScaledItems);
    return run;
}

void Check(const SCase& testCase)
{
    const SOperation& operation = testCase.operation;
    SCOPED_TRACE(std::string(operation.pszName) + ", " + testCase.indices.pszName +
                 (testCase.bSigned ? ", signed" : ", unsigned") + (testCase.bMasked ? ", some" : ", all"));
    CKernelRun run = MakeRun(testCase);
    std::vector<uint32_t> vIndices(s_nScaledItems), vResults(s_nScaledItems, 0xAAAAAAAA), vMemory(s_nWords);
    for (uint32_t n = 0; n < s_nWords; ++n)
    {
        vMemory[n] = n * 0x01030507u;
    }
    std::vector<uint32_t> vWanted(s_nScaledItems, 0), vWantedMemory = vMemory;
    std::vector<std::pair<uint64_t, uint64_t>> vBad;
    for (uint32_t n = 0; n < s_nScaledItems; ++n)
    {
        vIndices[n] = testCase.indices.pfIndex(n);
        const int64_t nIndex = testCase.bSigned ? static_cast<int32_t>(vIndices[n]) : static_cast<int64_t>(vIndices[n]);
        const int64_t nOffset = nIndex * operation.nScale;
        if (!IsActive(testCase, n))
        {
            continue;
        }
        if (nOffset >= 0 && nOffset + operation.nBytes <= s_nWords * 4)
        {
            vWanted[n] = operation.pfDo(reinterpret_cast<unsigned char*>(vWantedMemory.data()) + nOffset, n);
        }
        else
        {
            // Of several words, the first one outside is reported.
            const bool bFirstIn = nOffset >= 0 && nOffset + 4 <= s_nWords * 4;
            vBad.emplace_back(n, s_nBase + static_cast<uint64_t>(nOffset) + (bFirstIn ? 4 : 0));
        }
    }
    const auto range = [](uint64_t nAddress, std::vector<uint32_t>& vWords)
    {
        return KestrelPlatform::SMemoryRange{nAddress, vWords.size() * 4,
                                             reinterpret_cast<unsigned char*>(vWords.data()), false};
    };
    run.launch.vMemory = {range(s_nIndices, vIndices), range(s_nResults, vResults), range(s_nBase, vMemory)};
    run.launch.vConstantBuffer1.assign(32, 0);
    run.launch.vConstantBuffer1[0] = s_nIndices;
    run.launch.vConstantBuffer1[4] = s_nResults;
    run.launch.vConstantBuffer1[8] = static_cast<uint32_t>(s_nBase);
    run.launch.vConstantBuffer1[9] = static_cast<uint32_t>(s_nBase >> 32);
    const KestrelPlatform::SLaunchResult result = RunLaunch(run.launch);
    EXPECT_EQ(vResults, vWanted);
    EXPECT_EQ(vMemory, vWantedMemory);
    ASSERT_EQ(result.nBadAccesses, vBad.size());
    for (size_t n = 0; n < vBad.size() && n < result.vFaults.size(); ++n)
    {
        ASSERT_EQ(result.vFaults[n].access.nWorkItem, vBad[n].first);
        ASSERT_EQ(result.vFaults[n].access.nAddress, vBad[n].second);
        ASSERT_EQ(result.vFaults[n].access.bWrite, operation.bWrites);
    }
}

TEST(ScaledAddresses, GiveWhatWholeAddressesGive)
{
    for (const SOperation& operation : s_Operations)
    {
        for (const SIndices& indices : s_IndexKinds)
        {
            for (const int nKind : {0, 1, 2, 3})
            {
                Check({operation, indices, (nKind & 1) != 0, (nKind & 2) != 0});
            }
        }
    }
}

} // namespace
} // namespace KestrelPlatformTest
