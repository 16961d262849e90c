#ifndef KESTREL_TESTS_E2E_REGISTERTYPES_H
#define KESTREL_TESTS_E2E_REGISTERTYPES_H

#include <cstdint>

namespace KestrelTest
{

/// Register types in the platform's trace and in the reference machine.
constexpr uint32_t s_nTemp = 4;
constexpr uint32_t s_nIndexedTemp = 30;

} // namespace KestrelTest

#endif
