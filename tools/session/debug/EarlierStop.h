#ifndef KESTREL_TOOLS_DEBUG_EARLIERSTOP_H
#define KESTREL_TOOLS_DEBUG_EARLIERSTOP_H

#include "tools/session/debug/Debugger.h"

#include <map>

namespace KestrelTool
{

/// The values of the last stop, as far as known: registers and memory that were read there, or any if a single step has
/// followed.
class CEarlierStop : public IValueSource
{
public:
    explicit CEarlierStop(CDebugger& debugger) : m_Debugger(debugger) {}

    SRegisterView GetValues(const std::string& strRegister) override;
    SMaskView GetActive() override;
    const SExtent& GetExtent() const override { return m_Debugger.GetExtent(); }
    size_t GetFocus() const override { return m_Debugger.GetFocus(); }
    std::optional<SElements> FindElements(const std::string& strName) override;
    std::vector<unsigned char> ReadElements(const SElements& elements, size_t nGroup, uint64_t nOffset,
                                            size_t nBytes) override;
    std::optional<SSourceVariable> FindVariable(const std::string& strName, bool bHere) override;
    const SSourceType* FindType(const std::string& strName) override { return m_Debugger.FindType(strName); }
    std::shared_ptr<const void> KeepTypes() override { return m_Debugger.KeepTypes(); }
    std::vector<SMemory> ListMemory(SSourceType::ESpace eSpace) override;
    std::vector<unsigned char> ReadMemory(SSourceType::ESpace eSpace, const SMemory& memory, size_t nGroup,
                                          uint64_t nOffset, size_t nBytes) override;
    std::vector<unsigned char> ReadAllPrivate(uint64_t nAddress, size_t nBytes) override;

    /// \throws CCommandError if anything was requested that isn't known any more
    void RequireAll() const;

private:
    [[noreturn]] void Refuse(const std::string& strWhy);
    std::vector<unsigned char> Read(const SMemoryRead& read);

    CDebugger& m_Debugger;
    std::string m_strRefused;
    std::vector<cl_bool> m_vActive;
    std::map<std::string, std::vector<uint32_t>> m_mapValues;
};

} // namespace KestrelTool

#endif
