#include "tools/session/debug/EarlierStop.h"

#include "tools/session/debug/CommandError.h"

#include <algorithm>

namespace KestrelTool
{

/// Callers may treat the exception as "no value", so the first reason is kept.
void CEarlierStop::Refuse(const std::string& strWhy)
{
    m_strRefused = m_strRefused.empty() ? strWhy : m_strRefused;
    throw CCommandError(strWhy);
}

void CEarlierStop::RequireAll() const
{
    if (!m_strRefused.empty())
    {
        throw CCommandError(m_strRefused);
    }
}

SRegisterView CEarlierStop::GetValues(const std::string& strRegister)
{
    const auto [it, bNew] = m_mapValues.insert({strRegister, {}});
    std::vector<uint32_t>& vWords = it->second;
    const bool bConstant = strRegister.rfind("cb", 0) == 0 || strRegister[0] == 'l';
    SRegisterView view;
    if (bNew && bConstant)
    {
        // Copied, as the debugger's values become invalid when it moves.
        view = m_Debugger.GetValues(strRegister);
        vWords.assign(view[0], view[0] + 4);
    }
    else if (bNew)
    {
        try
        {
            vWords = m_Debugger.GetEarlierValues(strRegister);
        }
        catch (const CCommandError& error)
        {
            Refuse(error.what());
        }
    }
    if (vWords.empty())
    {
        throw CCommandError(strRegister + " had no value at the last stop");
    }
    view.pWords = vWords.data();
    view.nItems = bConstant ? GetExtent().Count() : vWords.size() / 4;
    view.nStride = bConstant ? 0 : 4;
    return view;
}

SMaskView CEarlierStop::GetActive()
{
    const SMaskView mask = m_Debugger.GetActive();
    m_vActive.assign(mask.pActive, mask.pActive + mask.nItems);
    return {m_vActive.data(), m_vActive.size()};
}

std::optional<SElements> CEarlierStop::FindElements(const std::string& strName)
{
    return m_Debugger.FindElements(strName);
}

/// \param read  as the debugger requests it at a stop
std::vector<unsigned char> CEarlierStop::Read(const SMemoryRead& read)
{
    try
    {
        return m_Debugger.GetEarlierMemory(read);
    }
    catch (const CCommandError& error)
    {
        Refuse(error.what());
    }
}

std::vector<unsigned char> CEarlierStop::ReadElements(const SElements& elements, size_t nGroup, uint64_t nOffset,
                                                      size_t nBytes)
{
    return Read({elements.bPerGroup ? SMemoryRead::Local : SMemoryRead::Buffer, elements.nPlace,
                 elements.bPerGroup ? nGroup : 0, nOffset, nBytes});
}

std::optional<SSourceVariable> CEarlierStop::FindVariable(const std::string& strName, bool bHere)
{
    if (!bHere)
    {
        return std::nullopt;
    }
    for (const SSourceVariable& variable : m_Debugger.FindVariables(m_Debugger.GetEarlierLine()))
    {
        if (variable.strName == strName)
        {
            return variable;
        }
    }
    throw CCommandError("there was no " + strName + " at the last stop");
}

/// Buffers don't move while a kernel runs.
std::vector<SMemory> CEarlierStop::ListMemory(SSourceType::ESpace eSpace)
{
    return m_Debugger.ListMemory(eSpace);
}

std::vector<unsigned char> CEarlierStop::ReadMemory(SSourceType::ESpace eSpace, const SMemory& memory, size_t nGroup,
                                                    uint64_t nOffset, size_t nBytes)
{
    const bool bLocal = eSpace == SSourceType::LocalSpace;
    return Read({bLocal ? SMemoryRead::Local : SMemoryRead::Buffer,
                 bLocal ? m_Debugger.FindLocalResource(memory) : memory.nPlace, bLocal ? nGroup : 0, nOffset, nBytes});
}

std::vector<unsigned char> CEarlierStop::ReadAllPrivate(uint64_t nAddress, size_t nBytes)
{
    return Read({SMemoryRead::Private, 0, 0, nAddress, nBytes});
}

} // namespace KestrelTool
