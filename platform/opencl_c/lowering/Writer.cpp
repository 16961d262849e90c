#include "platform/opencl_c/lowering/Writer.h"

#include "llvm/IR/Constants.h"

#include <algorithm>

namespace KestrelOpenCL
{
namespace
{

const char s_Letters[] = "xyzw";
const uint32_t s_nOne = 0x3F800000; ///< 1.0, for which swizzles have a selector

} // namespace

/// A single component of the copies on an edge.
struct CWriter::SMove
{
    uint32_t nTo = 0; ///< 4 x register + component
    SWord from;
    uint32_t nFrom = 0xFFFFFFFFu; ///< like nTo, if the value comes from a temp
};

CWriter::CWriter(const SKernelCode& code, const SAllocation& allocation, CLiterals& literals)
    : m_Code(code), m_Allocation(allocation), m_Literals(literals)
{
}

void CWriter::Line(std::string strLine, const llvm::DILocation* pLocation)
{
    if (!m_strPendingIf.empty())
    {
        m_Body.strText += m_strPendingIf + "\n";
        m_Body.vLines.push_back(m_pPendingLocation);
        m_strPendingIf.clear();
    }
    if (m_bPendingElse)
    {
        m_Body.strText += "else\n";
        m_Body.vLines.push_back(m_pPendingLocation);
        m_bPendingElse = false;
    }
    m_Body.strText += strLine + "\n";
    m_Body.vLines.push_back(pLocation);
}

SBody CWriter::Write(const std::vector<SRegionStep>& vSteps, const std::vector<SFlowStep>& vFlow)
{
    for (size_t n = 0; n < vSteps.size(); ++n)
    {
        const SRegionStep& step = vSteps[n];
        const bool bLeaves = step.eKind == SRegionStep::Break || step.eKind == SRegionStep::Continue;
        if (bLeaves && !m_strPendingIf.empty() && n + 1 < vSteps.size() && vSteps[n + 1].eKind == SRegionStep::EndIf)
        {
            // Example: if_logicalnz r0.x, break, endif
            std::string strLine = m_strPendingIf;
            m_strPendingIf.clear();
            Line((step.eKind == SRegionStep::Break ? "break" : "continue") + strLine.substr(2), m_pPendingLocation);
            ++n;
            continue;
        }
        if (step.eKind == SRegionStep::Loop)
        {
            Line("whileloop", FindLoopStart(vSteps, vFlow, n));
            continue;
        }
        WriteStep(step, vFlow[n]);
    }
    return std::move(m_Body);
}

/// A loop's line is the one where its body begins, not that of the body's first branch.
const llvm::DILocation* CWriter::FindLoopStart(const std::vector<SRegionStep>& vSteps,
                                               const std::vector<SFlowStep>& vFlow, size_t nLoop) const
{
    const auto body = std::find_if(vSteps.begin() + static_cast<std::ptrdiff_t>(nLoop), vSteps.end(),
                                   [](const SRegionStep& step) { return step.eKind == SRegionStep::Block; });
    if (body == vSteps.end())
    {
        return nullptr;
    }
    const unsigned nBlock = vFlow[static_cast<size_t>(body - vSteps.begin())].nBlock;
    for (const SInstruction& instruction : m_Code.machine.Blocks()[nBlock])
    {
        if (instruction.pLocation != nullptr)
        {
            return instruction.pLocation;
        }
    }
    return m_Code.vConditions[nBlock].pLocation;
}

void CWriter::WriteStep(const SRegionStep& step, const SFlowStep& flow)
{
    const llvm::DILocation* const pLocation =
        flow.nBlock < m_Code.vConditions.size() ? m_Code.vConditions[flow.nBlock].pLocation : nullptr;
    switch (step.eKind)
    {
    case SRegionStep::Block:
        for (const SInstruction& instruction : m_Code.machine.Blocks()[flow.nBlock])
        {
            WriteInstruction(instruction);
        }
        break;
    case SRegionStep::Edge:
        if (flow.eKind == SFlowStep::Edge)
        {
            WriteEdge(m_Code.vEdges[flow.nEdge]);
        }
        break;
    case SRegionStep::SetGuard:
        WriteGuard(step, flow);
        break;
    case SRegionStep::If:
        WriteBranch(step, flow);
        break;
    case SRegionStep::Else:
        if (!m_strPendingIf.empty())
        {
            Line("else", pLocation);
            break;
        }
        m_bPendingElse = true;
        m_pPendingLocation = pLocation;
        break;
    case SRegionStep::EndIf:
        if (!m_strPendingIf.empty())
        {
            m_strPendingIf.clear(); // an empty if
            break;
        }
        m_bPendingElse = false; // an empty else
        Line("endif", pLocation);
        break;
    case SRegionStep::Loop:
        break; // written by Write
    case SRegionStep::EndLoop:
        Line("endloop", pLocation);
        break;
    case SRegionStep::Switch:
        Line("switch " + WordOperand(m_Code.vConditions[flow.nBlock].word), pLocation);
        break;
    case SRegionStep::Case:
        WriteCases(step);
        break;
    case SRegionStep::EndSwitch:
        Line("endswitch", pLocation);
        break;
    case SRegionStep::Break:
        Line("break", pLocation);
        break;
    case SRegionStep::Continue:
        Line("continue", pLocation);
        break;
    case SRegionStep::Return:
        Line("ret", pLocation);
        break;
    }
}

void CWriter::WriteCases(const SRegionStep& step)
{
    for (const llvm::ConstantInt* const pCase : step.vCases)
    {
        Line("case " + std::to_string(static_cast<uint32_t>(pCase->getZExtValue())), nullptr);
    }
    if (step.bValue)
    {
        Line("default", nullptr);
    }
}

void CWriter::WriteBranch(const SRegionStep& step, const SFlowStep& flow)
{
    bool bNotZero = step.bValue;
    std::string strOperand;
    const llvm::DILocation* pLocation = nullptr;
    if (step.nGuard >= 0)
    {
        strOperand = TempText(m_Allocation.vGuards[static_cast<size_t>(step.nGuard)]);
    }
    else
    {
        const SCondition& condition = m_Code.vConditions[flow.nBlock];
        bNotZero = bNotZero != condition.bInvert;
        strOperand = WordOperand(condition.word);
        pLocation = condition.pLocation;
    }
    const std::string strLine = std::string(bNotZero ? "if_logicalnz " : "if_logicalz ") + strOperand;
    if (!m_strPendingIf.empty() || m_bPendingElse)
    {
        Line(strLine, pLocation);
        return;
    }
    m_strPendingIf = strLine;
    m_pPendingLocation = pLocation;
}

void CWriter::WriteGuard(const SRegionStep& step, const SFlowStep& flow)
{
    const llvm::DILocation* const pLocation =
        flow.nBlock < m_Code.vConditions.size() ? m_Code.vConditions[flow.nBlock].pLocation : nullptr;
    Line("mov " + TempText(m_Allocation.vGuards[static_cast<size_t>(step.nGuard)]) + ", " +
             WordOperand(LiteralWord(step.bValue ? 0xFFFFFFFFu : 0)),
         pLocation);
}

std::string CWriter::TempText(const STemp& temp) const
{
    return "r" + std::to_string(temp.nRegister) + "." + s_Letters[temp.nComponent];
}

std::string CWriter::Register(const SWord& word) const
{
    return word.eKind == SWord::Register ? "r" + std::to_string(m_Allocation.vTemps[word.nId].nRegister)
                                         : m_Code.machine.GetName(word.nId);
}

unsigned CWriter::Component(const SWord& word) const
{
    return word.eKind == SWord::Register ? m_Allocation.vTemps[word.nId].nComponent + word.nComponent : word.nComponent;
}

std::string CWriter::WordOperand(const SWord& word)
{
    SSource source;
    source.eArrange = EArrange::InOrder;
    source.words[0] = word;
    return Operand(source, 1, 0);
}

/// Four selectors; repeated ones at the end are left out. A position that isn't used (0) gets the selector of its
/// counterpart in the other pair, or any other.
std::string CWriter::Swizzle(const char (&selectors)[4])
{
    const auto Any = [&]
    {
        for (const char c : selectors)
        {
            if (c != 0)
            {
                return c;
            }
        }
        return 'x';
    };
    std::string strSwizzle;
    for (unsigned n = 0; n < s_nComponents; ++n)
    {
        const char c = selectors[n] != 0 ? selectors[n] : selectors[n ^ 2] != 0 ? selectors[n ^ 2] : 0;
        strSwizzle += c != 0 ? c : selectors[n ^ 1] != 0 ? selectors[n ^ 1] : Any();
    }
    while (strSwizzle.size() > 1 && strSwizzle[strSwizzle.size() - 1] == strSwizzle[strSwizzle.size() - 2])
    {
        strSwizzle.pop_back();
    }
    return strSwizzle;
}

/// \param nMask  components of the destination's virtual register that are written
/// \param nFirst the temp's component where that virtual register begins
std::string CWriter::Operand(const SSource& source, unsigned nMask, unsigned nFirst)
{
    const SWord* pRegister = nullptr;
    llvm::SmallVector<uint32_t, 4> vValues;
    const auto IsRead = [&](unsigned n)
    {
        return source.words[n].eKind != SWord::Undefined &&
               (source.eArrange == EArrange::InOrder || (nMask & (1u << n)) != 0);
    };
    for (unsigned n = 0; n < s_nComponents; ++n)
    {
        if (IsRead(n) && source.words[n].eKind != SWord::Literal)
        {
            pRegister = &source.words[n];
        }
        else if (IsRead(n) && !llvm::is_contained(vValues, source.words[n].nId))
        {
            vValues.push_back(source.words[n].nId);
        }
    }
    char selectors[4] = {};
    const unsigned nShift = source.eArrange == EArrange::ByDestination ? nFirst : 0;
    if (pRegister == nullptr)
    {
        if (vValues.empty())
        {
            vValues.push_back(0);
        }
        unsigned components[4] = {};
        const uint32_t nLiteral =
            m_Literals.Find(vValues, llvm::MutableArrayRef<unsigned>(components).take_front(vValues.size()));
        for (unsigned n = 0; n < s_nComponents; ++n)
        {
            if (IsRead(n))
            {
                const auto nValue = static_cast<size_t>(llvm::find(vValues, source.words[n].nId) - vValues.begin());
                selectors[n + nShift] = s_Letters[components[nValue]];
            }
        }
        selectors[0] = selectors[0] == 0 && llvm::all_of(selectors, [](char c) { return c == 0; })
                           ? s_Letters[components[0]]
                           : selectors[0];
        return "l" + std::to_string(nLiteral) + "." + Swizzle(selectors);
    }
    for (unsigned n = 0; n < s_nComponents; ++n)
    {
        if (IsRead(n))
        {
            const SWord& word = source.words[n];
            selectors[n + nShift] = word.eKind != SWord::Literal ? s_Letters[Component(word)]
                                    : word.nId == s_nOne         ? '1'
                                                                 : '0';
        }
    }
    std::string strRegister = Register(*pRegister);
    if (source.index.eKind != SWord::Undefined)
    {
        strRegister += Index(source);
    }
    return strRegister + "." + Swizzle(selectors);
}

std::string CWriter::Index(const SSource& source) const
{
    const auto nDistance = static_cast<int32_t>(source.nImmediate);
    const std::string strDistance = nDistance > 0   ? "+" + std::to_string(nDistance)
                                    : nDistance < 0 ? std::to_string(nDistance)
                                                    : std::string();
    return "[" + Register(source.index) + "." + s_Letters[Component(source.index)] + strDistance + "]";
}

/// A copy whose source and destination were allocated to the same temp.
bool CWriter::IsIdentity(const SInstruction& instruction) const
{
    bool bSame = instruction.bMove && instruction.sources[0].index.eKind == SWord::Undefined;
    for (unsigned n = 0; n < s_nComponents && bSame; ++n)
    {
        const SWord& word = instruction.sources[0].words[n];
        const SWord to = {SWord::Register, static_cast<uint8_t>(n), instruction.nDestination};
        bSame = (instruction.nMask & (1u << n)) == 0 ||
                (word.eKind == SWord::Register && Component(word) == Component(to) &&
                 m_Allocation.vTemps[word.nId].nRegister == m_Allocation.vTemps[to.nId].nRegister);
    }
    return bSame;
}

void CWriter::WriteInstruction(const SInstruction& instruction)
{
    if (m_Code.machine.IsHold(instruction) || IsIdentity(instruction))
    {
        return;
    }
    std::string strLine = m_Code.machine.GetName(instruction.nMnemonic);
    unsigned nFirst = 0;
    const char* pszSeparator = " ";
    unsigned nSources = instruction.nSources;
    if (instruction.bMemory || instruction.nArray != 0 || instruction.nDestination != s_nNoRegister)
    {
        if (instruction.nArray != 0)
        {
            strLine += " " + m_Code.machine.GetName(instruction.nArray);
            strLine += nSources == 2 ? Index(instruction.sources[1]) : std::string();
            nSources = 1;
        }
        else if (!instruction.bMemory)
        {
            const STemp& temp = m_Allocation.vTemps[instruction.nDestination];
            nFirst = temp.nComponent;
            strLine += " r" + std::to_string(temp.nRegister);
        }
        else
        {
            strLine += " mem0";
        }
        if ((instruction.nMask << nFirst) != 0xF)
        {
            strLine += ".";
            for (unsigned n = 0; n < s_nComponents; ++n)
            {
                if (((instruction.nMask << nFirst) & (1u << n)) != 0)
                {
                    strLine += s_Letters[n];
                }
            }
        }
        pszSeparator = ", ";
    }
    for (unsigned n = 0; n < nSources; ++n)
    {
        strLine += pszSeparator + Operand(instruction.sources[n], instruction.nMask, nFirst);
        pszSeparator = ", ";
    }
    Line(strLine, instruction.pLocation);
}

/// All copies of an edge happen at the same time, so none may overwrite what another one still has to read.
void CWriter::WriteEdge(const SEdge& edge)
{
    std::vector<SMove> vMoves;
    const auto Place = [this](const SWord& word)
    { return m_Allocation.vTemps[word.nId].nRegister * s_nComponents + Component(word); };
    for (size_t n = 0; n < edge.to.size(); ++n)
    {
        SMove move;
        move.nTo = Place(edge.to[n]);
        move.from = edge.from[n];
        move.nFrom = move.from.eKind == SWord::Register ? Place(move.from) : move.nFrom;
        if (move.nTo != move.nFrom)
        {
            vMoves.push_back(move);
        }
    }
    const llvm::DILocation* const pLocation = edge.pLocation;
    while (!vMoves.empty())
    {
        const auto IsRead = [&](uint32_t nPlace)
        { return llvm::any_of(vMoves, [&](const SMove& move) { return move.nFrom == nPlace; }); };
        const auto itFree = llvm::find_if(vMoves, [&](const SMove& move) { return !IsRead(move.nTo); });
        if (itFree == vMoves.end())
        {
            // A cycle: one value is saved to a spare place.
            const uint32_t nAside = vMoves.front().nTo;
            const uint32_t nSpare = m_Allocation.nRegisters * s_nComponents;
            const std::string strAside =
                "r" + std::to_string(nAside / s_nComponents) + "." + s_Letters[nAside % s_nComponents];
            Line("mov r" + std::to_string(m_Allocation.nRegisters) + ".x, " + strAside, pLocation);
            for (SMove& move : vMoves)
            {
                move.nFrom = move.nFrom == nAside ? nSpare : move.nFrom;
            }
            continue;
        }
        // Copies between the same two registers are combined.
        std::vector<SMove> vTogether = {*itFree};
        vMoves.erase(itFree);
        for (auto it = vMoves.begin(); it != vMoves.end();)
        {
            const SMove& first = vTogether.front();
            const bool bSource =
                first.from.eKind == SWord::Register
                    ? it->from.eKind == SWord::Register && it->nFrom / s_nComponents == first.nFrom / s_nComponents
                    : it->from.eKind == first.from.eKind &&
                          (first.from.eKind == SWord::Literal || it->from.nId == first.from.nId);
            if (bSource && it->nTo / s_nComponents == first.nTo / s_nComponents && !IsRead(it->nTo))
            {
                vTogether.push_back(*it);
                it = vMoves.erase(it);
            }
            else
            {
                ++it;
            }
        }
        unsigned nMask = 0;
        char selectors[4] = {};
        SSource source;
        for (const SMove& move : vTogether)
        {
            const unsigned nComponent = move.nTo % s_nComponents;
            nMask |= 1u << nComponent;
            source.words[nComponent] = move.from;
            selectors[nComponent] = s_Letters[move.nFrom % s_nComponents];
        }
        std::string strLine = "mov r" + std::to_string(vTogether.front().nTo / s_nComponents) + ".";
        for (unsigned n = 0; n < s_nComponents; ++n)
        {
            strLine += (nMask & (1u << n)) != 0 ? std::string(1, s_Letters[n]) : std::string();
        }
        strLine += ", ";
        strLine += vTogether.front().from.eKind == SWord::Register
                       ? "r" + std::to_string(vTogether.front().nFrom / s_nComponents) + "." + Swizzle(selectors)
                       : Operand(source, nMask, 0);
        Line(strLine, pLocation);
    }
}

} // namespace KestrelOpenCL
