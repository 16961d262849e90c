#include "platform/runtime/KernelLaunch.h"

#include "platform/runtime/Image.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

constexpr size_t s_nElementWords = 4;
constexpr size_t s_nElementBytes = 16;
constexpr size_t s_nLocalAlignment = 16;

size_t AlignLocal(size_t nBytes)
{
    return (nBytes + s_nLocalAlignment - 1) / s_nLocalAlignment * s_nLocalAlignment;
}

/// The largest divisor of a size that doesn't exceed a limit.
size_t LargestDivisor(size_t nSize, size_t nLimit)
{
    for (size_t n = std::min(nSize, nLimit); n > 1; --n)
    {
        if (nSize % n == 0)
        {
            return n;
        }
    }
    return 1;
}

cl_int TakeGlobalSize(const SIndexSpace& space, SLaunch& launch)
{
    // Kernels see sizes and offsets as 32-bit numbers.
    constexpr size_t nMax = UINT32_MAX;
    if (space.m_nDimensions < 1 || space.m_nDimensions > s_nMaxWorkDimensions)
    {
        return CL_INVALID_WORK_DIMENSION;
    }
    if (!space.m_pGlobalSize)
    {
        return CL_INVALID_GLOBAL_WORK_SIZE;
    }
    launch.nDimensions = space.m_nDimensions;
    size_t nItems = 1;
    for (cl_uint i = 0; i < space.m_nDimensions; ++i)
    {
        launch.nGlobalSize[i] = space.m_pGlobalSize[i];
        launch.nGlobalOffset[i] = space.m_pGlobalOffset ? space.m_pGlobalOffset[i] : 0;
        if (launch.nGlobalSize[i] == 0 || launch.nGlobalSize[i] > nMax)
        {
            return CL_INVALID_GLOBAL_WORK_SIZE;
        }
        if (launch.nGlobalOffset[i] > nMax - launch.nGlobalSize[i])
        {
            return CL_INVALID_GLOBAL_OFFSET;
        }
        // Work-items are counted in 64 bits.
        if (__builtin_mul_overflow(nItems, launch.nGlobalSize[i], &nItems))
        {
            return CL_INVALID_GLOBAL_WORK_SIZE;
        }
    }
    return CL_SUCCESS;
}

void ChooseLocalSize(size_t nLimit, SLaunch& launch)
{
    for (cl_uint i = 0; i < launch.nDimensions; ++i)
    {
        launch.nLocalSize[i] = LargestDivisor(launch.nGlobalSize[i], nLimit);
        nLimit /= launch.nLocalSize[i];
    }
}

cl_int TakeLocalSize(const SIndexSpace& space, const SCompiledKernel& kernel, SLaunch& launch)
{
    const bool bRequired = kernel.nRequiredGroupSize[0] != 0;
    if (!space.m_pLocalSize)
    {
        if (bRequired)
        {
            return CL_INVALID_WORK_GROUP_SIZE;
        }
        ChooseLocalSize(kernel.nMaxGroupSize, launch);
        return CL_SUCCESS;
    }
    for (cl_uint i = 0; i < space.m_nDimensions; ++i)
    {
        launch.nLocalSize[i] = space.m_pLocalSize[i];
    }
    size_t nItems = 1;
    for (size_t i = 0; i < s_nMaxWorkDimensions; ++i)
    {
        if (launch.nLocalSize[i] == 0)
        {
            return CL_INVALID_WORK_GROUP_SIZE;
        }
        if (launch.nLocalSize[i] > s_nMaxWorkGroupSize)
        {
            return CL_INVALID_WORK_ITEM_SIZE;
        }
        const bool bAsRequired = !bRequired || launch.nLocalSize[i] == std::max(1u, kernel.nRequiredGroupSize[i]);
        if (launch.nGlobalSize[i] % launch.nLocalSize[i] != 0 || !bAsRequired)
        {
            return CL_INVALID_WORK_GROUP_SIZE;
        }
        nItems *= launch.nLocalSize[i];
    }
    return nItems <= kernel.nMaxGroupSize ? CL_SUCCESS : CL_INVALID_WORK_GROUP_SIZE;
}

/// Stores the arguments where the kernel expects them.
class CArgumentBinder
{
public:
    CArgumentBinder(const SCompiledKernel& kernel, SPreparedLaunch& prepared)
        : m_Kernel(kernel), m_Prepared(prepared), m_nLocalEnd(AlignLocal(kernel.nStaticLocalBytes))
    {
        GetWords(1, size_t{kernel.nConstantBuffer1Elements} * s_nElementBytes);
        if (!kernel.vConstants.empty())
        {
            prepared.m_Launch.mapConstantBuffers[s_nConstantsBuffer] = kernel.vConstants;
        }
    }

    /// \param nArgument  its number
    cl_int Bind(cl_uint nArgument, const SKernelArgument& argument, const SArgumentValue& value)
    {
        if (!value.m_bSet)
        {
            return CL_INVALID_KERNEL_ARGS;
        }
        switch (argument.eKind)
        {
        case SKernelArgument::Value:
            Put(argument, value.m_vBytes.data(), value.m_vBytes.size());
            return CL_SUCCESS;
        case SKernelArgument::LocalPointer:
            PutAddress(argument, m_nLocalEnd);
            m_nLocalEnd += AlignLocal(value.m_nLocalBytes);
            return m_nLocalEnd <= s_nLocalMemorySize ? CL_SUCCESS : CL_OUT_OF_RESOURCES;
        case SKernelArgument::Sampler:
            m_Prepared.m_Launch.mapSamplers[argument.nResource] = value.m_Sampler;
            return CL_SUCCESS;
        case SKernelArgument::Image:
            return BindImage(argument, value);
        case SKernelArgument::GlobalPointer:
        case SKernelArgument::ConstantPointer:
        case SKernelArgument::Counter:
            return BindBuffer(nArgument, argument, value);
        }
        return CL_INVALID_KERNEL_ARGS;
    }

    cl_int Finish()
    {
        if (m_nLocalEnd > s_nLocalMemorySize)
        {
            return CL_OUT_OF_RESOURCES;
        }
        m_Prepared.m_Launch.nDynamicLocalBytes = static_cast<uint32_t>(m_nLocalEnd - m_Kernel.nStaticLocalBytes);
        MergeRanges();
        return CL_SUCCESS;
    }

private:
    /// The words of a constant buffer, which has room for nBytes at least.
    std::vector<uint32_t>& GetWords(uint32_t nConstantBuffer, size_t nBytes)
    {
        std::vector<uint32_t>& vWords = nConstantBuffer == 1 ? m_Prepared.m_Launch.vConstantBuffer1
                                                             : m_Prepared.m_Launch.mapConstantBuffers[nConstantBuffer];
        const size_t nWords = (nBytes + s_nElementBytes - 1) / s_nElementBytes * s_nElementWords;
        if (vWords.size() < nWords)
        {
            vWords.resize(nWords, 0);
        }
        return vWords;
    }

    void Put(const SKernelArgument& argument, const void* pBytes, size_t nBytes)
    {
        std::vector<uint32_t>& vWords = GetWords(argument.nConstantBuffer, argument.nConstantBufferOffset + nBytes);
        std::memcpy(reinterpret_cast<unsigned char*>(vWords.data()) + argument.nConstantBufferOffset, pBytes, nBytes);
    }

    /// An address takes x in 32-bit kernels, x and y in 64-bit ones; the rest of its element is 0.
    void PutAddress(const SKernelArgument& argument, cl_ulong nAddress)
    {
        const cl_ulong element[2] = {nAddress, 0};
        Put(argument, element, sizeof(element));
    }

    /// The object that was set; null if none was, or if it has been released since.
    CRef<CMemObject> FindMem(const SArgumentValue& value)
    {
        CRef<CMemObject> pMem = value.m_hMem ? Lookup<CMemObject>(value.m_hMem) : CRef<CMemObject>();
        if (!pMem || pMem->GetId() != value.m_nMemId)
        {
            return {};
        }
        m_Prepared.m_vMems.push_back(pMem);
        return pMem;
    }

    cl_int BindBuffer(cl_uint nArgument, const SKernelArgument& argument, const SArgumentValue& value)
    {
        const CRef<CMemObject> pMem = FindMem(value);
        if (!pMem)
        {
            PutAddress(argument, 0);
            return value.m_hMem ? CL_INVALID_KERNEL_ARGS : CL_SUCCESS;
        }
        const cl_ulong nBase = pMem->GetStorage()->GetAddress(m_Kernel.b64BitAddresses);
        if (nBase == 0)
        {
            return CL_MEM_OBJECT_ALLOCATION_FAILURE;
        }
        SMemoryRange range;
        range.nAddress = nBase + pMem->GetOffset();
        range.nSize = pMem->GetSize();
        range.pData = pMem->GetData();
        range.bReadOnly = (pMem->GetFlags() & CL_MEM_READ_ONLY) != 0;
        if (unsigned char* const pShadow = pMem->GetStorage()->GetShadow())
        {
            range.pShadow = pShadow + pMem->GetOffset();
        }
        m_Prepared.m_Launch.vMemory.push_back(range);
        m_Prepared.m_vBuffers.push_back({nArgument, range.nAddress, range.nSize});
        PutAddress(argument, range.nAddress);
        return CL_SUCCESS;
    }

    cl_int BindImage(const SKernelArgument& argument, const SArgumentValue& value)
    {
        const CRef<CMemObject> pMem = FindMem(value);
        if (!pMem && value.m_hMem)
        {
            return CL_INVALID_KERNEL_ARGS;
        }
        const SImageBinding binding = pMem ? pMem->AsImage()->GetBinding() : SImageBinding{};
        if (argument.eAccess == SKernelArgument::ReadOnly)
        {
            m_Prepared.m_Launch.mapResources[argument.nResource] = binding;
        }
        else
        {
            m_Prepared.m_Launch.mapUavImages[argument.nResource] = binding;
        }
        PutImage(argument, pMem ? binding : SImageBinding{nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        return CL_SUCCESS;
    }

    /// The two elements of an image: its sizes, then its channel type and order; all zero for a null image.
    void PutImage(const SKernelArgument& argument, const SImageBinding& binding)
    {
        const uint32_t words[2 * s_nElementWords] = {binding.nWidth,
                                                     binding.nHeight,
                                                     binding.nDepth,
                                                     binding.nArraySize,
                                                     binding.nChannelType,
                                                     binding.nChannelOrder,
                                                     0,
                                                     0};
        Put(argument, words, sizeof(words));
    }

    /// Sorts the ranges and joins overlapping ones: a buffer may be passed twice, or together with a part of it.
    void MergeRanges()
    {
        std::vector<SMemoryRange>& vRanges = m_Prepared.m_Launch.vMemory;
        std::sort(vRanges.begin(), vRanges.end(),
                  [](const SMemoryRange& a, const SMemoryRange& b) { return a.nAddress < b.nAddress; });
        std::vector<SMemoryRange> vMerged;
        for (const SMemoryRange& range : vRanges)
        {
            if (vMerged.empty() || range.nAddress >= vMerged.back().nAddress + vMerged.back().nSize)
            {
                vMerged.push_back(range);
                continue;
            }
            SMemoryRange& last = vMerged.back();
            last.nSize = std::max(last.nSize, range.nAddress + range.nSize - last.nAddress);
            last.bReadOnly = last.bReadOnly && range.bReadOnly;
        }
        vRanges = std::move(vMerged);
    }

    const SCompiledKernel& m_Kernel;
    SPreparedLaunch& m_Prepared;
    size_t m_nLocalEnd;
};

/// Decodes the value word of a sampler that the kernel itself defines: bit 0 normalised coordinates, bits 1 to 3 the
/// addressing mode, bit 4 nearest, bit 5 linear.
SSamplerBinding DecodeSampler(uint32_t nValue)
{
    static constexpr cl_addressing_mode s_modes[] = {
        CL_ADDRESS_NONE, CL_ADDRESS_REPEAT, CL_ADDRESS_CLAMP_TO_EDGE, CL_ADDRESS_CLAMP, CL_ADDRESS_MIRRORED_REPEAT,
        CL_ADDRESS_NONE, CL_ADDRESS_NONE,   CL_ADDRESS_NONE};
    SSamplerBinding binding;
    binding.bNormalized = (nValue & 1) != 0;
    binding.nAddressing = s_modes[(nValue >> 1) & 7];
    constexpr uint32_t nLinear = 0x20;
    binding.nFilter = (nValue & nLinear) != 0 ? CL_FILTER_LINEAR : CL_FILTER_NEAREST;
    return binding;
}

cl_int BindArguments(const CKernel& kernel, SPreparedLaunch& prepared)
{
    const SCompiledKernel& compiled = prepared.m_pExecutable->m_Compiled;
    const std::vector<SArgumentValue> vValues = kernel.GetArgumentValues();
    CArgumentBinder binder(compiled, prepared);
    for (size_t i = 0; i < vValues.size(); ++i)
    {
        if (const cl_int nError = binder.Bind(static_cast<cl_uint>(i), compiled.vArguments[i], vValues[i]))
        {
            return nError;
        }
    }
    for (const SKernelSampler& sampler : compiled.vSamplers)
    {
        prepared.m_Launch.mapSamplers[sampler.nSampler] = DecodeSampler(sampler.nValue);
    }
    return binder.Finish();
}

} // namespace

cl_int PrepareLaunch(const CKernel& kernel, const CDevice& device, const SIndexSpace& space, SPreparedLaunch& prepared)
{
    prepared.m_pContext = CRef<CContext>(&kernel.GetContext());
    prepared.m_pExecutable = kernel.GetExecutable(device);
    if (!prepared.m_pExecutable)
    {
        return CL_INVALID_PROGRAM_EXECUTABLE;
    }
    prepared.m_Launch.pProgram = prepared.m_pExecutable->m_pDecoded;
    if (const cl_int nError = TakeGlobalSize(space, prepared.m_Launch))
    {
        return nError;
    }
    if (const cl_int nError = TakeLocalSize(space, prepared.m_pExecutable->m_Compiled, prepared.m_Launch))
    {
        return nError;
    }
    return BindArguments(kernel, prepared);
}

} // namespace KestrelPlatform::Runtime
