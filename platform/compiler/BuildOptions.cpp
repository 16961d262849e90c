#include "platform/compiler/ProgramBuilder.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string_view>

namespace KestrelPlatform
{
namespace
{

/// An option without a value: who else takes it, and which flag it sets.
struct SPlainOption
{
    std::string_view name;
    bool bLanguage; ///< the compiler of OpenCL C takes it as it is
    bool bLink;     ///< a link takes it too
    bool SBuildOptions::*pFlag;
};

const SPlainOption s_PlainOptions[] = {
    {"-g", false, false, &SBuildOptions::bDebug},
    {"-use-debugil", false, false, &SBuildOptions::bUseDebugIL},
    {"-emit-llvm", false, false, &SBuildOptions::bEmitLLVM},
    {"-ignore-env", false, false, nullptr},
    {"-w", true, false, nullptr},
    {"-Werror", true, false, nullptr},
    {"-cl-std=CL1.1", true, false, nullptr},
    {"-cl-std=CL1.2", true, false, nullptr},
    {"-cl-kernel-arg-info", false, false, nullptr}, // always kept
    {"-cl-strict-aliasing", false, false, nullptr}, // as of OpenCL 1.1; it is always assumed
    {"-cl-single-precision-constant", true, false, nullptr},
    {"-cl-opt-disable", false, false, &SBuildOptions::bOptDisable},
    {"-cl-mad-enable", true, false, &SBuildOptions::bMultiplyAdd},
    {"-cl-denorms-are-zero", false, true, nullptr}, // a hint; denormals cost the devices no time
    {"-cl-fp32-correctly-rounded-divide-sqrt", true, false, nullptr},
    {"-cl-no-signed-zeros", true, true, nullptr},
    {"-cl-finite-math-only", true, true, nullptr},
    {"-cl-unsafe-math-optimizations", true, true, &SBuildOptions::bMultiplyAdd},
    {"-cl-fast-relaxed-math", true, true, &SBuildOptions::bMultiplyAdd},
};

const std::string_view s_JustKernel = "-just-kernel=";
const std::string_view s_OptionBlanks = " \t\r\n\v\f";

/// Takes the next word of a text, without its quotes; none at the end.
std::optional<std::string> TakeWord(std::string_view& text)
{
    const size_t nStart = text.find_first_not_of(s_OptionBlanks);
    if (nStart == std::string_view::npos)
    {
        return std::nullopt;
    }
    std::string strWord;
    char cQuote = '\0';
    size_t n = nStart;
    for (; n < text.size() && (cQuote != '\0' || s_OptionBlanks.find(text[n]) == std::string_view::npos); ++n)
    {
        const char c = text[n];
        const bool bMore = n + 1 < text.size();
        if (c == '\\' && cQuote != '\'' && bMore && (cQuote == '\0' || text[n + 1] == '"' || text[n + 1] == '\\'))
        {
            strWord += text[++n];
        }
        else if (c == cQuote)
        {
            cQuote = '\0';
        }
        else if (cQuote == '\0' && (c == '"' || c == '\''))
        {
            cQuote = c;
        }
        else
        {
            strWord += c;
        }
    }
    text.remove_prefix(n);
    return strWord;
}

bool StartsName(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool TakePlain(std::string_view word, bool bLink, SBuildOptions& options)
{
    const auto it = std::find_if(std::begin(s_PlainOptions), std::end(s_PlainOptions),
                                 [&](const SPlainOption& option) { return option.name == word; });
    if (it == std::end(s_PlainOptions) || (bLink && !it->bLink))
    {
        return false;
    }
    if (it->bLanguage)
    {
        options.vLanguage.emplace_back(word);
    }
    if (it->pFlag != nullptr)
    {
        options.*it->pFlag = true;
    }
    return true;
}

/// Takes "-D" and "-I", whose value is the rest of the word, or the next one.
bool TakeValue(const std::string& strWord, std::string_view& text, SBuildOptions& options)
{
    const std::string_view start = std::string_view(strWord).substr(0, 2);
    if (start != "-D" && start != "-I")
    {
        return false;
    }
    std::optional<std::string> value = strWord.size() > 2 ? std::optional(strWord.substr(2)) : TakeWord(text);
    if (!value || value->empty() || (start == "-D" && !StartsName(value->front())))
    {
        return false;
    }
    (start == "-D" ? options.vDefines : options.vIncludes).push_back(std::move(*value));
    return true;
}

bool TakeJustKernel(const std::string& strWord, SBuildOptions& options)
{
    if (strWord.compare(0, s_JustKernel.size(), s_JustKernel) != 0 || strWord.size() == s_JustKernel.size())
    {
        return false;
    }
    options.strJustKernel = strWord.substr(s_JustKernel.size());
    return true;
}

} // namespace

bool ParseBuildOptions(const std::string& strOptions, SBuildOptions& options, std::string& strUnknown)
{
    options = SBuildOptions();
    options.strText = strOptions;
    std::string_view text = strOptions;
    while (const std::optional<std::string> word = TakeWord(text))
    {
        if (!TakePlain(*word, false, options) && !TakeJustKernel(*word, options) && !TakeValue(*word, text, options))
        {
            strUnknown = *word;
            return false;
        }
    }
    return true;
}

bool ParseLinkOptions(const std::string& strOptions, SBuildOptions& options, std::string& strUnknown)
{
    options = SBuildOptions();
    options.strText = strOptions;
    std::string_view text = strOptions;
    bool bEnable = false;
    while (const std::optional<std::string> word = TakeWord(text))
    {
        options.bCreateLibrary |= *word == "-create-library";
        bEnable |= *word == "-enable-link-options";
        if (*word != "-create-library" && *word != "-enable-link-options" && !TakePlain(*word, true, options))
        {
            strUnknown = *word;
            return false;
        }
    }
    strUnknown = "-enable-link-options";
    return !bEnable || options.bCreateLibrary; // a library's link says what links with it may change
}

} // namespace KestrelPlatform
