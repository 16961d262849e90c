#include "binary/ILProcessingStateMachine.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using OVK_ShaderDebugger::ILProcessingStateMachine;

struct SFilterCase
{
    std::string strInput;
    std::string strOutput;
};

const SFilterCase s_Cases[] = {
    {"a\n   b", "a\nb"},
    {"a\n \tb", "a\n\tb"},
    {"a\n\n  b", "a\n\nb"},
    {"func 1\n  ;comment\nmov", "func 1 ;comment\nmov"},
    {"func 1\r\n  ;comment\r\nmov", "func 1 ;comment\r\nmov"},
    {"func 1\n\tmov", "func 1\nmov"},
    {"func 1\r\n \tmov", "func 1\r\nmov"},
    {"func 1\rmov", "func 1mov"},
    {"mov r0, r1", "mov r0, r1"},
    {"mdefine x\n;y", "mdefine x ;y"},
    {"mend\n;y", "mend ;y"},
    {"men\n;y", "men\n;y"},
    {"xfuncy\n;y", "xfuncy ;y"},
    {"ffunc\n;y", "ffunc ;y"}, // the f that fails the scan starts another
    {"mm", "mm"},
    {"end\n", "end"},
    {"func 1\n \t", "func 1"},
    {"ret\r\n", "ret\r"},
    {std::string("a\0b", 3), std::string("a\0", 2)},
    {"", ""},
};

TEST(ILProcessingStateMachine, FiltersInPlace)
{
    for (const SFilterCase& filterCase : s_Cases)
    {
        std::string strText = filterCase.strInput;
        unsigned int nSize = 99;
        ILProcessingStateMachine(&strText[0], static_cast<unsigned int>(strText.size()), &strText[0]).execute(&nSize);
        ASSERT_LE(nSize, strText.size()) << filterCase.strInput;
        EXPECT_EQ(strText.substr(0, nSize), filterCase.strOutput) << filterCase.strInput;
    }
}

TEST(ILProcessingStateMachine, WithoutABufferNothingHappens)
{
    char szText[] = "a\n b";
    unsigned int nSize = 99;
    ILProcessingStateMachine(nullptr, 4, szText).execute(&nSize);
    EXPECT_EQ(nSize, 0u);
    ILProcessingStateMachine(szText, 4, nullptr).execute(&nSize);
    EXPECT_EQ(nSize, 0u);
    ILProcessingStateMachine(szText, 4, szText).execute(nullptr);
    EXPECT_STREQ(szText, "a\nbb");
}

} // namespace
