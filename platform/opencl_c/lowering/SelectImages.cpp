#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

namespace KestrelOpenCL
{
namespace
{

/// Maps clang's numbers of addressing modes to those of kernel metadata.
struct SAddressing
{
    uint32_t nClang;
    uint32_t nMetadata;
};

const SAddressing s_Addressing[] = {{2, 2}, {4, 3}, {6, 1}, {8, 4}};
const uint32_t s_nClangAddressing = 0xE;
const uint32_t s_nClangLinear = 0x20;
const uint32_t s_nNearest = 1u << 4;
const uint32_t s_nLinear = 1u << 5;

uint32_t MetadataOf(uint32_t nClang)
{
    uint32_t nValue = nClang & 1;
    for (const SAddressing& addressing : s_Addressing)
    {
        nValue |= (nClang & s_nClangAddressing) == addressing.nClang ? addressing.nMetadata << 1 : 0;
    }
    return nValue | ((nClang & s_nClangLinear) != 0 ? s_nLinear : s_nNearest);
}

} // namespace

/// The kernel parameter that a value comes from, or null.
const SKernelParameter* CSelector::FindParameter(const Value* pValue) const
{
    const auto* const pArgument = llvm::dyn_cast<llvm::Argument>(FindBase(pValue));
    return pArgument != nullptr ? &m_vParameters[pArgument->getArgNo()] : nullptr;
}

/// \return the sampler's number, or -1 if it isn't known at compile time
int CSelector::FindSampler(const Value* pValue)
{
    const Value* const pBase = FindBase(pValue);
    if (const SKernelParameter* pParameter = FindParameter(pBase))
    {
        return static_cast<int>(pParameter->nNumber);
    }
    const auto* const pCall = llvm::dyn_cast<llvm::CallInst>(pBase);
    const auto* const pInitializer = pCall != nullptr && pCall->arg_size() == 1
                                         ? llvm::dyn_cast<llvm::ConstantInt>(pCall->getArgOperand(0))
                                         : nullptr;
    if (pInitializer == nullptr)
    {
        return -1;
    }
    const uint32_t nValue = MetadataOf(static_cast<uint32_t>(pInitializer->getZExtValue()));
    for (const SSourceSampler& sampler : m_vSamplers)
    {
        if (sampler.nValue == nValue)
        {
            return static_cast<int>(sampler.nSampler);
        }
    }
    SSourceSampler sampler;
    sampler.nSampler = m_nSamplerArguments + static_cast<uint32_t>(m_vSamplers.size());
    sampler.nValue = nValue;
    m_vSamplers.push_back(sampler);
    return static_cast<int>(sampler.nSampler);
}

/// Image reads, writes and queries. \return false for a function that isn't one of them
bool CSelector::SelectImage(const llvm::CallInst& call, llvm::StringRef name)
{
    const bool bSample = name.startswith("sample_");
    const bool bLoad = name.startswith("load_");
    const bool bStore = name.startswith("image_store_");
    const bool bSize = name.startswith("image_size_");
    const bool bFormat = name.startswith("image_format_");
    if (!bSample && !bLoad && !bStore && !bSize && !bFormat)
    {
        return false;
    }
    const SKernelParameter* const pImage = FindParameter(call.getArgOperand(0));
    if (pImage == nullptr || pImage->eKind != SKernelParameter::Image)
    {
        Fail(&call, "an image that isn't one of the kernel's arguments");
        return true;
    }
    if (bSize || bFormat)
    {
        Words words;
        for (unsigned n = 0; n < (bSize ? 4u : 2u); ++n)
        {
            words.push_back(ParameterWord(pImage->nOffset + (bFormat ? 16 : 0) + n * 4));
        }
        Set(call, words);
        return true;
    }
    const std::string strNumber = std::to_string(pImage->nNumber);
    if (bStore)
    {
        SInstruction store = m_Machine.Make("uav_store_id(" + strNumber + ")");
        store.bKeep = true;
        store.nSources = 2;
        store.sources[0] = CMachine::Source(m_Machine.Gather(Get(call.getArgOperand(1))));
        store.sources[1] = CMachine::Source(m_Machine.Gather(Get(call.getArgOperand(2))));
        m_Machine.Add(store);
        return true;
    }
    std::string strMnemonic = "load_resource(" + strNumber + ")";
    Words at = Get(call.getArgOperand(bSample ? 2 : 1));
    if (bSample)
    {
        const int nSampler = FindSampler(call.getArgOperand(1));
        if (nSampler < 0)
        {
            Fail(&call, "a sampler that isn't an argument or a constant");
            return true;
        }
        strMnemonic = "sample_resource(" + strNumber + ")_sampler(" + std::to_string(nSampler) + ")";
        at = name.endswith("_i") ? m_Machine.Each("itof", 4, {at}) : at;
    }
    SInstruction load = m_Machine.Make(strMnemonic);
    load.bWhole = true;
    load.nSources = 1;
    load.sources[0] = CMachine::Source(m_Machine.Gather(at));
    load.nDestination = m_Machine.NewRegister(4);
    load.nMask = 0xF;
    m_Machine.Add(load);
    Words words;
    for (unsigned n = 0; n < 4; ++n)
    {
        words.push_back({SWord::Register, static_cast<uint8_t>(n), load.nDestination});
    }
    Set(call, words);
    return true;
}

} // namespace KestrelOpenCL
