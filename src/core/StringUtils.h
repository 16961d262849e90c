#ifndef KESTREL_CORE_STRINGUTILS_H
#define KESTREL_CORE_STRINGUTILS_H

#include <cstddef>
#include <string>
#include <vector>

namespace StringUtils
{

/// Appends one string a line, the last without a newline (and an empty one after a trailing
/// newline), each trimmed on demand. \return the vector's size
size_t SplitStringIntoLines(const std::string& strString, std::vector<std::string>& vLines, bool bTrim);

/// Removes blanks, tabs, carriage returns and newlines at both ends.
void TrimString(std::string& strString);

} // namespace StringUtils

#endif
