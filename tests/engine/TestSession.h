#ifndef KESTREL_TESTS_ENGINE_TESTSESSION_H
#define KESTREL_TESTS_ENGINE_TESTSESSION_H

#include "KestrelPlatform.h"
#include "core/ShaderDebuggerResult.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"
#include "platform/compiler/ElfWriter.h"
#include "support/FakeHost.h"
#include "support/SimtDevice.h"
#include "tests/support/Folders.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <elf.h>

#include <algorithm>
#include <map>
#include <optional>

namespace OVK_ShaderDebugger
{

/// Where an instruction is executed: the call instructions around it, the passes of the loops around it in all calls,
/// and the instruction.
struct SPlace
{
    std::vector<uint32_t> vCalls;
    std::vector<uint32_t> vPasses;
    uint32_t nInstruction = 0;

    bool operator<(const SPlace& other) const
    {
        return std::tie(vCalls, vPasses, nInstruction) < std::tie(other.vCalls, other.vPasses, other.nInstruction);
    }
};

inline std::ostream& operator<<(std::ostream& stream, const SPlace& place)
{
    stream << place.nInstruction << " in calls";
    for (const uint32_t n : place.vCalls)
    {
        stream << " " << n;
    }
    stream << ", passes";
    for (const uint32_t n : place.vPasses)
    {
        stream << " " << n;
    }
    return stream;
}

/// The name of a slot of private memory begins with this, followed by its number and a bracket.
inline const std::string s_strPrivate = "PrivateUAVAccess8[";

/// The result of executing an instruction: who was active after it, and their values of the written register.
struct SExecuted
{
    SPlace place;
    std::vector<uint32_t> vMask;
    std::string strRegister; ///< for temps and private memory only
    std::vector<uint32_t> vValues;
};

/// The trace of a plain run over one work-group, in order.
class CTrace : public KestrelPlatform::ITraceSink
{
public:
    void OnRecord(const SPlatformTraceRecord& record) override
    {
        SExecuted executed;
        executed.place.nInstruction = record.nInstruction;
        executed.place.vCalls.assign(record.pCallSites, record.pCallSites + record.nCalls);
        for (uint32_t n = 0; n < record.nLoops; ++n)
        {
            executed.place.vPasses.push_back(record.pLoops[n].nIteration);
        }
        executed.vMask.assign(record.pActive, record.pActive + record.nItems);
        if (record.nRegisterType == IL_REGTYPE_TEMP)
        {
            executed.strRegister = "r" + std::to_string(record.nRegisterNumber);
            executed.vValues.assign(record.pValues, record.pValues + 4 * record.nItems);
        }
        else if (record.nRegisterType == IL_REGTYPE_GENERIC_MEM && record.pIndices != nullptr)
        {
            // The test kernels store to whole slots of private memory, and all work-items to the same one.
            const size_t nFirst = std::find(record.pActive, record.pActive + record.nItems, 1u) - record.pActive;
            const uint32_t nAddress = nFirst < record.nItems ? record.pIndices[nFirst] : 0;
            executed.strRegister = s_strPrivate + std::to_string(nAddress / 16) + "]";
            executed.vValues.assign(record.pValues, record.pValues + 4 * record.nItems);
        }
        vExecuted.push_back(executed);
    }

    const SExecuted* Find(const SPlace& place) const
    {
        const auto it = std::find_if(vExecuted.begin(), vExecuted.end(),
                                     [&](const SExecuted& e) { return !(e.place < place) && !(place < e.place); });
        return it != vExecuted.end() ? &*it : nullptr;
    }

    std::vector<SExecuted> vExecuted;
};

/// The words that a client can see for each work-item, by register name.
typedef std::map<std::string, std::vector<uint32_t>> Registers;

/// A kernel with two buffers under debug, on a device that runs it.
class CTestSession
{
public:
    static constexpr unsigned int s_nItems = 8;
    /// The index of the function's first instruction, after call, endmain and func.
    static constexpr InstructionNumber s_nBody = 3;

    explicit CTestSession(const std::string& strBody, const std::string& strFunctions = "",
                          unsigned int nItems = s_nItems, bool bSameTwice = false)
        : m_pBuffer(std::make_shared<CSimtDevice::Bytes>(64 * nItems)),
          m_pSecond(bSameTwice ? m_pBuffer : std::make_shared<CSimtDevice::Bytes>(4 * nItems)),
          m_pDevice(new CSimtDevice(nItems, {m_pBuffer, m_pSecond})), m_Host(m_pDevice)
    {
        OpenCompilerLibrary();
        for (size_t n = 0; n < m_pBuffer->size(); ++n)
        {
            (*m_pBuffer)[n] = static_cast<unsigned char>(n * 7 + 1);
        }
        m_Host.strDeviceName = "Quench";
        m_Host.onExecute = [this] { return m_nFailRun != ++m_nRuns && m_pDevice->Launch(); };
        IShaderDebugger::CreateShaderDebugger(PLT_OpenCL, &m_Host);
        const std::string strText = "il_cs_2_0\ndcl_cb cb0[10]\ncall 1024\nendmain\nfunc 1024\n;__OpenCL_k_kernel\n"
                                    "dcl_max_thread_per_group 64\ndcl_cb cb1[2]\n"
                                    "dcl_typeless_uav_id(10)_stride(4)_length(4)\n"
                                    "dcl_literal l20, 0, 0, 0, 0\ndcl_literal l21, 1, 1, 1, 1\n"
                                    "dcl_literal l22, 2, 2, 2, 2\ndcl_literal l23, 3, 3, 3, 3\n"
                                    "dcl_literal l24, 4, 4, 4, 4\n" +
                                    strBody + "ret\nendfunc\n" + strFunctions + "end\n";
        KestrelPlatform::SDiagnostic diagnostic;
        EXPECT_TRUE(KestrelPlatform::AssembleIL(strText.data(), strText.size(), m_vTokens, diagnostic))
            << diagnostic.ToString();
        m_vImage = MakeImage(m_vTokens);
    }

    ~CTestSession() { Debugger().EndDebugging(false); }

    /// Opens the library by its path, so that the debugger finds it by name.
    static void OpenCompilerLibrary()
    {
        static void* const s_pCompiler = dlopen(KestrelTest::PlatformFile("libovkocl12cl64.so").c_str(), RTLD_NOW);
        EXPECT_NE(s_pCompiler, nullptr) << dlerror();
    }

    CShaderDebuggerIL& Debugger() { return static_cast<CShaderDebuggerIL&>(*m_Host.GetDebugger()); }
    CShaderDebuggerShaderIL& Shader() { return *Debugger().GetCurrentShader(); }
    CFakeHost& Host() { return m_Host; }
    CSimtDevice& Device() { return *m_pDevice; }
    CSimtDevice::Bytes& Buffer() { return *m_pBuffer; }
    CSimtDevice::Bytes& Second() { return *m_pSecond; }

    bool Start()
    {
        ThreadID dimensions(ShaderUtils::TID_1D, s_nItems, 1, 1, 0);
        return Debugger().StartDebugging(m_vImage.data(), m_vImage.size(), nullptr, &dimensions, DM_Unknown);
    }

    /// The trace of a plain run; its outputs go to Expected() and ExpectedInSecond().
    CTrace Trace()
    {
        CTrace trace;
        const CSimtDevice::Bytes before = *m_pBuffer;
        const CSimtDevice::Bytes beforeInSecond = *m_pSecond;
        m_pDevice->LaunchPlain(m_vTokens, &trace);
        m_vExpected = std::exchange(*m_pBuffer, before);
        m_vExpectedInSecond = std::exchange(*m_pSecond, beforeInSecond);
        return trace;
    }

    const CSimtDevice::Bytes& Expected() const { return m_vExpected; }
    const CSimtDevice::Bytes& ExpectedInSecond() const { return m_vExpectedInSecond; }

    unsigned int TakeRuns() { return std::exchange(m_nRuns, 0); }
    /// Makes the n-th run from now fail.
    void FailRun(unsigned int n)
    {
        m_nRuns = 0;
        m_nFailRun = n;
    }

    SPlace Place()
    {
        SPlace place;
        const auto& innermostFirst = Shader().GetCallPath();
        const std::vector<ProgramCounter> path(innermostFirst.begin(), innermostFirst.end());
        for (auto it = path.rbegin(); it != path.rend(); ++it)
        {
            place.vCalls.push_back(it->m_nPos);
            AddPasses(place, *it);
        }
        AddPasses(place, Shader().GetCurrentInstruction());
        place.nInstruction = Shader().GetCurrentInstruction().m_nPos;
        return place;
    }

    /// The mask, empty if there is none. The number of active work-items must agree with it.
    std::vector<uint32_t> Mask()
    {
        std::vector<uint32_t> vMask = Words(Debugger().GetExecutionMaskBuffer());
        size_t nActive = 0;
        EXPECT_EQ(Debugger().CountActive(nActive), !vMask.empty());
        EXPECT_EQ(nActive, vMask.size() - static_cast<size_t>(std::count(vMask.begin(), vMask.end(), 0u)));
        return vMask;
    }

    size_t Active()
    {
        const std::vector<uint32_t> vMask = Mask();
        return std::count_if(vMask.begin(), vMask.end(), [](uint32_t n) { return n != 0; });
    }

    std::vector<uint32_t> Read(const std::string& strRegister)
    {
        VariableID id;
        id.type = VID_ByName;
        id.strName = strRegister;
        return Words(Debugger().GetRegisterResultsBuffer(id));
    }

    Registers ReadAll()
    {
        Registers registers;
        for (unsigned int n = 0; n < 20; ++n)
        {
            for (const std::string& strName : {"r" + std::to_string(n), s_strPrivate + std::to_string(n) + "]"})
            {
                if (!Read(strName).empty())
                {
                    registers[strName] = Read(strName);
                }
            }
        }
        return registers;
    }

    static std::vector<uint32_t> Words(const CShaderDebuggerBuffer* pBuffer)
    {
        std::vector<uint32_t> vWords(pBuffer != nullptr ? pBuffer->GetSize() / 4 : 0);
        if (!vWords.empty())
        {
            std::memcpy(vWords.data(), pBuffer->GetData(), vWords.size() * 4);
        }
        return vWords;
    }

    /// A kernel binary with the tokens of a kernel that has two buffers.
    static std::vector<char> MakeImage(const std::vector<uint32_t>& vTokens)
    {
        const std::string strMetadata =
            ";ARGSTART:__OpenCL_k_kernel\n;version:3:1:104\n;device:quench\n;uniqueid:1024\n;memory:64bitABI\n"
            ";pointer:a:float:1:1:0:uav:10:4:RW:0:0\n;pointer:b:float:1:1:16:uav:10:4:RW:0:0\n;function:1:1030\n;uavid:"
            "11\n;ARGEND:__OpenCL_k_kernel\n";
        KestrelPlatform::CElfWriter elf;
        elf.AddSection(".debugil", 0, 1, "");
        elf.AddSection(".debugilbin", 0, 4,
                       std::string_view(reinterpret_cast<const char*>(vTokens.data()), vTokens.size() * 4));
        const size_t nRodata = elf.AddSection(".rodata", SHF_ALLOC, 1, strMetadata);
        elf.AddSymbol("__OpenCL_k_metadata", STT_OBJECT, nRodata, 0, strMetadata.size());
        return elf.Write();
    }

private:
    static void AddPasses(SPlace& place, const ProgramCounter& pc)
    {
        for (const LoopState& state : pc.m_LoopStack)
        {
            place.vPasses.push_back(state.nLoopIteration);
        }
    }

    std::shared_ptr<CSimtDevice::Bytes> m_pBuffer;
    std::shared_ptr<CSimtDevice::Bytes> m_pSecond;
    CSimtDevice* m_pDevice; ///< the host's
    CFakeHost m_Host;
    std::vector<uint32_t> m_vTokens;
    std::vector<char> m_vImage;
    CSimtDevice::Bytes m_vExpected;
    CSimtDevice::Bytes m_vExpectedInSecond;
    unsigned int m_nRuns = 0;
    unsigned int m_nFailRun = 0;
};

} // namespace OVK_ShaderDebugger

#endif
