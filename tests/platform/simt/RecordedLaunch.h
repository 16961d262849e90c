#ifndef KESTREL_TESTS_PLATFORM_SIMT_RECORDEDLAUNCH_H
#define KESTREL_TESTS_PLATFORM_SIMT_RECORDEDLAUNCH_H

#include <gtest/gtest.h>

#include <bit>
#include <map>
#include <string>
#include <vector>

#include "KestrelPlatform.h"
#include "platform/compiler/Assembler.h"
#include "platform/simt/WideLaunch.h"

namespace KestrelPlatformTest
{

/// Assembles a text; an error fails the test.
inline std::vector<uint32_t> Assemble(const std::string& strText)
{
    std::vector<uint32_t> vTokens;
    KestrelPlatform::SDiagnostic diag;
    EXPECT_TRUE(KestrelPlatform::AssembleIL(strText.data(), strText.size(), vTokens, diag)) << diag.ToString() << "\n"
                                                                                            << strText;
    return vTokens;
}

/// A trace record with copies of its data.
struct SRecord
{
    uint32_t nInstruction = 0;
    std::vector<uint32_t> vCalls;
    std::vector<SPlatformLoopPass> vLoops;
    std::vector<uint32_t> vItems;
    std::vector<uint32_t> vActive;
    uint32_t nRegisterType = 0;
    uint32_t nRegisterNumber = 0;
    uint32_t nComponents = 0;
    std::vector<uint32_t> vIndices;
    std::vector<uint32_t> vValues;
};

class CRecords : public KestrelPlatform::ITraceSink
{
public:
    void OnRecord(const SPlatformTraceRecord& in) override
    {
        SRecord record;
        record.nInstruction = in.nInstruction;
        record.vCalls.assign(in.pCallSites, in.pCallSites + in.nCalls);
        record.vLoops.assign(in.pLoops, in.pLoops + in.nLoops);
        record.vItems.assign(in.pItems, in.pItems + in.nItems);
        record.vActive.assign(in.pActive, in.pActive + in.nItems);
        record.nRegisterType = in.nRegisterType;
        record.nRegisterNumber = in.nRegisterNumber;
        record.nComponents = in.nComponents;
        if (in.pIndices)
        {
            record.vIndices.assign(in.pIndices, in.pIndices + in.nItems);
        }
        if (in.pValues)
        {
            record.vValues.assign(in.pValues, in.pValues + in.nItems * 4);
        }
        vRecords.push_back(record);
    }

    std::vector<SRecord> vRecords;
};

/// A kernel and a dispatch of it. The output buffer is at address 0x1000, which is element 0 of constant
/// buffer 1; an input buffer is at 0x100000, in element 1.
class CKernelRun
{
public:
    static const uint32_t s_nOutput = 0x1000;
    static const uint32_t s_nInput = 0x100000;

    /// \param strBody the text between the declarations and `endmain`; functions may follow after a line "---"
    explicit CKernelRun(const std::string& strBody, const std::string& strDeclarations = "")
    {
        std::string strMain = strBody;
        std::string strFunctions;
        const size_t nCut = strBody.find("---\n");
        if (nCut != std::string::npos)
        {
            strMain = strBody.substr(0, nCut);
            strFunctions = strBody.substr(nCut + 4);
        }
        SetTokens(Assemble("il_cs_2_0\ndcl_cb cb0[10]\ndcl_cb cb1[8]\n" + strDeclarations + "\n" + strMain +
                           "endmain\n" + strFunctions + "end\n"));
    }

    explicit CKernelRun(const std::vector<uint32_t>& vTokens) { SetTokens(vTokens); }

    void SetTokens(const std::vector<uint32_t>& vTokens)
    {
        KestrelPlatform::SDecodeError error;
        launch.pProgram = KestrelPlatform::DecodeProgram(vTokens.data(), vTokens.size(), error);
        ASSERT_TRUE(launch.pProgram) << "instruction " << error.nInstruction << ": " << error.strMessage;
    }

    void SetSize(size_t nGlobal, size_t nLocal)
    {
        launch.nGlobalSize[0] = nGlobal;
        launch.nLocalSize[0] = nLocal;
    }

    KestrelPlatform::SLaunchResult Run()
    {
        if (!launch.pProgram)
        {
            return KestrelPlatform::SLaunchResult();
        }
        launch.vMemory.clear();
        const auto add = [this](uint32_t nAddress, std::vector<uint32_t>& vWords, bool bReadOnly)
        {
            KestrelPlatform::SMemoryRange range;
            range.nAddress = nAddress;
            range.nSize = vWords.size() * 4;
            range.pData = reinterpret_cast<unsigned char*>(vWords.data());
            range.bReadOnly = bReadOnly;
            if (range.nSize)
            {
                launch.vMemory.push_back(range);
            }
        };
        add(s_nOutput, vOutput, false);
        if (!vOutputShadow.empty())
        {
            launch.vMemory.front().pShadow = vOutputShadow.data();
        }
        add(s_nInput, vInput, true);
        launch.vConstantBuffer1.resize(32, 0);
        launch.vConstantBuffer1[0] = s_nOutput;
        launch.vConstantBuffer1[4] = s_nInput;
        return KestrelPlatform::RunLaunch(launch);
    }

    KestrelPlatform::SLaunch launch;
    std::vector<uint32_t> vOutput;
    std::vector<uint32_t> vInput;
    std::vector<unsigned char> vOutputShadow; ///< of the output's bytes; empty if all are written
};

inline uint32_t Bits(float f)
{
    return std::bit_cast<uint32_t>(f);
}

inline float Float(uint32_t n)
{
    return std::bit_cast<float>(n);
}

/// Lines that put a work-item's linear index into r100.x, and the address of its four output words
/// into r100.y.
inline const char* IndexLines()
{
    return "mov r100.x, vAbsTidFlat.x\n"
           "ishl r100.y, r100.x, l100.x\n"
           "iadd r100.y, r100.y, cb1[0].x\n";
}

inline const char* IndexLiterals()
{
    return "dcl_literal l100, 4, 2, 1, 0\n";
}

} // namespace KestrelPlatformTest

#endif
