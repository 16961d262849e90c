#ifndef KESTREL_TESTS_TOOLS_TOOLUNDERTEST_H
#define KESTREL_TESTS_TOOLS_TOOLUNDERTEST_H

#include <string>

const std::string s_strKestrel = std::string(KESTREL_BINARY_DIR) + "/bin/kestrel";
const std::string s_strExamples = std::string(KESTREL_SOURCE_DIR) + "/examples/";

inline bool Holds(const std::string& strText, const std::string& strPart)
{
    return strText.find(strPart) != std::string::npos;
}

#endif
