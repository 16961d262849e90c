// The effects of attackers, a full disk or a weak machine on the command line, with each program in a process of its
// own.

#include "tests/tools/Attack.h"

#include <algorithm>

namespace
{

/// C0 controls except line end and tab, and DEL.
bool HasControls(const std::string& strText)
{
    return std::any_of(strText.begin(), strText.end(),
                       [](unsigned char c) { return (c < 0x20 && c != '\n' && c != '\t') || c == 0x7F; });
}

} // namespace

TEST_F(Attack, OutputThatDoesntArriveIsNoSuccess)
{
    const Words calls[] = {{"run", s_strLaunch},
                           {"step", s_strLaunch},
                           {"debug", s_strLaunch, "-batch", "-ex", "run"},
                           {"debug", s_strLaunch, "-batch", "--json", "-ex", "run"},
                           {"disasm", s_strSource},
                           {"info", s_strSource},
                           {"new", s_strSource},
                           {"manual"}};
    for (const Words& words : calls)
    {
        CountAs("");
        EXPECT_EQ(Run(words).nCode, 0) << words[0];
        CountAs("output to a full disk or a closed descriptor");
        const SOutcome full = Run(words, [] { PutInPlace("/dev/full", O_WRONLY, 1); });
        EXPECT_EQ(full.nCode, 1) << words[0] << " to a full disk";
        EXPECT_TRUE(Holds(full.strText, "can't be written")) << words[0] << ": " << full.strText;
        EXPECT_EQ(Run(words, [] { close(1); }).nCode, 1) << words[0] << " to a closed descriptor";
    }
    const Words saves[] = {{"asm", s_strSource, "-o", "/dev/full"}, {"disasm", s_strSource, "-o", "/dev/full"}};
    for (const Words& words : saves)
    {
        EXPECT_NE(Run(words).nCode, 0);
    }
}

TEST_F(Attack, ClosedDescriptorsGetNothingThatIsMeantForOthers)
{
    CountAs("standard descriptors closed");
    for (int nClosed = 1; nClosed < 8; ++nClosed)
    {
        const auto closeSome = [nClosed]
        {
            for (int nFile = 0; nFile < 3; ++nFile)
            {
                if ((nClosed & 1 << nFile) != 0)
                {
                    close(nFile);
                }
            }
        };
        EXPECT_EQ(Run({"asm", s_strSource, "-o", Path("k.bin")}, closeSome).nCode, 0);
        EXPECT_EQ(ReadText(m_Folder / "k.bin").substr(0, 4), "\177ELF") << nClosed;
        EXPECT_EQ(Run({"debug", s_strLaunch}, closeSome).nCode, (nClosed & 3) != 0 ? 1 : 0) << nClosed;
    }
}

TEST_F(Attack, FoldersPipesAndDevicesAreRefusedWhereverFilesAreRead)
{
    CountAs("folders, pipes, devices and missing files as inputs");
    const struct
    {
        std::string strPath;
        const char* pszWhy;
    } cases[] = {{Path("folder"), "it is a folder"},
                 {Path("pipe"), "it is a pipe"},
                 {"/dev/zero", "it is a device"},
                 {Path("missing"), "No such file"}};
    for (const auto& entry : cases)
    {
        const std::string strData =
            R"({"program": "k.il", "kernel": "nested_if", "global": [16], "args": [{"buffer": {"type": "int", "file": ")" +
            entry.strPath + R"("}}]})";
        const std::string strProgram =
            R"({"program": ")" + entry.strPath + R"(", "kernel": "nested_if", "global": [16]})";
        const struct
        {
            Words words;
            int nCode;
        } calls[] = {{{"run", entry.strPath}, 2},
                     {{"debug", entry.strPath}, 2},
                     {{"debug", s_strLaunch, "-batch", "-x", entry.strPath}, 1},
                     {{"debug", s_strLaunch, "-batch", "-ex", "source " + entry.strPath}, 1},
                     {{"disasm", entry.strPath}, 1},
                     {{"info", entry.strPath}, 1},
                     {{"run", WriteLaunch(strData)}, 2},
                     {{"run", WriteLaunch(strProgram)}, 2}};
        for (const auto& call : calls)
        {
            WriteLaunch(&call == std::end(calls) - 1 ? strProgram : strData);
            const SOutcome outcome = Run(call.words);
            EXPECT_EQ(outcome.nCode, call.nCode) << call.words[0] << " " << call.words[1] << ": " << outcome.strText;
            EXPECT_TRUE(Holds(outcome.strText, entry.pszWhy) && Holds(outcome.strText, entry.strPath))
                << outcome.strText;
        }
    }
    const SOutcome input = Run({"debug", s_strLaunch}, [&] { PutInPlace(Path("folder").c_str(), O_RDONLY, 0); });
    EXPECT_EQ(input.nCode, 1);
    EXPECT_TRUE(Holds(input.strText, "the standard input can't be read: Is a directory")) << input.strText;
    EXPECT_EQ(Run({"debug", s_strLaunch}, [] { PutInPlace("/dev/zero", O_RDONLY, 0); }).nCode, 1)
        << "a line without end";
}

TEST_F(Attack, LaunchFilesThatCantBeMeantAreRefusedTheSameByEveryCall)
{
    CountAs("launch files that can't be meant");
    const std::string strFront = R"({"program": "k.il", "kernel": "nested_if", )";
    const std::string strArgs = R"("args": [{"buffer": {"type": "int", "count": 16, "fill": "zero"}}]})";
    std::ofstream(m_Folder / "bytes") << "abcdefghijk";
    const struct
    {
        std::string strText;
        const char* pszWhy;
    } cases[] = {
        {strFront + R"("global": [16], "global": [8], )" + strArgs, "the field \"global\" is there twice"},
        {strFront + R"("global": [16], "args": [{"buffer": {"type": "int", "count": 5, "file": "bytes"}}]})",
         "describes 11 bytes"},
        {strFront + R"("global": [16], "args": [{"buffer": {"type": "u8", "count": 5, "file": "bytes"}}]})",
         "describes 11 bytes, but takes 5"},
        {strFront + R"("global": [16], "args": [{"buffer": {"type": "int", "count": 3, "values": [1, 2]}}]})",
         "describes 8 bytes, but takes 12"},
        {strFront + R"("global": [16], "local": [5], )" + strArgs, "local doesn't fit"},
        {strFront + R"("global": [4294967295, 4294967295, 4294967295], )" + strArgs, "more than 2^64 work-items"},
        {strFront + R"("options": "-g\n-nonsense", "global": [16], )" + strArgs, "options are none"},
    };
    for (const auto& entry : cases)
    {
        const std::string strLaunch = WriteLaunch(entry.strText);
        const Words calls[] = {{"run", strLaunch}, {"debug", strLaunch, "-batch", "-ex", "run"}, {"step", strLaunch}};
        for (const Words& words : calls)
        {
            const SOutcome outcome = Run(words);
            EXPECT_EQ(outcome.nCode, 2) << words[0] << ": " << outcome.strText;
            EXPECT_TRUE(Holds(outcome.strText, entry.pszWhy)) << words[0] << ": " << outcome.strText;
        }
    }
}

TEST_F(Attack, WhatThePlatformCantDoHasACodeOfItsOwn)
{
    CountAs("settings and failures of the platform, kernels without end");
    const auto set = [](const char* pszSettings) { return [=] { setenv("KESTREL_PLATFORM", pszSettings, 1); }; };
    for (const char* pszNonsense : {"lmit=3", "limit=x", "fail=clNoSuchCall:1:-5", "fail=clFinish:0:-5", "no=thing",
                                    ",", "limit=3,", "limit=3,limit=4"})
    {
        const SOutcome outcome = Run({"run", s_strLaunch}, set(pszNonsense));
        EXPECT_EQ(outcome.nCode, 3) << pszNonsense;
        const std::string strSettings = pszNonsense;
        const std::string strNamed = "KESTREL_PLATFORM: \"" + strSettings.substr(strSettings.rfind(',') + 1) + "\"";
        EXPECT_TRUE(Holds(outcome.strText, strNamed) && !Holds(outcome.strText, "finds no driver"))
            << pszNonsense << ": " << outcome.strText;
    }
    const Words calls[] = {{"run", s_strLaunch}, {"debug", s_strLaunch, "-batch", "-ex", "run"}};
    for (const Words& words : calls)
    {
        EXPECT_EQ(Run(words, set("fail=clEnqueueNDRangeKernel:1:-5:forever")).nCode, 3) << words[0];
    }
    // An endless kernel is ended by the limit of instructions, and its line is named.
    std::string strSource = ReadText(s_strSource);
    strSource.replace(strSource.rfind("ret\nendfunc"), 3, "whileloop\niadd r0.x, r0.x, r0.x\nendloop\nret");
    std::ofstream(m_Folder / "k.il") << strSource;
    const std::string strEndless = WriteLaunch(
        R"({"program": "k.il", "kernel": "nested_if", "global": [16], "local": [8],
            "args": [{"buffer": {"type": "int", "count": 16, "fill": "zero"}}]})");
    const Words endless[] = {{"run", strEndless}, {"debug", strEndless, "-batch", "-ex", "run"}};
    for (const Words& words : endless)
    {
        const SOutcome outcome = Run(words, set("limit=100000"));
        EXPECT_EQ(outcome.nCode, 3) << words[0] << ": " << outcome.strText;
        EXPECT_TRUE(Holds(outcome.strText, "limit of instructions")) << outcome.strText;
        EXPECT_TRUE(Holds(outcome.strText, "was at line 3")) << outcome.strText;
    }
    // Leaving it at a stop, or killing it, doesn't wait for it, even without a limit.
    EXPECT_EQ(
        Run({"debug", strEndless, "-batch", "-ex", "break 20", "-ex", "run", "-ex", "kill"}, set("limit=0")).nCode, 0);
    EXPECT_EQ(Run({"debug", strEndless, "-batch", "-ex", "break 20", "-ex", "run"}, set("limit=0")).nCode, 0);
}

TEST_F(Attack, AMachineWithoutADriverSaysWhatToInstall)
{
    CountAs("no driver");
    const SOutcome outcome = Run({"--platform", "system", "debug", s_strLaunch, "-batch"},
                                 [&]
                                 {
                                     setenv("OCL_ICD_VENDORS", Path("folder").c_str(), 1);
                                     // The leak checker itself crashes in a process whose loader found nothing.
                                     setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
                                 });
    EXPECT_EQ(outcome.nCode, 3);
    EXPECT_NE(outcome.strText.find("finds no driver in /etc/OpenCL/vendors: install that of the device"),
              std::string::npos)
        << outcome.strText;
}

TEST_F(Attack, ALaunchThatNeedsMoreMemoryThanThereIsIsToldSo)
{
    CountAs("sizes at and beyond the edge of their types");
    const std::string strLaunch = WriteLaunch(
        R"({"program": "k.il", "kernel": "nested_if", "global": [4294967295, 4096],
            "args": [{"buffer": {"type": "int", "count": 16, "fill": "zero"}}]})");
    const SOutcome outcome = Run({"debug", strLaunch, "-batch", "-ex", "start"});
    EXPECT_EQ(outcome.nCode, 3) << outcome.strText;
    EXPECT_TRUE(Holds(outcome.strText, "a session of 17592186040320 work-items needs about ")) << outcome.strText;
}

TEST_F(Attack, ASourceIsntOverwritten)
{
    CountAs("output over its own source");
    const std::string strCopy = Path("k.il");
    fs::create_hard_link(strCopy, Path("other.il"));
    for (const char* pszCall : {"asm", "disasm", "new"})
    {
        EXPECT_EQ(Run({pszCall, strCopy, "-o", Path("folder/../k.il")}).nCode, 2) << pszCall;
        EXPECT_EQ(Run({pszCall, strCopy, "-o", Path("other.il")}).nCode, 2) << pszCall;
        EXPECT_EQ(ReadText(strCopy), ReadText(s_strSource)) << pszCall;
    }
    const std::string strLaunch =
        WriteLaunch(R"({"program": "k.il", "kernel": "nested_if", "global": [16], "local": [8],
                        "args": [{"buffer": {"type": "int", "count": 16, "fill": "zero"}}]})");
    const std::string strText = ReadText(strLaunch);
    for (const std::string& strTarget : {strLaunch, Path("other.il")})
    {
        EXPECT_EQ(Run({"cover", strLaunch, "--lcov", strTarget}).nCode, 1) << strTarget;
        EXPECT_EQ(Run({"check", strLaunch, "--sarif", strTarget}).nCode, 1) << strTarget;
        EXPECT_EQ(Run({"check", strLaunch, "--junit", strTarget}).nCode, 1) << strTarget;
    }
    EXPECT_EQ(ReadText(strLaunch), strText);
    EXPECT_EQ(ReadText(strCopy), ReadText(s_strSource));
}

TEST_F(Attack, LocalMemoryBeyondTheDevicesIsntBuilt)
{
    CountAs("sizes at and beyond the edge of their types");
    for (const char* pszSize : {"32784", "65536", "4294967280"})
    {
        std::string strSource = ReadText(s_strSource);
        strSource.replace(strSource.find("imad r0"), 0, std::string("dcl_lds_id(1) ") + pszSize + "\n");
        std::ofstream(m_Folder / "big.il") << strSource;
        const std::string strLaunch =
            WriteLaunch(R"({"program": "big.il", "kernel": "nested_if", "global": [16], "local": [8],
                            "args": [{"buffer": {"type": "int", "count": 16, "fill": "zero"}}]})");
        const SOutcome outcome = Run({"run", strLaunch});
        EXPECT_EQ(outcome.nCode, 3) << outcome.strText;
        EXPECT_TRUE(Holds(outcome.strText, "local memory")) << outcome.strText;
    }
}

TEST_F(Attack, NumbersBeyondTheirTypesAreRefusedAndNotWrapped)
{
    CountAs("sizes at and beyond the edge of their types");
    const char* const commands[] = {"print r65536",
                                    "print r65539.x",
                                    "print x0[4294967296].x",
                                    "break +18446744073709551615",
                                    "break +99999999999999999999",
                                    "break -1000",
                                    "break 4294967296",
                                    "delete 4294967297",
                                    "continue 18446744073709551616",
                                    "list 4294967296,4294967297",
                                    "x uav4294967306:0",
                                    "print 18446744073709551616",
                                    "workitem 18446744073709551616",
                                    "set limit 18446744073709551617"};
    for (const char* pszCommand : commands)
    {
        const SOutcome outcome =
            Run({"debug", s_strLaunch, "-batch", "-ex", "break 20", "-ex", "run", "-ex", pszCommand});
        EXPECT_EQ(outcome.nCode, 1) << pszCommand << ": " << outcome.strText;
    }
}

TEST_F(Attack, LongChainsOverflowNothing)
{
    CountAs("chains of terms, calls and blocks");
    std::string strSum = "1";
    for (int n = 0; n < 20000; ++n)
    {
        strSum += n % 2 == 0 ? "+1" : "||r0.x";
    }
    const SOutcome outcome = Run({"debug", s_strLaunch, "-batch", "-x", Path("commands")},
                                 [&] { LimitResource(RLIMIT_STACK, size_t(1) << 20); });
    EXPECT_EQ(outcome.nCode, 1) << "no such file yet";
    std::ofstream(m_Folder / "commands") << "break 33 if " << strSum << "\nrun\nprint " << strSum << "\ndisplay "
                                         << strSum << "\nwhere " << strSum << "\n";
    EXPECT_EQ(Run({"debug", s_strLaunch, "-batch", "-x", Path("commands")}).nCode, 0);

    // 5,000 functions, each of which calls the next one; also in reverse order.
    for (const bool bBackward : {false, true})
    {
        std::vector<std::string> vFunctions;
        for (int n = 0; n < 5000; ++n)
        {
            const std::string strCall = n + 1 < 5000 ? "call " + std::to_string(2001 + n) + "\n" : "";
            vFunctions.push_back("func " + std::to_string(2000 + n) + "\nif_logicalnz r0.x\n" + strCall +
                                 "endif\nret\nendfunc\n");
        }
        if (bBackward)
        {
            std::reverse(vFunctions.begin(), vFunctions.end());
        }
        std::string strSource = ReadText(s_strSource);
        strSource.replace(strSource.rfind("ret\nendfunc"), 0, "call 2000\n");
        std::string strAll;
        for (const std::string& strFunction : vFunctions)
        {
            strAll += strFunction;
        }
        strSource.replace(strSource.rfind("end\n"), 0, strAll);
        std::ofstream(m_Folder / "k.il") << strSource;
        const std::string strLaunch =
            WriteLaunch(R"({"program": "k.il", "kernel": "nested_if", "global": [16], "local": [8],
                            "args": [{"buffer": {"type": "int", "count": 16, "fill": "zero"}}]})");
        EXPECT_EQ(Run({"run", strLaunch}).nCode, 0) << bBackward;
        EXPECT_EQ(Run({"debug", strLaunch, "-batch", "-ex", "run"}).nCode, 0) << bBackward;
        EXPECT_EQ(Run({"run", strLaunch}, [] { LimitResource(RLIMIT_STACK, size_t(512) << 10); }).nCode, 0)
            << bBackward;
    }
}

/// The cost of a call must not depend on how many are open, nor the cost of a run on how many it returns from.
TEST_F(Attack, NestedCallsTakeNoRunsOfTheirOwn)
{
    CountAs("chains of terms, calls and blocks");
    std::vector<unsigned long> vRuns;
    for (const int nDepth : {10, 2000})
    {
        std::string strSource = ReadText(s_strSource);
        std::string strFunctions;
        for (int n = 0; n < nDepth; ++n)
        {
            const std::string strCall = n + 1 < nDepth ? "call " + std::to_string(2001 + n) + "\n" : "";
            strFunctions +=
                "func " + std::to_string(2000 + n) + "\niadd r9.x, r9.x, l0.y\n" + strCall + "ret\nendfunc\n";
        }
        const size_t nCall = strSource.rfind("ret\nendfunc");
        strSource.replace(nCall, 0, "call 2000\nmov r9.y, r9.x\n");
        strSource.replace(strSource.rfind("end\n"), 0, strFunctions);
        std::ofstream(m_Folder / "k.il") << strSource;
        const std::string strLaunch =
            WriteLaunch(R"({"program": "k.il", "kernel": "nested_if", "global": [16], "local": [8],
                            "args": [{"buffer": {"type": "int", "count": 16, "fill": "zero"}}]})");
        const SOutcome outcome = Run({"debug", strLaunch, "-batch", "--json", "-ex", "break 35", "-ex", "run", "-ex",
                                      "print r9.x", "-ex", "kill"});
        EXPECT_EQ(outcome.nCode, 0) << outcome.strText;
        const size_t nRuns = outcome.strText.find("\"runs\":");
        ASSERT_NE(nRuns, std::string::npos) << outcome.strText;
        vRuns.push_back(std::stoul(outcome.strText.substr(nRuns + 7)));
        EXPECT_NE(outcome.strText.find("\"value\":\"" + std::to_string(nDepth) + "\""), std::string::npos)
            << outcome.strText;
    }
    EXPECT_EQ(vRuns.front(), vRuns.back());
}

TEST_F(Attack, RefusalsSayWhichLimitWasMet)
{
    CountAs("chains of terms, calls and blocks");
    std::string strSource = ReadText(s_strSource);
    std::string strBlocks;
    for (const char* pszLine : {"if_logicalnz r0.x\n", "endif\n"})
    {
        for (int n = 0; n < 2000; ++n)
        {
            strBlocks += pszLine;
        }
    }
    strSource.replace(strSource.rfind("ret\nendfunc"), 0, strBlocks);
    std::ofstream(m_Folder / "k.il") << strSource;
    const std::string strLaunch =
        WriteLaunch(R"({"program": "k.il", "kernel": "nested_if", "global": [16], "local": [8],
                        "args": [{"buffer": {"type": "int", "count": 16, "fill": "zero"}}]})");
    const SOutcome outcome = Run({"debug", strLaunch, "-batch", "-ex", "start"});
    EXPECT_EQ(outcome.nCode, 1);
    EXPECT_TRUE(Holds(outcome.strText, "Blocks may be nested 1024 deep, and are deeper at line ")) << outcome.strText;
    EXPECT_EQ(Run({"run", strLaunch}).nCode, 0) << "the platform runs it";
}

TEST_F(Attack, NothingFromOutsideCommandsTheTerminal)
{
    CountAs("hostile text");
    // Every control character, C1 controls as UTF-8 and as single bytes, and invalid UTF-8.
    std::string strNasty;
    for (int c = 1; c < 0x20; ++c)
    {
        strNasty += c == '\n' ? "" : std::string(1, static_cast<char>(c));
    }
    strNasty += "\x7F\x1B]0;owned\x07\x1B[31m";
    for (int c = 0x80; c < 0xA0; ++c)
    {
        strNasty += std::string("\xC2") + static_cast<char>(c);
    }
    strNasty += "\x9B\xFF\xC3(\xE2\x80\xAE\xED\xA0\x80\xF4\x90\x80\x80";
    std::string strSource = ReadText(s_strSource);
    strSource.replace(strSource.find("imad r0"), 0, ";" + strNasty + "\n");
    std::ofstream(m_Folder / "k.il") << strSource;
    const std::string strFile = Path("file\x1B[31m\xC2\x9B");
    std::ofstream(strFile) << strSource;
    std::string strEscaped;
    for (const unsigned char c : strNasty)
    {
        char szCode[8];
        std::snprintf(szCode, sizeof(szCode), "\\u%04x", c);
        strEscaped += szCode;
    }
    const std::string strArgs =
        R"("global": [16], "local": [8], "args": [{"buffer": {"type": "int", "count": 16, "fill": "zero"}}]})";
    const std::string strGood = R"({"program": "k.il", "kernel": "nested_if", )" + strArgs;
    const std::string strKernel = R"({"program": "k.il", "kernel": ")" + strEscaped + "\", " + strArgs;
    const std::string strOption =
        R"({"program": "k.il", "kernel": "nested_if", "options": ")" + strEscaped + "\", " + strArgs;
    std::ofstream(m_Folder / "kernel.json") << strKernel;
    std::ofstream(m_Folder / "option.json") << strOption;
    std::ofstream(m_Folder / "broken.json") << "{\"" << strNasty << "\": 1}";
    std::ofstream(m_Folder / "broken.il") << ";ARGSTART:__OpenCL_" << strNasty << "_kernel\nil_cs_2_0\n"
                                          << strNasty << "\nend\n";
    const std::string strLaunch = WriteLaunch(strGood);
    const Words calls[] = {
        {"debug", strLaunch, "-batch", "-ex", "start", "-ex", "list 0,40", "-ex", "disassemble", "-ex", "info kernel"},
        {"debug", strLaunch, "-batch", "--json", "-ex", "start", "-ex", "list 0,40"},
        {"debug", strLaunch, "-batch", "--echo", "-ex", "print \x1B[31m\xC2\x9B"},
        {"step", strLaunch},
        {"disasm", Path("k.il")},
        {"disasm", "--numbers", strFile},
        {"info", strFile},
        {"new", strFile},
        {"run", Path("kernel.json")},
        {"run", Path("option.json")},
        {"run", Path("broken.json")},
        {"run", strFile},
        {"run", Path("missing\x1B[31m\xC2\x9B")},
        {"info", Path("broken.il")},
        {"nonsense\x1B[31m"}};
    for (const Words& words : calls)
    {
        const SOutcome outcome = Run(words, [] { setenv("KESTREL_CACHE", "/\x1B[31m\xC2\x9B", 1); });
        EXPECT_FALSE(HasControls(outcome.strText)) << words[0] << " " << words.back() << ": " << outcome.strText;
        EXPECT_FALSE(Holds(outcome.strText, "\xC2\x9B")) << words[0] << " " << words.back();
        EXPECT_FALSE(Holds(outcome.strText, "\xE2\x80\xAE")) << words[0] << " " << words.back();
        EXPECT_FALSE(Holds(outcome.strText, "\xFF")) << words[0] << " " << words.back();
        EXPECT_LT(outcome.nCode, 1000) << words[0] << " " << words.back();
    }
    const SOutcome setting = Run({"run", strLaunch}, [] { setenv("KESTREL_PLATFORM", "\x1B[31m\xC2\x9B", 1); });
    EXPECT_FALSE(HasControls(setting.strText) || Holds(setting.strText, "\xC2\x9B")) << setting.strText;
}
