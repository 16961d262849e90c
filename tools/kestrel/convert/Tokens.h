#ifndef KESTREL_TOOLS_CONVERT_TOKENS_H
#define KESTREL_TOOLS_CONVERT_TOKENS_H

#include <string>

namespace KestrelTool
{

/// Whether a file's bytes are IL as 32-bit words: whole words, and neither text nor an ELF image.
bool IsTokens(const std::string& strBytes);

/// Converts IL between text and its words, with the conversions of the software platform. A text may be a whole module,
/// of which only the IL is used.
/// \param strPlatformDir  the platform's folder
/// \throws std::runtime_error for what can't be converted, CPlatformError without the platform
std::string TextToTokens(const std::string& strPlatformDir, const std::string& strText);
std::string TokensToText(const std::string& strPlatformDir, const std::string& strBytes);

} // namespace KestrelTool

#endif
