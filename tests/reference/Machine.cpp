#include "tests/reference/Machine.h"

#include <algorithm>
#include <set>

namespace KestrelTest
{

namespace
{

const size_t s_nMaxMoments = 20000;

bool Any(const Mask& mask)
{
    return std::find(mask.begin(), mask.end(), true) != mask.end();
}

Mask Or(Mask a, const Mask& b)
{
    for (size_t i = 0; i < a.size(); ++i)
    {
        a[i] = a[i] || b[i];
    }
    return a;
}

Mask Without(Mask a, const Mask& b)
{
    for (size_t i = 0; i < a.size(); ++i)
    {
        a[i] = a[i] && !b[i];
    }
    return a;
}

} // namespace

bool SMoment::IsEmpty() const
{
    return !Any(vAfter);
}

bool SMoment::IsUnreached() const
{
    return !Any(vAfter) && !Any(vBefore);
}

CMachine::CMachine(const CKernelText& text, const SReferenceLaunch& launch) : m_Text(text), m_Lanes(text, launch) {}

void CMachine::Run(const OnMoment& onMoment)
{
    m_OnMoment = onMoment;
    m_vFrames.assign(1, Loops());
    uint32_t nEnd = 0;
    while (m_Text.GetInstructions()[nEnd].strName != "endmain")
    {
        ++nEnd;
    }
    RunRange(0, nEnd + 1, Mask(m_Lanes.GetItems(), true));
}

void CMachine::Tell(uint32_t nInstruction, const Mask& before, const Mask& after)
{
    if (++m_nMoments > s_nMaxMoments)
    {
        throw CReferenceError("the kernel takes too long");
    }
    SMoment moment;
    moment.position.nInstruction = nInstruction;
    moment.position.vLoops = m_vFrames.back();
    moment.position.vCalls = m_vCalls;
    moment.strName = m_Text.GetInstructions()[nInstruction].strName;
    moment.vBefore = before;
    moment.vAfter = after;
    m_OnMoment(moment, m_Lanes.GetState());
}

Mask CMachine::RunRange(uint32_t nFirst, uint32_t nEnd, Mask active)
{
    uint32_t n = nFirst;
    while (n < nEnd && Any(active))
    {
        const std::string& strName = m_Text.GetInstructions()[n].strName;
        if (StartsWith(strName, "if"))
        {
            active = RunIf(n, active);
            n = m_Text.GetEnd(n);
        }
        else if (strName == "whileloop")
        {
            active = RunLoop(n, active);
            n = m_Text.GetEnd(n);
        }
        else if (strName == "switch")
        {
            active = RunSwitch(n, active);
            n = m_Text.GetEnd(n);
        }
        else
        {
            active = RunOne(n, active);
        }
        ++n;
    }
    return active;
}

Mask CMachine::RunOne(uint32_t nInstruction, const Mask& active)
{
    const SInstruction& instruction = m_Text.GetInstructions()[nInstruction];
    const std::string& strName = instruction.strName;
    if (StartsWith(strName, "break") || StartsWith(strName, "continue") || StartsWith(strName, "ret"))
    {
        return Jump(nInstruction, active);
    }
    if (StartsWith(strName, "call") || strName == "mcall")
    {
        Call(nInstruction, active);
        Tell(nInstruction, active, active);
        return active;
    }
    if (strName != "func" && strName != "endfunc" && strName != "endmain" && !StartsWith(strName, "fence"))
    {
        m_Lanes.Execute(instruction, active);
    }
    Tell(nInstruction, active, active);
    return active;
}

/// The work-items for which an instruction's condition is true; all if it has none.
Mask CMachine::Holds(const SInstruction& instruction, const Mask& active) const
{
    const bool bNotZero = instruction.strName.find("_logicalnz") != std::string::npos;
    const bool bZero = instruction.strName.find("_logicalz") != std::string::npos;
    if (!bNotZero && !bZero)
    {
        return active;
    }
    Mask mask = active;
    for (size_t i = 0; i < mask.size(); ++i)
    {
        mask[i] = active[i] && (m_Lanes.Read(instruction.vOperands[0], i)[0] != 0) == bNotZero;
    }
    return mask;
}

Mask CMachine::RunIf(uint32_t nStart, const Mask& active)
{
    const uint32_t nElse = m_Text.GetElse(nStart);
    const uint32_t nEnd = m_Text.GetEnd(nStart);
    const Mask then = Holds(m_Text.GetInstructions()[nStart], active);
    Tell(nStart, active, then);
    Mask behind = RunRange(nStart + 1, nElse, then);
    Mask otherwise = Without(active, then);
    if (nElse != nEnd)
    {
        if (Any(behind) || Any(otherwise))
        {
            Tell(nElse, Or(behind, otherwise), otherwise);
        }
        otherwise = RunRange(nElse + 1, nEnd, otherwise);
    }
    behind = Or(behind, otherwise);
    if (Any(behind))
    {
        Tell(nEnd, behind, behind);
    }
    return behind;
}

Mask CMachine::RunLoop(uint32_t nStart, const Mask& active)
{
    const uint32_t nEnd = m_Text.GetEnd(nStart);
    const Mask none(active.size(), false);
    SLeft left = {none, none};
    m_vBreakable.push_back(&left);
    m_vLoops.push_back(&left);
    m_vFrames.back().push_back({nStart, 0});
    Mask present = active;
    while (Any(present))
    {
        Tell(nStart, present, present);
        present = RunRange(nStart + 1, nEnd, present);
        present = Or(present, left.vContinued);
        left.vContinued = none;
        ++m_vFrames.back().back().second;
    }
    m_vFrames.back().pop_back();
    m_vLoops.pop_back();
    m_vBreakable.pop_back();
    if (Any(left.vBroken))
    {
        Tell(nEnd, left.vBroken, left.vBroken);
    }
    return left.vBroken;
}

Mask CMachine::RunSwitch(uint32_t nStart, const Mask& active)
{
    const std::vector<SInstruction>& vInstructions = m_Text.GetInstructions();
    const uint32_t nEnd = m_Text.GetEnd(nStart);
    std::vector<uint32_t> vLabels; // the labels of this switch, and its end
    std::set<uint32_t> setCases;
    for (uint32_t n = nStart + 1; n <= nEnd; ++n)
    {
        const std::string& strName = vInstructions[n].strName;
        if (n == nEnd || strName == "case" || strName == "default")
        {
            vLabels.push_back(n);
            if (strName == "case")
            {
                setCases.insert(vInstructions[n].nLabel);
            }
        }
        else if (strName == "switch")
        {
            n = m_Text.GetEnd(n);
        }
    }
    std::vector<uint32_t> vSelectors(active.size());
    for (size_t i = 0; i < active.size(); ++i)
    {
        vSelectors[i] = m_Lanes.Read(vInstructions[nStart].vOperands[0], i)[0];
    }
    const Mask none(active.size(), false);
    SLeft left = {none, none};
    m_vBreakable.push_back(&left);
    Tell(nStart, active, active);
    Mask entered = none;
    Mask present = none;
    for (size_t nLabel = 0; nLabel + 1 < vLabels.size(); ++nLabel)
    {
        const SInstruction& label = vInstructions[vLabels[nLabel]];
        for (size_t i = 0; i < active.size(); ++i)
        {
            const bool bMeant =
                label.strName == "default" ? setCases.count(vSelectors[i]) == 0 : vSelectors[i] == label.nLabel;
            if (active[i] && bMeant)
            {
                present[i] = entered[i] = true;
            }
        }
        Tell(vLabels[nLabel], present, present);
        present = RunRange(vLabels[nLabel] + 1, vLabels[nLabel + 1], present);
    }
    m_vBreakable.pop_back();
    // Work-items whose selector matches no case have waited.
    Mask behind = Or(Or(present, left.vBroken), Without(active, entered));
    if (Any(behind))
    {
        Tell(nEnd, behind, behind);
    }
    return behind;
}

Mask CMachine::Jump(uint32_t nInstruction, const Mask& active)
{
    const SInstruction& instruction = m_Text.GetInstructions()[nInstruction];
    const Mask leaving = Holds(instruction, active);
    Mask staying = Without(active, leaving);
    // Work-items that return aren't active anywhere until the body's end.
    if (!StartsWith(instruction.strName, "ret"))
    {
        const bool bBreak = StartsWith(instruction.strName, "break");
        const std::vector<SLeft*>& vTargets = bBreak ? m_vBreakable : m_vLoops;
        if (vTargets.empty())
        {
            throw CReferenceError(instruction.strName + " has nothing to leave");
        }
        Mask& target = bBreak ? vTargets.back()->vBroken : vTargets.back()->vContinued;
        target = Or(target, leaving);
    }
    const bool bPlainReturn = instruction.strName == "ret" || instruction.strName == "ret_dyn";
    Tell(nInstruction, active, bPlainReturn ? active : staying);
    return staying;
}

void CMachine::Call(uint32_t nInstruction, const Mask& active)
{
    const SInstruction& instruction = m_Text.GetInstructions()[nInstruction];
    const Mask entering = Holds(instruction, active);
    const bool bMacro = instruction.strName == "mcall";
    const std::map<uint32_t, SBody>& mapBodies = bMacro ? m_Text.GetMacros() : m_Text.GetFunctions();
    const auto it = mapBodies.find(bMacro ? instruction.nId : instruction.nLabel);
    if (it == mapBodies.end() || m_vCalls.size() > 100)
    {
        throw CReferenceError("no body for " + instruction.strLine);
    }
    if (!Any(entering))
    {
        return;
    }
    // Macros with operands aren't supported.
    std::vector<SLeft*> vBreakable;
    std::vector<SLeft*> vLoops;
    m_vBreakable.swap(vBreakable);
    m_vLoops.swap(vLoops);
    m_vCalls.push_back({nInstruction, m_vFrames.back()});
    m_vFrames.emplace_back();
    const uint32_t nEnd = it->second.nEnd + (bMacro ? 0 : 1);
    RunRange(it->second.nFirst, nEnd, entering);
    m_vFrames.pop_back();
    m_vCalls.pop_back();
    m_vBreakable.swap(vBreakable);
    m_vLoops.swap(vLoops);
}

} // namespace KestrelTest
