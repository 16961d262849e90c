#ifndef KESTREL_TESTS_E2E_EXAMPLELIST_H
#define KESTREL_TESTS_E2E_EXAMPLELIST_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KestrelTest
{

/// The launch files of examples/, by their paths relative to it.
std::vector<std::string> ListExamples();
/// All of them too, but under a sanitizer every third: for tests that do again what another one does with all.
std::vector<std::string> ListSomeExamples();
std::string GetExamplePath(const std::string& strName);
/// The name of a test on an example.
std::string GetExampleTestName(const testing::TestParamInfo<std::string>& info);

} // namespace KestrelTest

#endif
