#ifndef KESTREL_TOOLS_DEBUG_VALUESOURCE_H
#define KESTREL_TOOLS_DEBUG_VALUESOURCE_H

#include "tools/kestrel/ElementType.h"
#include "tools/kestrel/Session.h"

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

/// A variable of the source that is a single number, or one such part of it.
struct SVariableWords
{
    std::string strRegister;               ///< empty where only its type was asked for
    std::vector<unsigned int> vComponents; ///< one word, or the low and the high one
    SElementType::EKind eKind = SElementType::Signed;
    size_t nSize = 0; ///< bytes
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

    /// The elements of a name; nothing if it isn't one.
    virtual std::optional<SElements> FindElements(const std::string& /*strName*/) { return std::nullopt; }
    /// A variable by its name, with members behind it; nothing for what is none, or no single number.
    /// \param bHere  in scope at this stop, with its place; else wherever the program has one of that name
    /// \throws CCommandError if it has to be here and isn't in registers
    virtual std::optional<SVariableWords> FindVariable(const std::string& /*strPath*/, bool /*bHere*/)
    {
        return std::nullopt;
    }
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
