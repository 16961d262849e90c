#include "bench/BenchKernels.h"

#include "bench/BenchConversions.h"
#include "bench/BenchHost.h"
#include "bench/BenchTexts.h"
#include "platform/compiler/Assembler.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>

namespace KestrelBench
{

using namespace KestrelPlatform;

namespace
{

const uint32_t s_nGroupSize = 256;
const uint64_t s_nFirstAddress = 0x100000000ull;
const uint32_t s_nArgumentWords = 32;

std::string Wrap(const std::string& strBody)
{
    return "il_cs_2_0\ndcl_cb cb0[10]\ndcl_cb cb1[8]\ndcl_literal l0, 2, 1, 0, -1\ncall 1024\nendmain\nfunc 1024\n"
           "dcl_max_thread_per_group 256\ndcl_typeless_uav_id(10)_stride(4)_length(4)\n"
           "imad r0.xyz, vThreadGrpId, cb0[1], vTidInGrp\niadd r0.xyz, r0, cb0[6]\n" +
           strBody + "ret\nendfunc\nend\n";
}

uint32_t Bits(float f)
{
    uint32_t n = 0;
    std::memcpy(&n, &f, sizeof n);
    return n;
}

std::vector<uint32_t> RandomFloats(size_t nCount, uint32_t nSeed, float fLow, float fHigh)
{
    std::mt19937 random(nSeed);
    std::uniform_real_distribution<float> distribution(fLow, fHigh);
    std::vector<uint32_t> vWords(nCount);
    for (uint32_t& nWord : vWords)
    {
        nWord = Bits(distribution(random));
    }
    return vWords;
}

std::vector<uint32_t> RandomWords(size_t nCount, uint32_t nSeed)
{
    std::mt19937 random(nSeed);
    std::vector<uint32_t> vWords(nCount);
    for (uint32_t& nWord : vWords)
    {
        nWord = static_cast<uint32_t>(random());
    }
    return vWords;
}

std::vector<uint32_t> Zeros(size_t nCount)
{
    return std::vector<uint32_t>(nCount, 0);
}

void SetPlane(SLaunch& launch, size_t nSide)
{
    launch.nDimensions = 2;
    launch.nGlobalSize[0] = launch.nGlobalSize[1] = nSide;
    launch.nLocalSize[0] = launch.nLocalSize[1] = 16;
}

std::unique_ptr<SBenchKernel> Make(const char* pszName, const char* pszBody, float fReach512, float fReach256)
{
    auto pKernel = std::make_unique<SBenchKernel>();
    pKernel->strName = pszName;
    pKernel->launch.pProgram = Compile(Wrap(pszBody));
    pKernel->launch.vConstantBuffer1.assign(s_nArgumentWords, 0);
    pKernel->fReach512 = fReach512;
    pKernel->fReach256 = fReach256;
    return pKernel;
}

std::unique_ptr<SBenchKernel> MakeVectorAdd()
{
    const uint32_t nItems = 1u << 20;
    auto pKernel = Make("vector add", Texts::g_pszVectorAdd, 8, 8);
    SBenchKernel& k = *pKernel;
    SetSize(k.launch, nItems);
    k.buffers.Add(RandomFloats(nItems, 1, -100, 100));
    k.buffers.Add(RandomFloats(nItems, 2, -100, 100));
    k.buffers.Add(Zeros(nItems));
    k.buffers.Add(Zeros(nItems));
    k.vOutputs = {2};
    k.vExpected = {3};
    k.bScales = false;
    k.runHost = [&k] { Host::VectorAdd(nItems, k.buffers.Floats(0), k.buffers.Floats(1), k.buffers.Floats(3)); };
    return pKernel;
}

std::unique_ptr<SBenchKernel> MakeSaxpy()
{
    const uint32_t nItems = 1u << 16;
    const float a = 0.97f;
    auto pKernel = Make("saxpy, 100 passes", Texts::g_pszSaxpy, 0.3f, 0.6f);
    SBenchKernel& k = *pKernel;
    SetSize(k.launch, nItems);
    k.buffers.Add(RandomFloats(nItems, 3, -1, 1));
    k.buffers.Add(RandomFloats(nItems, 4, -1, 1));
    k.buffers.Add(Zeros(nItems));
    k.buffers.Add(Zeros(nItems));
    k.launch.vConstantBuffer1[12] = Bits(a);
    k.vOutputs = {2};
    k.vExpected = {3};
    k.runHost = [&k, a] { Host::Saxpy(nItems, a, k.buffers.Floats(0), k.buffers.Floats(1), k.buffers.Floats(3)); };
    return pKernel;
}

std::unique_ptr<SBenchKernel> MakeMandelbrot()
{
    const uint32_t nSide = 512;
    auto pKernel = Make("mandelbrot", Texts::g_pszMandelbrot, 0.7f, 1.2f);
    SBenchKernel& k = *pKernel;
    SetPlane(k.launch, nSide);
    k.buffers.Add(Zeros(nSide * nSide));
    k.buffers.Add(Zeros(nSide * nSide));
    const Host::SView view = {3.0f / nSide, 3.0f / nSide, -2.0f, -1.5f};
    const uint32_t nWords[] = {Bits(view.fStepX), Bits(view.fStepY), Bits(view.fLeft), Bits(view.fTop)};
    std::copy(std::begin(nWords), std::end(nWords), k.launch.vConstantBuffer1.begin() + 4);
    k.vOutputs = {0};
    k.vExpected = {1};
    k.runHost = [&k, view] { Host::Mandelbrot(nSide, nSide, view, k.buffers[1].data()); };
    return pKernel;
}

std::unique_ptr<SBenchKernel> MakeMatrixProduct()
{
    const uint32_t nSide = 256;
    auto pKernel = Make("matrix product", Texts::g_pszMatrixProduct, 2, 2);
    SBenchKernel& k = *pKernel;
    SetPlane(k.launch, nSide);
    k.buffers.Add(RandomFloats(nSide * nSide, 5, -1, 1));
    k.buffers.Add(RandomFloats(nSide * nSide, 6, -1, 1));
    k.buffers.Add(Zeros(nSide * nSide));
    k.buffers.Add(Zeros(nSide * nSide));
    k.launch.vConstantBuffer1[12] = nSide;
    k.vOutputs = {2};
    k.vExpected = {3};
    k.runHost = [&k] { Host::MatrixProduct(nSide, k.buffers.Floats(0), k.buffers.Floats(1), k.buffers.Floats(3)); };
    return pKernel;
}

std::unique_ptr<SBenchKernel> MakeReduction()
{
    const uint32_t nItems = 1u << 20;
    auto pKernel = Make("reduction", Texts::g_pszReduction, 20, 20);
    SBenchKernel& k = *pKernel;
    SetSize(k.launch, nItems);
    k.buffers.Add(RandomWords(nItems, 7));
    k.buffers.Add(Zeros(nItems / s_nGroupSize));
    k.buffers.Add(Zeros(nItems / s_nGroupSize));
    k.vOutputs = {1};
    k.vExpected = {2};
    k.runHost = [&k] { Host::Reduction(nItems / s_nGroupSize, k.buffers[0].data(), k.buffers[2].data()); };
    k.strOther = "a plain sum in C++";
    k.runOther = [&k] { Host::PlainSums(nItems / s_nGroupSize, k.buffers[0].data(), k.buffers[2].data()); };
    return pKernel;
}

std::unique_ptr<SBenchKernel> MakeHistogram()
{
    const uint32_t nItems = 1u << 20;
    auto pKernel = Make("histogram", Texts::g_pszHistogram, 20, 20);
    SBenchKernel& k = *pKernel;
    SetSize(k.launch, nItems);
    k.buffers.Add(RandomWords(nItems, 8));
    k.buffers.Add(Zeros(256));
    k.buffers.Add(Zeros(256));
    k.vOutputs = {1};
    k.vExpected = {2};
    k.runHost = [&k] { Host::Histogram(nItems, k.buffers[0].data(), k.buffers[2].data()); };
    return pKernel;
}

std::unique_ptr<SBenchKernel> MakeBodyStep()
{
    const uint32_t nBodies = 2048;
    const float fTime = 0.01f;
    const float fSoftening = 0.05f;
    auto pKernel = Make("n-body step", Texts::g_pszBodyStep, 0.7f, 1.2f);
    SBenchKernel& k = *pKernel;
    SetSize(k.launch, nBodies);
    k.buffers.Add(RandomFloats(nBodies * 4, 9, 0.1f, 1));
    k.buffers.Add(RandomFloats(nBodies * 4, 10, -1, 1));
    for (int n = 0; n < 4; ++n)
    {
        k.buffers.Add(Zeros(nBodies * 4));
    }
    k.launch.vConstantBuffer1[16] = nBodies;
    k.launch.vConstantBuffer1[17] = Bits(fTime);
    k.launch.vConstantBuffer1[18] = Bits(fSoftening);
    k.vOutputs = {2, 3};
    k.vExpected = {4, 5};
    k.runHost = [&k, fTime, fSoftening]
    {
        const auto bodies = [&k](size_t n) { return reinterpret_cast<Host::SBody*>(k.buffers.Floats(n)); };
        Host::BodyStep(nBodies, fTime, fSoftening, bodies(0), bodies(1), bodies(4), bodies(5));
    };
    return pKernel;
}

std::unique_ptr<SBenchKernel> MakePrivateArray(const char* pszName, const char* pszText)
{
    const uint32_t nItems = 1u << 16;
    auto pKernel = Make(pszName, pszText, 2, 2);
    SBenchKernel& k = *pKernel;
    SetSize(k.launch, nItems);
    k.buffers.Add(RandomWords(nItems, 11));
    k.buffers.Add(Zeros(nItems));
    k.buffers.Add(Zeros(nItems));
    k.vOutputs = {1};
    k.vExpected = {2};
    k.runHost = [&k] { Host::PrivateArray(nItems, k.buffers[0].data(), k.buffers[2].data()); };
    return pKernel;
}

} // namespace

std::shared_ptr<const CProgram> Compile(const std::string& strText)
{
    ForgetConversions();
    std::vector<uint32_t> vTokens;
    SDiagnostic diagnostic;
    if (!AssembleIL(strText.data(), strText.size(), vTokens, diagnostic))
    {
        throw std::runtime_error(diagnostic.ToString());
    }
    SDecodeError error;
    std::shared_ptr<const CProgram> pProgram = DecodeProgram(vTokens.data(), vTokens.size(), error);
    if (!pProgram)
    {
        throw std::runtime_error("instruction " + std::to_string(error.nInstruction) + ": " + error.strMessage);
    }
    return pProgram;
}

std::vector<uint32_t>& CKernelBuffers::Add(std::vector<uint32_t> vWords)
{
    m_vBuffers.push_back(std::make_unique<std::vector<uint32_t>>(std::move(vWords)));
    return *m_vBuffers.back();
}

void CKernelBuffers::Bind(SLaunch& launch)
{
    uint64_t nAddress = s_nFirstAddress;
    launch.vMemory.clear();
    launch.vConstantBuffer1.resize(std::max<size_t>(launch.vConstantBuffer1.size(), s_nArgumentWords), 0);
    for (size_t n = 0; n < m_vBuffers.size(); ++n)
    {
        SMemoryRange range;
        range.nAddress = nAddress;
        range.nSize = m_vBuffers[n]->size() * 4;
        range.pData = reinterpret_cast<unsigned char*>(m_vBuffers[n]->data());
        launch.vMemory.push_back(range);
        // Elements of the constant buffer that aren't set by an argument yet get the addresses of buffers.
        if (launch.vConstantBuffer1[n * 4] == 0)
        {
            launch.vConstantBuffer1[n * 4] = static_cast<uint32_t>(nAddress);
            launch.vConstantBuffer1[n * 4 + 1] = static_cast<uint32_t>(nAddress >> 32);
        }
        nAddress += (range.nSize + 0x1FFF) & ~0xFFFull;
    }
}

void SBenchKernel::Run(uint32_t nThreads)
{
    launch.nMaxThreads = nThreads;
    const SLaunchResult result = RunLaunch(launch);
    if (result.eStatus != SLaunchResult::Complete || result.nBadAccesses || result.nUnreachedBarriers)
    {
        throw std::runtime_error(strName + ": the kernel doesn't run as it should");
    }
}

void SBenchKernel::Check()
{
    buffers.Bind(launch);
    for (const uint32_t nThreads : {1u, 0u})
    {
        for (const size_t n : vOutputs)
        {
            std::fill(buffers[n].begin(), buffers[n].end(), 0);
        }
        for (const size_t n : vExpected)
        {
            std::fill(buffers[n].begin(), buffers[n].end(), 0);
        }
        Run(nThreads);
        runHost();
        for (size_t i = 0; i < vOutputs.size(); ++i)
        {
            if (buffers[vOutputs[i]] != buffers[vExpected[i]])
            {
                throw std::runtime_error(strName + ": the kernel's results differ from the host's");
            }
        }
    }
}

std::vector<std::unique_ptr<SBenchKernel>> MakeBenchKernels()
{
    std::vector<std::unique_ptr<SBenchKernel>> vKernels;
    vKernels.push_back(MakeVectorAdd());
    vKernels.push_back(MakeSaxpy());
    vKernels.push_back(MakeMandelbrot());
    vKernels.push_back(MakeMatrixProduct());
    vKernels.push_back(MakeReduction());
    vKernels.push_back(MakeHistogram());
    vKernels.push_back(MakeBodyStep());
    vKernels.push_back(MakePrivateArray("private array, indexed temps", Texts::g_pszArrayOfTemps));
    vKernels.push_back(MakePrivateArray("private array, private memory", Texts::g_pszArrayInMemory));
    return vKernels;
}

void SetSize(SLaunch& launch, size_t nItems)
{
    launch.nDimensions = 1;
    launch.nGlobalSize[0] = nItems;
    launch.nLocalSize[0] = s_nGroupSize;
}

std::string VectorAddText()
{
    return Wrap(Texts::g_pszVectorAdd);
}

std::string StraightText(uint32_t nInstructions)
{
    std::string strBody = "dcl_literal l1, 3, 5, 0x3F000000, 7\n";
    for (uint32_t i = 0; i < nInstructions; i += 4)
    {
        const std::string strTarget = "r" + std::to_string(10 + i % 40);
        strBody += "iadd " + strTarget + ".x, r0.x, l1.x\nmul " + strTarget + ".yzw, r50.xxyy, r51\n";
        strBody += "ilt r50.x, " + strTarget + ".x, l0.y\nmov r51.xy, " + strTarget + "\n";
    }
    return Wrap(strBody + "ishl r1.x, r0.x, l0.x\ni64add r2.xy, cb1[0].xy, r1.x000\n"
                          "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r51.x\n");
}

} // namespace KestrelBench
