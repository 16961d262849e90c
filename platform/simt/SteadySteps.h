#ifndef KESTREL_PLATFORM_SIMT_STEADYSTEPS_H
#define KESTREL_PLATFORM_SIMT_STEADYSTEPS_H

#include "platform/simt/Program.h"

#include <vector>

namespace KestrelPlatform
{

/// Whether the ids in a row are the same for all groups whose y and z are.
bool IsSteady(const SCode::SId& id);

/// Moves lane operations on constants and steady ids, and on what these give, to code.vSteadySteps: a kernel computes
/// ids of three components, and between neighbouring groups only x changes. Their results go into rows of their own,
/// which what reads them in the same straight code reads instead. Not for traced code, whose results are shown.
/// \param vReads    as CountReads gives it; kept up
/// \param vDropped  by step: those that are taken out, and aren't looked at; gets those that are moved
void MoveSteadySteps(SCode& code, std::vector<uint32_t>& vReads, std::vector<char>& vDropped);

} // namespace KestrelPlatform

#endif
