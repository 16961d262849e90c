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

/// The size of a dispatch; sizes of missing dimensions are 1.
struct SExtent
{
    unsigned int nDimensions = 1;
    size_t nGlobal[3] = {1, 1, 1};
    size_t nOffset[3] = {0, 0, 0};
    size_t nLocal[3] = {1, 1, 1}; ///< 1 if the platform chooses it and hasn't yet
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

/// Named elements in memory: of a buffer, a value argument, or a group's local memory.
struct SElements
{
    std::string strName;
    const SElementType* pType = nullptr;
    uint64_t nCount = 0;    ///< for each group, if each has its own
    bool bPerGroup = false; ///< local memory
    bool bAlone = false;    ///< a single value, used without an index
    size_t nPlace = 0;      ///< the source's own key

    uint64_t GetBytes() const { return nCount * pType->nSize; }
};

struct SFaultPlace;
struct SWatch;

/// A range of memory that pointers may point into.
struct SMemory
{
    uint64_t nBase = 0;
    uint64_t nSize = 0;
    size_t nPlace = 0; ///< the source's own key
};

/// Provides expressions with the values of a stop.
class IValueSource
{
public:
    virtual ~IValueSource() = default;

    /// \throws CCommandError if the register has no value
    virtual SRegisterView GetValues(const std::string& strRegister) = 0;
    virtual SMaskView GetActive() = 0;
    virtual const SExtent& GetExtent() const = 0;
    /// The linear index of the focused work-item.
    virtual size_t GetFocus() const = 0;

    /// Before the first instruction, where variables have no values and arguments are those of the launch.
    virtual bool IsAtEntry() const { return false; }
    /// The elements with this name; nothing if there are none.
    virtual std::optional<SElements> FindElements(const std::string& /*strName*/) { return std::nullopt; }
    /// A source variable by name; nothing if there is none.
    /// \param bHere  in scope at this stop, with its place; otherwise any variable of the program with this name
    virtual std::optional<SSourceVariable> FindVariable(const std::string& /*strName*/, bool /*bHere*/)
    {
        return std::nullopt;
    }
    /// The type with this name in the program; null if there is none.
    virtual const SSourceType* FindType(const std::string& /*strName*/) { return nullptr; }
    /// Keeps the types given by these functions alive.
    virtual std::shared_ptr<const void> KeepTypes() { return nullptr; }
    /// The ranges of global or local memory that pointers may point into.
    virtual std::vector<SMemory> ListMemory(SSourceType::ESpace /*eSpace*/) { return {}; }
    /// Exactly the requested bytes of such a range. \param nGroup  the group, for local memory
    /// \throws CCommandError if they can't be read
    virtual std::vector<unsigned char> ReadMemory(SSourceType::ESpace /*eSpace*/, const SMemory& /*memory*/,
                                                  size_t /*nGroup*/, uint64_t /*nOffset*/, size_t /*nBytes*/)
    {
        return {};
    }
    /// Bytes of the private memory of all work-items, one work-item after the other.
    /// \throws CCommandError if they can't be read
    virtual std::vector<unsigned char> ReadAllPrivate(uint64_t /*nAddress*/, size_t /*nBytes*/) { return {}; }
    /// The work-items for which executing this line next would be a fault.
    virtual std::vector<size_t> FindFaulty(const SFaultPlace& /*place*/, unsigned int /*nLine*/) { return {}; }
    /// The work-items that make a watched access if this line is executed next.
    virtual std::vector<size_t> FindTouchers(const SWatch& /*watch*/, unsigned int /*nLine*/) { return {}; }
    /// An address in the form that users know.
    virtual std::string NameAddress(uint64_t nAddress) { return std::to_string(nAddress); }
    /// Exactly the requested bytes of such elements, as they are at this stop.
    /// \param nGroup  the group, for local memory; otherwise ignored
    /// \throws CCommandError if they can't be read
    virtual std::vector<unsigned char> ReadElements(const SElements& /*elements*/, size_t /*nGroup*/,
                                                    uint64_t /*nOffset*/, size_t /*nBytes*/)
    {
        return {};
    }
};

} // namespace KestrelTool

#endif
