#ifndef KESTREL_TOOLS_DEBUG_VALUESOURCE_H
#define KESTREL_TOOLS_DEBUG_VALUESOURCE_H

#include "tools/session/launch/ElementType.h"
#include "tools/session/launch/Session.h"
#include "tools/source/DebugInfo.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KestrelTool
{

/// The extent of a dispatch; sizes of dimensions that it hasn't got are 1.
struct SExtent
{
    unsigned int nDimensions = 1;
    size_t nGlobal[3] = {1, 1, 1};
    size_t nOffset[3] = {0, 0, 0};
    size_t nLocal[3] = {1, 1, 1}; ///< 1 where the launch leaves it to the platform and nobody knows it yet
    bool bLocalKnown = true;

    size_t Count() const { return nGlobal[0] * nGlobal[1] * nGlobal[2]; }
    /// The linear index of a work-item's group, x fastest.
    size_t GroupOf(size_t nItem) const
    {
        const size_t x = nItem % nGlobal[0] / nLocal[0];
        const size_t y = nItem / nGlobal[0] % nGlobal[1] / nLocal[1];
        const size_t z = nItem / (nGlobal[0] * nGlobal[1]) / nLocal[2];
        const size_t nColumns = nGlobal[0] / nLocal[0];
        return (z * (nGlobal[1] / nLocal[1]) + y) * nColumns + x;
    }
};

/// Elements in memory that have a name: those of a buffer, of a value argument, or of a group's local memory.
struct SElements
{
    std::string strName;
    const SElementType* pType = nullptr;
    uint64_t nCount = 0;    ///< of one group, if each has its own
    bool bPerGroup = false; ///< local memory
    bool bAlone = false;    ///< a single value, which needs no index
    size_t nPlace = 0;      ///< for the source, to find it again

    uint64_t GetBytes() const { return nCount * pType->nSize; }
};

struct SFaultPlace;
struct SWatch;

/// A stretch of memory that pointers may point into.
struct SMemory
{
    uint64_t nBase = 0;
    uint64_t nSize = 0;
    size_t nPlace = 0; ///< for the source, to find it again
};

/// Where an expression takes the values of a stop from.
class IValueSource
{
public:
    virtual ~IValueSource() = default;

    /// \throws CCommandError if the register has no value
    virtual SRegisterView GetValues(const std::string& strRegister) = 0;
    virtual SMaskView GetActive() = 0;
    virtual const SExtent& GetExtent() const = 0;
    /// The linear index of the work-item in focus.
    virtual size_t GetFocus() const = 0;

    /// Before the first instruction, where no variable has a value and arguments are those of the launch.
    virtual bool IsAtEntry() const { return false; }
    /// The elements of a name; nothing if it isn't one.
    virtual std::optional<SElements> FindElements(const std::string& /*strName*/) { return std::nullopt; }
    /// A variable of the source by its name; nothing if there is none.
    /// \param bHere  in scope at this stop, with its place; else wherever the program has one of that name
    virtual std::optional<SSourceVariable> FindVariable(const std::string& /*strName*/, bool /*bHere*/)
    {
        return std::nullopt;
    }
    /// The type that the program gives a name; null if it gives none.
    virtual const SSourceType* FindType(const std::string& /*strName*/) { return nullptr; }
    /// Keeps the types that come of these alive.
    virtual std::shared_ptr<const void> KeepTypes() { return nullptr; }
    /// What pointers into global or local memory may point into.
    virtual std::vector<SMemory> ListMemory(SSourceType::ESpace /*eSpace*/) { return {}; }
    /// Bytes of one of those; all that were asked for. \param nGroup  whose, in local memory
    /// \throws CCommandError if they can't be had
    virtual std::vector<unsigned char> ReadMemory(SSourceType::ESpace /*eSpace*/, const SMemory& /*memory*/,
                                                  size_t /*nGroup*/, uint64_t /*nOffset*/, size_t /*nBytes*/)
    {
        return {};
    }
    /// Bytes of the private memory of all work-items, one work-item's after the other's.
    /// \throws CCommandError if they can't be had
    virtual std::vector<unsigned char> ReadAllPrivate(uint64_t /*nAddress*/, size_t /*nBytes*/) { return {}; }
    /// The work-items that do something wrong when a line is executed next.
    virtual std::vector<size_t> FindFaulty(const SFaultPlace& /*place*/, unsigned int /*nLine*/) { return {}; }
    /// The work-items that access what is watched when a line is executed next.
    virtual std::vector<size_t> FindTouchers(const SWatch& /*watch*/, unsigned int /*nLine*/) { return {}; }
    /// An address as a user knows it.
    virtual std::string NameAddress(uint64_t nAddress) { return std::to_string(nAddress); }
    /// Bytes of them, as they are at this stop; all that were asked for.
    /// \param nGroup  whose local memory; else not looked at
    /// \throws CCommandError if they can't be had
    virtual std::vector<unsigned char> ReadElements(const SElements& /*elements*/, size_t /*nGroup*/,
                                                    uint64_t /*nOffset*/, size_t /*nBytes*/)
    {
        return {};
    }
};

} // namespace KestrelTool

#endif
