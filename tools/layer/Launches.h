#ifndef KESTREL_TOOLS_LAYER_LAUNCHES_H
#define KESTREL_TOOLS_LAYER_LAUNCHES_H

#include "tools/layer/LaunchCapture.h"

#include <cstdint>
#include <memory>

namespace KestrelLayer
{

/// A launch that was reported to the debugger.
struct SNotedLaunch
{
    std::shared_ptr<const SKernel> pKernel; ///< null for none
    uint64_t nNumber = 0;                   ///< the launch's number within the process
};

/// Reports a launch, and waits for the debugger if it wants to debug the launch.
SNotedLaunch NoteLaunch(cl_kernel object, const SLaunchCall& call);

/// Notes the result of a launch, and reports a refusal.
void NoteOutcome(const SNotedLaunch& launch, cl_int nCode);

} // namespace KestrelLayer

#endif
