// The effects of system limits on the command line, with each program in a process of its own.

#include "tests/tools/Attack.h"

TEST_F(Attack, LimitsOfTheSystemEndNothingWithASignal)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need more than the limits leave";
#endif
    struct SLimit
    {
        int nResource;
        const char* pszName;
        std::vector<rlim_t> vValues;
    };
    const rlim_t nMiB = rlim_t(1) << 20;
    const SLimit limits[] = {
        {RLIMIT_NOFILE, "files", {3, 4, 5, 6, 8, 12}},
        {RLIMIT_FSIZE, "size of files", {0, 1, 100, 4096}},
        {RLIMIT_STACK, "stack", {64 << 10, 256 << 10, nMiB}},
        {RLIMIT_AS, "memory", {8 * nMiB, 32 * nMiB, 64 * nMiB, 128 * nMiB, 256 * nMiB, 512 * nMiB}},
    };
    const Words calls[] = {{"run", s_strLaunch},
                           {"debug", s_strLaunch, "-batch", "-ex", "break 21", "-ex", "run", "-ex", "continue"},
                           {"asm", s_strSource, "-o", Path("limited.bin")}};
    for (const SLimit& limit : limits)
    {
        for (const rlim_t nValue : limit.vValues)
        {
            CountAs("");
            const bool bLoads = Run({"--version"}, [&] { LimitResource(limit.nResource, nValue); }).nCode == 0;
            CountAs(std::string("limit of ") + limit.pszName);
            for (const Words& words : calls)
            {
                const SOutcome outcome = Run(words, [&] { LimitResource(limit.nResource, nValue); });
                // If the system itself can't load something because of a limit, the program may end in other ways.
                EXPECT_TRUE(outcome.nCode < 1000 || !bLoads) << limit.pszName << " " << nValue << " " << words[0]
                                                             << ": " << outcome.nCode << " " << outcome.strText;
                EXPECT_TRUE(outcome.nCode != 0 || words[0] == "asm" || Holds(outcome.strText, "outputs are right") ||
                            limit.nResource == RLIMIT_FSIZE)
                    << limit.pszName << " " << nValue << " " << words[0] << ": " << outcome.strText;
            }
        }
    }
}

/// A number of the program's threads can be started, and all later ones fail.
TEST_F(Attack, ThreadsThatCantBeStartedEndNothingWithASignal)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the library that counts threads can't stand before the sanitizer's";
#endif
    CountAs("limit of threads");
    const Words calls[] = {{"run", s_strLaunch},
                           {"debug", s_strLaunch, "-batch", "-ex", "break 21", "-ex", "run", "-ex", "continue"},
                           {"check", s_strLaunch},
                           {"cover", s_strLaunch},
                           {"asm", s_strSource, "-o", Path("limited.bin")}};
    for (int nThreads = 0; nThreads < 5; ++nThreads)
    {
        for (const Words& words : calls)
        {
            const SOutcome outcome =
                Run(words,
                    [nThreads]
                    {
                        setenv("LD_PRELOAD", KestrelTest::BuiltFile("bin/few_threads.so").c_str(), 1);
                        setenv("FEW_THREADS", std::to_string(nThreads).c_str(), 1);
                    });
            const bool bSaid =
                Holds(outcome.strText, "CL_OUT_OF_") || Holds(outcome.strText, "a thread can't be started");
            EXPECT_TRUE(outcome.nCode == 0 || (bSaid && outcome.nCode == 3))
                << nThreads << " threads, " << words[0] << ": " << outcome.nCode << " " << outcome.strText;
        }
    }
}
