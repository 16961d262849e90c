#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_VALUETYPES_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_VALUETYPES_H

#include "llvm/ADT/SmallVector.h"

#include <cstdint>

namespace llvm
{
class DataLayout;
class Type;
} // namespace llvm

namespace KestrelOpenCL
{

const unsigned s_nWordBits = 32;

/// The address spaces of OpenCL C as LLVM numbers them.
enum EAddressSpace : unsigned
{
    SpacePrivate = 0,
    SpaceGlobal = 1,
    SpaceConstant = 2,
    SpaceLocal = 3
};

/// One number or pointer inside a type: where it lies in memory and which words of the value it has.
struct SLeaf
{
    llvm::Type* pType = nullptr;
    uint64_t nOffset = 0;
    uint64_t nBytes = 0; ///< in memory
    unsigned nFirstWord = 0;
    unsigned nWords = 0;
};

/// How values lie in 32-bit words of registers.
///
/// Integers of up to 32 bits, floats and halves take one word, integers of up to 64 bits and doubles two, wider ones as
/// many as they need, low word first. Integers that don't fill their words have zeros above; i1 is all ones or 0.
/// Addresses in private and local memory are offsets of 32 bits whatever the width of pointers is. Vectors, structs and
/// arrays are their elements one after the other.
class CValueTypes
{
public:
    CValueTypes(const llvm::DataLayout& layout, bool b64BitAddresses);

    unsigned CountWords(llvm::Type* pType) const;
    /// Words of one element of a vector, or of a scalar.
    unsigned CountElementWords(llvm::Type* pType) const;
    unsigned CountPointerWords(unsigned nSpace) const;
    /// Bits that the element of an integer vector or scalar has; those of floats and pointers.
    unsigned CountBits(llvm::Type* pType) const;
    /// Whether the words of integers have bits that the type doesn't.
    bool IsNarrow(llvm::Type* pType) const;

    llvm::SmallVector<SLeaf, 8> GetLeaves(llvm::Type* pType) const;
    const llvm::DataLayout& GetLayout() const { return m_Layout; }

private:
    void AddLeaves(llvm::Type* pType, uint64_t nOffset, unsigned& nWord, llvm::SmallVectorImpl<SLeaf>& vLeaves) const;

    const llvm::DataLayout& m_Layout;
    bool m_b64BitAddresses;
};

} // namespace KestrelOpenCL

#endif
