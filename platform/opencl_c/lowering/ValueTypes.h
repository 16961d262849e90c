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

/// OpenCL C's address spaces, as numbered in LLVM.
enum EAddressSpace : unsigned
{
    SpacePrivate = 0,
    SpaceGlobal = 1,
    SpaceConstant = 2,
    SpaceLocal = 3
};

/// One number or pointer within a type: its place in memory, and its words in the value.
struct SLeaf
{
    llvm::Type* pType = nullptr;
    uint64_t nOffset = 0;
    uint64_t nBytes = 0; ///< in memory
    unsigned nFirstWord = 0;
    unsigned nWords = 0;
};

/// How values are kept in 32-bit words of registers.
///
/// Integers of up to 32 bits, floats and halves take one word; integers of up to 64 bits and doubles take two; wider
/// integers take as many as they need. Low words come first. Unused upper bits of an integer are 0; i1 is all ones or
/// 0. Addresses in private and local memory are 32-bit offsets whatever the width of pointers. Vectors, structs and
/// arrays are the words of their elements in order.
class CValueTypes
{
public:
    CValueTypes(const llvm::DataLayout& layout, bool b64BitAddresses);

    unsigned CountWords(llvm::Type* pType) const;
    /// How many words a scalar, or one element of a vector, takes.
    unsigned CountElementWords(llvm::Type* pType) const;
    unsigned CountPointerWords(unsigned nSpace) const;
    /// How many bits a scalar, or one element of a vector, has: integer, float or pointer.
    unsigned CountBits(llvm::Type* pType) const;
    /// Whether integers of the type have fewer bits than their words.
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
