#ifndef KESTREL_TOOLS_DEBUG_SOURCELINES_H
#define KESTREL_TOOLS_DEBUG_SOURCELINES_H

#include "tools/session/debug/CodeMap.h"

#include <optional>
#include <set>
#include <string>

namespace KestrelTool
{

/// A line of a program's source.
struct SSourceLine
{
    std::string strFile;
    unsigned int nLine = 0;
};

/// Parses "FILE:LINE"; nothing for any other text.
std::optional<SSourceLine> ReadSourceLine(const std::string& strText);
/// Whether two file names mean the same file; either may be given without its folder.
bool IsFile(const std::string& strOne, const std::string& strOther);
/// Whether a function has source lines; false for null.
bool HasLines(const CListing& listing, const CCodeMap::SFunction* pFunction);
/// Whether an instruction is the first one of a source line's code, or of a part of it.
bool BeginsLine(const CListing& listing, const CCodeMap& code, unsigned int nLine);
/// The lines of a file that a function's instructions come from; null means all functions.
std::set<unsigned int> ListSourceLines(const CListing& listing, const CCodeMap::SFunction* pFunction,
                                       const std::string& strFile);

} // namespace KestrelTool

#endif
