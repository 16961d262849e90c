#include "platform/opencl_c/structure/Regions.h"

#include "platform/opencl_c/structure/RegionEmitter.h"
#include "platform/opencl_c/structure/WideSwitches.h"

#include "llvm/IR/BasicBlock.h"
#include "llvm/IR/Constants.h"
#include "llvm/Support/raw_ostream.h"

namespace KestrelOpenCL
{

namespace
{

struct SStepText
{
    const char* pszName;
    int nIndentBefore; ///< of the line itself, relative to the lines before
    int nIndentAfter;
};

/// Indexed by SRegionStep::EKind.
const SStepText s_StepTexts[] = {
    {"block", 0, 0},       {"edge", 0, 0},  {"set", 0, 0},       {"if", 0, 1},     {"else", -1, 0},
    {"endif", -1, -1},     {"loop", 0, 1},  {"endloop", -1, -1}, {"switch", 0, 1}, {"case", -1, 0},
    {"endswitch", -1, -1}, {"break", 0, 0}, {"continue", 0, 0},  {"return", 0, 0},
};

std::string BlockName(const llvm::BasicBlock* pBlock)
{
    std::string strName;
    llvm::raw_string_ostream stream(strName);
    if (pBlock)
    {
        pBlock->printAsOperand(stream, false);
    }
    return stream.str();
}

std::string StepDetails(const SRegionStep& step)
{
    std::string strText;
    switch (step.eKind)
    {
    case SRegionStep::Block:
    case SRegionStep::Switch:
        return " " + BlockName(step.pBlock);
    case SRegionStep::Edge:
        return " " + BlockName(step.pBlock) + " " + BlockName(step.pTo);
    case SRegionStep::SetGuard:
        return " g" + std::to_string(step.nGuard) + (step.bValue ? " true" : " false");
    case SRegionStep::If:
        strText = step.bValue ? " " : " not ";
        return strText + (step.nGuard < 0 ? BlockName(step.pBlock) : "g" + std::to_string(step.nGuard));
    case SRegionStep::Case:
        for (const llvm::ConstantInt* pValue : step.vCases)
        {
            strText += " " + std::to_string(pValue->getSExtValue());
        }
        return strText + (step.bValue ? " default" : "");
    default:
        return "";
    }
}

} // namespace

bool BuildRegions(llvm::Function& function, SRegions& regions, std::string& strWhyNot)
{
    regions = {};
    FitSwitches(function);
    CFlowGraph graph;
    if (!graph.Build(function, strWhyNot))
    {
        return false;
    }
    const CRegionPlan plan(graph);
    CRegionEmitter(graph, plan).Emit(regions);
    return true;
}

std::string PrintRegions(const SRegions& regions)
{
    std::string strText;
    int nIndent = 0;
    for (const SRegionStep& step : regions.vSteps)
    {
        const SStepText& text = s_StepTexts[step.eKind];
        strText.append(static_cast<size_t>(nIndent + text.nIndentBefore) * 2, ' ');
        strText += text.pszName + StepDetails(step) + "\n";
        nIndent += text.nIndentAfter;
    }
    return strText;
}

} // namespace KestrelOpenCL
