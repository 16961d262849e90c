#include "platform/opencl_c/lowering/Allocation.h"
#include "platform/opencl_c/lowering/Cleanup.h"
#include "platform/opencl_c/lowering/KernelWrapper.h"
#include "platform/opencl_c/lowering/LeanLoops.h"
#include "platform/opencl_c/lowering/Lowered.h"
#include "platform/opencl_c/lowering/Selector.h"
#include "platform/opencl_c/lowering/VariablePlaces.h"
#include "platform/opencl_c/lowering/Writer.h"

#include "llvm/ADT/PostOrderIterator.h"
#include "llvm/IR/CFG.h"
#include "llvm/IR/Module.h"

#include <algorithm>
#include <map>

namespace KestrelOpenCL
{
namespace
{

const uint32_t s_nFirstUniqueId = 1024;
const uint32_t s_nMaxComponents = 65536; ///< of registers, arrays and private words of a work-item
const uint32_t s_nMaxConstantBytes = 65536;
const uint32_t s_nSpareComponents = 4096; ///< for additions by the device and a debugger
const uint32_t s_nMaxReadImages = 128;
const uint32_t s_nMaxWrittenImages = 8;
const uint32_t s_nMaxSamplers = 16;

/// Lowers the kernels of one module. Each object serves one call.
class CModuleLowering
{
public:
    CModuleLowering(llvm::Module& module, const KestrelPlatform::SDeviceTarget& target, bool bDebug, SLowered& lowered,
                    std::string& strLog)
        : m_Module(module), m_Target(target), m_bDebug(bDebug), m_Lowered(lowered), m_strLog(strLog)
    {
    }

    bool Run()
    {
        Append("il_cs_2_0\n" + std::string(KestrelPlatform::s_Placeholder) + "\nendmain\n");
        bool bOk = true;
        for (llvm::Function& function : m_Module)
        {
            if (!function.isDeclaration() && function.getCallingConv() == llvm::CallingConv::SPIR_KERNEL)
            {
                bOk = LowerKernel(function) && bOk;
            }
        }
        Append("end\n");
        return bOk;
    }

private:
    void Append(const std::string& strText)
    {
        m_Lowered.module.strText += strText;
        m_Lowered.vLines.resize(m_Lowered.vLines.size() +
                                static_cast<size_t>(std::count(strText.begin(), strText.end(), '\n')));
    }
    uint32_t NextLine() const { return static_cast<uint32_t>(m_Lowered.vLines.size()); }

    bool Fail(const llvm::Function& kernel, const std::string& strWhat)
    {
        m_strLog += "error: kernel '" + kernel.getName().str() + "': " + strWhat + "\n";
        return false;
    }

    bool CheckLimit(const llvm::Function& kernel, uint64_t nNeeded, uint64_t nLimit, const char* pszWhat)
    {
        return nNeeded <= nLimit || Fail(kernel, "needs " + std::to_string(nNeeded) + " " + pszWhat +
                                                     ", more than the device's " + std::to_string(nLimit));
    }

    static std::vector<SFlowStep> MakeFlow(const SRegions& regions, CSelector& selector)
    {
        std::vector<SFlowStep> vFlow;
        const SKernelCode& code = selector.GetCode();
        std::map<std::pair<unsigned, unsigned>, unsigned> mapEdges;
        for (unsigned n = 0; n < code.vEdges.size(); ++n)
        {
            mapEdges[{code.vEdges[n].nFrom, code.vEdges[n].nTo}] = n;
        }
        for (const SRegionStep& step : regions.vSteps)
        {
            SFlowStep flow;
            flow.nBlock = step.pBlock != nullptr ? selector.GetBlockNumber(step.pBlock)
                                                 : static_cast<unsigned>(code.vConditions.size());
            const bool bUsesGuard = step.nGuard >= 0;
            flow.nGuard = bUsesGuard ? static_cast<unsigned>(step.nGuard) : 0;
            if (step.eKind == SRegionStep::Edge)
            {
                const auto it = mapEdges.find({flow.nBlock, selector.GetBlockNumber(step.pTo)});
                flow.eKind = it != mapEdges.end() ? SFlowStep::Edge : SFlowStep::Other;
                flow.nEdge = it != mapEdges.end() ? it->second : 0;
            }
            else if (step.eKind == SRegionStep::Block)
            {
                flow.eKind = SFlowStep::Block;
            }
            else if (step.eKind == SRegionStep::SetGuard || bUsesGuard)
            {
                flow.eKind = step.eKind == SRegionStep::SetGuard ? SFlowStep::SetGuard : SFlowStep::UseGuard;
            }
            else if (step.eKind == SRegionStep::If || step.eKind == SRegionStep::Switch)
            {
                flow.eKind = SFlowStep::Branch;
            }
            vFlow.push_back(flow);
        }
        return vFlow;
    }

    bool LowerKernel(llvm::Function& kernel)
    {
        if (!m_bDebug)
        {
            MakeLean(kernel, m_Target.b64BitAddresses);
        }
        SRegions regions;
        std::string strWhyNot;
        if (!BuildRegions(kernel, regions, strWhyNot))
        {
            return Fail(kernel, strWhyNot);
        }
        CSelector selector(kernel, m_Target, m_bDebug);
        if (!selector.Run(OrderBlocks(kernel)))
        {
            m_strLog += selector.GetFaults();
            return false;
        }
        SKernelCode& code = selector.GetCode();
        CleanUp(code);
        const std::vector<SFlowStep> vFlow = MakeFlow(regions, selector);
        const SAllocation allocation = AllocateTemps(code, vFlow, regions.nGuards);
        CLiterals literals(m_nLiterals);
        SBody body = CWriter(code, allocation, literals).Write(regions.vSteps, vFlow);
        m_nLiterals += literals.Count();
        return Check(kernel, selector, allocation) && Place(kernel, selector, allocation, literals, body);
    }

    static std::vector<llvm::BasicBlock*> OrderBlocks(llvm::Function& kernel)
    {
        llvm::ReversePostOrderTraversal<llvm::Function*> order(&kernel);
        return {order.begin(), order.end()};
    }

    bool Check(const llvm::Function& kernel, const CSelector& selector, const SAllocation& allocation)
    {
        const CStorage& storage = selector.GetStorage();
        const uint64_t nPrivateWords = (storage.GetPrivateBytes() + 15) / 16 * 4;
        uint64_t nRegisters = allocation.nRegisters;
        for (const auto& entry : selector.GetArrays())
        {
            nRegisters += entry.second.nRegisters;
        }
        const uint64_t nComponents = nRegisters * 4 + nPrivateWords;
        return CheckImages(kernel, selector) &&
               CheckLimit(kernel, storage.GetLocalBytes(), m_Target.nLocalMemoryBytes, "bytes of local memory") &&
               CheckLimit(kernel, storage.GetPrivateBytes(), (s_nMaxComponents - s_nSpareComponents) * 4ull,
                          "bytes of private memory") &&
               CheckLimit(kernel, nComponents, s_nMaxComponents - s_nSpareComponents,
                          "words of registers and private memory a work-item") &&
               CheckLimit(kernel, storage.GetConstants().size(), s_nMaxConstantBytes, "bytes of constants");
    }

    bool CheckImages(const llvm::Function& kernel, const CSelector& selector)
    {
        uint64_t nRead = 0;
        uint64_t nWritten = 0;
        uint64_t nSamplers = selector.GetSamplers().size();
        for (const SKernelParameter& parameter : selector.GetParameters())
        {
            const bool bImage = parameter.eKind == SKernelParameter::Image;
            nRead += bImage && parameter.strAccess == "RO" ? 1 : 0;
            nWritten += bImage && parameter.strAccess != "RO" ? 1 : 0;
            nSamplers += parameter.eKind == SKernelParameter::Sampler ? 1 : 0;
        }
        return CheckLimit(kernel, nRead, s_nMaxReadImages, "images to read") &&
               CheckLimit(kernel, nWritten, s_nMaxWrittenImages, "images to write") &&
               CheckLimit(kernel, nSamplers, s_nMaxSamplers, "samplers");
    }

    /// Adds the kernel's wrapper, function and metadata to the module.
    bool Place(const llvm::Function& kernel, const CSelector& selector, const SAllocation& allocation,
               const CLiterals& literals, SBody& body)
    {
        const CStorage& storage = selector.GetStorage();
        SKernelNeeds needs;
        needs.nLocalBytes = static_cast<uint32_t>(storage.GetLocalBytes());
        needs.nPrivateBytes = static_cast<uint32_t>((storage.GetPrivateBytes() + 15) / 16 * 16);
        for (const auto& entry : selector.GetArrays())
        {
            needs.vArrays.push_back(entry.second.nRegisters);
        }
        needs.vSamplers = selector.GetSamplers();
        needs.vConstants = storage.GetConstants();
        const std::string strName = kernel.getName().str();
        SLoweredKernel lines;
        lines.pFunction = &kernel;
        lines.nWrapperFirst = NextLine();
        Append(WriteWrapper(kernel, m_nUniqueId, selector.GetParameters(), needs, m_Target, selector.UsesLocal()));
        lines.nWrapperLast = NextLine() - 2;
        lines.nFirst = NextLine();
        Append("func " + std::to_string(m_nUniqueId + 1) + "\n;" + strName + "\n" + literals.Declare());
        m_Lowered.module.strText += body.strText;
        m_Lowered.vLines.insert(m_Lowered.vLines.end(), body.vLines.begin(), body.vLines.end());
        lines.nLast = NextLine();
        Append("endfunc\n;" + strName + "\n");
        m_Lowered.vKernels.push_back(lines);
        AddVariablePlaces(kernel, selector, allocation, lines, m_Lowered);

        KestrelPlatform::SModuleKernel moduleKernel;
        moduleKernel.strMetadata = WriteMetadata(strName, m_nUniqueId, selector.GetParameters(), needs, m_Target);
        KestrelPlatform::SDiagnostic diagnostic;
        m_nUniqueId += 2;
        if (!KestrelPlatform::ReadKernelMetadata(moduleKernel.strMetadata, moduleKernel.metadata, diagnostic))
        {
            return Fail(kernel, diagnostic.strMessage);
        }
        m_Lowered.module.vKernels.push_back(std::move(moduleKernel));
        return true;
    }

    llvm::Module& m_Module;
    const KestrelPlatform::SDeviceTarget& m_Target;
    bool m_bDebug;
    SLowered& m_Lowered;
    std::string& m_strLog;
    uint32_t m_nUniqueId = s_nFirstUniqueId;
    uint32_t m_nLiterals = 0;
};

} // namespace

bool LowerModule(llvm::Module& module, const KestrelPlatform::SDeviceTarget& target, bool bDebug, SLowered& lowered,
                 std::string& strLog)
{
    return CModuleLowering(module, target, bDebug, lowered, strLog).Run();
}

} // namespace KestrelOpenCL
