#include "platform/simt/Structure.h"

#include "platform/simt/LaneOps.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

const ILOpCode s_Flow[] = {IL_OP_BREAK,
                           IL_OP_BREAKC,
                           IL_OP_CALL,
                           IL_OP_CALLNZ,
                           IL_OP_CONTINUE,
                           IL_OP_CONTINUEC,
                           IL_OP_ELSE,
                           IL_OP_ENDIF,
                           IL_OP_ENDLOOP,
                           IL_OP_FUNC,
                           IL_OP_IFC,
                           IL_OP_IFNZ,
                           IL_OP_RET,
                           IL_OP_BREAK_LOGICALZ,
                           IL_OP_BREAK_LOGICALNZ,
                           IL_OP_CALL_LOGICALZ,
                           IL_OP_CALL_LOGICALNZ,
                           IL_OP_CASE,
                           IL_OP_CONTINUE_LOGICALZ,
                           IL_OP_CONTINUE_LOGICALNZ,
                           IL_OP_DEFAULT,
                           IL_OP_ENDSWITCH,
                           IL_OP_ENDFUNC,
                           IL_OP_IF_LOGICALZ,
                           IL_OP_IF_LOGICALNZ,
                           IL_OP_WHILE,
                           IL_OP_SWITCH,
                           IL_OP_RET_DYN,
                           IL_OP_RET_LOGICALZ,
                           IL_OP_RET_LOGICALNZ,
                           IL_OP_END,
                           IL_OP_ENDMAIN,
                           IL_OP_MACRODEF,
                           IL_OP_MACROEND,
                           IL_OP_MACROCALL};

const ILOpCode s_Memory[] = {
    IL_OP_UAV_RAW_LOAD,    IL_OP_UAV_RAW_STORE, IL_OP_UAV_STRUCT_LOAD, IL_OP_UAV_STRUCT_STORE, IL_OP_UAV_ARENA_LOAD,
    IL_OP_UAV_ARENA_STORE, IL_OP_SRV_RAW_LOAD,  IL_OP_FLAT_ADDR_LOAD,  IL_OP_FLAT_ADDR_STORE,  IL_OP_LOAD_DWORD_AT_ADDR,
    IL_OP_LDS_LOAD_VEC,    IL_OP_LDS_STORE_VEC, IL_OP_LDS_LOAD_B64,    IL_OP_LDS_STORE_B64};

const SInstructionShape& Shape(uint32_t nOpCode)
{
    return GetInstructionShape(nOpCode);
}

// Atomics and narrow accesses have consecutive opcodes.
// A range of opcodes, including the last one.
struct SOpCodeRange
{
    uint32_t nFirst;
    uint32_t nLast;
};

const SOpCodeRange s_MemoryRuns[] = {{IL_OP_UAV_ADD, IL_OP_UAV_READ_CMP_XCHG},
                                     {IL_OP_LDS_LOAD, IL_OP_LDS_READ_CMP_XCHG},
                                     {IL_OP_UAV_UINC, IL_OP_UAV_UDEC},
                                     {IL_OP_UAV_READ_UINC, IL_OP_UAV_READ_UDEC},
                                     {IL_OP_LDS_LOAD_BYTE, IL_OP_UAV_SHORT_STORE},
                                     {IL_OP_LDS_INC, IL_OP_LDS_READ_MSKOR},
                                     {IL_OP_LDS_ADD_B64, IL_OP_LDS_READ_CMP_XCHG_B64},
                                     {IL_OP_UAV_FMIN, IL_OP_UAV_READ_FCMP_XCHG},
                                     {IL_OP_LDS_FMIN, IL_OP_LDS_READ_FCMP_XCHG_B64},
                                     {IL_OP_LDS_WRAP_RTN_B32, IL_OP_LDS_CONDXCHG32_RTN_B64}};

const ILOpCode s_Image[] = {
    IL_OP_LOAD,     IL_OP_RESINFO,      IL_OP_SAMPLE,        IL_OP_SAMPLE_B,       IL_OP_SAMPLE_G,    IL_OP_SAMPLE_L,
    IL_OP_SAMPLE_C, IL_OP_SAMPLE_C_LZ,  IL_OP_SAMPLE_C_L,    IL_OP_SAMPLE_C_G,     IL_OP_SAMPLE_C_B,  IL_OP_FETCH4,
    IL_OP_FETCH4_C, IL_OP_FETCH4_PO,    IL_OP_FETCH4_PO_C,   IL_OP_FETCH4_B,       IL_OP_FETCH4_PO_B, IL_OP_FETCH4_L,
    IL_OP_UAV_LOAD, IL_OP_FETCH4_PO_L,  IL_OP_FETCH4_C_LZ,   IL_OP_FETCH4_PO_C_LZ, IL_OP_UAV_STORE,   IL_OP_BUFINFO,
    IL_OP_GETLOD,   IL_OP_UAV_LOAD_MIP, IL_OP_UAV_STORE_MIP, IL_OP_UAV_STORE_MASK, IL_OP_SAMPLEINFO,  IL_OP_SAMPLEPOS};

const ILOpCode s_Special[] = {IL_OP_DP2,          IL_OP_DP3,
                              IL_OP_DP4,          IL_OP_DP2ADD,
                              IL_OP_CRS,          IL_OP_LEN,
                              IL_OP_DIST,         IL_OP_NRM,
                              IL_OP_NRM_PRECISE,  IL_OP_REFLECT,
                              IL_OP_FACEFORWARD,  IL_OP_DST,
                              IL_OP_LIT,          IL_OP_SINCOS,
                              IL_OP_DXSINCOS,     IL_OP_CMOV,
                              IL_OP_CMP,          IL_OP_SET,
                              IL_OP_MOVA,         IL_OP_I_FIRSTBIT,
                              IL_OP_U_BIT_INSERT, IL_OP_F_2_U4,
                              IL_OP_SAD_4,        IL_OP_D_FREXP,
                              IL_OP_F16_DP3,      IL_OP_F16_DP4,
                              IL_OP_F16_LEN,      IL_OP_F16_DIST,
                              IL_OP_F16_NRM,      IL_OP_F16_FACEFORWARD,
                              IL_OP_FENCE,        IL_OP_BALLOT,
                              IL_OP_MBCNT,        IL_OP_READFIRSTLANE,
                              IL_OP_READLANE,     IL_OP_LANE_ID,
                              IL_OP_WAVE_ID,      IL_OP_SAMPLE_RETURN_CODE,
                              IL_OP_MQSAD_U32_U8};

// Accepted without effect: hints to a hardware compiler.
const ILOpCode s_Ignored[] = {IL_OP_NOP, IL_OP_SLEEP, IL_OP_COMMENT, IL_OP_DCL_USER_DATA, IL_DCL_WAVESIZE};

std::vector<EOpCodeClass> MakeClasses()
{
    std::vector<EOpCodeClass> vClasses(IL_OP_LAST, ClassUnsupported);
    for (uint32_t n = 0; n < IL_OP_LAST; ++n)
    {
        if (Shape(n).pName && !Shape(n).bInstruction)
        {
            vClasses[n] = ClassIgnored;
        }
    }
#define LANE(opcode, form, out, a, b, c, expression) vClasses[opcode] = ClassLane;
#include "platform/simt/LaneOpsFast.def"
#define LANE(opcode, form, out, a, b, c, expression) vClasses[opcode] = ClassLane;
#include "platform/simt/LaneOpsSlow.def"
    for (ILOpCode eOpCode : s_Flow)
    {
        vClasses[eOpCode] = ClassFlow;
    }
    for (ILOpCode eOpCode : s_Memory)
    {
        vClasses[eOpCode] = ClassMemory;
    }
    for (const SOpCodeRange& range : s_MemoryRuns)
    {
        std::fill(vClasses.begin() + range.nFirst, vClasses.begin() + range.nLast + 1, ClassMemory);
    }
    for (ILOpCode eOpCode : s_Image)
    {
        vClasses[eOpCode] = ClassImage;
    }
    for (ILOpCode eOpCode : s_Special)
    {
        vClasses[eOpCode] = ClassSpecial;
    }
    for (ILOpCode eOpCode : s_Ignored)
    {
        vClasses[eOpCode] = ClassIgnored;
    }
    return vClasses;
}

/// Goes through the stream once, keeping track of open bodies and blocks.
class CStructureBuilder
{
public:
    CStructureBuilder(const SDecodedStream& stream, SStructure& structure, SDecodeError& error)
        : m_Stream(stream), m_Structure(structure), m_Error(error)
    {
    }

    bool Run()
    {
        m_Structure.vBodies.emplace_back();
        m_vOpen.emplace_back();
        for (uint32_t n = 0; n < m_Stream.vItems.size(); ++n)
        {
            m_pItem = &m_Stream.vItems[n];
            m_nInstruction = m_pItem->nInstruction == SItem::NoInstruction ? m_nInstruction : m_pItem->nInstruction;
            if (!Take(n))
            {
                return false;
            }
        }
        return LinkCalls() && OrderBodies();
    }

private:
    struct SBlock
    {
        ILOpCode eOpCode; ///< what opened it: an if, else, whileloop or switch
        bool bDefault;
    };
    struct SOpenBody
    {
        uint32_t nBody = 0;
        std::vector<SBlock> vBlocks;
        int nLoops = 0;
        int nSwitches = 0;
    };

    bool Fail(const std::string& strReason)
    {
        m_Error.nInstruction = m_nInstruction;
        m_Error.strMessage = std::string(Shape(m_pItem->eOpCode).pName) + ": " + strReason;
        return false;
    }

    SBody& Body() { return m_Structure.vBodies[m_vOpen.back().nBody]; }
    std::vector<SBlock>& Blocks() { return m_vOpen.back().vBlocks; }

    bool Take(uint32_t nItem)
    {
        switch (m_pItem->eOpCode)
        {
        case IL_OP_MACRODEF:
            return OpenBody(SBody::Macro, m_pItem->Controls(), m_Structure.mapMacros);
        case IL_OP_MACROEND:
            return CloseBody(SBody::Macro);
        case IL_OP_FUNC:
            if (!m_vOpen.empty())
            {
                return Fail("stands inside a body");
            }
            if (!OpenBody(SBody::Function, m_Stream.Word(*m_pItem, 0), m_Structure.mapFunctions))
            {
                return false;
            }
            Body().vItems.push_back(nItem);
            return true;
        case IL_OP_ENDFUNC:
            if (!m_vOpen.empty())
            {
                Body().vItems.push_back(nItem);
            }
            return CloseBody(SBody::Function);
        case IL_OP_ENDMAIN:
            if (!m_vOpen.empty())
            {
                Body().vItems.push_back(nItem);
            }
            return CloseBody(SBody::Main);
        case IL_OP_END:
            if (m_vOpen.size() > 1 || (!m_vOpen.empty() && Body().eKind != SBody::Main))
            {
                return Fail("a function or macro isn't closed");
            }
            return m_vOpen.empty() || CloseBody(SBody::Main);
        default:
            return TakeInstruction(nItem);
        }
    }

    bool TakeInstruction(uint32_t nItem)
    {
        const EOpCodeClass eClass = GetOpCodeClass(m_pItem->eOpCode);
        if (eClass == ClassUnsupported)
        {
            return Fail("has no meaning on this device");
        }
        if (m_vOpen.empty())
        {
            return eClass == ClassIgnored || Fail("stands outside every body");
        }
        Body().vItems.push_back(nItem);
        return eClass != ClassFlow || CheckBlocks();
    }

    bool OpenBody(SBody::EKind eKind, uint32_t nLabel, std::map<uint32_t, uint32_t>& map)
    {
        if (!map.emplace(nLabel, static_cast<uint32_t>(m_Structure.vBodies.size())).second)
        {
            return Fail("label " + std::to_string(nLabel) + " stands twice");
        }
        m_vOpen.emplace_back();
        m_vOpen.back().nBody = static_cast<uint32_t>(m_Structure.vBodies.size());
        m_Structure.vBodies.emplace_back();
        Body().eKind = eKind;
        Body().nLabel = nLabel;
        return true;
    }

    bool CloseBody(SBody::EKind eKind)
    {
        if (m_vOpen.empty() || Body().eKind != eKind)
        {
            return Fail("closes nothing");
        }
        if (!Blocks().empty())
        {
            return Fail(std::string("an open ") + Shape(Blocks().back().eOpCode).pName + " isn't closed");
        }
        m_vOpen.pop_back();
        return true;
    }

    bool InLoop() const { return m_vOpen.back().nLoops != 0; }
    bool InLoopOrSwitch() const { return InLoop() || m_vOpen.back().nSwitches != 0; }

    void Count(ILOpCode eOpCode, int nChange)
    {
        if (eOpCode == IL_OP_WHILE)
        {
            m_vOpen.back().nLoops += nChange;
        }
        if (eOpCode == IL_OP_SWITCH)
        {
            m_vOpen.back().nSwitches += nChange;
        }
    }

    bool Close(ILOpCode eFirst, ILOpCode eSecond)
    {
        if (Blocks().empty() || (Blocks().back().eOpCode != eFirst && Blocks().back().eOpCode != eSecond))
        {
            return Fail("closes nothing");
        }
        Count(Blocks().back().eOpCode, -1);
        Blocks().pop_back();
        return true;
    }

    bool CheckBlocks()
    {
        switch (m_pItem->eOpCode)
        {
        case IL_OP_IFC:
        case IL_OP_IFNZ:
        case IL_OP_IF_LOGICALZ:
        case IL_OP_IF_LOGICALNZ:
            Blocks().push_back({IL_OP_IFC, false});
            return true;
        case IL_OP_WHILE:
        case IL_OP_SWITCH:
            Blocks().push_back({m_pItem->eOpCode, false});
            Count(m_pItem->eOpCode, 1);
            return true;
        case IL_OP_ELSE:
            if (!Close(IL_OP_IFC, IL_OP_IFC))
            {
                return false;
            }
            Blocks().push_back({IL_OP_ELSE, false});
            return true;
        case IL_OP_ENDIF:
            return Close(IL_OP_IFC, IL_OP_ELSE);
        case IL_OP_ENDLOOP:
            return Close(IL_OP_WHILE, IL_OP_WHILE);
        case IL_OP_ENDSWITCH:
            return Close(IL_OP_SWITCH, IL_OP_SWITCH);
        case IL_OP_CASE:
        case IL_OP_DEFAULT:
            return CheckCase();
        case IL_OP_BREAK:
        case IL_OP_BREAKC:
        case IL_OP_BREAK_LOGICALZ:
        case IL_OP_BREAK_LOGICALNZ:
            return InLoopOrSwitch() || Fail("stands in no loop and no switch");
        case IL_OP_CONTINUE:
        case IL_OP_CONTINUEC:
        case IL_OP_CONTINUE_LOGICALZ:
        case IL_OP_CONTINUE_LOGICALNZ:
            return InLoop() || Fail("stands in no loop");
        case IL_OP_RET:
        case IL_OP_RET_DYN:
        case IL_OP_RET_LOGICALZ:
        case IL_OP_RET_LOGICALNZ:
            Body().bReturns = true;
            return true;
        default:
            m_vCalls.push_back({m_pItem, m_vOpen.back().nBody, m_nInstruction, 0});
            return true;
        }
    }

    bool CheckCase()
    {
        if (Blocks().empty() || Blocks().back().eOpCode != IL_OP_SWITCH)
        {
            return Fail("stands in no switch");
        }
        if (m_pItem->eOpCode != IL_OP_DEFAULT)
        {
            return true;
        }
        if (Blocks().back().bDefault)
        {
            return Fail("the switch has one already");
        }
        Blocks().back().bDefault = true;
        return true;
    }

    bool LinkCalls()
    {
        for (SCall& call : m_vCalls)
        {
            m_pItem = call.pItem;
            m_nInstruction = call.nInstruction;
            const bool bMacro = m_pItem->eOpCode == IL_OP_MACROCALL;
            const uint32_t nLabel = bMacro ? m_pItem->Controls() : m_Stream.Word(*m_pItem, 0);
            const std::map<uint32_t, uint32_t>& map = bMacro ? m_Structure.mapMacros : m_Structure.mapFunctions;
            const auto it = map.find(nLabel);
            if (it == map.end())
            {
                return Fail("there is no " + std::string(bMacro ? "macro " : "function ") + std::to_string(nLabel));
            }
            call.nTarget = it->second;
            m_Structure.vBodies[call.nBody].vCallees.push_back(it->second);
        }
        for (SBody& body : m_Structure.vBodies)
        {
            std::sort(body.vCallees.begin(), body.vCallees.end());
            body.vCallees.erase(std::unique(body.vCallees.begin(), body.vCallees.end()), body.vCallees.end());
        }
        return true;
    }

    bool FailCall(uint32_t nBody, uint32_t nTarget)
    {
        for (const SCall& call : m_vCalls)
        {
            if (call.nBody != nBody || call.nTarget != nTarget)
            {
                continue;
            }
            m_pItem = call.pItem;
            m_nInstruction = call.nInstruction;
        }
        return Fail("label " + std::to_string(m_Structure.vBodies[nTarget].nLabel) + " calls itself");
    }

    /// A recursive body would need a stack of unknown depth. The search has an explicit stack, since calls in a stream
    /// may nest deeper than this thread's stack allows.
    bool OrderBodies()
    {
        enum EMark : char
        {
            New,
            Open,
            Done
        };
        std::vector<SBody>& vBodies = m_Structure.vBodies;
        std::vector<char> vMarks(vBodies.size(), New);
        std::vector<std::pair<uint32_t, uint32_t>> vStack;
        for (uint32_t nRoot = 0; nRoot < vBodies.size(); ++nRoot)
        {
            if (vMarks[nRoot] != New)
            {
                continue;
            }
            vStack.push_back({nRoot, 0});
            vMarks[nRoot] = Open;
            while (!vStack.empty())
            {
                const uint32_t nBody = vStack.back().first;
                vBodies[nBody].bReachable |= nRoot == 0;
                if (vStack.back().second == vBodies[nBody].vCallees.size())
                {
                    vMarks[nBody] = Done;
                    vStack.pop_back();
                    continue;
                }
                const uint32_t nNext = vBodies[nBody].vCallees[vStack.back().second++];
                if (vMarks[nNext] == Open)
                {
                    return FailCall(nBody, nNext);
                }
                if (vMarks[nNext] == New)
                {
                    vMarks[nNext] = Open;
                    vStack.push_back({nNext, 0});
                }
            }
        }
        return true;
    }

    struct SCall
    {
        const SItem* pItem;
        uint32_t nBody;
        uint32_t nInstruction;
        uint32_t nTarget;
    };

    const SDecodedStream& m_Stream;
    SStructure& m_Structure;
    SDecodeError& m_Error;
    const SItem* m_pItem = nullptr;
    uint32_t m_nInstruction = 0;
    std::vector<SOpenBody> m_vOpen;
    std::vector<SCall> m_vCalls;
};

} // namespace

EOpCodeClass GetOpCodeClass(uint32_t nOpCode)
{
    static const std::vector<EOpCodeClass> s_vClasses = MakeClasses();
    return nOpCode < s_vClasses.size() ? s_vClasses[nOpCode] : ClassUnsupported;
}

bool BuildStructure(const SDecodedStream& stream, SStructure& structure, SDecodeError& error)
{
    structure = SStructure();
    return CStructureBuilder(stream, structure, error).Run();
}

} // namespace KestrelPlatform
