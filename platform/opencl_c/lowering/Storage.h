#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_STORAGE_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_STORAGE_H

#include "llvm/ADT/DenseMap.h"
#include "llvm/ADT/MapVector.h"

#include <cstdint>
#include <vector>

namespace llvm
{
class AllocaInst;
class Constant;
class DataLayout;
class GlobalVariable;
} // namespace llvm

namespace KestrelOpenCL
{

/// Where one kernel's variables lie in local, private and inline constant memory. Places are given when they are first
/// asked for, so that what a kernel doesn't use takes nothing.
class CStorage
{
public:
    explicit CStorage(const llvm::DataLayout& layout) : m_Layout(layout) {}

    /// Leaves address 0 of local memory to the null pointer, for kernels that could tell.
    void KeepLocalNull();
    /// Byte offset in the kernel's local block.
    uint32_t GetLocal(const llvm::GlobalVariable& variable);
    /// Byte offset in private memory.
    uint32_t GetPrivate(const llvm::AllocaInst& variable);
    uint32_t AddPrivate(uint64_t nBytes, uint64_t nAlignment);
    /// Byte offset among the program's constants.
    uint32_t GetConstant(const llvm::GlobalVariable& variable);

    /// Sizes are of 64 bits: what doesn't fit is told when all is placed.
    const llvm::MapVector<const llvm::GlobalVariable*, uint32_t>& GetLocals() const { return m_mapLocal; }
    uint64_t GetLocalBytes() const { return m_nLocal; }
    uint64_t GetPrivateBytes() const { return m_nPrivate; }
    /// Who reads words at addresses in between reads one word more than it takes.
    void KeepWordBehindConstants() { m_nBehindConstants = 4; }
    /// The program's constants that are used.
    std::vector<uint8_t> GetConstants() const;

private:
    void WriteConstant(const llvm::Constant& value, uint64_t nOffset);
    void WriteInteger(uint64_t nValue, uint64_t nBytes, uint64_t nOffset);

    const llvm::DataLayout& m_Layout;
    llvm::MapVector<const llvm::GlobalVariable*, uint32_t> m_mapLocal;
    llvm::DenseMap<const llvm::GlobalVariable*, uint32_t> m_mapConstants;
    llvm::DenseMap<const llvm::AllocaInst*, uint32_t> m_mapPrivate;
    uint64_t m_nLocal = 0;
    uint64_t m_nPrivate = 0;
    std::vector<uint8_t> m_vConstants;
    size_t m_nBehindConstants = 0;
};

} // namespace KestrelOpenCL

#endif
