#include "core/ShaderDebuggerCommon.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace OVK_ShaderDebugger
{

const LineNumber g_INVALID_LINE_NUMBER = std::numeric_limits<LineNumber>::max();
const InstructionNumber g_Inst_NULL = std::numeric_limits<InstructionNumber>::max();
const ProgramCounter g_PC_NULL(g_Inst_NULL);
const RegisterID g_RegID_NULL(RT_Unknown, 0, 0, nullptr);
const Register g_Reg_NULL(g_RegID_NULL, COMP_None);

Component GetComponent(unsigned int nIndex)
{
    static const Component s_Components[] = {COMP_x, COMP_y, COMP_z, COMP_w};
    return nIndex < 4 ? s_Components[nIndex] : COMP_None;
}

bool IsRegTypeIndexed(RegisterType type)
{
    return type == RT_IndexableTemp || type == RT_CONST_BUFF || type == RT_PrivateUAVAccess;
}

bool operator==(const LoopState& lhs, const LoopState& rhs)
{
    return lhs.nLoopStart == rhs.nLoopStart && lhs.nLoopEnd == rhs.nLoopEnd && lhs.nLoopIteration == rhs.nLoopIteration;
}

bool operator!=(const LoopState& lhs, const LoopState& rhs)
{
    return !(lhs == rhs);
}

void ProgramCounter::AddLoop(InstructionNumber nLoopStart, InstructionNumber nLoopEnd)
{
    if (!m_LoopStack.empty() && m_LoopStack.back().nLoopStart == nLoopStart)
    {
        return;
    }
    m_LoopStack.push_back({nLoopStart, nLoopEnd, 0});
}

bool ProgramCounter::GetLoopState(InstructionNumber nLoopStart, LoopState& loopState) const
{
    const auto it = std::find_if(m_LoopStack.begin(), m_LoopStack.end(),
                                 [=](const LoopState& state) { return state.nLoopStart == nLoopStart; });
    if (it == m_LoopStack.end())
    {
        return false;
    }
    loopState = *it;
    return true;
}

bool operator==(const ProgramCounter& lhs, const ProgramCounter& rhs)
{
    return lhs.m_nPos == rhs.m_nPos && lhs.m_LoopStack == rhs.m_LoopStack;
}

bool operator!=(const ProgramCounter& lhs, const ProgramCounter& rhs)
{
    return !(lhs == rhs);
}

namespace
{

/// Compares the entries that both stacks have, without the ends of loops: -1, 0 or 1.
int CompareLoops(const std::vector<LoopState>& lhs, const std::vector<LoopState>& rhs)
{
    const size_t nCommon = std::min(lhs.size(), rhs.size());
    for (size_t i = 0; i < nCommon; ++i)
    {
        if (lhs[i].nLoopStart != rhs[i].nLoopStart)
        {
            return lhs[i].nLoopStart < rhs[i].nLoopStart ? -1 : 1;
        }
        if (lhs[i].nLoopIteration != rhs[i].nLoopIteration)
        {
            return lhs[i].nLoopIteration < rhs[i].nLoopIteration ? -1 : 1;
        }
    }
    return 0;
}

} // namespace

bool operator<(const ProgramCounter& lhs, const ProgramCounter& rhs)
{
    const int nOrder = CompareLoops(lhs.m_LoopStack, rhs.m_LoopStack);
    return nOrder != 0 ? nOrder < 0 : lhs.m_nPos < rhs.m_nPos;
}

bool operator>(const ProgramCounter& lhs, const ProgramCounter& rhs)
{
    const int nOrder = CompareLoops(lhs.m_LoopStack, rhs.m_LoopStack);
    return nOrder != 0 ? nOrder > 0 : lhs.m_nPos > rhs.m_nPos;
}

RegisterID::RegisterID(RegisterType regType, unsigned int nNumber, unsigned int nIndex, const Register* pIndex)
    : type(regType), number(nNumber), index(nIndex), pIndexRegister(pIndex != nullptr ? new Register(*pIndex) : nullptr)
{
}

RegisterID::RegisterID(const RegisterID& other)
    : RegisterID(other.type, other.number, other.index, other.pIndexRegister)
{
}

RegisterID::RegisterID(RegisterID&& other) noexcept
    : type(other.type), number(other.number), index(other.index),
      pIndexRegister(std::exchange(other.pIndexRegister, nullptr))
{
}

RegisterID& RegisterID::operator=(const RegisterID& other)
{
    if (this != &other)
    {
        *this = RegisterID(other);
    }
    return *this;
}

RegisterID& RegisterID::operator=(RegisterID&& other) noexcept
{
    if (this != &other)
    {
        type = other.type;
        number = other.number;
        index = other.index;
        SD_SAFE_DELETE(pIndexRegister);
        pIndexRegister = std::exchange(other.pIndexRegister, nullptr);
    }
    return *this;
}

RegisterID::~RegisterID()
{
    SD_SAFE_DELETE(pIndexRegister);
}

bool operator==(const RegisterID& lhs, const RegisterID& rhs)
{
    if (lhs.type != rhs.type || lhs.number != rhs.number || lhs.index != rhs.index)
    {
        return false;
    }
    if (lhs.pIndexRegister == nullptr || rhs.pIndexRegister == nullptr)
    {
        return lhs.pIndexRegister == rhs.pIndexRegister;
    }
    return *lhs.pIndexRegister == *rhs.pIndexRegister;
}

bool operator!=(const RegisterID& lhs, const RegisterID& rhs)
{
    return !(lhs == rhs);
}

bool operator<(const RegisterID& lhs, const RegisterID& rhs)
{
    if (lhs.type != rhs.type)
    {
        return lhs.type < rhs.type;
    }
    if (lhs.number != rhs.number)
    {
        return lhs.number < rhs.number;
    }
    if (lhs.index != rhs.index)
    {
        return lhs.index < rhs.index;
    }
    if (lhs.pIndexRegister != nullptr && rhs.pIndexRegister != nullptr)
    {
        return *lhs.pIndexRegister < *rhs.pIndexRegister;
    }
    return lhs.pIndexRegister == nullptr && rhs.pIndexRegister != nullptr;
}

bool operator==(const Register& lhs, const Register& rhs)
{
    return lhs.mask == rhs.mask && lhs.reg == rhs.reg;
}

bool operator!=(const Register& lhs, const Register& rhs)
{
    return !(lhs == rhs);
}

bool operator<(const Register& lhs, const Register& rhs)
{
    return lhs.reg == rhs.reg ? lhs.mask < rhs.mask : lhs.reg < rhs.reg;
}

ShaderDebuggerPerfMarker::ShaderDebuggerPerfMarker(const char*, const char*)
{
    ShaderDebuggerPerfMarkerLoader::Instance();
}

ShaderDebuggerPerfMarkerLoader& ShaderDebuggerPerfMarkerLoader::Instance()
{
    static ShaderDebuggerPerfMarkerLoader s_Loader;
    return s_Loader;
}

} // namespace OVK_ShaderDebugger
