#include "fuzz/Targets.h"

#include <cstdlib>
#include <iostream>

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
        // The details may contain zero bytes.
        std::cerr << "violated: " << pszProperty << "\n"
                  << (s_strInput.empty() ? "" : "input: " + s_strInput + "\n") << strDetails << std::endl;
        std::abort();
    }
}

} // namespace KestrelFuzz
