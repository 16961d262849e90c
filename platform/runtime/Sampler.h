#ifndef KESTREL_PLATFORM_RUNTIME_SAMPLER_H
#define KESTREL_PLATFORM_RUNTIME_SAMPLER_H

#include "platform/runtime/Context.h"
#include "platform/simt/WideLaunch.h"

namespace KestrelPlatform::Runtime
{

class CSampler : public CObject
{
public:
    using Handle = cl_sampler;
    static constexpr EObjectKind s_eKind = EObjectKind::Sampler;

    CSampler(CRef<CContext> pContext, const SSamplerBinding& binding)
        : CObject(s_eKind), m_pContext(std::move(pContext)), m_Binding(binding)
    {
    }

    CContext& GetContext() const { return *m_pContext; }
    const SSamplerBinding& GetBinding() const { return m_Binding; }
    cl_int GetInfo(cl_sampler_info eInfo, const SInfoQuery& query) const;

private:
    const CRef<CContext> m_pContext;
    const SSamplerBinding m_Binding;
};

} // namespace KestrelPlatform::Runtime

#endif
