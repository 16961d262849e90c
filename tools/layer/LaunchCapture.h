#ifndef KESTREL_TOOLS_LAYER_LAUNCHCAPTURE_H
#define KESTREL_TOOLS_LAYER_LAUNCHCAPTURE_H

#include "tools/layer/Objects.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace KestrelLayer
{

/// The arguments of the program's launch call.
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

/// Appends numbers as a JSON array.
template <typename Number>
void AppendNumbers(const Number* pNumbers, size_t nCount, std::string& strText)
{
    strText += '[';
    for (size_t i = 0; i < nCount; ++i)
    {
        strText.append(i == 0 ? "" : ",").append(std::to_string(pNumbers[i]));
    }
    strText += ']';
}

/// Appends a summary of the arguments, as info launches shows it, as a JSON array of [kind, details].
void AppendArguments(const SKernel& kernel, std::string& strText);

/// Waits for everything that the launch depends on, then reads the contents of its arguments and the program's binary.
/// \param header  receives device, arguments and memories, or the reason of a failure as error
/// \param vBlob   receives the contents
void CaptureContents(cl_kernel kernelObject, const SKernel& kernel, const SLaunchCall& call, nlohmann::json& header,
                     std::vector<unsigned char>& vBlob);

} // namespace KestrelLayer

#endif
