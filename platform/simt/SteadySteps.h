#ifndef KESTREL_PLATFORM_SIMT_STEADYSTEPS_H
#define KESTREL_PLATFORM_SIMT_STEADYSTEPS_H

#include "platform/simt/Program.h"

#include <vector>

namespace KestrelPlatform
{

/// Whether the ids in a row are the same for all groups with the same y and z.
bool IsSteady(const SCode::SId& id);

/// Moves lane operations that depend only on constants and steady ids, directly or indirectly, to code.vSteadySteps:
/// kernels compute ids of three components, and between neighbouring groups only x changes. Their results go to rows of
/// their own, which readers in the same straight-line piece use instead. Not for traced code, which shows all results.
/// \param vReads    as given by CountReads; updated
/// \param vDropped  by step: steps that are removed already are skipped; the moved ones are added
void MoveSteadySteps(SCode& code, std::vector<uint32_t>& vReads, std::vector<char>& vDropped);

} // namespace KestrelPlatform

#endif
