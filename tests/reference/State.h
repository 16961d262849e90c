#ifndef KESTREL_TESTS_REFERENCE_STATE_H
#define KESTREL_TESTS_REFERENCE_STATE_H

#include "tests/reference/KernelText.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace KestrelTest
{

typedef std::vector<bool> Mask; ///< by work-item of the whole dispatch
typedef std::vector<unsigned char> Bytes;

/// Everything about a launch that a kernel can observe.
struct SReferenceLaunch
{
    uint32_t nGlobalSize[3] = {1, 1, 1};
    uint32_t nLocalSize[3] = {1, 1, 1};
    bool b64Bit = true;
    std::vector<uint64_t> vAddresses; ///< of each buffer argument, as stored in cb1
    std::vector<Bytes> vBuffers;      ///< their contents

    size_t GetItems() const { return size_t(nGlobalSize[0]) * nGlobalSize[1] * nGlobalSize[2]; }
};

/// Everything that a kernel has written and can read, for all work-items.
struct SReferenceState
{
    std::map<std::string, std::vector<Words>> mapRegisters; ///< those that were written: "r3", "x1[2]"
    std::map<uint32_t, std::vector<Bytes>> mapPrivate;      ///< by UAV, then work-item
    std::vector<std::map<uint32_t, Bytes>> vLocal;          ///< by group, then number
    std::vector<Bytes> vBuffers;
};

} // namespace KestrelTest

#endif
