#ifndef KESTREL_TOOLS_SOURCE_DEBUGINFO_H
#define KESTREL_TOOLS_SOURCE_DEBUGINFO_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A type of the source. Types must not outlive the debug data that they come from.
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
        Struct, ///< or a union, whose members are all at offset 0
        Other
    };

    /// A pointer's address space, as numbered in the debug data.
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
    std::string strName;                   ///< as spelled in the source
    size_t nSize = 0;                      ///< bytes
    size_t nCount = 0;                     ///< elements in a vector or an array
    const SSourceType* pElement = nullptr; ///< type of the elements, or of a pointer's target
    std::vector<SMember> vMembers;
    ESpace eSpace = PrivateSpace; ///< of a pointer
};

/// Some bytes of a variable, and their place.
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
    unsigned int nFrame = 0; ///< 0 for the innermost function, inlined or not; NoFrame outside of all functions
    std::vector<SValuePiece> vPieces; ///< low bytes first; none if it has no value here

    static constexpr unsigned int NoFrame = ~0u;
};

/// A source function that contains a line of IL.
struct SSourceFrame
{
    std::string strFunction;
    uint64_t nInstance = 0;   ///< identifies the inlined copy
    std::string strCallPlace; ///< "file:line" of the inlined call; empty if it isn't inlined
};

/// The variables and types of a kernel binary's debug data (DWARF 4, docs/kernel-binary.md). Addresses are lines of IL.
class CDebugInfo
{
public:
    /// A binary without debug data, or with damaged data, has no variables.
    explicit CDebugInfo(std::vector<char> vBinary);
    ~CDebugInfo();

    /// Inner scopes first. A hidden name comes after the one that hides it.
    std::vector<SSourceVariable> FindVariables(unsigned int nLine);
    /// The functions that contain a line, innermost first, including inlined ones; empty if unknown. Code of the call's
    /// own line, such as handling parameters, counts as the caller's.
    const std::vector<SSourceFrame>& FindFrames(unsigned int nLine);
    /// All variables of the program with this name, in any scope, without their places.
    std::vector<SSourceVariable> FindByName(const std::string& strName);
    /// The typedef, structure, union or enumeration with this name; null if there is none.
    const SSourceType* FindType(const std::string& strName);
    /// Keeps the types given by these functions alive.
    std::shared_ptr<const void> KeepTypes() const { return m_pReader; }

private:
    class CReader;
    std::shared_ptr<CReader> m_pReader;
};

} // namespace KestrelTool

#endif
