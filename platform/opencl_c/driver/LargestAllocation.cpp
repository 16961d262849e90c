// Macros can ask for more memory than any machine has, in vectors that double as they grow. So the compiler's own
// allocations have a largest size; past it there is no memory, which fails the build. The linker brings what the
// archives call by these names here, and calls of the names with "real" to where they would have gone.

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
