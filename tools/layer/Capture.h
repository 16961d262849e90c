#ifndef KESTREL_TOOLS_LAYER_CAPTURE_H
#define KESTREL_TOOLS_LAYER_CAPTURE_H

#include "tools/layer/Objects.h"

#include <nlohmann/json.hpp>

namespace KestrelLayer
{

/// A launch as the program asks for it.
struct SLaunchCall
{
    cl_command_queue queue;
    cl_uint nDimensions;
    const size_t* pOffset;
    const size_t* pGlobal;
    const size_t* pLocal;
    cl_uint nEvents;
    const cl_event* pEvents;
};

/// Arguments in short, as info launches shows them: [kind, what there is to know].
nlohmann::json SummariseArguments(const SKernel& kernel);

/// Waits for all that the launch waits for, and reads what its arguments hold, and the program's binary.
/// \param header  gets device, arguments and memories, or error with the reason why that can't be
/// \param vBlob   gets the contents
void CaptureContents(cl_kernel kernelObject, const SKernel& kernel, const SLaunchCall& call, nlohmann::json& header,
                     std::vector<unsigned char>& vBlob);

} // namespace KestrelLayer

#endif
