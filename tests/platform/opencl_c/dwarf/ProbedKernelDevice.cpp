#include "tests/platform/opencl_c/dwarf/ProbedKernel.h"

#include "il/ILFormatDecode.h"
#include "platform/compiler/ProgramImage.h"
#include "platform/opencl_c/driver/IrCompiler.h"
#include "platform/opencl_c/dwarf/DebugSections.h"
#include "platform/opencl_c/lowering/Lowered.h"
#include "tests/platform/opencl_c/dwarf/DebugReaders.h"
#include "tests/platform/opencl_c/dwarf/DwarfFile.h"
#include "tests/support/OpenCLProgram.h"

#include <set>
#include <sstream>

#include "llvm/IR/LLVMContext.h"
#include "llvm/IR/Module.h"

namespace KestrelTests
{

namespace
{

using KestrelTest::COpenCLDevice;
using KestrelTest::COpenCLProgram;

const uint32_t s_nConstantWords = 0x100000; ///< the words of constant buffer 1 as DWARF registers
const uint32_t s_nNoRegister = 0xFFFFFFFFU;

/// A kernel binary from the compiler itself.
std::vector<char> Compile(const std::string& strSource, const KestrelPlatform::SDeviceTarget& target)
{
    KestrelOpenCL::SCompileJob job;
    job.strSource = strSource;
    job.bDebug = job.options.bDebug = true;
    job.target = target;
    llvm::LLVMContext context;
    std::string strLog;
    KestrelOpenCL::SLowered lowered;
    const std::unique_ptr<llvm::Module> pModule = KestrelOpenCL::CompileToIR(context, job, strLog);
    if (!pModule || !KestrelOpenCL::PrepareForLowering(*pModule, job, strLog) ||
        !KestrelOpenCL::LowerModule(*pModule, target, true, lowered, strLog))
    {
        throw std::runtime_error(strLog);
    }
    lowered.module.vDebugSections = KestrelOpenCL::WriteDwarf(*pModule, lowered, false);
    return KestrelPlatform::CProgramImage(std::move(lowered.module), target, true).GetBytes();
}

/// What a run has written so far, of one work-item.
struct SItemState
{
    std::map<uint32_t, uint32_t> mapComponents; ///< 4 x temp + component
    std::map<uint64_t, uint8_t> mapPrivate;     ///< by byte offset
    std::map<int, size_t> mapVisits;
};

class CTracedRun
{
public:
    CTracedRun(std::vector<char> vBinary, const CVisits& expected, std::vector<uint32_t> vArguments)
        : m_File(std::move(vBinary)), m_vArguments(std::move(vArguments))
    {
        for (const auto& [key, vVisits] : expected)
        {
            for (const SnapShot& visit : vVisits)
            {
                for (const auto& [strName, strBytes] : visit)
                {
                    m_mapNames[key.second][strName] = strBytes.size();
                }
            }
        }
        FindStatements();
    }

    static void OnRecord(const SPlatformTraceRecord* pRecord, void* pUser)
    {
        static_cast<CTracedRun*>(pUser)->Add(*pRecord);
    }

    CVisits& GetVisits() { return m_Visits; }

private:
    /// For each function as it stands in the kernel the first line of IL of each line of the source.
    void FindStatements()
    {
        std::istringstream text(m_File.Section(".debugil"));
        std::set<std::string> setSeen;
        uint32_t nLine = 0;
        for (std::string strLine; std::getline(text, strLine); ++nLine)
        {
            const bool bPlaceholder = strLine == ";$$$$$$$$$$";
            if ((strLine[0] == ';' && !bPlaceholder) || strLine.rfind("dcl_", 0) == 0 || strLine.rfind("il_", 0) == 0)
            {
                continue;
            }
            m_vLines.push_back(nLine);
            const std::string strPlace = m_File.Place(nLine);
            const size_t nColumn = strPlace.rfind(':');
            const size_t nNumber = strPlace.empty() ? 0 : strPlace.rfind(':', nColumn - 1);
            const int nSource = strPlace.empty() ? 0 : std::stoi(strPlace.substr(nNumber + 1));
            std::string strWhere = std::to_string(nSource);
            for (const SDwarfFrame& frame : m_File.Frames(nLine))
            {
                strWhere += " " + frame.strFunction + " " + std::to_string(frame.nCallLine) + " " +
                            std::to_string(frame.nCallColumn);
            }
            if (m_mapNames.count(nSource) && setSeen.insert(strWhere).second)
            {
                m_mapStatements[nLine] = nSource;
            }
        }
    }

    void Add(const SPlatformTraceRecord& record)
    {
        const auto it = m_mapStatements.find(m_vLines.at(record.nInstruction));
        for (uint32_t n = 0; n < record.nItems; ++n)
        {
            if (record.pActive[n] == 0)
            {
                continue;
            }
            SItemState& state = m_mapStates[record.pItems[n]];
            if (it != m_mapStatements.end())
            {
                m_Visits[{record.pItems[n], it->second}].push_back(Look(state, it->first, it->second));
            }
            Write(state, record, n);
        }
    }

    static void Write(SItemState& state, const SPlatformTraceRecord& record, uint32_t n)
    {
        if (record.nRegisterType == s_nNoRegister || !record.pValues)
        {
            return;
        }
        for (uint32_t i = 0; i < 4 && record.nRegisterType == IL_REGTYPE_TEMP; ++i)
        {
            state.mapComponents[4 * record.nRegisterNumber + i] = record.pValues[4 * n + i];
        }
        for (uint32_t i = 0; i < 16 && record.nRegisterType != IL_REGTYPE_TEMP && record.pIndices; ++i)
        {
            state.mapPrivate[record.pIndices[n] + i] =
                static_cast<uint8_t>(record.pValues[4 * n + i / 4] >> (i % 4 * 8));
        }
    }

    SnapShot Look(const SItemState& state, uint32_t nLine, int nSource)
    {
        SnapShot visit;
        const auto& vVariables = Variables(nLine);
        for (const auto& [strName, nSize] : m_mapNames[nSource])
        {
            const auto it = std::find_if(vVariables.begin(), vVariables.end(),
                                         [&](const SDwarfVariable& variable) { return variable.strName == strName; });
            visit[strName] = it == vVariables.end() ? "isn't in scope" : Read(state, it->vLocation, nSize);
        }
        return visit;
    }

    const std::vector<SDwarfVariable>& Variables(uint32_t nLine)
    {
        const auto [it, bNew] = m_mapVariables.insert({nLine, {}});
        if (bNew)
        {
            it->second = m_File.Variables(nLine);
        }
        return it->second;
    }

    std::string Read(const SItemState& state, const std::vector<Dwarf_Op>& vLocation, size_t nSize) const
    {
        std::string strBytes;
        std::string strPart;
        for (const Dwarf_Op& op : vLocation)
        {
            switch (op.atom)
            {
            case DW_OP_regx:
            {
                const auto it = state.mapComponents.find(static_cast<uint32_t>(op.number));
                const size_t nWord = op.number - s_nConstantWords;
                const uint32_t nValue = op.number >= s_nConstantWords
                                            ? (nWord < m_vArguments.size() ? m_vArguments[nWord] : 0xBAD)
                                            : (it == state.mapComponents.end() ? 0xBAD : it->second);
                strPart.assign(reinterpret_cast<const char*>(&nValue), 4);
                break;
            }
            case DW_OP_fbreg:
                strPart.clear();
                for (uint64_t n = op.number; n < op.number + nSize; ++n)
                {
                    const auto it = state.mapPrivate.find(n);
                    strPart += static_cast<char>(it == state.mapPrivate.end() ? 0 : it->second);
                }
                break;
            case DW_OP_piece:
                strPart.resize(op.number);
                strBytes += strPart;
                strPart.clear();
                break;
            default:
                return "an operator that isn't expected";
            }
        }
        return vLocation.empty() ? "has no place" : (strBytes + strPart).substr(0, nSize);
    }

    CDwarfFile m_File;
    std::vector<uint32_t> m_vArguments; ///< constant buffer 1, word by word
    std::map<int, std::map<std::string, size_t>> m_mapNames;
    std::vector<uint32_t> m_vLines; ///< by instruction
    std::map<uint32_t, int> m_mapStatements;
    std::map<uint32_t, std::vector<SDwarfVariable>> m_mapVariables;
    std::map<uint64_t, SItemState> m_mapStates;
    CVisits m_Visits;
};

} // namespace

CVisits RunOnDevice(const SProbedKernel& kernel, const std::string& strDevice, size_t nItems,
                    std::vector<int32_t>& vData, int nScale, const CVisits& expected)
{
    COpenCLDevice device(strDevice);
    KestrelPlatform::SDeviceTarget target;
    target.strName = strDevice;
    target.b64BitAddresses = strDevice != "Kiln";
    target.bRawUavOnly = strDevice == "Kiln";
    const std::vector<char> vBinary = Compile(std::string("#define P(name)\n#line 1\n") + kernel.pszSource, target);
    EXPECT_EQ(Complaints(vBinary), "");
    COpenCLProgram program(device, vBinary);
    // The pointer's slot, then the int's.
    CTracedRun run(vBinary, expected, {0, 0, 0, 0, static_cast<uint32_t>(nScale), 0, 0, 0});
    const auto buffer = device.Buffer(vData);
    Control().SetTrace(CTracedRun::OnRecord, &run);
    program.Run("run", {{nItems}, {}, {}}, buffer, static_cast<cl_int>(nScale));
    Control().SetTrace(nullptr, nullptr);
    vData = device.Read<int32_t>(buffer);
    return run.GetVisits();
}

} // namespace KestrelTests
