#include "platform/opencl_c/driver/Passes.h"

#include "platform/opencl_c/driver/Divisions.h"

#include <llvm/Analysis/AliasAnalysis.h>
#include <llvm/Analysis/AssumptionCache.h>
#include <llvm/Analysis/BasicAliasAnalysis.h>
#include <llvm/Analysis/BlockFrequencyInfo.h>
#include <llvm/Analysis/BranchProbabilityInfo.h>
#include <llvm/Analysis/LoopInfo.h>
#include <llvm/Analysis/MemorySSA.h>
#include <llvm/Analysis/OptimizationRemarkEmitter.h>
#include <llvm/Analysis/PostDominators.h>
#include <llvm/Analysis/ProfileSummaryInfo.h>
#include <llvm/Analysis/ScalarEvolution.h>
#include <llvm/Analysis/ScopedNoAliasAA.h>
#include <llvm/Analysis/TargetLibraryInfo.h>
#include <llvm/Analysis/TargetTransformInfo.h>
#include <llvm/Analysis/TypeBasedAliasAnalysis.h>
#include <llvm/IR/Dominators.h>
#include <llvm/IR/PassInstrumentation.h>
#include <llvm/IR/PassManager.h>
#include <llvm/Transforms/InstCombine/InstCombine.h>
#include <llvm/Transforms/Scalar/ADCE.h>
#include <llvm/Transforms/Scalar/EarlyCSE.h>
#include <llvm/Transforms/Scalar/IndVarSimplify.h>
#include <llvm/Transforms/Scalar/LICM.h>
#include <llvm/Transforms/Scalar/LoopDeletion.h>
#include <llvm/Transforms/Scalar/LoopPassManager.h>
#include <llvm/Transforms/Scalar/LoopRotation.h>
#include <llvm/Transforms/Scalar/LoopUnrollPass.h>
#include <llvm/Transforms/Scalar/Reassociate.h>
#include <llvm/Transforms/Scalar/SROA.h>
#include <llvm/Transforms/Scalar/SimplifyCFG.h>

namespace KestrelOpenCL
{
namespace
{

/// No function here is the C library's, whatever its name: LLVM must not turn a printf into a puts.
llvm::TargetLibraryInfoImpl NoLibrary()
{
    llvm::TargetLibraryInfoImpl library;
    library.disableAllFunctions();
    return library;
}

llvm::AAManager AliasAnalyses()
{
    llvm::AAManager manager;
    manager.registerFunctionAnalysis<llvm::BasicAA>();
    manager.registerFunctionAnalysis<llvm::ScopedNoAliasAA>();
    manager.registerFunctionAnalysis<llvm::TypeBasedAA>();
    return manager;
}

/// Turns divisions whose divisors earlier passes have found into plain ones for the later passes.
struct SShowDivisionsPass : llvm::PassInfoMixin<SShowDivisionsPass>
{
    static llvm::PreservedAnalyses run(llvm::Function& function, llvm::FunctionAnalysisManager&)
    {
        ShowDivisions(function, false);
        llvm::PreservedAnalyses preserved;
        preserved.preserveSet<llvm::CFGAnalyses>();
        return preserved;
    }
};

/// LLVM's loop passes update analyses of the whole function for each loop, so their time is quadratic in the number of
/// loops. A function with far more loops than usual is left as it is.
class CFewLoopsPass : public llvm::PassInfoMixin<CFewLoopsPass>
{
public:
    explicit CFewLoopsPass(llvm::FunctionPassManager passes) : m_Passes(std::move(passes)) {}

    llvm::PreservedAnalyses run(llvm::Function& function, llvm::FunctionAnalysisManager& analyses)
    {
        const size_t nMaxLoops = 200;
        const llvm::LoopInfo& loops = analyses.getResult<llvm::LoopAnalysis>(function);
        return loops.getLoopsInPreorder().size() <= nMaxLoops ? m_Passes.run(function, analyses)
                                                              : llvm::PreservedAnalyses::all();
    }

private:
    llvm::FunctionPassManager m_Passes;
};

llvm::FunctionPassManager SimplifyPasses()
{
    llvm::FunctionPassManager passes;
    passes.addPass(llvm::SROAPass());
    passes.addPass(llvm::EarlyCSEPass(false));
    passes.addPass(SShowDivisionsPass());
    passes.addPass(llvm::SimplifyCFGPass());
    passes.addPass(llvm::InstCombinePass());
    return passes;
}

llvm::FunctionPassManager OptimizePasses()
{
    llvm::FunctionPassManager passes;
    passes.addPass(llvm::SROAPass());
    passes.addPass(llvm::EarlyCSEPass(true));
    passes.addPass(SShowDivisionsPass());
    passes.addPass(llvm::InstCombinePass());
    passes.addPass(llvm::SimplifyCFGPass());
    passes.addPass(llvm::ReassociatePass());

    llvm::LoopPassManager first;
    first.addPass(llvm::LoopRotatePass());
    first.addPass(llvm::LICMPass(llvm::LICMOptions()));
    llvm::FunctionPassManager onLoops;
    onLoops.addPass(llvm::createFunctionToLoopPassAdaptor(std::move(first), true, true));
    onLoops.addPass(llvm::SimplifyCFGPass());
    onLoops.addPass(llvm::InstCombinePass());

    // Counters keep their width: a 64-bit one takes two registers and twice as many instructions.
    llvm::LoopPassManager second;
    second.addPass(llvm::IndVarSimplifyPass(false));
    second.addPass(llvm::LoopDeletionPass());
    second.addPass(llvm::LoopFullUnrollPass());
    onLoops.addPass(llvm::createFunctionToLoopPassAdaptor(std::move(second)));
    passes.addPass(CFewLoopsPass(std::move(onLoops)));

    // Arrays whose loops were unrolled can become scalars now.
    passes.addPass(llvm::SROAPass());
    passes.addPass(llvm::EarlyCSEPass(true));
    passes.addPass(SShowDivisionsPass());
    passes.addPass(llvm::InstCombinePass());
    passes.addPass(llvm::ADCEPass());
    passes.addPass(llvm::SimplifyCFGPass());
    return passes;
}

} // namespace

struct CPasses::SManagers
{
    SManagers();

    llvm::LoopAnalysisManager m_Loops;
    llvm::FunctionAnalysisManager m_Functions;
    llvm::ModuleAnalysisManager m_Modules;
    llvm::FunctionPassManager m_Simplify = SimplifyPasses();
    llvm::FunctionPassManager m_Optimize = OptimizePasses();
};

CPasses::SManagers::SManagers()
{
    const auto AddFunctionAnalysis = [this](auto analysis)
    { m_Functions.registerPass([&] { return std::move(analysis); }); };
    AddFunctionAnalysis(AliasAnalyses());
    AddFunctionAnalysis(llvm::AssumptionAnalysis());
    AddFunctionAnalysis(llvm::BasicAA());
    AddFunctionAnalysis(llvm::BlockFrequencyAnalysis());
    AddFunctionAnalysis(llvm::BranchProbabilityAnalysis());
    AddFunctionAnalysis(llvm::DominatorTreeAnalysis());
    AddFunctionAnalysis(llvm::LoopAnalysis());
    AddFunctionAnalysis(llvm::MemorySSAAnalysis());
    AddFunctionAnalysis(llvm::OptimizationRemarkEmitterAnalysis());
    AddFunctionAnalysis(llvm::PassInstrumentationAnalysis());
    AddFunctionAnalysis(llvm::PostDominatorTreeAnalysis());
    AddFunctionAnalysis(llvm::ScalarEvolutionAnalysis());
    AddFunctionAnalysis(llvm::ScopedNoAliasAA());
    AddFunctionAnalysis(llvm::TargetIRAnalysis());
    AddFunctionAnalysis(llvm::TargetLibraryAnalysis(NoLibrary()));
    AddFunctionAnalysis(llvm::TypeBasedAA());
    m_Modules.registerPass([] { return llvm::PassInstrumentationAnalysis(); });
    m_Modules.registerPass([] { return llvm::ProfileSummaryAnalysis(); });
    m_Loops.registerPass([] { return llvm::PassInstrumentationAnalysis(); });

    m_Modules.registerPass([this] { return llvm::FunctionAnalysisManagerModuleProxy(m_Functions); });
    m_Functions.registerPass([this] { return llvm::ModuleAnalysisManagerFunctionProxy(m_Modules); });
    m_Functions.registerPass([this] { return llvm::LoopAnalysisManagerFunctionProxy(m_Loops); });
    m_Loops.registerPass([this] { return llvm::FunctionAnalysisManagerLoopProxy(m_Functions); });
}

CPasses::CPasses() : m_pManagers(std::make_unique<SManagers>()) {}

CPasses::~CPasses() = default;

void CPasses::Simplify(llvm::Function& function)
{
    m_pManagers->m_Simplify.run(function, m_pManagers->m_Functions);
    m_pManagers->m_Functions.clear(function, function.getName());
}

void CPasses::Optimize(llvm::Function& kernel)
{
    m_pManagers->m_Optimize.run(kernel, m_pManagers->m_Functions);
    m_pManagers->m_Functions.clear(kernel, kernel.getName());
    ShowDivisions(kernel, true);
}

} // namespace KestrelOpenCL
