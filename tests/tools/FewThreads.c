/* Loaded before a program: starts as many of its threads as FEW_THREADS says, and fails from then on. */
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdlib.h>

typedef int (*create_function)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

__attribute__((visibility("default"))) int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                                          void* (*start)(void*), void* argument)
{
    static atomic_int s_started;
    const char* const most = getenv("FEW_THREADS");
    if (atomic_fetch_add(&s_started, 1) >= (most != NULL ? atoi(most) : 0))
    {
        return EAGAIN;
    }
    create_function next = NULL;
    *(void**)&next = dlsym(RTLD_NEXT, "pthread_create");
    return next(thread, attributes, start, argument);
}
