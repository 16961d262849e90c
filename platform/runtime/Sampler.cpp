#include "platform/runtime/Sampler.h"

#include "platform/runtime/ApiCall.h"

namespace KestrelPlatform::Runtime
{

namespace
{

cl_int CreateSampler(cl_context hContext, cl_bool bNormalized, cl_addressing_mode eAddressing, cl_filter_mode eFilter,
                     cl_sampler& hSampler)
{
    CRef<CContext> pContext = Lookup<CContext>(hContext);
    if (!pContext)
    {
        return CL_INVALID_CONTEXT;
    }
    const bool bNeedsNormalized = eAddressing == CL_ADDRESS_REPEAT || eAddressing == CL_ADDRESS_MIRRORED_REPEAT;
    if (bNormalized > CL_TRUE || eAddressing < CL_ADDRESS_NONE || eAddressing > CL_ADDRESS_MIRRORED_REPEAT ||
        (bNeedsNormalized && !bNormalized) || (eFilter != CL_FILTER_NEAREST && eFilter != CL_FILTER_LINEAR))
    {
        return CL_INVALID_VALUE;
    }
    hSampler = GiveToClient(
        MakeObject<CSampler>(std::move(pContext), SSamplerBinding{bNormalized != CL_FALSE, eAddressing, eFilter}));
    return CL_SUCCESS;
}

} // namespace

cl_int CSampler::GetInfo(cl_sampler_info eInfo, const SInfoQuery& query) const
{
    switch (eInfo)
    {
    case CL_SAMPLER_REFERENCE_COUNT:
        return query.Value(GetClientReferences());
    case CL_SAMPLER_CONTEXT:
        return query.Value(HandleOf(m_pContext));
    case CL_SAMPLER_NORMALIZED_COORDS:
        return query.Value<cl_bool>(m_Binding.bNormalized ? CL_TRUE : CL_FALSE);
    case CL_SAMPLER_ADDRESSING_MODE:
        return query.Value<cl_addressing_mode>(m_Binding.nAddressing);
    case CL_SAMPLER_FILTER_MODE:
        return query.Value<cl_filter_mode>(m_Binding.nFilter);
    default:
        return CL_INVALID_VALUE;
    }
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_sampler CL_API_CALL clCreateSampler(cl_context context, cl_bool normalized_coords,
                                       cl_addressing_mode addressing_mode, cl_filter_mode filter_mode,
                                       cl_int* errcode_ret)
{
    return ApiCreate<cl_sampler>(
        __func__, errcode_ret,
        [&](cl_sampler& hSampler)
        { return CreateSampler(context, normalized_coords, addressing_mode, filter_mode, hSampler); });
}

cl_int CL_API_CALL clRetainSampler(cl_sampler sampler)
{
    return ApiCall(__func__, [&] { return RetainHandle<CSampler>(sampler, CL_INVALID_SAMPLER); });
}

cl_int CL_API_CALL clReleaseSampler(cl_sampler sampler)
{
    return ApiCall(__func__, [&] { return ReleaseHandle<CSampler>(sampler, CL_INVALID_SAMPLER); });
}

cl_int CL_API_CALL clGetSamplerInfo(cl_sampler sampler, cl_sampler_info param_name, size_t param_value_size,
                                    void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CSampler> pSampler = Lookup<CSampler>(sampler);
                       if (!pSampler)
                       {
                           return CL_INVALID_SAMPLER;
                       }
                       return pSampler->GetInfo(param_name, {param_value_size, param_value, param_value_size_ret});
                   });
}
