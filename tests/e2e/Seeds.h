#ifndef KESTREL_TESTS_E2E_SEEDS_H
#define KESTREL_TESTS_E2E_SEEDS_H

#include <cstdint>

namespace KestrelTest
{

/// A number from the environment, or the default if it isn't set.
uint32_t FromEnvironment(const char* pszName, uint32_t nDefault);

/// The number of generated kernels in a test.
struct SSeeds
{
    uint32_t nAlone;
    uint32_t nSanitized; ///< each takes many times as long
    uint32_t nBehindLoader;
};

/// The number for this run; KESTREL_SEEDS overrides it.
uint32_t CountSeeds(const SSeeds& seeds);

} // namespace KestrelTest

#endif
