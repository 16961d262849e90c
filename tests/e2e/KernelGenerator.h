#ifndef KESTREL_TESTS_E2E_KERNELGENERATOR_H
#define KESTREL_TESTS_E2E_KERNELGENERATOR_H

#include "tools/session/launch/LaunchFile.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace KestrelTest
{

template <size_t N>
const char* Pick(const char* const (&table)[N], unsigned int nIndex)
{
    return table[nIndex % N];
}

/// A kernel generated from a seed, with a launch for it.
struct SGeneratedKernel
{
    KestrelTool::SLaunchFile launch;
    /// Whether the debugger's rules may skip code that some work-items still run: after a break or continue in an
    /// else-part, a break in a loop in which others have continued, a break in an if within a switch, or a return that
    /// not all work-items take.
    bool bMaySkip = false;
};

/// Features that a kernel may have besides plain statements.
struct SKernelFeatures
{
    bool bMore = false;          ///< more memory and varied variables; the following features imply it
    bool bReturns = false;       ///< guards, returns in blocks, functions and macros
    bool bReturnsIf = false;     ///< conditional returns, in addition
    bool bLeaves = false;        ///< breaks and continues anywhere: in else-parts, cases, at the end of a part
    bool bMemory = false;        ///< stores, loads and atomics of every kind in global memory
    bool bLocal = false;         ///< the same in local memory, with barriers
    bool bAllReading = false;    ///< atomics of every kind that give the old value; sessions refuse most of them
    bool bMacros = false;        ///< outline macros that run several times
    bool bCallsIf = false;       ///< conditional calls
    bool bPrivateInMain = false; ///< the private UAV is declared in the main body
    bool bOlder = false;         ///< for the older device: 32-bit addresses, one raw UAV, private memory in an array
};

/// Generates structured kernels: nested ifs, loops with divergent breaks and continues, switches, calls, divergent
/// returns, indexed temps, private memory, stores in branches. A seed gives the same kernel on every machine. Every
/// loop has a counter of its own, so every kernel ends.
class CKernelGenerator
{
public:
    explicit CKernelGenerator(uint32_t nSeed, SKernelFeatures features = SKernelFeatures())
        : m_Engine(nSeed), m_Features(features)
    {
    }

    SGeneratedKernel Generate();

private:
    /// The surroundings of the current place.
    struct SScope
    {
        bool bInLoop = false;     ///< there is a loop for a break or continue
        bool bInSwitch = false;   ///< the innermost of loop and switch is a switch
        bool bInElse = false;     ///< an else-part lies between here and that block
        bool bInFunction = false; ///< or in a macro
        bool bInMacro = false;
        unsigned int nDepth = 0;
        bool* pLoopContinues = nullptr; ///< the loop has a continue
    };

    struct SFunction
    {
        unsigned int nLabel;
        unsigned int nDepth; ///< of the deepest call, so that blocks stay bounded across calls
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
    void Macro(unsigned int nMacro);
    std::string Finish();
    std::string Head() const;
    std::string Metadata() const;

    // Parts added by features.
    bool IsMore() const;
    bool More(const SScope& scope);
    void ReturnAnywhere(const SScope& scope);
    void LeaveAnywhere(const SScope& scope);
    void LeavePart(const SScope& scope);
    void GlobalAccess();
    void OwnAddress(bool bAligned);
    void StoreOwn();
    void LoadOwn();
    void UpdateOwn();
    void UpdateShared();
    void LocalAccess();
    void UpdateLocal();
    void Exchange();
    void CallMacro(const SScope& scope);
    std::string Uav() const { return m_Features.bOlder ? "_id(11)" : "_id(10)_addr64"; }

    std::mt19937 m_Engine;
    SKernelFeatures m_Features;
    std::string m_strText;
    unsigned int m_nLoops = 0;
    unsigned int m_nBudget = 0;
    std::vector<SFunction> m_vPending; ///< called but not written yet
    unsigned int m_nNextLabel = 1031;
    unsigned int m_nMacros = 0;
    unsigned int m_nMacroDepth[2] = {0, 0}; ///< of each macro's deepest call
    bool m_bInMain = true;                  ///< currently in the kernel's own function
    bool m_bReturned = false;               ///< some work-item may have returned from it
    bool m_bMaySkip = false;
};

} // namespace KestrelTest

#endif
