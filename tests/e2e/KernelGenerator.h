#ifndef KESTREL_TESTS_E2E_KERNELGENERATOR_H
#define KESTREL_TESTS_E2E_KERNELGENERATOR_H

#include "tools/kestrel/LaunchFile.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace KestrelTest
{

/// A kernel made from a seed, with a launch for it.
struct SGeneratedKernel
{
    KestrelTool::SLaunchFile launch;
    /// The debugger's rules may let its position pass over code that some work-items still run:
    /// behind a break or continue in an else-part, a break in a loop that others have continued, a
    /// break in an if inside a switch, or a return that not all take.
    bool bMaySkip = false;
};

/// Makes structured kernels: nested ifs, loops with divergent breaks and continues, switches,
/// calls, divergent returns, indexed temps, private memory, stores in branches. The same seed gives the same kernel
/// on every machine. Every loop has a counter of its own, so that every kernel ends.
class CKernelGenerator
{
public:
    explicit CKernelGenerator(uint32_t nSeed) : m_Engine(nSeed) {}

    SGeneratedKernel Generate();

private:
    /// What stands around the place that is being written.
    struct SScope
    {
        bool bInLoop = false;   ///< a break or continue has a loop to go to
        bool bInSwitch = false; ///< the nearest of the two is a switch
        bool bInElse = false;   ///< an else-part stands between here and that block
        bool bInFunction = false;
        unsigned int nDepth = 0;
        bool* pLoopContinues = nullptr; ///< the loop has a continue
    };

    struct SFunction
    {
        unsigned int nLabel;
        unsigned int nDepth; ///< of the deepest call, so that blocks stay bounded over calls
    };

    unsigned int Below(unsigned int nLimit) { return static_cast<unsigned int>(m_Engine() % nLimit); }
    bool Chance(unsigned int nPercent) { return Below(100) < nPercent; }
    void Line(const std::string& strLine) { m_strText += strLine + "\n"; }
    std::string Variable() { return "r" + std::to_string(10 + Below(6)); }
    std::string Source();

    void Body(const SScope& scope, unsigned int nStatements);
    void Statement(const SScope& scope);
    void Arithmetic();
    void VectorArithmetic();
    void IndexedWrite();
    void Store();
    void PrivateStore();
    void Condition();
    void If(const SScope& scope);
    void Loop(const SScope& scope);
    void LeaveLoop(const SScope& scope);
    void Switch(const SScope& scope);
    void Call(const SScope& scope);
    void Return();
    void Function(const SFunction& function);
    std::string Finish();

    std::mt19937 m_Engine;
    std::string m_strText;
    unsigned int m_nLoops = 0;
    unsigned int m_nBudget = 0;
    std::vector<SFunction> m_vPending; ///< called and not written yet
    unsigned int m_nNextLabel = 1031;
    bool m_bMaySkip = false;
};

} // namespace KestrelTest

#endif
