#include "tools/session/launch/LaunchFile.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

using namespace KestrelTool;

namespace
{

class LaunchFile : public testing::Test
{
protected:
    LaunchFile() : m_Folder(std::filesystem::path(testing::TempDir()) / ("launch_" + std::to_string(getpid())))
    {
        std::filesystem::create_directories(m_Folder);
        std::ofstream(m_Folder / "k.il") << "il_cs_2_0\nend\n";
        std::ofstream(m_Folder / "bytes.bin") << "abcd";
    }
    ~LaunchFile() override { std::filesystem::remove_all(m_Folder); }

    std::string Write(const std::string& strText) const
    {
        std::string strPath = (m_Folder / "launch.json").string();
        std::ofstream(strPath) << strText;
        return strPath;
    }

    /// The error message for a launch, without the file's name.
    std::string Complain(const std::string& strText) const
    {
        const std::string strPath = Write(strText);
        try
        {
            ReadLaunchFile(strPath);
            return "none";
        }
        catch (const CLaunchFileError& error)
        {
            const std::string strWhat = error.what();
            EXPECT_EQ(strWhat.compare(0, strPath.size() + 2, strPath + ": "), 0) << strWhat;
            return strWhat.substr(strPath.size() + 2);
        }
    }

    static std::string WithArgument(const std::string& strArgument)
    {
        return R"({"program": "k.il", "kernel": "k", "global": [4], "args": [)" + strArgument + "]}";
    }

    std::filesystem::path m_Folder;
};

struct SWrong
{
    const char* pszText;
    const char* pszBeginning; ///< of the message: at least the field
};

} // namespace

TEST_F(LaunchFile, RefusesContentsThatNothingCanHold)
{
    const SWrong arguments[] = {
        {R"({"buffer": {"type": "double", "count": 4294967295, "fill": "zero"}})",
         "args[0].buffer describes 4294967295 elements, more than"},
        // The product of the extents is 2^64, and 2^66.
        {R"({"image": {"order": "R", "channel": "int8", "width": 2147483648, "height": 2147483648, "depth": 4,)"
         R"( "fill": "zero"}})",
         "args[0].image is larger than any image"},
        {R"({"image": {"order": "RGBA", "channel": "int8", "width": 1048576, "height": 1048576, "values": [1]}})",
         "args[0].image describes 4398046511104 elements, more than"},
        {R"({"value": {"type": "int", "values": [1e300]}})", "args[0].value.values[0] is no number of 64 bits"},
        {R"({"buffer": {"type": "ulong", "count": 1, "fill": {"constant": 1.8446744073709552e19}}})",
         "args[0].buffer.fill.constant is no number of 64 bits"},
        {R"({"buffer": {"type": "int", "file": "/dev/zero"}})",
         "args[0].buffer.file names /dev/zero: can't be read: it is a device"},
    };
    for (const SWrong& wrong : arguments)
    {
        EXPECT_EQ(Complain(WithArgument(wrong.pszText)).rfind(wrong.pszBeginning, 0), 0u) << wrong.pszText;
    }
    const std::string strLong = R"({"buffer": {"type": "int", "file": ")" + std::string(5000, 'n') + R"("}})";
    EXPECT_EQ(Complain(WithArgument(strLong)).rfind("args[0].buffer.file names ", 0), 0u);
}

TEST_F(LaunchFile, NamesTheFieldThatIsWrong)
{
    const SWrong launches[] = {
        {"[]", "the launch must be an object"},
        {"{}", "program is missing"},
        {R"({"program": 3})", "program must be a text"},
        {R"({"program": "none.il"})", "program names "},
        {R"({"program": "."})", "program names "},
        {R"({"program": "k.il"})", "kernel is missing"},
        {R"({"program": "k.il", "kernel": "k"})", "global is missing"},
        {R"({"program": "k.il", "kernel": "k", "global": 4})", "global must be a list"},
        {R"({"program": "k.il", "kernel": "k", "global": []})", "global must have one to three numbers"},
        {R"({"program": "k.il", "kernel": "k", "global": [0]})", "global[0] must not be 0"},
        {R"({"program": "k.il", "kernel": "k", "global": [4, 1.5]})", "global[1] must be a whole number"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "local": [2, 2]})", "local must have as many"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "offset": [-1]})", "offset[0] must be a whole number"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "colour": 1})", "colour is not a field"},
        {R"({"program": "k.il", "kernel": 3})", "kernel must be a text"},
        {R"({"program": "k.il", "kernel": "k", "global": [1, 1, 1, 1]})", "global must have one to three numbers"},
        {R"({"program": "k.il", "kernel": "k", "global": ["4"]})", "global[0] must be a number"},
        {R"({"program": "k.il", "kernel": "k", "global": [1e300]})", "global[0] must be a whole number"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "local": [0]})", "local[0] must not be 0"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "local": null})", "local must be a list"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "device": 1})", "device must be a text"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "options": []})", "options must be a text"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "args": 1})", "args must be a list"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "buffers": [{"file": "bytes.bin"}]})",
         "buffers[0].type is missing"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "buffers": [{"type": "int", "file": "bytes.bin"}],)"
         R"( "args": [{"sub": {"of": 0, "origin": 4, "size": 1}}]})",
         "args[0].sub reaches beyond the buffer, which has 4 bytes"},
        {R"({"program": "k.il", "kernel": "k", "global": [4], "buffers": [{"type": "int", "file": "bytes.bin"}],)"
         R"( "args": [{"sub": {"of": 0, "origin": 1}}]})",
         "args[0].sub.size is missing"},
    };
    for (const SWrong& wrong : launches)
    {
        EXPECT_EQ(Complain(wrong.pszText).rfind(wrong.pszBeginning, 0), 0u)
            << wrong.pszText << ": " << Complain(wrong.pszText);
    }
    const SWrong arguments[] = {
        {"{}", "args[0] must have exactly one of"},
        {R"({"sub": {"of": 0}})", "args[0].sub.of must be an index in buffers"},
        {R"({"sampler": {"normalized": 1}})", "args[0].sampler.normalized must be true or false"},
        {R"({"sampler": {"normalized": true, "addressing": "wrap"}})", "args[0].sampler.addressing unknown name"},
        {R"({"image": {"order": "R", "channel": "int8", "shape": "1d", "width": 1, "height": 1, "values": [1]}})",
         "args[0].image.height is nothing that an image of this shape has"},
        {R"({"image": {"order": "R", "channel": "int8", "shape": "2d_array", "width": 1, "height": 1, "values": [1]}})",
         "args[0].image.array is missing"},
        {R"({"value": {"values": [1]}})", "args[0].value.type is missing"},
        {R"({"value": {"type": "quad", "values": [1]}})", "args[0].value.type names no element type"},
        {R"({"value": {"type": "int", "values": []}})", "args[0].value.values must not be empty"},
        {R"({"value": {"type": "int", "values": ["1"]}})", "args[0].value.values[0] must be a number"},
        {R"({"buffer": {"type": "int", "count": 4}})", "args[0].buffer must have exactly one of values, file, fill"},
        {R"({"buffer": {"type": "int", "fill": "zero"}})", "args[0].buffer.count is missing"},
        {R"({"buffer": {"type": "int", "count": 4, "fill": "ones"}})", "args[0].buffer.fill must be"},
        {R"({"buffer": {"type": "int", "count": 4, "fill": {"random": -1}}})", "args[0].buffer.fill.random must be"},
        {R"({"buffer": {"type": "int", "file": "none.bin"}})", "args[0].buffer.file names "},
        {R"({"buffer": {"type": "int", "values": [1, 2], "expect": [1]}})", "args[0].buffer.expect describes 4 bytes"},
        {R"({"buffer": {"type": "int", "values": [1], "save": 7}})", "args[0].buffer.save must be a text"},
        {R"({"buffer": []})", "args[0].buffer must be an object"},
        {R"({"buffer": {"type": 4}})", "args[0].buffer.type must be a text"},
        {R"({"buffer": {"type": "int", "count": -1, "fill": "zero"}})", "args[0].buffer.count must be a whole number"},
        {R"({"buffer": {"type": "int", "count": 4, "fill": {"iota": 1}}})", "args[0].buffer.fill.iota is not a field"},
        {R"({"buffer": {"type": "int", "values": [1], "expect": {"file": "none.bin"}}})",
         "args[0].buffer.expect.file names "},
        {R"({"buffer": {"type": "int", "values": [1], "expect": [true]}})",
         "args[0].buffer.expect[0] must be a number"},
        {R"({"same": 0})", "args[0].same must be the index of an earlier buffer or image"},
        {R"({"local": 0})", "args[0].local must not be 0"},
        {R"({"null": "sampler"})", "args[0].null must be \"buffer\" or \"image\""},
        {R"({"image": {"order": "XYZ", "channel": "float", "width": 2, "height": 2, "fill": "zero"}})",
         "args[0].image.order unknown name"},
        {R"({"image": {"order": "R", "channel": "uint8", "width": 2, "height": 2, "values": [1]}})",
         "args[0].image describes 1 bytes, but takes 4"},
    };
    for (const SWrong& wrong : arguments)
    {
        const std::string strGot = Complain(WithArgument(wrong.pszText));
        EXPECT_EQ(strGot.rfind(wrong.pszBeginning, 0), 0u) << wrong.pszText << ": " << strGot;
    }
    EXPECT_NE(Complain("{ \"program\": ").find("parse error"), std::string::npos);
}

TEST_F(LaunchFile, WorksOutContents)
{
    const SLaunchFile launch = ReadLaunchFile(Write(WithArgument(
        R"({"buffer": {"type": "short", "count": 3, "fill": "iota"}}, // with a comment
           {"buffer": {"type": "uchar", "file": "bytes.bin", "expect": {"file": "bytes.bin"}, "save": "out.bin"}},
           {"same": 1}, {"value": {"type": "ushort", "values": [-1]}}, {"local": 64}, {"null": "image"})")));
    ASSERT_EQ(launch.vArguments.size(), 6u);
    EXPECT_EQ(launch.strOptions, "-g");
    EXPECT_EQ(launch.vArguments[0].vContents, (std::vector<unsigned char>{0, 0, 1, 0, 2, 0}));
    EXPECT_EQ(launch.vArguments[1].vContents, (std::vector<unsigned char>{'a', 'b', 'c', 'd'}));
    EXPECT_EQ(launch.vArguments[1].vExpected, launch.vArguments[1].vContents);
    EXPECT_EQ(launch.vArguments[1].strSave, (m_Folder / "out.bin").string());
    EXPECT_EQ(launch.vArguments[2].nSame, 1u);
    EXPECT_EQ(launch.vArguments[3].vContents, (std::vector<unsigned char>{0xFF, 0xFF}));
    EXPECT_EQ(launch.vArguments[4].nLocalBytes, 64u);
    EXPECT_EQ(launch.vArguments[5].eKind, SArgument::NullImage);
}

TEST_F(LaunchFile, CutOffAnywhereGetsAComplaint)
{
    const std::string strWhole = R"({"program": "k.il", "kernel": "k", "global": [4], "local": [2],
        "args": [{"buffer": {"type": "int", "values": [1, 2], "expect": [1, 2]}}, {"local": 64}]})";
    ASSERT_EQ(Complain(strWhole), "none");
    for (size_t n = 0; n < strWhole.size(); ++n)
    {
        EXPECT_NE(Complain(strWhole.substr(0, n)), "none") << n;
    }
}
