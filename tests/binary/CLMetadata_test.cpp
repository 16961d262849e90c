#include "binary/CLMetadata.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{

using namespace OVK_ShaderDebugger;

/// A block with the given lines between the version and the end.
std::string Block(const std::string& strVersion, const std::string& strLines)
{
    return ";ARGSTART:__OpenCL_k_kernel\n;version:" + strVersion + "\n" + strLines + ";ARGEND:__OpenCL_k_kernel\n";
}

const std::string s_Sample = Block("3:1:104", ";device:kiln\n"
                                              ";uniqueid:1024\n"
                                              ";memory:uavprivate:0\n"
                                              ";memory:hwlocal:256\n"
                                              ";memory:64bitABI\n"
                                              ";cws:64:1:1\n"
                                              ";image:i:2D:RO:3:1:0\n"
                                              ";pointer:a:float:1:1:32:uav:12:4:RW:0:1\n"
                                              ";value:n:i32:4:1:48\n"
                                              ";counter:c:4:0:1:512\n"
                                              ";constarg:1:a\n"
                                              ";sampler:s:0:1:18\n"
                                              ";function:1:1030\n"
                                              ";uavid:11\n"
                                              ";privateid:8\n"
                                              ";reflection:0:float*\n");

TEST(CLMetadata, ReadsEveryKindOfEntry)
{
    CCLMetadata metadata;
    ASSERT_TRUE(metadata.FromString("; in front:x\n" + s_Sample + "behind"));
    EXPECT_EQ(metadata.ToString(), s_Sample);

    unsigned int nMajor = 0, nMinor = 0, nRevision = 0;
    EXPECT_TRUE(metadata.GetVersion(&nMajor, &nMinor, &nRevision));
    EXPECT_EQ(std::to_string(nMajor) + "." + std::to_string(nMinor) + "." + std::to_string(nRevision), "3.1.104");
    EXPECT_FALSE(metadata.GetVersion(nullptr, &nMinor, &nRevision));
    EXPECT_FALSE(metadata.GetVersion(&nMajor, nullptr, &nRevision));
    EXPECT_FALSE(metadata.GetVersion(&nMajor, &nMinor, nullptr));
    EXPECT_EQ(metadata.GetDeviceName(), "kiln");
    EXPECT_EQ(metadata.GetFunctionName(), "__OpenCL_k_kernel");
    EXPECT_EQ(metadata.GetFunctionNumber(), 1024u);
    EXPECT_EQ(metadata.GetFunctionLabel(), 1030u);
    EXPECT_TRUE(metadata.Uses64BitABI());
    EXPECT_EQ(metadata.GetPrivateMemoryLocation(), CCLMetadata::PML_PRIVATE_UAV);
    EXPECT_EQ(metadata.GetPrivateMemoryNumber(), 8u);
    EXPECT_EQ(metadata.GetUavNumber(), 11u);
    EXPECT_EQ(metadata.GetNextConstantBufferOffset(), 64u); // the counter at 512 doesn't count

    const std::vector<CCLMetadataEntry*> vArguments = metadata.GetArgumentEntries();
    ASSERT_EQ(vArguments.size(), 4u);
    const auto* pPointer = dynamic_cast<CCLMetadataPointerEntryR100*>(vArguments[1]);
    ASSERT_NE(pPointer, nullptr);
    EXPECT_EQ(pPointer->GetArgumentName() + pPointer->GetDataType() + pPointer->GetMemoryType(), "afloatuav");
    EXPECT_EQ(pPointer->GetBufferNumber(), 12u);
    EXPECT_EQ(pPointer->GetDataTypeAlignment(), 4u);
    EXPECT_EQ(pPointer->GetAccessType(), CCLMetadataPointerEntryR87::AT_READ_WRITE);
    EXPECT_FALSE(pPointer->GetVolatileBit());
    EXPECT_TRUE(pPointer->GetRestrictBit());
}

TEST(CLMetadata, ValuesOfALineAreSetAndRead)
{
    CCLMetadataPointerEntryR100 pointer;
    const std::string strUnset = pointer.ToString();
    EXPECT_EQ(pointer.GetAccessType(), CCLMetadataPointerEntryR87::AT_UNDEFINED);
    pointer.SetAccessType(CCLMetadataPointerEntryR87::AT_UNDEFINED); // has no text
    EXPECT_EQ(pointer.ToString(), strUnset);
    pointer.SetAccessType(CCLMetadataPointerEntryR87::AT_WRITE_ONLY);
    pointer.SetVolatileBit(true);
    pointer.SetRestrictBit(false);
    EXPECT_EQ(pointer.ToString(), ";pointer:::::::::WO:1:0");
    EXPECT_TRUE(pointer.GetVolatileBit() && !pointer.GetRestrictBit());

    CCLMetadataFunctionEntry function;
    function.SetFunctionLabels({1030, 1031});
    EXPECT_EQ(function.ToString(), ";function:2:1030:1031");
    EXPECT_EQ(function.GetFunctionLabel(), 1030u);
}

TEST(CLMetadata, SettersChangeTheirLinesOnly)
{
    CCLMetadata metadata;
    ASSERT_TRUE(metadata.FromString(s_Sample));
    EXPECT_TRUE(metadata.SetLDSLimit(0));
    EXPECT_TRUE(metadata.SetUavNumber(10));
    std::string strExpected = s_Sample;
    strExpected.replace(strExpected.find("hwlocal:256"), 11, "hwlocal:0");
    strExpected.replace(strExpected.find("uavid:11"), 8, "uavid:10");
    EXPECT_EQ(metadata.ToString(), strExpected);
}

/// Checks that every query of the block gives its "not known" value, and that every change is refused.
void ExpectDefaults(CCLMetadata& metadata, const std::string& strCase)
{
    unsigned int nMajor = 9, nMinor = 9, nRevision = 9;
    EXPECT_FALSE(metadata.GetVersion(&nMajor, &nMinor, &nRevision)) << strCase;
    EXPECT_EQ(nMajor + nMinor + nRevision, 27u) << strCase;
    EXPECT_EQ(metadata.GetDeviceName() + metadata.GetFunctionName(), "") << strCase;
    EXPECT_EQ(metadata.GetFunctionNumber() + metadata.GetNextConstantBufferOffset(), 0u) << strCase;
    EXPECT_EQ(metadata.GetFunctionLabel() & metadata.GetUavNumber() & metadata.GetPrivateMemoryNumber(), 0xFFFFFFFFu)
        << strCase;
    EXPECT_EQ(metadata.GetPrivateMemoryLocation(), CCLMetadata::PML_UNDEFINED) << strCase;
    EXPECT_FALSE(metadata.Uses64BitABI()) << strCase;
    EXPECT_TRUE(metadata.GetArgumentEntries().empty()) << strCase;
    CCLMetadataValueEntry value;
    EXPECT_FALSE(metadata.SetUavNumber(1) || metadata.SetLDSLimit(1) || metadata.AddFunctionLabel(1) ||
                 metadata.AddArgumentEntry(&value))
        << strCase;
}

TEST(CLMetadata, AnObjectWithoutItsFrameGivesDefaults)
{
    CCLMetadata metadata;
    ExpectDefaults(metadata, "empty");
    std::unique_ptr<CCLMetadataEntry> pEntry(new CCLMetadataUavIdEntry);
    EXPECT_FALSE(metadata.AddEntry(pEntry.get())); // it would be the second

    const std::string strNoEnd = s_Sample.substr(0, s_Sample.rfind(";ARGEND"));
    ASSERT_TRUE(metadata.FromString(strNoEnd.substr(0, strNoEnd.size() - 1)));
    ExpectDefaults(metadata, "no end");
    EXPECT_EQ(metadata.ToString(), strNoEnd);

    ASSERT_TRUE(metadata.FromString(s_Sample));
    pEntry.reset(metadata.GetEntries()[0]);
    ASSERT_TRUE(metadata.RemoveEntry(pEntry.get()));
    ExpectDefaults(metadata, "no start");
}

TEST(CLMetadata, ABlockWithoutUavIdTakesANumberInVain)
{
    CCLMetadata metadata;
    ASSERT_TRUE(metadata.FromString(Block("3:1:104", "")));
    EXPECT_EQ(metadata.GetUavNumber(), 0xFFFFFFFFu);
    EXPECT_TRUE(metadata.SetUavNumber(3));
    EXPECT_EQ(metadata.ToString(), Block("3:1:104", ""));
}

const std::string s_Pointer9 = ";pointer:a:float:1:1:0:uav:12:4";
const std::string s_Pointer10 = s_Pointer9 + ":RW";
const std::string s_Pointer12 = s_Pointer10 + ":0:0";

struct SParseCase
{
    const char* szName;
    std::string strText;
    bool bParses;
};

const SParseCase s_ParseCases[] = {
    {"OtherFunctionAtTheEnd", ";ARGSTART:y\n;version:3:1:100\n;ARGEND:x\n", false},
    {"Version_1_3", Block("1:3:100", ""), false},
    {"Version_1_4", Block("1:4:100", ""), true},
    {"Version_0_1", Block("0:1:100", ""), true},
    {"Version_3_9", Block("3:9:100", ""), true},
    {"Version_4_0", Block("4:0:100", ""), false},
    {"VersionOfThreeTokens", Block("3:1", ""), false},
    {"RevisionAboveTheKnown", Block("3:1:112", s_Pointer12 + "\n"), true},
    {"Revision86With9", Block("3:1:86", s_Pointer9 + "\n"), true},
    {"Revision86With10", Block("3:1:86", s_Pointer10 + "\n"), false},
    {"Revision87With9", Block("3:1:87", s_Pointer9 + "\n"), false},
    {"Revision87With10", Block("3:1:87", s_Pointer10 + "\n"), true},
    {"Revision99With10", Block("3:1:99", s_Pointer10 + "\n"), true},
    {"Revision99With12", Block("3:1:99", s_Pointer12 + "\n"), false},
    {"Revision100With10", Block("3:1:100", s_Pointer10 + "\n"), false},
    {"Revision100With12", Block("3:1:100", s_Pointer12 + "\n"), true},
    {"MarkerOfOneToken", Block("3:1:100", ";mem64bitABI\n"), false},
    {"FunctionOfTwoLabels", Block("3:1:100", ";function:2:1030:1031\n"), false},
    {"MemoryOfTwoTokens", Block("3:1:100", ";memory:hwlocal\n"), true},
    {"CommentInFront", "; a comment\n" + Block("3:1:100", ""), false},
    {"EmptyLineInside", Block("3:1:100", "\n"), false},
    {"LineWithoutSemicolon", Block("3:1:100", "uavid:1\n"), false},
    {"UnknownTypeOfManyTokens", Block("3:1:100", ";else::::x\n"), true},
    {"Nothing", "", false},
};

class CLMetadataParse : public testing::TestWithParam<SParseCase>
{
};

TEST_P(CLMetadataParse, GivesItsResult)
{
    CCLMetadata metadata;
    EXPECT_EQ(metadata.FromString(GetParam().strText), GetParam().bParses);
    EXPECT_EQ(metadata.ToString(), GetParam().bParses ? GetParam().strText : "");
}

INSTANTIATE_TEST_SUITE_P(Texts, CLMetadataParse, testing::ValuesIn(s_ParseCases),
                         [](const testing::TestParamInfo<SParseCase>& test) { return test.param.szName; });

TEST(CLMetadata, LinesBeforeTheVersionAreDropped)
{
    CCLMetadata metadata;
    ASSERT_TRUE(metadata.FromString(";ARGSTART:f\n;uavid:1\n;version:3:1:100\n;uavid:2\n;ARGEND:f"));
    EXPECT_EQ(metadata.ToString(), ";ARGSTART:f\n;version:3:1:100\n;uavid:2\n;ARGEND:f\n");
}

struct SPlaceCase
{
    const char* szName;
    std::string strLines;
    std::string strExpected; ///< "+" is the new line
};

const SPlaceCase s_PlaceCases[] = {
    {"AfterTheRun", ";value:n:i32:1:1:0\n;counter:c:4:0:1:0\n;uavid:1\n;function:1:5\n",
     ";value:n:i32:1:1:0\n;counter:c:4:0:1:0\n+;uavid:1\n;function:1:5\n"},
    {"AfterItsConstArgs", ";value:n:i32:1:1:0\n;constarg:0:n\n;function:1:5\n",
     ";value:n:i32:1:1:0\n;constarg:0:n\n+;function:1:5\n"},
    {"NoArguments", ";constarg:0:n\n;uavid:1\n;function:1:5\n;x:y\n",
     ";constarg:0:n\n;uavid:1\n+;function:1:5\n;x:y\n"},
    {"NoFunction", ";uavid:1\n;value:n:i32:1:1:0\n", ";uavid:1\n;value:n:i32:1:1:0\n+"},
    {"NothingAtAll", "", "+"},
};

class CLMetadataPlace : public testing::TestWithParam<SPlaceCase>
{
};

TEST_P(CLMetadataPlace, IsAfterTheLastArgument)
{
    CCLMetadata metadata;
    ASSERT_TRUE(metadata.FromString(Block("3:1:100", GetParam().strLines)));
    auto pValue = std::make_unique<CCLMetadataValueEntry>();
    pValue->SetArgumentName("new");
    pValue->SetDataType("i32");
    pValue->SetNumberOfElements(1);
    pValue->SetConstantBufferNumber(1);
    pValue->SetConstantBufferOffset(96);
    ASSERT_TRUE(metadata.AddArgumentEntry(pValue.release()));

    std::string strExpected = GetParam().strExpected;
    strExpected.replace(strExpected.find('+'), 1, ";value:new:i32:1:1:96\n");
    EXPECT_EQ(metadata.ToString(), Block("3:1:100", strExpected));
    EXPECT_EQ(metadata.GetNextConstantBufferOffset(), 112u);
}

INSTANTIATE_TEST_SUITE_P(Blocks, CLMetadataPlace, testing::ValuesIn(s_PlaceCases),
                         [](const testing::TestParamInfo<SPlaceCase>& test) { return test.param.szName; });

TEST(CLMetadata, LabelsJoinTheFunctionLine)
{
    CCLMetadata metadata;
    ASSERT_TRUE(metadata.FromString(Block("3:1:100", ";function:1:1030\n;uavid:1\n")));
    EXPECT_TRUE(metadata.AddFunctionLabel(2048));
    EXPECT_EQ(metadata.ToString(), Block("3:1:100", ";function:2:1030:2048\n;uavid:1\n"));
    EXPECT_EQ(metadata.GetFunctionLabel(), 1030u);

    ASSERT_TRUE(metadata.FromString(Block("3:1:100", ";uavid:1\n")));
    EXPECT_TRUE(metadata.AddFunctionLabel(2048));
    EXPECT_EQ(metadata.ToString(), Block("3:1:100", ";uavid:1\n;function:1:2048\n"));
}

TEST(CLMetadata, EntriesComeAndGo)
{
    CCLMetadata metadata;
    EXPECT_FALSE(metadata.AppendEntry(nullptr));
    EXPECT_FALSE(metadata.AddEntry(nullptr));
    ASSERT_TRUE(metadata.FromString(Block("3:1:100", "")));
    auto* pMarker = new CCLMetadataMem64bitABIEntry;
    EXPECT_TRUE(metadata.AddEntry(pMarker));
    EXPECT_EQ(metadata.GetEntries()[1], pMarker);
    EXPECT_TRUE(metadata.Uses64BitABI());
    EXPECT_TRUE(metadata.RemoveEntry(pMarker));
    EXPECT_FALSE(metadata.RemoveEntry(pMarker));
    EXPECT_FALSE(metadata.Uses64BitABI());
    delete pMarker;
}

struct SSizeCase
{
    const char* szType;
    unsigned int nElements;
    unsigned int nElementSize;
    unsigned int nSlot;
};

TEST(CLMetadata, ValuesTakeWholeSlots)
{
    for (const SSizeCase& sizeCase :
         {SSizeCase{"i8", 3, 1, 16}, SSizeCase{"float", 5, 4, 32}, SSizeCase{"u16", 4, 2, 16},
          SSizeCase{"double", 2, 8, 16}, SSizeCase{"struct", 5, 1, 32}, SSizeCase{"i64", 0xFFFFFFFF, 8, 0xFFFFFFF0},
          SSizeCase{"opaque", 1, 0, 16}, SSizeCase{"event", 1, 0, 16}, SSizeCase{"", 0, 0, 0}})
    {
        CCLMetadataValueEntry value;
        value.SetDataType(sizeCase.szType);
        value.SetNumberOfElements(sizeCase.nElements);
        EXPECT_EQ(value.GetElementSize(), sizeCase.nElementSize) << sizeCase.szType;
        EXPECT_EQ(value.GetConstantBufferEntrySize(), sizeCase.nSlot) << sizeCase.szType;
    }
}

TEST(CLMetadata, OffsetsDoNotWrap)
{
    CCLMetadata metadata;
    ASSERT_TRUE(metadata.FromString(Block("3:1:100", ";value:n:double:4294967295:1:4294967295\n")));
    EXPECT_EQ(metadata.GetNextConstantBufferOffset(), 0xFFFFFFFFu);
    ASSERT_TRUE(metadata.FromString(Block("3:1:100", ";value:n:double:99999999999:1:-5\n;uavid:twelve\n")));
    EXPECT_EQ(metadata.GetUavNumber(), 0u);
}

TEST(CLMetadata, AnEntryOfAnotherCountIsLeftAlone)
{
    CCLMetadataMemoryEntry memory;
    ASSERT_TRUE(memory.FromString(";memory:hwlocal"));
    EXPECT_EQ(memory.GetMemorySize(), 0u);
    memory.SetMemorySize(5);
    memory.SetAddressSpace("hwprivate");
    EXPECT_EQ(memory.ToString(), ";memory:hwprivate");

    CCLMetadataUavIdEntry uavId;
    EXPECT_FALSE(uavId.FromEntry(uavId));
    EXPECT_FALSE(uavId.FromEntry(memory));
    EXPECT_FALSE(uavId.FromString(";uavid:1:2"));
    EXPECT_FALSE(uavId.FromString("uavid:1"));
    EXPECT_EQ(uavId.ToString(), ";uavid:");

    // An entry without a type takes any line.
    CCLMetadataEntry bare;
    EXPECT_EQ(bare.GetEntryType(), "");
    EXPECT_TRUE(bare.FromEntry(uavId));
    EXPECT_EQ(bare.GetEntryType(), "uavid");
}

TEST(CLMetadata, AnyCorruptedByteIsRefusedOrHarmless)
{
    for (size_t nByte = 0; nByte < s_Sample.size(); ++nByte)
    {
        for (const char c : {'\0', '\n', ':', ';', '9', '\xFF'})
        {
            std::string strCorrupted = s_Sample;
            strCorrupted[nByte] = c;
            CCLMetadata metadata;
            if (metadata.FromString(strCorrupted))
            {
                metadata.GetNextConstantBufferOffset();
                metadata.SetLDSLimit(0);
                metadata.AddFunctionLabel(1);
                metadata.AddArgumentEntry(nullptr);
            }
        }
    }
}

} // namespace
