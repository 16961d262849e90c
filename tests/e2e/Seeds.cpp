#include "tests/e2e/Seeds.h"

#include "tests/e2e/LibrariesFixture.h"

#include <cstdlib>

namespace KestrelTest
{

uint32_t FromEnvironment(const char* pszName, uint32_t nDefault)
{
    const char* pszValue = std::getenv(pszName);
    return pszValue != nullptr ? static_cast<uint32_t>(std::strtoul(pszValue, nullptr, 10)) : nDefault;
}

uint32_t CountSeeds(const SSeeds& seeds)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const uint32_t nAlone = seeds.nSanitized;
#else
    const uint32_t nAlone = seeds.nAlone;
#endif
    return FromEnvironment("KESTREL_SEEDS", IsBehindLoader() ? seeds.nBehindLoader : nAlone);
}

} // namespace KestrelTest
