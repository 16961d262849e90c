#include "tests/e2e/DebugFunctions.h"
#include "tests/support/Folders.h"

#include <dlfcn.h>

#include <stdexcept>

namespace KestrelTest
{

using KestrelTool::CSession;
using KestrelTool::SMaskView;
using KestrelTool::SRegisterView;

namespace
{

SDebugFunctions Find()
{
    GetLibraries();
    const std::string strPath = KestrelTest::BuiltFile("lib/libOVKKestrel.so");
    void* pLibrary = dlopen(strPath.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (pLibrary == nullptr)
    {
        throw std::runtime_error(strPath + " isn't open");
    }
    SDebugFunctions functions;
#define FIND_FUNCTION(name)                                                                                            \
    functions.name = reinterpret_cast<decltype(&::name)>(dlsym(pLibrary, #name));                                      \
    if (functions.name == nullptr)                                                                                     \
    {                                                                                                                  \
        throw std::runtime_error("the debugger has no " #name);                                                        \
    }
    KESTREL_MORE_DEBUG_FUNCTIONS(FIND_FUNCTION)
#undef FIND_FUNCTION
    return functions;
}

} // namespace

const SDebugFunctions& GetDebugFunctions()
{
    static const SDebugFunctions s_Functions = Find();
    return s_Functions;
}

ovkclDebugError Track(const CSession& session, const std::vector<std::string>& vNames)
{
    std::vector<ovkclDebugRegisterLocator> vLocators;
    for (const std::string& strName : vNames)
    {
        ovkclDebugRegisterLocator locator = 0;
        GetLibraries().ovkclDebugUtilStringToDebugRegisterLocator(reinterpret_cast<const cl_char*>(strName.c_str()),
                                                                  &locator);
        vLocators.push_back(locator);
    }
    return GetLibraries().ovkclDebugSetTrackingRegisters(session.GetContext(), vLocators.data(), vLocators.size());
}

SSnapshot::SSnapshot(const CSession& session, bool bWithMask) : nNextLine(session.GetNextLine())
{
    if (bWithMask)
    {
        const SMaskView mask = session.GetMask();
        vMask.assign(mask.pActive, mask.pActive + mask.nItems);
    }
    for (const std::string& strName : session.GetActiveRegisters())
    {
        const SRegisterView view = session.GetRegister(strName);
        if (view.pWords != nullptr)
        {
            mapRegisters[strName].assign(view.pWords, view.pWords + 4 * view.nItems);
            vPrivate = session.GetPrivateMemory(view.nItems, 0, 64);
        }
    }
}

std::string SSnapshot::CompareWith(const SSnapshot& other) const
{
    if (nNextLine != other.nNextLine)
    {
        return "the next line is " + std::to_string(nNextLine) + ", not " + std::to_string(other.nNextLine);
    }
    if (vMask != other.vMask)
    {
        return "the mask differs";
    }
    for (const auto& entry : mapRegisters)
    {
        const auto it = other.mapRegisters.find(entry.first);
        if (it == other.mapRegisters.end())
        {
            return entry.first + " had no value";
        }
        for (size_t n = 0; n < entry.second.size(); ++n)
        {
            if (entry.second[n] != it->second[n])
            {
                return entry.first + " of work-item " + std::to_string(n / 4) + " reads " +
                       std::to_string(entry.second[n]) + " in component " + std::to_string(n % 4) + ", not " +
                       std::to_string(it->second[n]);
            }
        }
    }
    for (const auto& entry : other.mapRegisters)
    {
        if (mapRegisters.count(entry.first) == 0)
        {
            return entry.first + " has no value";
        }
    }
    return vPrivate != other.vPrivate ? "private memory differs" : std::string();
}

} // namespace KestrelTest
