#include "api/InterceptProperties.h"

#include "api/CommandIntercept.h"
#include "api/PlatformQueries.h"

namespace Kestrel
{

namespace
{

/// The pairs of a list, without the terminator.
template <typename Property>
std::vector<Property> CopyPairs(const Property* pProperties)
{
    std::vector<Property> vPairs;
    for (; pProperties != nullptr && *pProperties != 0; pProperties += 2)
    {
        vPairs.insert(vPairs.end(), pProperties, pProperties + 2);
    }
    return vPairs;
}

} // namespace

std::vector<cl_context_properties> AppendCommandIntercept(const cl_context_properties* cprops,
                                                          const cl_device_id* devices)
{
    std::vector<cl_context_properties> vProperties = CopyPairs(cprops);
    if (devices != nullptr && IsOVKEventCallbackSupported(devices[0]))
    {
        vProperties.push_back(CL_CONTEXT_COMMAND_INTERCEPT_HOOK);
        vProperties.push_back(reinterpret_cast<cl_context_properties>(&CommandInterceptCallback));
    }
    vProperties.push_back(0);
    return vProperties;
}

std::vector<cl_queue_properties> AppendCommandIntercept(const cl_queue_properties* qprops, cl_device_id device)
{
    std::vector<cl_queue_properties> vProperties = CopyPairs(qprops);
    if (IsOVKEventCallbackSupported(device))
    {
        size_t nFlags = vProperties.size();
        for (size_t i = 0; i < vProperties.size(); i += 2)
        {
            nFlags = vProperties[i] == CL_QUEUE_PROPERTIES ? i : nFlags;
        }
        if (nFlags == vProperties.size())
        {
            vProperties.push_back(CL_QUEUE_PROPERTIES);
            vProperties.push_back(0);
        }
        vProperties[nFlags + 1] |= CL_QUEUE_COMMAND_INTERCEPT_ENABLE;
    }
    vProperties.push_back(0);
    return vProperties;
}

} // namespace Kestrel
