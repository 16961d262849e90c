#include "fuzz/Targets.h"

#include <cstdio>
#include <cstdlib>

namespace KestrelFuzz
{

static std::string s_strInput;

void SetInputName(const std::string& strName)
{
    s_strInput = strName;
}

void Require(bool bHolds, const char* pszProperty, const std::string& strDetails)
{
    if (!bHolds)
    {
        std::fprintf(stderr, "violated: %s\n%s%s%s%s", pszProperty,
                     s_strInput.empty() ? "" : "input: ", s_strInput.c_str(), s_strInput.empty() ? "" : "\n",
                     strDetails.c_str());
        std::fputc('\n', stderr);
        std::abort();
    }
}

} // namespace KestrelFuzz
