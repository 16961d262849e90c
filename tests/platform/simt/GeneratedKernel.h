#ifndef KESTREL_TESTS_PLATFORM_SIMT_GENERATEDKERNEL_H
#define KESTREL_TESTS_PLATFORM_SIMT_GENERATEDKERNEL_H

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace KestrelPlatformTest
{

/// A random structured kernel, as a tree. Text() prints it as IL; Execute() runs one work-item of it on the tree
/// itself, and shares nothing with the interpreter under test.
///
/// Registers r0 to r7 hold the kernel's data, x1 an array of four; every loop has its own counter and ends.
class CGeneratedKernel
{
public:
    static const uint32_t s_nRegisters = 8;

    typedef std::array<std::array<uint32_t, 4>, s_nRegisters> Registers;

    explicit CGeneratedKernel(uint32_t nSeed);

    std::string Text() const;
    Registers Execute(uint32_t nItem) const;

private:
    struct SOperand
    {
        uint32_t nRegister = 0;
        uint32_t nComponents[4] = {0, 1, 2, 3};
        bool bLiteral = false;
        uint32_t nLiteral = 0;
    };

    struct SNode;
    typedef std::vector<std::unique_ptr<SNode>> Nodes;

    enum EKind
    {
        Plain,
        FloatChain,
        ArrayStore,
        ArrayLoad,
        If,
        Loop,
        Switch,
        Break,
        Continue,
        Call,
        Return
    };

    struct SCase
    {
        bool bDefault = false;
        uint32_t nValue = 0;
        bool bBreaks = true;
        Nodes body;
    };

    struct SNode
    {
        EKind eKind = Plain;
        uint32_t nOp = 0;
        uint32_t nDestination = 0;
        uint32_t nMask = 15;
        SOperand sources[3];
        bool bConditional = false; ///< break, continue, return
        bool bIfZero = false;
        bool bHasElse = false;
        uint32_t nCounter = 0; ///< loop: its register
        uint32_t nFunction = 0;
        Nodes body;
        Nodes other;
        std::vector<SCase> vCases;
    };

    enum EFlow
    {
        Next,
        Broke,
        Continued,
        Returned
    };

    struct SState
    {
        Registers registers = {};
        std::array<std::array<uint32_t, 4>, 4> array = {};
    };

    uint32_t Random(uint32_t nCount) { return static_cast<uint32_t>(m_Random() % nCount); }
    SOperand RandomOperand();
    Nodes RandomBlock(uint32_t nDepth, bool bInLoop, bool bInSwitch, int nFunction);
    std::unique_ptr<SNode> RandomNode(uint32_t nDepth, bool bInLoop, bool bInSwitch, int nFunction);

    static std::string Print(const SOperand& operand);
    static void Print(const Nodes& nodes, std::string& str);
    static void Print(const SNode& node, std::string& str);
    static uint32_t Read(const SState& state, const SOperand& operand, uint32_t nComponent);
    EFlow Execute(const Nodes& nodes, SState& state) const;
    EFlow Execute(const SNode& node, SState& state) const;
    EFlow ExecuteSwitch(const SNode& node, SState& state) const;

    std::mt19937 m_Random;
    uint32_t m_nCounters = 0;
    uint32_t m_nBudget = 60; ///< nodes that may still be created
    Nodes m_Main;
    std::vector<Nodes> m_vFunctions;
};

} // namespace KestrelPlatformTest

#endif
