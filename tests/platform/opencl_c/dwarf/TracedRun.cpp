#include "tests/platform/opencl_c/dwarf/TracedRun.h"

#include "il/ILFormatDecode.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace KestrelTests
{

namespace
{

const uint32_t s_nConstantWords = 0x100000; ///< the words of constant buffer 1 as DWARF registers
const uint32_t s_nNoRegister = 0xFFFFFFFFU;
const uint32_t s_nUnknown = 0xBAD; ///< for values never written

} // namespace

CTracedRun::CTracedRun(std::vector<char> vBinary, const CVisits& expected, std::vector<uint32_t> vArguments)
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
        m_mapStates[key.first];
    }
    FindStatements();
}

void CTracedRun::OnRecord(const SPlatformTraceRecord* pRecord, void* pUser)
{
    static_cast<CTracedRun*>(pUser)->Add(*pRecord);
}

bool CTracedRun::HasCode(int nSource) const
{
    return std::any_of(m_mapStatements.begin(), m_mapStatements.end(),
                       [nSource](const auto& entry) { return entry.second == nSource; });
}

/// Finds, for each function in each inlined copy, the first line of IL of each source line.
void CTracedRun::FindStatements()
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
        if (!m_mapNames.count(nSource))
        {
            continue;
        }
        std::string strWhere = std::to_string(nSource);
        for (const SDwarfFrame& frame : m_File.Frames(nLine))
        {
            strWhere += " " + frame.strFunction + " " + std::to_string(frame.nCallLine) + " " +
                        std::to_string(frame.nCallColumn);
        }
        if (setSeen.insert(strWhere).second)
        {
            m_mapStatements[nLine] = nSource;
        }
    }
}

void CTracedRun::Add(const SPlatformTraceRecord& record)
{
    const auto it = m_mapStatements.find(m_vLines.at(record.nInstruction));
    for (uint32_t n = 0; n < record.nItems; ++n)
    {
        const auto found = m_mapStates.find(record.pItems[n]);
        if (found == m_mapStates.end())
        {
            continue;
        }
        // After an `if`, the record has the work-items that are active inside; but a line begins for all that reach it.
        SItemState& state = found->second;
        const bool bComes = state.bActive || record.pActive[n] != 0;
        state.bActive = record.pActive[n] != 0;
        if (bComes && it != m_mapStatements.end())
        {
            m_Visits[{record.pItems[n], it->second}].push_back(Look(state, it->first, it->second));
        }
        if (state.bActive)
        {
            Write(state, record, n);
        }
    }
}

void CTracedRun::Write(SItemState& state, const SPlatformTraceRecord& record, uint32_t n)
{
    if (record.nRegisterType == s_nNoRegister || !record.pValues)
    {
        return;
    }
    if (record.nRegisterType == IL_REGTYPE_TEMP)
    {
        const size_t nFirst = size_t{4} * record.nRegisterNumber;
        state.vComponents.resize(std::max(state.vComponents.size(), nFirst + 4), s_nUnknown);
        std::copy_n(record.pValues + 4 * n, 4, state.vComponents.begin() + static_cast<std::ptrdiff_t>(nFirst));
        return;
    }
    const size_t nFirst = record.pIndices ? record.pIndices[n] : 0;
    for (size_t i = 0; i < 16 && record.pIndices; ++i)
    {
        state.vPrivate.resize(std::max(state.vPrivate.size(), nFirst + 16));
        state.vPrivate[nFirst + i] = static_cast<char>(record.pValues[4 * n + i / 4] >> (i % 4 * 8));
    }
}

SnapShot CTracedRun::Look(const SItemState& state, uint32_t nLine, int nSource)
{
    SnapShot visit;
    const auto& vVariables = Variables(nLine);
    for (const auto& entry : m_mapNames[nSource])
    {
        const std::string& strName = entry.first;
        const auto it = std::find_if(vVariables.begin(), vVariables.end(),
                                     [&](const SDwarfVariable& variable) { return variable.strName == strName; });
        visit[strName] = it == vVariables.end() ? "isn't in scope" : Read(state, it->vLocation, entry.second);
    }
    return visit;
}

const std::vector<SDwarfVariable>& CTracedRun::Variables(uint32_t nLine)
{
    const auto [it, bNew] = m_mapVariables.insert({nLine, {}});
    if (bNew)
    {
        it->second = m_File.Variables(nLine);
    }
    return it->second;
}

uint32_t CTracedRun::ReadRegister(const SItemState& state, uint64_t nRegister) const
{
    const bool bArgument = nRegister >= s_nConstantWords;
    const std::vector<uint32_t>& vWords = bArgument ? m_vArguments : state.vComponents;
    const size_t nWord = nRegister - (bArgument ? s_nConstantWords : 0);
    return nWord < vWords.size() ? vWords[nWord] : s_nUnknown;
}

std::string CTracedRun::Read(const SItemState& state, const std::vector<Dwarf_Op>& vLocation, size_t nSize) const
{
    std::string strBytes;
    std::string strPart;
    for (const Dwarf_Op& op : vLocation)
    {
        switch (op.atom)
        {
        case DW_OP_regx:
        {
            const uint32_t nValue = ReadRegister(state, op.number);
            strPart.assign(reinterpret_cast<const char*>(&nValue), 4);
            break;
        }
        case DW_OP_fbreg:
            strPart.clear();
            for (uint64_t n = op.number; n < op.number + nSize; ++n)
            {
                strPart += n < state.vPrivate.size() ? state.vPrivate[n] : '\0';
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

} // namespace KestrelTests
