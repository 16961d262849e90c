#include "tests/platform/opencl_c/kernels/ExampleKernels.h"

#include <algorithm>

namespace KestrelTest
{
namespace
{

class TextKernels : public CExampleKernels
{
protected:
    std::vector<cl_char> RandomText(size_t nLength, int nLetters)
    {
        std::vector<cl_char> vText(nLength);
        for (cl_char& c : vText)
        {
            c = static_cast<cl_char>('a' + m_Random() % nLetters);
        }
        return vText;
    }
};

TEST_P(TextKernels, Sha256OfPublishedMessages)
{
    // The examples of FIPS 180-2, and what coreutils' sha256sum gives for nothing.
    struct
    {
        const char* pszMessage;
        cl_uint digest[8];
    } const rows[] = {
        {"abc", {0xba7816bf, 0x8f01cfea, 0x414140de, 0x5dae2223, 0xb00361a3, 0x96177a9c, 0xb410ff61, 0xf20015ad}},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         {0x248d6a61, 0xd20638b8, 0xe5c02693, 0x0c3e6039, 0xa33ce459, 0x64ff2167, 0xf6ecedd4, 0x19db06c1}},
        {"", {0xe3b0c442, 0x98fc1c14, 0x9afbf4c8, 0x996fb924, 0x27ae41e4, 0x649b934c, 0xa495991b, 0x7852b855}},
    };
    const cl_uint nStride = 64;
    std::vector<cl_uchar> vMessages(nStride * 3);
    std::vector<cl_uint> vLengths, vWanted;
    for (const auto& row : rows)
    {
        std::copy_n(row.pszMessage, std::strlen(row.pszMessage), vMessages.begin() + nStride * vLengths.size());
        vLengths.push_back(static_cast<cl_uint>(std::strlen(row.pszMessage)));
        vWanted.insert(vWanted.end(), row.digest, row.digest + 8);
    }
    COpenCLProgram& program = Build("sha256");
    auto messages = m_Device.Buffer(vMessages);
    auto lengths = m_Device.Buffer(vLengths);
    auto digests = m_Device.Buffer(std::vector<cl_uint>(24));
    program.Run("sha256", {{3}, {}, {}}, messages, lengths, nStride, digests);
    EXPECT_EQ(m_Device.Read<cl_uint>(digests), vWanted);
}

TEST_P(TextKernels, Aes128OfThePublishedBlocks)
{
    // FIPS 197, appendices B and C.1.
    struct SRow
    {
        std::vector<cl_uchar> vKey, vPlain, vCipher;
    };
    const SRow rows[] = {
        {{0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6, 0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c},
         {0x32, 0x43, 0xf6, 0xa8, 0x88, 0x5a, 0x30, 0x8d, 0x31, 0x31, 0x98, 0xa2, 0xe0, 0x37, 0x07, 0x34},
         {0x39, 0x25, 0x84, 0x1d, 0x02, 0xdc, 0x09, 0xfb, 0xdc, 0x11, 0x85, 0x97, 0x19, 0x6a, 0x0b, 0x32}},
        {{0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f},
         {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff},
         {0x69, 0xc4, 0xe0, 0xd8, 0x6a, 0x7b, 0x04, 0x30, 0xd8, 0xcd, 0xb7, 0x80, 0x70, 0xb4, 0xc5, 0x5a}}};
    COpenCLProgram& program = Build("aes128");
    for (const SRow& row : rows)
    {
        auto plain = m_Device.Buffer(row.vPlain);
        auto cipher = m_Device.Buffer(std::vector<cl_uchar>(16));
        auto key = m_Device.Buffer(row.vKey);
        program.Run("aes128_encrypt", {{1}, {}, {}}, plain, cipher, key);
        EXPECT_EQ(m_Device.Read<cl_uchar>(cipher), row.vCipher);
    }
}

TEST_P(TextKernels, CrcOfPacketsInPackedStructs)
{
    const std::string strData = "123456789The quick brown fox jumps over the lazy dog";
    // kind, offset and length of each packet, seven bytes with no padding.
    const std::vector<cl_uchar> vPackets = {1, 0, 0, 0, 0, 9, 0, 1, 9, 0, 0, 0, 43, 0, 0, 0, 0, 0, 0, 5, 0};
    COpenCLProgram& program = Build("crc32");
    auto data = m_Device.Buffer(std::vector<char>(strData.begin(), strData.end()));
    auto packets = m_Device.Buffer(vPackets);
    auto sums = m_Device.Buffer(std::vector<cl_uint>(3, 7));
    program.Run("crc32", {{3}, {}, {}}, data, packets, sums);
    EXPECT_EQ(m_Device.Read<cl_uint>(sums), (std::vector<cl_uint>{0xCBF43926, 0x414FA339, 0}));
}

TEST_P(TextKernels, MersenneTwisterOfTheStandardLibrary)
{
    const std::vector<cl_uint> vSeeds = {5489, 1, 0xFFFFFFFFu};
    const cl_int nCount = 700;
    COpenCLProgram& program = Build("mersenne_twister");
    auto seeds = m_Device.Buffer(vSeeds);
    auto out = m_Device.Buffer(std::vector<cl_uint>(3 * nCount));
    program.Run("mersenne_twister", {{3}, {}, {}}, seeds, out, nCount);
    std::vector<cl_uint> vWanted;
    for (cl_uint nSeed : vSeeds)
    {
        std::mt19937 engine(nSeed);
        for (cl_int n = 0; n < nCount; ++n)
        {
            vWanted.push_back(static_cast<cl_uint>(engine()));
        }
    }
    EXPECT_EQ(m_Device.Read<cl_uint>(out), vWanted);
}

TEST_P(TextKernels, SearchFindsOverlappingPlaces)
{
    auto vText = RandomText(2000, 2);
    const std::string strPattern = "abaab";
    COpenCLProgram& program = Build("string_search");
    auto text = m_Device.Buffer(vText);
    auto pattern = m_Device.Buffer(std::vector<char>(strPattern.begin(), strPattern.end()));
    auto positions = m_Device.Buffer(std::vector<cl_uint>(500));
    auto found = m_Device.Buffer(std::vector<cl_uint>(1));
    program.Run("string_search", {{64}, {32}, {}}, text, cl_uint{2000}, pattern, cl_uint{5}, positions, found,
                cl_uint{500});
    std::vector<cl_uint> vWanted;
    for (cl_uint n = 0; n + 5 <= vText.size(); ++n)
    {
        if (std::equal(strPattern.begin(), strPattern.end(), vText.begin() + n))
        {
            vWanted.push_back(n);
        }
    }
    auto vGot = m_Device.Read<cl_uint>(positions);
    vGot.resize(m_Device.Read<cl_uint>(found)[0]);
    std::sort(vGot.begin(), vGot.end());
    EXPECT_EQ(vGot, vWanted);
}

TEST_P(TextKernels, LevenshteinDistances)
{
    const std::string strWords = "kittensittingsundaysaturdaya", strWanted = "sitting";
    const std::vector<cl_int> vStarts = {0, 6, 13, 19, 27, 28, 28};
    COpenCLProgram& program = Build("levenshtein");
    auto words = m_Device.Buffer(std::vector<char>(strWords.begin(), strWords.end()));
    auto starts = m_Device.Buffer(vStarts);
    auto wanted = m_Device.Buffer(std::vector<char>(strWanted.begin(), strWanted.end()));
    auto distances = m_Device.Buffer(std::vector<cl_int>(6));
    program.Run("levenshtein", {{6}, {}, {}}, words, starts, wanted, cl_int{7}, distances);
    // By hand: kitten, sitting itself, sunday, saturday, a, nothing.
    EXPECT_EQ(m_Device.Read<cl_int>(distances), (std::vector<cl_int>{3, 0, 6, 6, 7, 7}));
}

TEST_P(TextKernels, AlignmentAlongDiagonals)
{
    const int n = 37, m = 29;
    const auto vA = RandomText(n, 4), vB = RandomText(m, 4);
    COpenCLProgram& program = Build("needleman_wunsch");
    auto a = m_Device.Buffer(vA);
    auto b = m_Device.Buffer(vB);
    auto table = m_Device.Buffer(std::vector<cl_int>((n + 1) * (m + 1)));
    program.Run("needleman_wunsch", {{16}, {16}, {}}, a, b, cl_int{n}, cl_int{m}, table);
    std::vector<cl_int> vWanted((n + 1) * (m + 1));
    for (int i = 0; i <= n; ++i)
    {
        for (int j = 0; j <= m; ++j)
        {
            cl_int& nHere = vWanted[i * (m + 1) + j];
            nHere = i == 0 ? -j : -i;
            if (i > 0 && j > 0)
            {
                const int nMatch = vWanted[(i - 1) * (m + 1) + j - 1] + (vA[i - 1] == vB[j - 1] ? 2 : -1);
                nHere = std::max({nMatch, vWanted[(i - 1) * (m + 1) + j] - 1, vWanted[i * (m + 1) + j - 1] - 1});
            }
        }
    }
    EXPECT_EQ(m_Device.Read<cl_int>(table), vWanted);
}

TEST_P(TextKernels, QueensOnBoardsOfKnownCounts)
{
    COpenCLProgram& program = Build("nqueens");
    const std::pair<cl_int, cl_uint> boards[] = {{4, 2}, {6, 4}, {7, 40}, {8, 92}};
    for (const auto& [n, nWanted] : boards)
    {
        auto counts = m_Device.Buffer(std::vector<cl_uint>(n * n));
        program.Run("nqueens", {{static_cast<size_t>(n * n)}, {}, {}}, counts, n);
        cl_uint nSum = 0;
        for (cl_uint nCount : m_Device.Read<cl_uint>(counts))
        {
            nSum += nCount;
        }
        EXPECT_EQ(nSum, nWanted) << n;
    }
}

TEST_P(TextKernels, CollatzSequencesIn64Bits)
{
    COpenCLProgram& program = Build("collatz");
    for (cl_ulong nFirst : {cl_ulong{1}, cl_ulong{0xFFFFFFFF0}, CL_ULONG_MAX - 70})
    {
        auto steps = m_Device.Buffer(std::vector<cl_uint>(64));
        auto peaks = m_Device.Buffer(std::vector<cl_ulong>(64));
        program.Run("collatz", {{64}, {}, {}}, steps, peaks, nFirst);
        const auto vSteps = m_Device.Read<cl_uint>(steps);
        const auto vPeaks = m_Device.Read<cl_ulong>(peaks);
        for (int i = 0; i < 64; ++i)
        {
            unsigned __int128 n = nFirst + i;
            cl_ulong nPeak = nFirst + i;
            cl_uint nSteps = 0;
            for (; n > 1 && nSteps != CL_UINT_MAX; ++nSteps)
            {
                n = n & 1 ? 3 * n + 1 : n / 2;
                if (n > CL_ULONG_MAX)
                {
                    nSteps = CL_UINT_MAX - 1;
                    continue;
                }
                nPeak = std::max(nPeak, static_cast<cl_ulong>(n));
            }
            ASSERT_EQ(vSteps[i], nSteps) << nFirst + i;
            ASSERT_EQ(vPeaks[i], nPeak) << nFirst + i;
        }
    }
}

TEST_P(TextKernels, PiByPointsOfA64BitGenerator)
{
    COpenCLProgram& program = Build("monte_carlo_pi");
    const cl_uint nThrows = 200;
    const cl_ulong nSeed = 42;
    auto inside = m_Device.Buffer(std::vector<cl_uint>(64));
    program.Run("monte_carlo_pi", {{64}, {}, {}}, inside, nThrows, nSeed);
    std::vector<cl_uint> vWanted;
    for (cl_ulong i = 0; i < 64; ++i)
    {
        cl_ulong nState = nSeed + i * 0x9E3779B97F4A7C15ull;
        const auto Next = [&nState]
        {
            nState = nState * 6364136223846793005ull + 1442695040888963407ull;
            return (nState >> 32) >> 1;
        };
        cl_uint nInside = 0;
        for (cl_uint n = 0; n < nThrows; ++n)
        {
            const cl_ulong x = Next(), y = Next();
            nInside += x * x + y * y < (1ull << 62);
        }
        vWanted.push_back(nInside);
    }
    EXPECT_EQ(m_Device.Read<cl_uint>(inside), vWanted);
}

KESTREL_ON_ALL_DEVICES(TextKernels);

} // namespace
} // namespace KestrelTest
