#include "tests/platform/opencl_c/kernels/ExampleKernels.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <unordered_map>

namespace KestrelTest
{
namespace
{

class SortKernels : public CExampleKernels
{
};

TEST_P(SortKernels, ScanOfSeveralBlocksWithARest)
{
    COpenCLProgram& program = Build("scan");
    const cl_uint n = 1000, nLocal = 32, nBlocks = 16;
    const auto vIn = Random<cl_uint>(n, 0, 1000);
    auto in = m_Device.Buffer(vIn);
    auto out = m_Device.Buffer(std::vector<cl_uint>(n));
    auto sums = m_Device.Buffer(std::vector<cl_uint>(nBlocks));
    auto offsets = m_Device.Buffer(std::vector<cl_uint>(nBlocks));
    auto total = m_Device.Buffer(std::vector<cl_uint>(1));
    const SLocalBytes temp{nLocal * 2 * sizeof(cl_uint)};
    program.Run("scan_blocks", {{nLocal * nBlocks}, {nLocal}, {}}, in, out, sums, temp, n);
    program.Run("scan_blocks", {{8}, {8}, {}}, sums, offsets, total, SLocalBytes{16 * sizeof(cl_uint)}, nBlocks);
    program.Run("add_sums", {{nLocal * nBlocks}, {nLocal}, {}}, out, offsets, n);

    std::vector<cl_uint> vWanted(n);
    std::exclusive_scan(vIn.begin(), vIn.end(), vWanted.begin(), 0u);
    EXPECT_EQ(m_Device.Read<cl_uint>(out), vWanted);
    EXPECT_EQ(m_Device.Read<cl_uint>(total)[0], std::accumulate(vIn.begin(), vIn.end(), 0u));
}

TEST_P(SortKernels, RadixSortIsStable)
{
    COpenCLProgram& program = Build("radix_sort");
    const cl_uint n = 700, nLocal = 64, nGroups = 11;
    std::vector<cl_uint> vKeys(n), vValues(n);
    for (cl_uint i = 0; i < n; ++i)
    {
        vKeys[i] = static_cast<cl_uint>(m_Random()) & 0xFFF;
        vValues[i] = i;
    }
    CDeviceBuffer keys = m_Device.Buffer(vKeys), values = m_Device.Buffer(vValues);
    CDeviceBuffer keysOut = m_Device.Buffer(vKeys), valuesOut = m_Device.Buffer(vValues);
    auto counts = m_Device.Buffer(std::vector<cl_uint>(16 * nGroups));
    const COpenCLProgram::SRange range{{nLocal * nGroups}, {nLocal}, {}};
    for (cl_uint nShift = 0; nShift < 12; nShift += 4)
    {
        program.Run("count_digits", range, keys, counts, SLocalBytes{64}, nShift, n);
        program.Run("scan_counts", {{1}, {}, {}}, counts, 16 * nGroups);
        program.Run("scatter", range, keys, values, keysOut, valuesOut, counts, SLocalBytes{nLocal}, nShift, n);
        std::swap(keys, keysOut);
        std::swap(values, valuesOut);
    }
    std::vector<cl_uint> vOrder(n);
    std::iota(vOrder.begin(), vOrder.end(), 0u);
    std::stable_sort(vOrder.begin(), vOrder.end(), [&](cl_uint a, cl_uint b) { return vKeys[a] < vKeys[b]; });
    EXPECT_EQ(m_Device.Read<cl_uint>(values), vOrder);
}

TEST_P(SortKernels, BitonicSortOfStructs)
{
    struct SItem
    {
        cl_float fKey;
        cl_int nIndex;
        bool operator==(const SItem& other) const { return fKey == other.fKey && nIndex == other.nIndex; }
    };
    COpenCLProgram& program = Build("bitonic_sort");
    std::vector<SItem> vItems(256);
    for (size_t i = 0; i < vItems.size(); ++i)
    {
        vItems[i] = {static_cast<cl_float>(m_Random() % 40) - 20.0f, static_cast<cl_int>(i)};
    }
    auto items = m_Device.Buffer(vItems);
    program.Run("bitonic_sort", {{256}, {64}, {}}, items, SLocalBytes{64 * sizeof(SItem)});
    for (size_t i = 0; i < 256; i += 64)
    {
        std::sort(vItems.begin() + i, vItems.begin() + i + 64,
                  [](const SItem& a, const SItem& b)
                  { return std::tie(a.fKey, a.nIndex) < std::tie(b.fKey, b.nIndex); });
    }
    EXPECT_TRUE(m_Device.Read<SItem>(items) == vItems);
}

TEST_P(SortKernels, HistogramOfBytes)
{
    COpenCLProgram& program = Build("histogram");
    const auto vData = Random<cl_uchar>(4 * 1500, 0, 256);
    auto data = m_Device.Buffer(vData);
    auto bins = m_Device.Buffer(std::vector<cl_uint>(256));
    program.Run("histogram", {{256}, {64}, {}}, data, cl_uint{1500}, bins);
    std::vector<cl_uint> vWanted(256);
    for (cl_uchar n : vData)
    {
        ++vWanted[n];
    }
    EXPECT_EQ(m_Device.Read<cl_uint>(bins), vWanted);
}

TEST_P(SortKernels, ReductionOfVectorsByComponents)
{
    COpenCLProgram& program = Build("reduction");
    const auto vIn = Random<cl_int>(3000, -1e6, 1e6);
    auto in = m_Device.Buffer(vIn);
    auto result = m_Device.Buffer(std::vector<cl_int>{0, CL_INT_MAX, CL_INT_MIN, 0});
    program.Run("reduce", {{512}, {128}, {}}, in, cl_uint{3000}, SLocalBytes{128 * 16}, result);
    cl_int nBits = 0;
    for (cl_int n : vIn)
    {
        nBits += __builtin_popcount(static_cast<unsigned>(n));
    }
    const auto [itLow, itHigh] = std::minmax_element(vIn.begin(), vIn.end());
    EXPECT_EQ(m_Device.Read<cl_int>(result),
              (std::vector<cl_int>{std::accumulate(vIn.begin(), vIn.end(), 0), *itLow, *itHigh, nBits}));
}

TEST_P(SortKernels, HashTableFilledByAllAtOnce)
{
    COpenCLProgram& program = Build("hash_table");
    const cl_uint nMask = 255;
    auto vIn = Random<cl_uint>(512, 0, 150);
    auto vWantedKeys = Random<cl_uint>(64, 0, 300);
    auto keys = m_Device.Buffer(std::vector<cl_uint>(nMask + 1, 0xFFFFFFFFu));
    auto counts = m_Device.Buffer(std::vector<cl_uint>(nMask + 1));
    auto in = m_Device.Buffer(vIn);
    auto wanted = m_Device.Buffer(vWantedKeys);
    auto result = m_Device.Buffer(std::vector<cl_uint>(64));
    program.Run("insert", {{512}, {64}, {}}, keys, counts, nMask, in);
    program.Run("lookup", {{64}, {}, {}}, keys, counts, nMask, wanted, result);
    std::map<cl_uint, cl_uint> counted;
    for (cl_uint n : vIn)
    {
        ++counted[n];
    }
    std::vector<cl_uint> vWanted;
    for (cl_uint n : vWantedKeys)
    {
        vWanted.push_back(counted.count(n) ? counted[n] : 0);
    }
    EXPECT_EQ(m_Device.Read<cl_uint>(result), vWanted);
}

TEST_P(SortKernels, BreadthFirstSearchByLevels)
{
    struct SNode
    {
        cl_int nFirst;
        cl_int nCount;
    };
    COpenCLProgram& program = Build("bfs");
    const int nNodes = 200;
    std::vector<SNode> vNodes(nNodes);
    std::vector<cl_int> vEdges;
    for (SNode& node : vNodes)
    {
        node = {static_cast<cl_int>(vEdges.size()), static_cast<cl_int>(m_Random() % 4)};
        for (int e = 0; e < node.nCount; ++e)
        {
            vEdges.push_back(static_cast<cl_int>(m_Random() % nNodes));
        }
    }
    std::vector<cl_int> vLevels(nNodes, -1);
    vLevels[0] = 0;
    auto nodes = m_Device.Buffer(vNodes);
    auto edges = m_Device.Buffer(vEdges);
    auto levels = m_Device.Buffer(vLevels);
    std::vector<cl_int> vFrontier(nNodes);
    CDeviceBuffer frontier = m_Device.Buffer(vFrontier), next = m_Device.Buffer(vFrontier);
    cl_int nSize = 1;
    for (cl_int nLevel = 0; nSize > 0; ++nLevel)
    {
        auto nextSize = m_Device.Buffer(std::vector<cl_int>{0});
        program.Run("bfs_level", {{static_cast<size_t>(nSize + 31) / 32 * 32}, {32}, {}}, nodes, edges, levels,
                    frontier, nSize, next, nextSize, nLevel);
        nSize = m_Device.Read<cl_int>(nextSize)[0];
        std::swap(frontier, next);
    }
    std::vector<int> vQueue = {0};
    for (size_t n = 0; n < vQueue.size(); ++n)
    {
        const SNode& node = vNodes[vQueue[n]];
        for (int e = node.nFirst; e < node.nFirst + node.nCount; ++e)
        {
            if (vLevels[vEdges[e]] < 0)
            {
                vLevels[vEdges[e]] = vLevels[vQueue[n]] + 1;
                vQueue.push_back(vEdges[e]);
            }
        }
    }
    EXPECT_EQ(m_Device.Read<cl_int>(levels), vLevels);
}

TEST_P(SortKernels, ShortestWaysBetweenAllPairs)
{
    COpenCLProgram& program = Build("floyd_warshall");
    const cl_uint n = 24;
    std::vector<cl_uint> vDistance(n * n, CL_UINT_MAX);
    for (cl_uint i = 0; i < n * 4; ++i)
    {
        vDistance[m_Random() % (n * n)] = static_cast<cl_uint>(m_Random() % 100 + 1);
    }
    for (cl_uint i = 0; i < n; ++i)
    {
        vDistance[i * n + i] = 0;
    }
    auto distance = m_Device.Buffer(vDistance);
    auto via = m_Device.Buffer(std::vector<cl_uint>(n * n, n));
    for (cl_uint k = 0; k < n; ++k)
    {
        program.Run("floyd_warshall", {{n, n}, {}, {}}, distance, via, n, k);
    }
    for (bool bChanged = true; bChanged;)
    {
        bChanged = false;
        for (cl_uint i = 0; i < n * n * n; ++i)
        {
            const cl_uint a = i / n / n, b = i / n % n, c = i % n;
            const cl_ulong nWay = cl_ulong{vDistance[a * n + b]} + vDistance[b * n + c];
            if (nWay < vDistance[a * n + c])
            {
                vDistance[a * n + c] = static_cast<cl_uint>(nWay);
                bChanged = true;
            }
        }
    }
    EXPECT_EQ(m_Device.Read<cl_uint>(distance), vDistance);
}

TEST_P(SortKernels, CheapestWayDownAGrid)
{
    COpenCLProgram& program = Build("pathfinder");
    const cl_int nColumns = 100, nRows = 12, nPerLaunch = 4;
    const auto vWall = Random<cl_int>(nColumns * nRows, 0, 10);
    std::vector<cl_int> vCost(vWall.begin(), vWall.begin() + nColumns);
    auto wall = m_Device.Buffer(vWall);
    CDeviceBuffer from = m_Device.Buffer(vCost), to = m_Device.Buffer(vCost);
    const size_t nBlock = 32, nGroups = (nColumns + nBlock - 2 * nPerLaunch - 1) / (nBlock - 2 * nPerLaunch);
    for (cl_int nRow = 1; nRow < nRows; nRow += nPerLaunch)
    {
        const cl_int nNow = std::min(nPerLaunch, nRows - nRow);
        const size_t nSmall = nBlock - 2 * nNow;
        program.Run("pathfinder", {{std::max(nGroups, (nColumns + nSmall - 1) / nSmall) * nBlock}, {nBlock}, {}}, wall,
                    from, to, nColumns, nRow, nNow, cl_int{1}, SLocalBytes{nBlock * 4}, SLocalBytes{nBlock * 4});
        std::swap(from, to);
    }
    for (cl_int nRow = 1; nRow < nRows; ++nRow)
    {
        const std::vector<cl_int> vBefore = vCost;
        for (cl_int x = 0; x < nColumns; ++x)
        {
            const auto itFirst = vBefore.begin() + std::max(0, x - 1);
            vCost[x] =
                *std::min_element(itFirst, vBefore.begin() + std::min(nColumns, x + 2)) + vWall[nRow * nColumns + x];
        }
    }
    EXPECT_EQ(m_Device.Read<cl_int>(from), vCost);
}

KESTREL_ON_ALL_DEVICES(SortKernels);

} // namespace
} // namespace KestrelTest
