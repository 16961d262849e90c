#ifndef KESTREL_TESTS_TOOLS_TOOLUNDERTEST_H
#define KESTREL_TESTS_TOOLS_TOOLUNDERTEST_H

#include "tests/support/Folders.h"

#include <string>

const std::string s_strKestrel = KestrelTest::BuiltFile("bin/kestrel");
const std::string s_strExamples = KestrelTest::SourceFile("examples/");

inline bool Holds(const std::string& strText, const std::string& strPart)
{
    return strText.find(strPart) != std::string::npos;
}

#endif
