#ifndef KESTREL_TOOLS_SOURCE_DEBUGINFO_H
#define KESTREL_TOOLS_SOURCE_DEBUGINFO_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A type of the source. Types live as long as the debug data that they come from.
struct SSourceType
{
    enum EKind
    {
        Void,
        Signed,
        Unsigned,
        Float,
        Pointer,
        Vector,
        Array,
        Struct, ///< or a union, whose members all begin at 0
        Other
    };

    /// Where a pointer points to, as the debug data number it.
    enum ESpace
    {
        PrivateSpace,
        GlobalSpace,
        ConstantSpace,
        LocalSpace
    };

    struct SMember
    {
        std::string strName;
        size_t nOffset = 0;
        const SSourceType* pType = nullptr;
    };

    EKind eKind = Other;
    std::string strName;                   ///< as the source spells it
    size_t nSize = 0;                      ///< bytes
    size_t nCount = 0;                     ///< elements of a vector or an array
    const SSourceType* pElement = nullptr; ///< of those, or what a pointer points to
    std::vector<SMember> vMembers;
    ESpace eSpace = PrivateSpace; ///< of a pointer
};

/// Some of a variable's bytes, and where they are.
struct SValuePiece
{
    enum EPlace
    {
        Nowhere,
        Register, ///< component nNumber % 4 of temp nNumber / 4
        Argument, ///< word nNumber of constant buffer 1
        Constant, ///< vBytes
        Private,  ///< nNumber bytes into the work-item's private memory
        Local     ///< nNumber bytes into the local memory that the kernel declares
    };

    EPlace ePlace = Nowhere;
    size_t nBytes = 0;
    uint64_t nNumber = 0;
    std::vector<unsigned char> vBytes;
};

/// A variable that is in scope at a line of IL.
struct SSourceVariable
{
    std::string strName;
    const SSourceType* pType = nullptr;
    bool bParameter = false;
    unsigned int nFrame = 0;          ///< 0 for the innermost function, inlined or not; NoFrame outside of all
    std::vector<SValuePiece> vPieces; ///< low bytes first; none if it has no value here

    static constexpr unsigned int NoFrame = ~0u;
};

/// A function that a line of IL is in.
struct SSourceFrame
{
    std::string strFunction;
    uint64_t nInstance = 0;   ///< tells one place where a function is inlined from another
    std::string strCallPlace; ///< "file:line" where it is inlined; empty if it isn't
};

/// The variables and types of a kernel binary's debug data (DWARF 4, docs/kernel-binary.md). Addresses are lines of IL.
class CDebugInfo
{
public:
    /// A binary without debug data, or with damaged ones, has no variables.
    explicit CDebugInfo(std::vector<char> vBinary);
    ~CDebugInfo();

    /// Inner scopes first. A name that an inner scope hides comes after the one that hides it.
    std::vector<SSourceVariable> FindVariables(unsigned int nLine);
    /// The functions that a line is in, the innermost first, inlined ones among them; nothing if that isn't known. What
    /// comes from the line of a call itself, as the work on parameters does, counts as the caller's.
    const std::vector<SSourceFrame>& FindFrames(unsigned int nLine);
    /// The variables of a name in the whole program, wherever they are in scope, without their places.
    std::vector<SSourceVariable> FindByName(const std::string& strName);
    /// The type that a typedef, a structure, a union or an enumeration of the program gives a name; null if none does.
    const SSourceType* FindType(const std::string& strName);
    /// Keeps the types alive that come of these.
    std::shared_ptr<const void> KeepTypes() const { return m_pReader; }

private:
    class CReader;
    std::shared_ptr<CReader> m_pReader;
};

} // namespace KestrelTool

#endif
