#include "tools/session/debug/EarlierStop.h"

#include "tools/session/debug/CommandError.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

const char* const s_pszMemory = "what memory held at the last stop isn't kept; diff compares what is in registers";

} // namespace

/// Who asks may take what isn't there for a variable without a value, so that the first reason is kept.
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
    if (bNew)
    {
        const bool bConstant = strRegister.rfind("cb", 0) == 0 || strRegister[0] == 'l';
        if (bConstant)
        {
            return m_Debugger.GetValues(strRegister);
        }
        try
        {
            it->second = m_Debugger.GetEarlierValues(strRegister);
        }
        catch (const CCommandError& error)
        {
            Refuse(error.what());
        }
    }
    SRegisterView view;
    view.pWords = it->second.empty() ? nullptr : it->second.data();
    view.nItems = it->second.size() / 4;
    if (view.pWords == nullptr)
    {
        throw CCommandError(strRegister + " had no value at the last stop");
    }
    return view;
}

SMaskView CEarlierStop::GetActive()
{
    return m_Debugger.GetActive();
}

std::optional<SElements> CEarlierStop::FindElements(const std::string& strName)
{
    return m_Debugger.FindElements(strName);
}

std::vector<unsigned char> CEarlierStop::ReadElements(const SElements&, size_t, uint64_t, size_t)
{
    Refuse(s_pszMemory);
}

std::optional<SSourceVariable> CEarlierStop::FindVariable(const std::string& strName, bool bHere)
{
    if (!bHere)
    {
        return std::nullopt;
    }
    for (const SSourceVariable& variable : m_Debugger.GetDebugInfo().FindVariables(m_Debugger.GetEarlierLine()))
    {
        if (variable.strName == strName)
        {
            return variable;
        }
    }
    throw CCommandError("there was no " + strName + " at the last stop");
}

std::vector<SMemory> CEarlierStop::ListMemory(SSourceType::ESpace)
{
    Refuse(s_pszMemory);
}

std::vector<unsigned char> CEarlierStop::ReadAllPrivate(uint64_t, size_t)
{
    Refuse(s_pszMemory);
}

} // namespace KestrelTool
