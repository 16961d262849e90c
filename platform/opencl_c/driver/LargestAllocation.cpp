// Macros can make clang ask for more memory than any machine has, in vectors that double as they grow. So the
// compiler's own allocations have a maximum size; a larger one fails as if memory ran out, and with it the build. The
// linker's --wrap brings the archives' calls here, and calls of the "real" names to the usual functions.

#include <cstddef>
#include <new>

extern "C"
{
    void* __real_malloc(size_t nBytes);
    void* __real_realloc(void* pBytes, size_t nBytes);
    void* __real__Znwm(size_t nBytes);

    const size_t s_nLargestAllocation = size_t{256} << 20;

    void* __wrap_malloc(size_t nBytes)
    {
        return nBytes > s_nLargestAllocation ? nullptr : __real_malloc(nBytes);
    }

    void* __wrap_realloc(void* pBytes, size_t nBytes)
    {
        return nBytes > s_nLargestAllocation ? nullptr : __real_realloc(pBytes, nBytes);
    }

    void* __wrap__Znwm(size_t nBytes)
    {
        if (nBytes > s_nLargestAllocation)
        {
            throw std::bad_alloc();
        }
        return __real__Znwm(nBytes);
    }
}
