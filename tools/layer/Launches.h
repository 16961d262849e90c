#ifndef KESTREL_TOOLS_LAYER_LAUNCHES_H
#define KESTREL_TOOLS_LAYER_LAUNCHES_H

#include "tools/layer/LaunchCapture.h"

#include <cstdint>
#include <memory>

namespace KestrelLayer
{

/// A launch that the debugger has been told of.
struct SNotedLaunch
{
    std::shared_ptr<const SKernel> pKernel; ///< null for none
    uint64_t nNumber = 0;                   ///< counts the process's launches
};

/// Tells of a launch, and waits with it for the debugger if that wants it.
SNotedLaunch NoteLaunch(cl_kernel object, const SLaunchCall& call);

/// Keeps what has become of a launch, and tells if the runtime has refused it.
void NoteOutcome(const SNotedLaunch& launch, cl_int nCode);

} // namespace KestrelLayer

#endif
