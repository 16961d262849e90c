#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "core/ShaderDebuggerResult.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"
#include "il/ShaderDebuggerUtilsIL.h"

#include <algorithm>
#include <cstring>
#include <new>

/// Registers as they are at a stop, for a client that asked for values on demand. A stop has the mask alone. When a
/// register is asked for, a run that is cut exactly at the stop's position, as those for memory are, stores it for all
/// work-items, and others with it that are likely to be asked for next.
namespace OVK_ShaderDebugger
{

namespace
{

/// The first run of a stop stores this many registers: more if they are small, and fewer if they are large. Memory that
/// is touched for the first time costs more than the run. Each further run takes more.
constexpr size_t s_nFirstRegisters = 16;
constexpr size_t s_nLeastFirstRoom = size_t(1) << 20; ///< bytes
constexpr size_t s_nMostFirstRoom = size_t(4) << 20;
constexpr size_t s_nMostRoom = size_t(512) << 20;
constexpr size_t s_nMoreRoom = 4;
/// A list of captures longer than this costs more to build than a second run.
constexpr size_t s_nMostRegisters = 1024;

} // namespace

void CShaderDebuggerIL::SetValuesOnDemand(bool bOn)
{
    if (m_bValuesOnDemand == bOn)
    {
        return;
    }
    ForgetValues();
    m_bValuesOnDemand = bOn;
    ForgetValues();
    if (CShaderDebuggerShaderIL* pShader = GetCurrentShader())
    {
        pShader->DropPatchedKernel();
    }
    m_pValues.reset();
    if (bOn)
    {
        m_TargetBuffers.DropValues();
    }
}

/// Called before a movement: the values of the present stop aren't those of the next one.
void CShaderDebuggerIL::ForgetValues()
{
    if (!m_bValuesOnDemand)
    {
        return;
    }
    m_AskedBefore = std::move(m_Asked);
    m_Asked.clear();
    m_nValueRuns = 0;
    for (auto it = m_Results.begin(); it != m_Results.end();)
    {
        if (it->first == s_szNoDestination)
        {
            ++it;
            continue;
        }
        m_pLastTouchedResult = it->second.get() == m_pLastTouchedResult ? nullptr : m_pLastTouchedResult;
        it = m_Results.erase(it);
    }
}

/// The values of a register at the present stop, from a run if nothing has read them there yet. Null for a register
/// that no work-item can have written, and if they can't be read.
CShaderDebuggerBuffer* CShaderDebuggerIL::BringValues(const std::string& strName)
{
    const CShaderDebuggerResult* pResult = FindResult(m_Results, strName);
    if (pResult == nullptr)
    {
        const std::vector<Register> vRegisters = ChooseRegisters(strName);
        pResult = !vRegisters.empty() && RunForValues(vRegisters) ? FindResult(m_Results, strName) : nullptr;
    }
    if (pResult != nullptr)
    {
        m_Asked.insert(strName);
    }
    return pResult != nullptr ? pResult->GetResult() : nullptr;
}

/// A register with those that the same run reads: what was asked for at the stop before, then what was written last, as
/// much as there is room for. A client that asks for one register after the other gets more with each run.
/// \return nothing if the register hasn't been written
std::vector<Register> CShaderDebuggerIL::ChooseRegisters(const std::string& strName)
{
    std::vector<Register> vFirst;
    std::vector<Register> vAsked;
    std::vector<Register> vOthers;
    for (const Register& reg : GetCurrentShader()->FindWritten())
    {
        const std::string strOther = ShaderDebuggerUtilsIL::GetILRegisterName(GetResultRegister(reg), true);
        if (strOther == strName)
        {
            vFirst.push_back(reg);
        }
        else if (m_Results.count(strOther) == 0)
        {
            (m_AskedBefore.count(strOther) != 0 ? vAsked : vOthers).push_back(reg);
        }
    }
    if (vFirst.empty())
    {
        return vFirst;
    }
    vFirst.insert(vFirst.end(), vAsked.begin(), vAsked.end());
    vFirst.insert(vFirst.end(), vOthers.begin(), vOthers.end());
    const size_t nPlane = std::max<size_t>(GetPlaneSize(), 1);
    size_t nRoom = std::clamp(s_nFirstRegisters * nPlane, s_nLeastFirstRoom, s_nMostFirstRoom);
    for (unsigned int n = 0; n < m_nValueRuns && nRoom < s_nMostRoom; ++n)
    {
        nRoom *= s_nMoreRoom;
    }
    // What was asked for at the stop before has more room at once: it will be asked for again.
    const size_t nAsked = std::min(1 + vAsked.size(), std::max<size_t>(s_nMostRoom / nPlane, 1));
    vFirst.resize(std::min({vFirst.size(), std::max(nAsked, nRoom / nPlane), s_nMostRegisters}));
    return vFirst;
}

size_t CShaderDebuggerIL::GetPlaneSize() const
{
    const BufferDesc& one = m_TargetBuffers.GetValuesDesc();
    return size_t{4} * sizeof(uint32_t) * std::max(one.m_nWidth, 1u) * std::max(one.m_nHeight, 1u);
}

bool CShaderDebuggerIL::RunForValues(const std::vector<Register>& vRegisters)
{
    ++m_nValueRuns;
    BufferDesc desc = m_TargetBuffers.GetValuesDesc();
    desc.m_nHeight = std::max(desc.m_nHeight, 1u) * static_cast<unsigned int>(vRegisters.size());
    // The next stop usually reads as many registers. What the last one left there goes: each work-item stores its
    // registers, wherever it ends.
    if (m_pValues == nullptr || m_nValuesHeight != desc.m_nHeight)
    {
        m_pValues.reset();
        m_pValues.reset(GetHost()->CreateDeviceBuffer(desc));
        m_nValuesHeight = desc.m_nHeight;
    }
    if (m_pValues == nullptr ||
        !GetCurrentShader()->ReadValues(vRegisters, static_cast<unsigned int>(GetPlaneSize()), *m_pValues))
    {
        return false;
    }
    std::unique_ptr<CShaderDebuggerBuffer> pRead(m_pValues->GetDataBuffer(nullptr));
    if (pRead == nullptr)
    {
        return false;
    }
    if (vRegisters.size() == 1)
    {
        return FileRead(vRegisters.front(), std::move(pRead));
    }
    bool bFiled = true;
    for (size_t n = 0; bFiled && n < vRegisters.size(); ++n)
    {
        bFiled = FileRead(vRegisters[n], CutPlane(*pRead, n));
    }
    return bFiled;
}

/// \param pValues  null where memory has run out
bool CShaderDebuggerIL::FileRead(const Register& reg, std::unique_ptr<CShaderDebuggerBuffer> pValues)
{
    CShaderDebuggerResult* pResult = pValues != nullptr ? GetResult(GetResultRegister(reg)) : nullptr;
    if (pResult == nullptr)
    {
        return false;
    }
    pResult->SetProgramCounter(GetCurrentInstruction(), COMP_All);
    UpdateResultDataType(*pResult);
    pResult->UpdateResult(pValues.release(), nullptr, 0, 0, 0);
    return true;
}

/// The values of the n-th register of a run. Null when memory runs out.
std::unique_ptr<CShaderDebuggerBuffer> CShaderDebuggerIL::CutPlane(const CShaderDebuggerBuffer& read, size_t n) const
{
    std::unique_ptr<CShaderDebuggerBuffer> pOne(new (std::nothrow) CShaderDebuggerBuffer(m_pHost));
    BufferDesc desc = read.GetDesc();
    desc.m_nHeight = std::max(m_TargetBuffers.GetValuesDesc().m_nHeight, 1u);
    desc.m_nSize = GetPlaneSize();
    if (pOne == nullptr || !pOne->Create(desc, nullptr) || (n + 1) * pOne->GetSize() > read.GetSize())
    {
        return nullptr;
    }
    std::memcpy(pOne->GetData(), read.GetData() + n * pOne->GetSize(), pOne->GetSize());
    return pOne;
}

} // namespace OVK_ShaderDebugger
