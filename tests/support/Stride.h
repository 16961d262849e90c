#ifndef KESTREL_TESTS_SUPPORT_STRIDE_H
#define KESTREL_TESTS_SUPPORT_STRIDE_H

#include <cstddef>
#include <cstdlib>

/// Whether a sanitizer slows everything down.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool s_bSanitized = true;
#else
constexpr bool s_bSanitized = false;
#endif

/// A positive number from the environment, or the default. Tests with too many cases only try every so manieth.
inline size_t ReadStride(const char* pszVariable, size_t nUsual)
{
    const char* pszValue = std::getenv(pszVariable);
    const size_t nValue = pszValue != nullptr ? std::strtoull(pszValue, nullptr, 10) : 0;
    return nValue > 0 ? nValue : nUsual;
}

#endif
