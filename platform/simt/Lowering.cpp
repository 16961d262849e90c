#include "platform/simt/Lowering.h"

#include "platform/simt/ForwardCopies.h"
#include "platform/simt/RowNumbers.h"
#include "platform/simt/ScaledAddresses.h"
#include "platform/simt/SteadySteps.h"
#include "platform/simt/StepRows.h"
#include "platform/simt/UniformSteps.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

/// Most kernels have no more rows for registers and constants.
const uint32_t s_nUsualRows = 64;
const uint32_t s_nMaxLocalBytes = 1u << 24;
const uint32_t s_nAccessPrivate = 3;

} // namespace

CLowering::CLowering(const SDecodedStream& stream, const SStructure& structure, bool bTrace, SCode& code,
                     SDecodeError& error)
    : m_Stream(stream), m_Structure(structure), m_bTrace(bTrace), m_Code(code), m_Error(error)
{
}

/// Only the first failure is reported.
bool CLowering::Fail(const std::string& strReason)
{
    if (m_bFailed)
    {
        return false;
    }
    m_bFailed = true;
    m_Error.nInstruction = m_nInstruction;
    m_Error.strMessage = std::string(GetInstructionShape(m_pItem->eOpCode).pName) + ": " + strReason;
    return false;
}

bool CLowering::Run()
{
    CollectDeclarations();
    if (m_bFailed)
    {
        return false;
    }
    m_Code.vSteps.reserve(m_Stream.vItems.size() * 2);
    m_Code.vClearRows.reserve(s_nUsualRows);
    m_Code.vConstants.reserve(s_nUsualRows);
    m_vTempRows.reserve(s_nUsualRows);
    m_vReturnRows.assign(m_Structure.vBodies.size(), 0);
    m_Code.vBodyEntries.assign(m_Structure.vBodies.size(), 0);
    for (uint32_t n = 0; n < m_Structure.vBodies.size(); ++n)
    {
        if (m_Structure.vBodies[n].bReachable && !LowerBody(n))
        {
            return false;
        }
    }
    if (!m_bTrace)
    {
        ForwardCopies(m_Code);
        const uint32_t nFirstUniform = m_Code.nRows;
        FindUniformSteps(m_Code);
        std::vector<uint32_t> vReads = CountReads(m_Code);
        std::vector<char> vDropped = MarkUnreadSteps(m_Code, vReads);
        ScaleAddresses(m_Code, nFirstUniform, vReads, vDropped);
        MoveSteadySteps(m_Code, vReads, vDropped);
        RemoveSteps(m_Code, vDropped);
        KeepRowsToClear(m_Code, vReads);
        CloseRowGaps(m_Code);
    }
    return true;
}

void CLowering::DeclareUav(const SItem& item)
{
    const uint32_t nUav = item.UavId();
    if (item.eOpCode == IL_OP_DCL_TYPELESS_UAV)
    {
        m_mapStrides[nUav] = m_Stream.Word(item, 0);
    }
    else
    {
        DeclareTypedUav(item);
    }
    if (((item.nToken >> 26) & 3) != s_nAccessPrivate)
    {
        return;
    }
    uint32_t& nBytes = m_mapPrivateSizes[nUav];
    nBytes = std::max(nBytes, item.eOpCode == IL_OP_DCL_TYPELESS_UAV ? m_Stream.Word(item, 1) : 0);
    if (nBytes > s_nMaxRows * 4)
    {
        Fail("private memory of " + std::to_string(nBytes) + " bytes is too large");
    }
}

/// Assigns rows to private memory and arrays: each word of a work-item is one row.
void CLowering::PlacePrivate()
{
    uint64_t nRows = m_Code.nRows;
    for (const auto& area : m_mapPrivateSizes)
    {
        nRows += (area.second + 15ull) / 16 * 4;
    }
    for (const auto& array : m_mapArraySizes)
    {
        nRows += array.second * 4ull;
    }
    if (nRows > s_nMaxRows)
    {
        Fail("private memory and arrays of " + std::to_string(nRows * 4) + " bytes a work-item are too large");
        return;
    }
    for (const auto& area : m_mapPrivateSizes)
    {
        const uint32_t nWords = (area.second + 15) / 16 * 4;
        m_mapPrivate[area.first] = static_cast<uint32_t>(m_Code.vPrivate.size());
        m_Code.vPrivate.push_back({area.first, NewRows(nWords), nWords * 4});
    }
    for (const auto& array : m_mapArraySizes)
    {
        m_mapArrays[array.first] = static_cast<uint32_t>(m_Code.vArrays.size());
        m_Code.vArrays.push_back({NewRows(array.second * 4), array.second});
    }
    for (uint32_t n = 2; n < m_Code.nRows; ++n)
    {
        m_Code.vClearRows.push_back(n);
    }
}

void CLowering::DeclareBuffer(const SItem& item)
{
    if (item.nToken >> 31)
    {
        m_nInlineBuffer = static_cast<int32_t>(m_Code.vBuffers.size());
        SCode::SBuffer buffer = {0, (item.nWords + 3) / 4, {}, true};
        for (uint32_t n = 0; n < item.nWords; ++n)
        {
            buffer.vWords.push_back(m_Stream.Word(item, n));
        }
        m_Code.vBuffers.push_back(buffer);
        return;
    }
    const SOperand& operand = Operand(0);
    const auto inserted =
        m_mapBuffers.emplace(static_cast<uint32_t>(operand.nNumber), static_cast<uint32_t>(m_Code.vBuffers.size()));
    if (inserted.second)
    {
        m_Code.vBuffers.push_back({static_cast<uint32_t>(operand.nNumber), 0, {}, false});
    }
    // Words are numbered in 32 bits, which is more than a launch can fill.
    uint32_t& nElements = m_Code.vBuffers[inserted.first->second].nElements;
    nElements = std::max(nElements, std::min(operand.nImmediate, 0x10000u));
}

/// Areas are laid out in the order of their ids, from address 0.
void CLowering::DeclareLocal()
{
    uint64_t nOffset = 0;
    for (const auto& local : m_mapLocalSizes)
    {
        m_mapLocalAreas[local.first] = static_cast<uint32_t>(m_Code.vLocalAreas.size());
        m_Code.vLocalAreas.push_back({local.first, static_cast<uint32_t>(nOffset), local.second});
        nOffset += (local.second + 15ull) & ~15ull;
    }
    m_Code.nLocalBytes = static_cast<uint32_t>(nOffset);
    if (nOffset > s_nMaxLocalBytes)
    {
        Fail("local memory of " + std::to_string(nOffset) + " bytes is too large");
    }
}

void CLowering::Declare(const SItem& item)
{
    switch (item.eOpCode)
    {
    case IL_DCL_CONST_BUFFER:
        DeclareBuffer(item);
        break;
    case IL_DCL_INDEXED_TEMP_ARRAY:
    {
        const SOperand& operand = Operand(0);
        uint32_t& nElements = m_mapArraySizes[static_cast<uint32_t>(operand.nNumber)];
        nElements = std::max(nElements, operand.nImmediate);
        if (nElements > s_nMaxRows / 4)
        {
            Fail("an array of " + std::to_string(nElements) + " elements is too large");
        }
        break;
    }
    case IL_OP_DCL_TYPELESS_UAV:
    case IL_OP_DCL_TYPED_UAV:
        DeclareUav(item);
        break;
    case IL_DCL_RESOURCE:
        m_mapUnnormalized[(item.nToken >> 16) & 0xFF] = (item.nToken >> 31) != 0;
        break;
    case IL_DCL_LDS:
    {
        uint32_t& nSize = m_mapLocalSizes[item.Controls()];
        nSize = std::max(nSize, m_Stream.Word(item, 0));
        if (nSize > s_nMaxLocalBytes)
        {
            Fail("local memory of " + std::to_string(nSize) + " bytes is too large");
        }
        break;
    }
    default:
        break;
    }
}

void CLowering::DeclareLiteral(uint32_t nItem)
{
    // Only temps have negative numbers, so nothing refers to such a literal.
    if (Operand(0).nNumber < 0)
    {
        return;
    }
    SLiteral literal = {nItem, {}, {}};
    for (uint32_t n = 0; n < 4; ++n)
    {
        literal.nValues[n] = m_Stream.Word(*m_pItem, n);
    }
    const size_t nNumber = static_cast<uint32_t>(Operand(0).nNumber);
    if (nNumber >= m_vLiterals.size())
    {
        m_vLiterals.resize(nNumber + 1);
    }
    m_vLiterals[nNumber].push_back(literal);
}

/// A stream often contains the functions of several kernels. Declarations of other functions are ignored, except for
/// literals, where the nearest declaration counts.
void CLowering::CollectDeclarations()
{
    std::vector<char> vSkip(m_Stream.vItems.size(), 0);
    for (const SBody& body : m_Structure.vBodies)
    {
        for (uint32_t nItem : body.vItems)
        {
            vSkip[nItem] = body.bReachable ? 0 : 1;
        }
    }
    for (uint32_t n = 0; n < m_Stream.vItems.size() && !m_bFailed; ++n)
    {
        const SItem& item = m_Stream.vItems[n];
        m_pItem = &item;
        if (item.nInstruction != SItem::NoInstruction)
        {
            m_nInstruction = item.nInstruction;
            continue;
        }
        ReadOperands(m_Stream, item, m_vOperands);
        if (item.eOpCode == IL_DCL_LITERAL)
        {
            DeclareLiteral(n);
        }
        else if (!vSkip[n])
        {
            Declare(item);
        }
    }
    if (m_bFailed)
    {
        return;
    }
    PlacePrivate();
    DeclareLocal();
    m_nInstruction = 0;
}

/// Notes what the current instruction has written, for the trace step after it.
void CLowering::EmitTrace()
{
    if (!m_bTrace || m_pItem->nInstruction == SItem::NoInstruction)
    {
        return;
    }
    if (m_pItem->bDestination && m_Trace.eKind == STraceInfo::Nothing)
    {
        const SOperand& destination = Destination();
        m_Trace.nType = destination.nType;
        m_Trace.nNumber = static_cast<uint32_t>(destination.nNumber);
        for (uint32_t n = 0; n < 4; ++n)
        {
            m_Trace.nComponents |= destination.write[n] != SOperand::WriteNot ? 1u << n : 0;
        }
        if (IsPlainDestination(destination))
        {
            m_Trace.eKind = STraceInfo::Register;
            m_Trace.nRow = RegisterRow(destination);
        }
        else if (destination.nType == IL_REGTYPE_ITEMP)
        {
            m_Trace.eKind = STraceInfo::Array;
            m_Trace.bConstantIndex = !destination.bIndexed;
            SIndexed indexed;
            indexed.nArray = m_mapArrays[m_Trace.nNumber];
            indexed.nIndexRow = destination.bIndexed ? IndexRow(destination) : s_nZeroRow;
            indexed.nImmediate = destination.nImmediate;
            m_Trace.nIndexed = static_cast<uint32_t>(m_Code.vIndexed.size());
            m_Code.vIndexed.push_back(indexed);
        }
        else
        {
            m_Trace.eKind = STraceInfo::Memory;
        }
    }
    AddTrace();
}

void CLowering::AddTrace()
{
    SMicroOp step;
    step.eKind = MICRO_TRACE;
    step.nInstruction = m_nInstruction;
    step.nAux = static_cast<uint32_t>(m_Code.vTraces.size());
    m_Code.vTraces.push_back(m_Trace);
    m_Code.vSteps.push_back(step);
}

bool CLowering::LowerItem(uint32_t nIndex)
{
    m_nItem = m_Structure.vBodies[m_nBody].vItems[nIndex];
    m_pItem = &m_Stream.vItems[m_nItem];
    if (m_pItem->nInstruction == SItem::NoInstruction)
    {
        return true;
    }
    m_nInstruction = m_pItem->nInstruction;
    ReadOperands(m_Stream, *m_pItem, m_vOperands);
    m_nScratchUsed = 0;
    m_Trace = STraceInfo();
    ++m_nSinceFlow;
    bool bOk = true;
    switch (GetOpCodeClass(m_pItem->eOpCode))
    {
    case ClassFlow:
        bOk = LowerFlow();
        break;
    case ClassLane:
        bOk = LowerRule(FindLaneOp(m_pItem->eOpCode));
        EmitTrace();
        break;
    case ClassMemory:
        bOk = LowerAccess();
        EmitTrace();
        break;
    case ClassImage:
        bOk = LowerImage();
        EmitTrace();
        break;
    case ClassSpecial:
        bOk = LowerSpecial();
        EmitTrace();
        break;
    default:
        EmitTrace();
        break;
    }
    if (bOk && m_Code.nRows > s_nMaxRows)
    {
        return Fail("the kernel needs more registers than this device has");
    }
    return bOk && !m_bFailed;
}

bool LowerProgram(const SDecodedStream& stream, const SStructure& structure, bool bTrace, SCode& code,
                  SDecodeError& error)
{
    std::vector<SMicroOp> vSteps = std::move(code.vSteps);
    vSteps.clear();
    code = SCode();
    code.vSteps = std::move(vSteps);
    return CLowering(stream, structure, bTrace, code, error).Run();
}

} // namespace KestrelPlatform
