#include "platform/compiler/ProgramBuilder.h"

#include <string_view>

namespace KestrelPlatform
{
namespace
{

/// Options without a value that are taken and change nothing here.
const std::string_view s_PlainOptions[] = {"-ignore-env",
                                           "-w",
                                           "-Werror",
                                           "-cl-single-precision-constant",
                                           "-cl-denorms-are-zero",
                                           "-cl-fp32-correctly-rounded-divide-sqrt",
                                           "-cl-opt-disable",
                                           "-cl-mad-enable",
                                           "-cl-no-signed-zeros",
                                           "-cl-unsafe-math-optimizations",
                                           "-cl-finite-math-only",
                                           "-cl-fast-relaxed-math",
                                           "-cl-kernel-arg-info",
                                           "-cl-std=CL1.1",
                                           "-cl-std=CL1.2"};

const std::string_view s_JustKernel = "-just-kernel=";

bool IsPlain(std::string_view word)
{
    for (const std::string_view& option : s_PlainOptions)
    {
        if (word == option)
        {
            return true;
        }
    }
    return false;
}

std::vector<std::string_view> SplitWords(std::string_view text)
{
    const std::string_view blanks = " \t\r\n";
    std::vector<std::string_view> vWords;
    for (size_t nStart = text.find_first_not_of(blanks); nStart != std::string_view::npos;)
    {
        const size_t nEnd = text.find_first_of(blanks, nStart);
        vWords.push_back(text.substr(nStart, nEnd - nStart));
        nStart = nEnd == std::string_view::npos ? nEnd : text.find_first_not_of(blanks, nEnd);
    }
    return vWords;
}

} // namespace

bool ParseBuildOptions(const std::string& strOptions, SBuildOptions& options, std::string& strUnknown)
{
    options = SBuildOptions();
    const std::vector<std::string_view> vWords = SplitWords(strOptions);
    for (size_t i = 0; i < vWords.size(); ++i)
    {
        const std::string_view word = vWords[i];
        const std::string_view start = word.substr(0, 2);
        if (word == "-g")
        {
            options.bDebug = true;
        }
        else if (word == "-use-debugil")
        {
            options.bUseDebugIL = true;
        }
        else if (word.substr(0, s_JustKernel.size()) == s_JustKernel && word.size() > s_JustKernel.size())
        {
            options.strJustKernel = word.substr(s_JustKernel.size());
        }
        else if ((start == "-D" || start == "-I") && (word.size() > 2 || i + 1 < vWords.size()))
        {
            // Its value is the rest of the word, or the next one.
            i += word.size() > 2 ? 0 : 1;
        }
        else if (!IsPlain(word))
        {
            strUnknown = word;
            return false;
        }
    }
    return true;
}

} // namespace KestrelPlatform
