// A test program that runs a part of its tests, and starts itself again with a test for a process of its own: that one
// mustn't count as another part's. So what the part is leaves the environment once it is known.

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
