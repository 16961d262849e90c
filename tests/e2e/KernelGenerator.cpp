#include "tests/e2e/KernelGenerator.h"

#include <algorithm>

namespace KestrelTest
{

namespace
{

const unsigned int s_nMaxDepth = 4;
const unsigned int s_nMaxFunctions = 3;
const unsigned int s_nArraySize = 4;

const char* const s_Operations[] = {"iadd", "isub", "imul", "imax", "imin", "ixor", "ior", "and"};
const char* const s_Literals[] = {"l0.x", "l0.y", "l0.w", "l1.x", "l1.y", "l1.z", "l1.w"};
const char* const s_Masks[] = {"l2.x", "l2.y", "l2.z", "l2.w"};

} // namespace

std::string CKernelGenerator::Source()
{
    switch (Below(4))
    {
    case 0:
        return Pick(s_Literals, Below(7));
    case 1:
        return "r0.x";
    default:
        return Variable() + ".x";
    }
}

void CKernelGenerator::Body(const SScope& scope, unsigned int nStatements)
{
    for (unsigned int i = 0; i < nStatements; ++i)
    {
        Statement(scope);
    }
}

void CKernelGenerator::Statement(const SScope& scope)
{
    if (m_nBudget == 0 || scope.nDepth >= s_nMaxDepth)
    {
        return Arithmetic();
    }
    --m_nBudget;
    if (IsMore() && Chance(40) && More(scope))
    {
        return;
    }
    const unsigned int nChoice = Below(100);
    if (nChoice < 30)
    {
        return Arithmetic();
    }
    if (nChoice < 38)
    {
        return VectorArithmetic();
    }
    if (nChoice < 42)
    {
        return IndexedWrite();
    }
    if (nChoice < 46)
    {
        return Store();
    }
    if (nChoice < 49)
    {
        return PrivateStore();
    }
    if (nChoice < 66)
    {
        return If(scope);
    }
    if (nChoice < 78)
    {
        return Loop(scope);
    }
    if (nChoice < 86)
    {
        return Switch(scope);
    }
    if (nChoice < 94 && scope.bInLoop)
    {
        return LeaveLoop(scope);
    }
    if (nChoice < 97)
    {
        return Call(scope);
    }
    if (nChoice < 99 && scope.bInFunction)
    {
        return Return();
    }
    Arithmetic();
}

void CKernelGenerator::Arithmetic()
{
    const std::string strTarget = Variable();
    Line(std::string(Pick(s_Operations, Below(8))) + " " + strTarget + ".x, " + Source() + ", " + Source());
}

void CKernelGenerator::VectorArithmetic()
{
    static const char* const s_Components[] = {"yz", "xy", "w", "xyzw", "z"};
    Line("iadd " + Variable() + "." + Pick(s_Components, Below(5)) + ", " + Variable() + ".xxyy, " + Variable() +
         ".wzyx");
}

void CKernelGenerator::IndexedWrite()
{
    Line("and r7.x, " + Variable() + ".x, l2.w");
    Line("mov x1[r7.x].x, " + Source());
    Line("mov " + Variable() + ".y, x1[r7.x].x");
}

void CKernelGenerator::Store()
{
    Line("uav_raw_store" + Uav() + " mem0." + std::string(Chance(50) ? "x" : "xy") + ", r2.xy, " + Variable());
}

/// At one of four addresses: the same for all work-items, in r4.x, or each work-item's own, in r3.x.
void CKernelGenerator::PrivateStore()
{
    if (m_Features.bOlder)
    {
        return IndexedWrite();
    }
    static const char* const s_Addresses[] = {"l3.x", "l3.y", "l3.z", "l3.w"};
    const bool bSame = Chance(40);
    const std::string strAddress = bSame ? "r4.x" : "r3.x";
    if (bSame)
    {
        Line("mov r4.x, " + std::string(Pick(s_Addresses, Below(4))));
    }
    else
    {
        Line("and r3.x, " + Variable() + ".x, l2.w");
        Line("ishl r3.x, r3.x, l1.w");
    }
    Line("uav_raw_store_id(8) mem0.x, " + strAddress + ", " + Source());
    Line("uav_raw_load_id(8) " + Variable() + ".z, " + strAddress);
}

/// Puts a condition that differs between work-items into r5.x.
void CKernelGenerator::Condition()
{
    if (Chance(50))
    {
        Line(std::string("and r5.x, ") + (Chance(60) ? "r0.x" : Variable() + ".x") + ", " + Pick(s_Masks, Below(4)));
        return;
    }
    Line(std::string(Chance(50) ? "ilt" : "ige") + " r5.x, " + (Chance(50) ? "r0.x" : Variable() + ".x") + ", " +
         Pick(s_Literals, Below(7)));
}

void CKernelGenerator::If(const SScope& scope)
{
    SScope inner = scope;
    ++inner.nDepth;
    Condition();
    Line(Chance(60) ? "if_logicalnz r5.x" : "if_logicalz r5.x");
    Body(inner, 1 + Below(3));
    LeavePart(inner);
    if (Chance(50))
    {
        inner.bInElse = true;
        Line("else");
        Body(inner, 1 + Below(3));
        LeavePart(inner);
    }
    Line("endif");
}

void CKernelGenerator::Loop(const SScope& scope)
{
    const std::string strCounter = "r" + std::to_string(30 + m_nLoops++) + ".x";
    std::string strLimit = Pick(s_Masks, Below(4));
    if (Chance(60))
    {
        // As many passes as the low bits of the work-item's number.
        strLimit = "r" + std::to_string(60 + m_nLoops) + ".x";
        Line("and " + strLimit + ", r0.x, l2.w");
    }
    bool bContinues = false;
    SScope inner = scope;
    ++inner.nDepth;
    inner.bInLoop = true;
    inner.bInSwitch = inner.bInElse = false;
    inner.pLoopContinues = &bContinues;
    Line("mov " + strCounter + ", l0.z");
    Line("whileloop");
    Line("ige r6.x, " + strCounter + ", " + strLimit);
    Line("break_logicalnz r6.x");
    Line("iadd " + strCounter + ", " + strCounter + ", l0.y");
    Body(inner, 1 + Below(4));
    Line("endloop");
}

void CKernelGenerator::LeaveLoop(const SScope& scope)
{
    // In a switch, a break would leave the switch, so only a continue reaches the loop around it.
    const bool bContinue = scope.bInSwitch || Chance(50);
    m_bMaySkip = m_bMaySkip || scope.bInElse || scope.bInSwitch || *scope.pLoopContinues;
    *scope.pLoopContinues = *scope.pLoopContinues || bContinue;

    const std::string strWord = bContinue ? "continue" : "break";
    // Without a condition of its own, it often takes all work-items that entered a block by the last condition.
    if (Chance(75))
    {
        Condition();
    }
    if (Chance(40))
    {
        Line(strWord + (Chance(50) ? "_logicalnz" : "_logicalz") + " r5.x");
        return;
    }
    Line(Chance(50) ? "if_logicalnz r5.x" : "if_logicalz r5.x");
    if (Chance(50))
    {
        Arithmetic();
    }
    Line(strWord);
    Line("endif");
}

void CKernelGenerator::Switch(const SScope& scope)
{
    SScope inner = scope;
    ++inner.nDepth;
    inner.bInSwitch = true;
    inner.bInElse = false;
    Line("and r8.x, " + std::string(Chance(60) ? "r0.x" : Variable() + ".x") + ", l2.w");
    Line("switch r8.x");
    const unsigned int nCases = 1 + Below(3);
    for (unsigned int i = 0; i < nCases; ++i)
    {
        Line("case " + std::to_string(i));
        if (i + 1 < nCases && Chance(20))
        {
            continue; // an empty case falls through
        }
        Body(inner, 1 + Below(2));
        if (Chance(15))
        {
            m_bMaySkip = true;
            Condition();
            Line("if_logicalnz r5.x");
            Line("break");
            Line("endif");
            Arithmetic();
        }
        if (!m_Features.bLeaves || !Chance(25)) // otherwise the work-items fall through
        {
            Line("break");
        }
    }
    if (Chance(60))
    {
        Line("default");
        Body(inner, 1 + Below(2));
        Line("break");
    }
    Line("endswitch");
}

/// Calls a new function, or again one that isn't written yet and so can't call the current one.
void CKernelGenerator::Call(const SScope& scope)
{
    if (scope.bInMacro) // the functions are written already
    {
        return Arithmetic();
    }
    const bool bAgain = !m_vPending.empty() && Chance(50);
    if (!bAgain && m_nNextLabel >= 1031 + s_nMaxFunctions)
    {
        return Arithmetic();
    }
    if (!bAgain)
    {
        m_vPending.push_back({m_nNextLabel++, 0});
    }
    SFunction& function =
        m_vPending[bAgain ? Below(static_cast<unsigned int>(m_vPending.size())) : m_vPending.size() - 1];
    function.nDepth = std::max(function.nDepth, scope.nDepth + 1);
    if (m_Features.bCallsIf && Chance(30))
    {
        Condition();
        return Line(std::string(Chance(50) ? "call_logicalnz" : "call_logicalz") + " r5.x, " +
                    std::to_string(function.nLabel));
    }
    Line("call " + std::to_string(function.nLabel));
}

void CKernelGenerator::Return()
{
    m_bMaySkip = true;
    Condition();
    Line("if_logicalnz r5.x");
    Line(Chance(50) ? "ret" : "ret_dyn");
    Line("endif");
}

void CKernelGenerator::Function(const SFunction& function)
{
    SScope scope;
    scope.bInFunction = true;
    scope.nDepth = function.nDepth;
    Line("func " + std::to_string(function.nLabel));
    Line(";generated_" + std::to_string(function.nLabel));
    Body(scope, 2 + Below(3));
    Line("ret");
    Line("endfunc");
}

void CKernelGenerator::Macro(unsigned int nMacro)
{
    SScope scope;
    scope.bInFunction = scope.bInMacro = true;
    scope.nDepth = m_nMacroDepth[nMacro];
    Line("mdef(" + std::to_string(3 + nMacro) + ")_outline");
    Line(";generated"); // tells a session whose macro it is
    Body(scope, 2 + Below(3));
    Line("mend");
}

/// Stores every variable and array element, so that the outputs show all of them.
std::string CKernelGenerator::Finish()
{
    std::string strText = "mov r9.x, r10.x\n";
    for (unsigned int i = 11; i < 16; ++i)
    {
        strText += "imad r9.x, r9.x, l1.x, r" + std::to_string(i) + ".x\n";
    }
    strText += "iadd r9.y, r10.y, r11.z\niadd r9.y, r9.y, r12.w\n";
    for (unsigned int i = 0; i < s_nArraySize; ++i)
    {
        strText += "iadd r9.z, r9.z, x1[" + std::to_string(i) + "].x\n";
    }
    return strText + "uav_raw_store" + Uav() + " mem0.xyz, r2.xy, r9\nret\nendfunc\n";
}

SGeneratedKernel CKernelGenerator::Generate()
{
    const bool b2D = Chance(25);
    m_nBudget = 12 + Below(24);
    m_strText = Head();
    Body(SScope(), 3 + Below(5));
    m_strText += Finish();
    m_bInMain = false;
    while (!m_vPending.empty())
    {
        const SFunction function = m_vPending.back();
        m_vPending.pop_back();
        Function(function);
    }
    for (unsigned int i = 0; i < m_nMacros; ++i)
    {
        Macro(i);
    }
    Line("end");

    SGeneratedKernel kernel;
    kernel.bMaySkip = m_bMaySkip;
    kernel.launch.strPath = "generated";
    kernel.launch.strSource = Metadata() + m_strText;
    kernel.launch.strKernel = "generated";
    kernel.launch.strDevice = m_Features.bOlder ? "Kiln" : "Quench";
    kernel.launch.strOptions = "-g";
    kernel.launch.nDimensions = b2D ? 2 : 1;
    kernel.launch.nGlobalSize[0] = b2D ? 4 : 16;
    kernel.launch.nGlobalSize[1] = b2D ? 3 : 1;
    kernel.launch.bHasLocalSize = true;
    kernel.launch.nLocalSize[0] = b2D ? 2 : 8;
    kernel.launch.nLocalSize[1] = kernel.launch.nLocalSize[2] = 1;
    KestrelTool::SArgument output;
    output.eKind = KestrelTool::SArgument::Buffer;
    output.pType = KestrelTool::FindElementType("int");
    output.vContents.assign(IsMore() ? 64 + 16 * 64 : 16 * 16, 0);
    for (size_t i = 0; IsMore() && i < output.vContents.size(); i += 4)
    {
        output.vContents[i] = static_cast<unsigned char>(i * 37 + 11); // small numbers, in any type
    }
    kernel.launch.vArguments.push_back(output);
    return kernel;
}

} // namespace KestrelTest
