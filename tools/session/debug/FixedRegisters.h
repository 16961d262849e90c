#ifndef KESTREL_TOOLS_DEBUG_FIXEDREGISTERS_H
#define KESTREL_TOOLS_DEBUG_FIXEDREGISTERS_H

#include "tools/session/debug/KernelArguments.h"
#include "tools/session/debug/ValueSource.h"
#include "tools/session/launch/LaunchFile.h"
#include "tools/session/launch/Listing.h"

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace KestrelTool
{

typedef std::array<unsigned int, 4> Words4;

/// Registers whose values a launch fixes, as no instruction changes them: literals, ids of work-items and groups, and
/// the constant buffers. docs/il.md and docs/kernel-binary.md describe their contents.
class CFixedRegisters
{
public:
    /// What the values are computed from; all of it must outlive this object.
    struct SSources
    {
        const SExtent* pExtent = nullptr;
        const SLaunchFile* pFile = nullptr;
        const std::vector<SKernelArgument>* pArguments = nullptr;
        unsigned int nLocalBytes = 0;                ///< declared by the kernel itself
        bool bKnownPlatform = false;                 ///< whether constant buffer 0 is laid out as the software
                                                     ///< platform does it
        std::function<uint64_t(size_t)> findAddress; ///< of an argument's buffer; throws where it isn't known
    };

    explicit CFixedRegisters(SSources sources) : m_Sources(std::move(sources)) {}

    /// \param strRegister  with its number: "l0", "cb1[2]", "vTidInGrp0"
    /// \param nLine        the line that reads it
    /// \return the values, valid until the next call for the same name; nothing for another kind of register
    /// \throws CCommandError if the register is of one of these kinds, but its value is unknown
    std::optional<SRegisterView> Find(const std::string& strRegister, const CListing& listing, unsigned int nLine);

    /// Where a local argument's block begins, as passed to the kernel.
    uint64_t GetLocalStart(size_t nArgument) const;

private:
    const std::vector<unsigned int>& MakeIds(const std::string& strName);
    Words4 ReadSizes(unsigned int nElement) const;
    Words4 ReadArgument(unsigned int nElement) const;
    Words4 ReadConstant(unsigned int nBuffer, unsigned int nElement, const CListing& listing) const;

    SSources m_Sources;
    std::map<std::string, std::vector<unsigned int>> m_mapWords;
};

} // namespace KestrelTool

#endif
