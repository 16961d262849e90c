#ifndef KESTREL_PLATFORM_SIMT_STEPROWS_H
#define KESTREL_PLATFORM_SIMT_STEPROWS_H

#include "platform/simt/Program.h"

#include <vector>

namespace KestrelPlatform
{

/// By row: how many places read it. Rows selected at run time count as read.
std::vector<uint32_t> CountReads(const SCode& code);

/// Marks lane operations whose results aren't read, either anywhere or before they are overwritten: kernels compute ids
/// of three components and use one, and set registers to 0 at the start. Not for traced code, which shows all results.
/// \param vReads as given by CountReads; the marked steps' reads are subtracted
/// \return by step
std::vector<char> MarkUnreadSteps(const SCode& code, std::vector<uint32_t>& vReads);

/// Removes the marked steps. Jumps to a removed step lead to the next step that stays.
void RemoveSteps(SCode& code, const std::vector<char>& vMarks);

/// Registers read as 0 until they are written. Most are first written for all work-items by the straight-line code at
/// the start, or are never written; only the others remain among the rows to clear.
void KeepRowsToClear(SCode& code, const std::vector<uint32_t>& vReads);

} // namespace KestrelPlatform

#endif
