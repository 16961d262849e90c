// A test program that runs a part of its tests, and starts itself again for tests that need their own process. Those
// must not be taken for another part's, so the part's variables are removed from the environment once they are read.

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{

class COwnPart : public testing::Environment
{
    void SetUp() override
    {
        unsetenv("GTEST_TOTAL_SHARDS");
        unsetenv("GTEST_SHARD_INDEX");
    }
};

[[maybe_unused]] const testing::Environment* const s_pOwnPart = testing::AddGlobalTestEnvironment(new COwnPart);

} // namespace
