#ifndef KESTREL_PLATFORM_SIMT_STEPROWS_H
#define KESTREL_PLATFORM_SIMT_STEPROWS_H

#include "platform/simt/Program.h"

#include <vector>

namespace KestrelPlatform
{

/// By row: how many places read it. What is found at run time counts as read.
std::vector<uint32_t> CountReads(const SCode& code);

/// Marks lane operations whose results nothing reads, because nothing does anywhere or because they are written again
/// before: kernels compute ids of three components and use one, and set registers to 0 at the start. Not for traced
/// code, whose results are shown.
/// \param vReads as CountReads gives it; those of the marked steps are taken off
/// \return by step
std::vector<char> MarkUnreadSteps(const SCode& code, std::vector<uint32_t>& vReads);

/// Takes out the steps that are marked. What goes on from one goes on from the next that stays.
void RemoveSteps(SCode& code, const std::vector<char>& vMarks);

/// Registers read as 0 until they are written. Most are written before anything reads them, by the straight code at the
/// start, for all work-items, or never; only the others stay among the rows to clear.
void KeepRowsToClear(SCode& code, const std::vector<uint32_t>& vReads);

} // namespace KestrelPlatform

#endif
