#include "engine/LaneLedger.h"

#include <gtest/gtest.h>

namespace OVK_ShaderDebugger
{

namespace
{

// A loop from 10 to 40 with an if at 20, its else at 25 and its end at 30.
const InstructionNumber s_nLoop = 10;
const InstructionNumber s_nIf = 20;
const InstructionNumber s_nElse = 25;
const InstructionNumber s_nEndIf = 30;
const InstructionNumber s_nEndLoop = 40;

CLaneLedger InTheIf(uint64_t nInIf, uint64_t nInElse)
{
    CLaneLedger ledger;
    ledger.SetActive(nInIf + nInElse);
    ledger.Open(s_nLoop, true);
    ledger.Open(s_nIf, false);
    ledger.Wait(s_nIf, s_nElse, {nInElse, false});
    ledger.SetActive(nInIf);
    return ledger;
}

InstructionNumber NextOf(const CLaneLedger& ledger, InstructionNumber nPos)
{
    const auto place = ledger.FindNext(nPos);
    return place.has_value() ? place->nInst : 0;
}

TEST(LaneLedger, GoesOnInTheInnermostBlockThenInThoseAround)
{
    CLaneLedger ledger = InTheIf(3, 5);
    ledger.Wait(s_nLoop, s_nEndLoop, {1, false});
    EXPECT_EQ(NextOf(ledger, 22), s_nElse);
    EXPECT_EQ(ledger.Take(s_nIf, s_nElse), (SLaneCount{5, false}));
    EXPECT_EQ(NextOf(ledger, 27), s_nEndLoop) << "nobody is at the endif";
    ledger.Wait(s_nLoop, s_nLoop, {2, false});
    EXPECT_EQ(NextOf(ledger, 27), s_nLoop) << "the next pass comes before the end";
    ledger.Wait(s_nIf, s_nEndIf, {1, false});
    EXPECT_EQ(NextOf(ledger, 27), s_nEndIf);
    EXPECT_EQ(NextOf(ledger, 35), s_nLoop) << "the endif has been passed";
    ledger.Close(s_nIf);
    EXPECT_FALSE(ledger.IsOpen(s_nIf));
    EXPECT_TRUE(ledger.IsOpen(s_nLoop));
    ledger.Close(s_nLoop);
    EXPECT_EQ(NextOf(ledger, 27), 0u);
}

TEST(LaneLedger, HasABookForEachCall)
{
    CLaneLedger ledger = InTheIf(3, 5);
    ledger.EnterCall();
    EXPECT_EQ(ledger.GetActive(), (SLaneCount{3, false}));
    EXPECT_EQ(NextOf(ledger, 22), 0u) << "who waits in the caller isn't in the call";
    ledger.SetActive(1);
    ledger.LeaveCall();
    EXPECT_EQ(ledger.GetActive(), (SLaneCount{3, false})) << "who has returned is back at the call";
    EXPECT_EQ(NextOf(ledger, 22), s_nElse);
}

struct SDoubtCase
{
    const char* pszName;
    std::vector<InstructionNumber> vPlaces; ///< of the loop, or 0 for out of the function
    uint64_t nLeft;                         ///< of five
    SLaneCount atHead;
    SLaneCount atEnd;
};

TEST(LaneLedger, SettlesWhereThoseHaveGoneWhoMissAfterAPassedOverBlock)
{
    const SDoubtCase cases[] = {{"none", {s_nLoop, s_nEndLoop}, 5, {0, false}, {1, false}},
                                {"to one place", {s_nEndLoop}, 2, {0, false}, {4, false}},
                                {"to one of two", {s_nLoop, s_nEndLoop}, 2, {0, true}, {1, true}},
                                {"or out of the function", {s_nLoop, 0}, 2, {0, true}, {1, false}}};
    for (const SDoubtCase& test : cases)
    {
        CLaneLedger ledger;
        ledger.SetActive(5);
        ledger.Open(s_nLoop, true);
        ledger.Wait(s_nLoop, s_nEndLoop, {1, false});
        std::vector<CLaneLedger::SPlace> vPlaces;
        for (const InstructionNumber n : test.vPlaces)
        {
            CLaneLedger::SPlace place;
            place.nBlock = n != 0 ? s_nLoop : 0;
            place.nInst = n;
            vPlaces.push_back(place);
        }
        ledger.MayLeave(vPlaces);
        EXPECT_TRUE(ledger.GetActive().IsOpen());
        ledger.SetActive(test.nLeft);
        EXPECT_EQ(ledger.Take(s_nLoop, s_nLoop), test.atHead) << test.pszName;
        EXPECT_EQ(ledger.Take(s_nLoop, s_nEndLoop), test.atEnd) << test.pszName;
    }
}

TEST(LaneLedger, GathersAllWhoAreInABlockAtItsEnd)
{
    CLaneLedger ledger = InTheIf(3, 5);
    ledger.Wait(s_nLoop, s_nEndLoop, {2, false});
    ledger.Gather(s_nIf);
    EXPECT_EQ(ledger.GetActive(), (SLaneCount{8, false}));
    ledger.Gather(s_nLoop);
    EXPECT_EQ(ledger.GetActive(), (SLaneCount{10, false}));
}

} // namespace

} // namespace OVK_ShaderDebugger
