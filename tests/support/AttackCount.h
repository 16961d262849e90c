#ifndef KESTREL_TESTS_SUPPORT_ATTACKCOUNT_H
#define KESTREL_TESTS_SUPPORT_ATTACKCOUNT_H

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace KestrelTest
{

/// Records one attempt of a way of attack in the test's properties, which scripts/attacks reads.
inline void CountAttack(const std::string& strWay)
{
    static const testing::TestInfo* s_pTest = nullptr;
    static std::map<std::string, int> s_attempts;
    const testing::TestInfo* const pTest = testing::UnitTest::GetInstance()->current_test_info();
    if (s_pTest != pTest)
    {
        s_attempts.clear();
        s_pTest = pTest;
    }
    testing::Test::RecordProperty("attack: " + strWay, ++s_attempts[strWay]);
}

} // namespace KestrelTest

#endif
