#include "modules/CLCall.h"

#include "core/Log.h"

#include <OVKKestrel.h>

#include <CL/cl_ext.h>
#include <OVKKestrelCodes.def>

#include <algorithm>
#include <cstddef>

namespace OVK_ShaderDebugger
{

namespace
{

struct SCodeName
{
    cl_int nCode;
    const char* pszName;
    const char* pszWords;
};

const SCodeName s_CodeNames[] = {
#define CODE_NAME(name, words) {name, #name, words},
    KESTREL_CODES(CODE_NAME)
#undef CODE_NAME
};

} // namespace

cl_int QueryProgramBinary(const OpenCLModule& module, cl_program program, cl_device_id device,
                          std::vector<char>& vBinary)
{
    vBinary.clear();

    cl_uint nDevices = 0;
    std::vector<cl_device_id> vDevices;
    std::vector<size_t> vSizes;
    cl_int nCode = QueryCL(module.GetProgramInfo, program, CL_PROGRAM_NUM_DEVICES, nDevices);
    if (nCode == CL_SUCCESS)
    {
        nCode = QueryListCL(module.GetProgramInfo, program, CL_PROGRAM_DEVICES, vDevices);
    }
    if (nCode == CL_SUCCESS)
    {
        nCode = QueryListCL(module.GetProgramInfo, program, CL_PROGRAM_BINARY_SIZES, vSizes);
    }
    if (nCode != CL_SUCCESS)
    {
        return nCode;
    }

    const auto found = std::find(vDevices.begin(), vDevices.end(), device);
    const size_t nWanted = static_cast<size_t>(found - vDevices.begin());
    if (nWanted >= std::min<size_t>(nDevices, vSizes.size()))
    {
        return CL_INVALID_DEVICE;
    }

    // The query hands out the binaries of all devices or none.
    std::vector<std::vector<char>> vvBinaries(vSizes.size());
    std::vector<char*> vpBinaries(vSizes.size(), nullptr);
    for (size_t i = 0; i < vSizes.size(); ++i)
    {
        vvBinaries[i].resize(vSizes[i]);
        vpBinaries[i] = vSizes[i] != 0 ? vvBinaries[i].data() : nullptr;
    }
    nCode = CallCL(module.GetProgramInfo, program, CL_PROGRAM_BINARIES, vpBinaries.size() * sizeof(char*),
                   static_cast<void*>(vpBinaries.data()), static_cast<size_t*>(nullptr));
    if (nCode == CL_SUCCESS)
    {
        vBinary.swap(vvBinaries[nWanted]);
    }
    return nCode;
}

bool CheckCL(CShaderDebuggerHost* pHost, cl_int nCode, const char* pszText) noexcept
{
    if (SD_AssertText(pHost, nCode == CL_SUCCESS, pszText))
    {
        return true;
    }
    for (const SCodeName& code : s_CodeNames)
    {
        if (code.nCode == nCode)
        {
            return SD_Log(pHost, logERROR, "%s (%d), %s", code.pszName, nCode, code.pszWords);
        }
    }
    return SD_Log(pHost, logERROR, "code %d", nCode);
}

} // namespace OVK_ShaderDebugger
