#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>
#include <tuple>

#include "platform/simt/Block.h"
#include "platform/simt/checks/Findings.h"
#include "platform/simt/checks/GroupRows.h"
#include "platform/simt/checks/IntervalRows.h"
#include "tests/platform/simt/RecordedLaunch.h"

/// Accesses processed row by row must give the same races as work-item by work-item.
namespace KestrelPlatformTest
{
namespace
{

using namespace KestrelPlatform;

/// A row in one of a few forms, among few words so that rows overlap.
struct SRandomRow
{
    SRaceRow row;
    std::vector<uint64_t> vAddresses; ///< by work-item; in a row that is no plane they increase
    std::vector<unsigned char> vValues;
};

void Bound(SRandomRow& made)
{
    const auto [itLow, itHigh] = std::minmax_element(made.vAddresses.begin(), made.vAddresses.end());
    made.row.nLow = *itLow;
    made.row.nEnd = *itHigh + made.row.nBytes;
}

SRandomRow MakeRow(std::mt19937& random)
{
    SRandomRow made;
    SRaceRow& row = made.row;
    row.eKind = static_cast<ERaceKind>(random() % 3);
    row.nBytes = 1u << random() % 4;
    row.nCount = 1 + random() % 32;
    row.nItem = static_cast<uint16_t>(random() % 3 * 32);
    row.nNumber = static_cast<uint16_t>(random() % 4);
    row.bPlane = random() % 3 != 0;
    row.nCount = random() % 3 == 0 ? 32 : row.nCount;
    const int64_t steps[] = {row.nBytes, row.nBytes, -int64_t{row.nBytes}, 16, 64, 0};
    row.plane.nFirst = 1024 + random() % 8 * 128 + (random() % 2 ? row.nItem * 8 : 0);
    do
    { // of rows in pieces, those of which work-items write the same word can't be
        row.plane.nStep = steps[random() % 6];
        row.plane.nShift = row.nCount == 32 && random() % 2 ? 3 + random() % 2 : SAddressPlane::s_nEvenShift;
        const int64_t pieceSteps[] = {0, row.nBytes, 64, 128, -256};
        row.plane.nPieceStep = row.plane.IsEven() ? 0 : pieceSteps[random() % 5];
    } while (row.bPlane && row.eKind == RACE_WRITE && !row.plane.IsApart(row.nCount, row.nBytes));
    for (uint32_t n = 0; n < row.nCount; ++n)
    {
        const uint64_t nUneven = (n == 0 ? row.plane.nFirst : made.vAddresses.back()) + row.nBytes * (1 + random() % 2);
        made.vAddresses.push_back(row.bPlane ? row.plane.At(n) : nUneven);
        const unsigned char value[8] = {static_cast<unsigned char>(random() % 2)};
        made.vValues.insert(made.vValues.end(), value, value + row.nBytes);
    }
    Bound(made);
    return made;
}

SRandomRow Moved(SRandomRow made, int64_t nBytes)
{
    for (uint64_t& nAddress : made.vAddresses)
    {
        nAddress += static_cast<uint64_t>(nBytes);
    }
    made.row.plane.nFirst += static_cast<uint64_t>(nBytes);
    Bound(made);
    return made;
}

/// A loop's next pass: mostly the place after, else one that overlaps it or leaves a gap, or pieces further apart.
SRandomRow GoneOn(SRandomRow made, std::mt19937& random)
{
    const int64_t nBytes = made.row.nBytes;
    const int64_t steps[] = {nBytes, nBytes, nBytes, nBytes, nBytes, nBytes, 2 * nBytes, 3 * nBytes};
    made = Moved(std::move(made), steps[random() % std::size(steps)]);
    SRaceRow& row = made.row;
    if (row.bPlane && row.eKind != RACE_WRITE && !row.plane.IsEven() && random() % 4 == 0)
    {
        row.plane.nPieceStep += 128;
        for (uint32_t n = 0; n < row.nCount; ++n)
        {
            made.vAddresses[n] = row.plane.At(n);
        }
        Bound(made);
    }
    return made;
}

SRaceAccess AccessOf(const SRandomRow& made, uint32_t nLane, uint64_t nGroup)
{
    SRaceAccess access;
    access.nAddress = made.vAddresses[nLane];
    access.nBytes = made.row.nBytes;
    access.eKind = made.row.eKind;
    access.nItem = static_cast<uint16_t>(made.row.nItem + nLane);
    access.nNumber = made.row.nNumber;
    access.nGroup = nGroup;
    std::memcpy(access.bytes, &made.vValues[size_t{nLane} * made.row.nBytes], made.row.nBytes);
    return access;
}

void TouchWords(CIntervalRaces& words, const SRandomRow& made, uint32_t nInterval, std::vector<SIntervalRace>& vRaces)
{
    for (uint32_t n = 0; n < made.row.nCount; ++n)
    {
        words.Touch(AccessOf(made, n, 0), made.row.nSpace, nInterval, vRaces);
    }
}

TEST(RaceRows, WithinAGroupGiveWhatWorkItemsGive)
{
    size_t nKept = 0;
    size_t nAll = 0;
    for (uint32_t nSeed = 0; nSeed < 100; ++nSeed)
    {
        std::mt19937 random(nSeed);
        CIntervalRaces plain;
        CIntervalRaces words;
        CIntervalRows rows;
        plain.Begin();
        words.Begin();
        rows.Begin();
        uint32_t nInterval = 0;
        SRandomRow made;
        for (uint32_t n = 0; n < 100; ++n)
        {
            nInterval += random() % 6 == 0;
            made = n > 0 && random() % 3 != 0 ? GoneOn(made, random) : MakeRow(random);
            std::vector<SIntervalRace> vExpected;
            std::vector<SIntervalRace> vRaces;
            TouchWords(plain, made, nInterval, vExpected);
            const bool bKept = rows.Add(made.row, nInterval, made.vValues.data(), made.vAddresses.data());
            if (!bKept)
            {
                rows.GoToWords(words, nInterval);
                TouchWords(words, made, nInterval, vRaces);
            }
            nKept += bKept;
            ++nAll;
            const auto describe = [](const std::vector<SIntervalRace>& vAny)
            {
                std::vector<std::tuple<uint32_t, uint32_t, uint32_t, bool, uint32_t, uint32_t, uint32_t>> vAll;
                for (const SIntervalRace& race : vAny)
                {
                    vAll.emplace_back(race.nItem, race.nNumber, race.eKind, race.bUnequal, race.nOffset, race.nOldValue,
                                      race.nValue);
                }
                return vAll;
            };
            ASSERT_EQ(describe(vRaces), describe(vExpected)) << nSeed << ", row " << n;
        }
    }
    EXPECT_GT(nKept, nAll / 4);
    EXPECT_LT(nKept, nAll);
}

/// A launch of as many groups, of which each has 128 work-items, and four accesses.
struct SGroupsLaunch
{
    explicit SGroupsLaunch(uint64_t nGroups) : kernel("mov r0.x, vAbsTidFlat.x\n"), vMemory(16384)
    {
        kernel.launch.vMemory = {{0x1000, vMemory.size(), vMemory.data(), false, nullptr}};
        kernel.SetSize(128, 128);
        kernel.launch.nGlobalSize[0] = 128 * nGroups;
        code.vAccesses.resize(4);
    }

    CKernelRun kernel;
    std::vector<unsigned char> vMemory;
    SCode code;
};

class BetweenGroups : public testing::TestWithParam<uint64_t>
{
};

// An access of so many groups takes more than 32 bits.
INSTANTIATE_TEST_SUITE_P(RaceRows, BetweenGroups, testing::Values(6, uint64_t(1) << 30));

TEST_P(BetweenGroups, RowsGiveWhatWorkItemsGive)
{
    const SGroupsLaunch launch(GetParam());
    const SLaunchContext context(launch.kernel.launch, launch.code);
    size_t nFound = 0;
    for (uint32_t nSeed = 0; nSeed < 60; ++nSeed)
    {
        std::mt19937 random(nSeed);
        CGroupRaces plain(context);
        CGroupRaces rows(context);
        CGroupRows parts(rows);
        // More rows than a page can keep separately, and some single bytes.
        for (uint32_t n = 0; n < 2 + 3 * nSeed; ++n)
        {
            SRandomRow made = Moved(MakeRow(random), random() % 3 * 2048);
            const uint64_t nGroup = GetParam() - 1 - random() % 6;
            const bool bRow = random() % 4 != 0;
            for (uint32_t nPass = random() % 4; nPass < 4; ++nPass, made = GoneOn(made, random))
            {
                if (bRow)
                {
                    parts.Touch(0, made.row, nGroup, made.vValues.data(), made.vAddresses.data());
                }
                for (uint32_t i = 0; i < made.row.nCount; ++i)
                {
                    SRaceAccess access = AccessOf(made, i, nGroup);
                    access.nBytes = bRow || nSeed % 4 != 0 ? access.nBytes : 1;
                    plain.Touch(0, &access, 1);
                    if (!bRow)
                    {
                        rows.Touch(0, &access, 1);
                    }
                }
            }
        }
        parts.Flush();
        const auto report = [&](CGroupRaces& races)
        {
            CFindings findings;
            races.Report(findings);
            std::vector<std::tuple<uint64_t, uint64_t, uint64_t, uint64_t, int32_t>> vAll;
            for (const SPlatformFinding& finding : findings.List())
            {
                vAll.emplace_back(finding.nWorkItem, finding.nOtherItem, finding.nAddress, finding.nCount,
                                  finding.bUnequal);
            }
            return vAll;
        };
        const auto vExpected = report(plain);
        nFound += vExpected.size();
        ASSERT_EQ(report(rows), vExpected) << nSeed;
    }
    EXPECT_GT(nFound, 40u);
}

/// What all groups together touch of the memory, and what is kept of it for each byte.
struct SKept
{
    const char* pszName;
    uint32_t nBytes;
    bool bRows; ///< whole rows, else words and bytes in any order
    std::vector<ERaceKind> vKinds;
    double fMost;
};

const SKept s_Kept[] = {
    {"rows of words", 4, true, {RACE_READ, RACE_WRITE, RACE_ATOMIC}, 2},
    {"rows of bytes", 1, true, {RACE_READ, RACE_WRITE}, 3},
    {"words", 4, false, {RACE_READ, RACE_WRITE, RACE_ATOMIC}, 8},
    {"bytes that are read", 1, false, {RACE_READ}, 8.25},
};

TEST(RaceRows, KeepFewBytesOfEach)
{
    for (const SKept& kept : s_Kept)
    {
        SCOPED_TRACE(kept.pszName);
        const SGroupsLaunch launch(16384 / kept.nBytes / 128);
        const SLaunchContext context(launch.kernel.launch, launch.code);
        CGroupRaces races(context);
        const std::vector<unsigned char> vValues(128 * size_t{kept.nBytes});
        for (const ERaceKind eKind : kept.vKinds)
        {
            for (uint64_t nGroup = 0; nGroup < context.nGroupCount; ++nGroup)
            {
                SRaceRow row;
                row.plane = {nGroup * 128 * kept.nBytes, kept.nBytes};
                row.nBytes = kept.nBytes;
                row.nCount = 128;
                row.nLow = row.plane.GetLow(128);
                row.nEnd = row.plane.GetHigh(128) + kept.nBytes;
                row.eKind = eKind;
                for (uint32_t n = 0; n < 128 && !kept.bRows; ++n)
                {
                    const SRaceAccess access = {row.plane.At(n),          kept.nBytes, eKind,
                                                static_cast<uint16_t>(n), 0,           nGroup};
                    races.Touch(0, &access, 1);
                }
                if (kept.bRows)
                {
                    races.TouchRow(0, row, nGroup, vValues.data());
                }
            }
        }
        const double fKept = static_cast<double>(races.GetBytes()) / 16384;
        EXPECT_LE(fKept, kept.fMost);
        EXPECT_GT(fKept, 0);
        RecordProperty(kept.pszName, std::to_string(fKept));
    }
}

} // namespace
} // namespace KestrelPlatformTest
