#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_LITERALS_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_LITERALS_H

#include "platform/opencl_c/lowering/MachineCode.h"

#include "llvm/ADT/ArrayRef.h"
#include "llvm/ADT/DenseMap.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KestrelOpenCL
{

/// The constants of one kernel, in literal registers of four words.
class CLiterals
{
public:
    /// \param nFirst number of the first literal register
    explicit CLiterals(uint32_t nFirst) : m_nFirst(nFirst) {}

    /// One register that holds all of up to four values.
    ///
    /// \param components receives the component of each value
    /// \return the register's number
    uint32_t Find(llvm::ArrayRef<uint32_t> values, llvm::MutableArrayRef<unsigned> components);

    uint32_t Count() const { return static_cast<uint32_t>(m_vRegisters.size()); }
    /// The declarations, one a line.
    std::string Declare() const;

private:
    struct SRegister
    {
        std::array<uint32_t, s_nComponents> values = {};
        unsigned nUsed = 0;
    };
    /// Appends the missing values if there is room. \return whether all are there
    static bool Place(SRegister& reg, llvm::ArrayRef<uint32_t> values, llvm::MutableArrayRef<unsigned> components);

    uint32_t m_nFirst;
    std::vector<SRegister> m_vRegisters;
    std::map<std::vector<uint32_t>, uint32_t> m_mapSets; ///< the register that holds a set of values
};

} // namespace KestrelOpenCL

#endif
