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

/// Where one kernel's variables lie in local, private and inline constant memory. A place is assigned when it is first
/// asked for, so unused variables take no room.
class CStorage
{
public:
    explicit CStorage(const llvm::DataLayout& layout) : m_Layout(layout) {}

    /// Keeps address 0 of local memory free for the null pointer, for kernels that could observe it.
    void KeepLocalNull();
    /// Byte offset in the kernel's local block.
    uint32_t GetLocal(const llvm::GlobalVariable& variable);
    /// Byte offset in private memory.
    uint32_t GetPrivate(const llvm::AllocaInst& variable);
    uint32_t AddPrivate(uint64_t nBytes, uint64_t nAlignment);
    /// Byte offset among the program's constants.
    uint32_t GetConstant(const llvm::GlobalVariable& variable);

    /// Sizes have 64 bits: whether everything fits is checked when all is placed.
    const llvm::MapVector<const llvm::GlobalVariable*, uint32_t>& GetLocals() const { return m_mapLocal; }
    uint64_t GetLocalBytes() const { return m_nLocal; }
    uint64_t GetPrivateBytes() const { return m_nPrivate; }
    /// Loads at unaligned addresses read one word more than they use.
    void KeepWordAfterConstants() { m_nAfterConstants = 4; }
    /// The bytes of the program's constants that are used.
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
    size_t m_nAfterConstants = 0;
};

} // namespace KestrelOpenCL

#endif
