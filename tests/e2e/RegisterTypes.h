#ifndef KESTREL_TESTS_E2E_REGISTERTYPES_H
#define KESTREL_TESTS_E2E_REGISTERTYPES_H

#include <cstdint>

namespace KestrelTest
{

/// Register types as the platform's trace and the reference machine give them.
constexpr uint32_t s_nTemp = 4;
constexpr uint32_t s_nIndexedTemp = 30;

} // namespace KestrelTest

#endif
