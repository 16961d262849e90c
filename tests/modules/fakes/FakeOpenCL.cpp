// A runtime in which every function returns its own name, so that a test can identify a pointer. The build chooses the
// families; a name is left out by defining it as another one.

#define FAKE_ENTRY(name)                                                                                               \
    extern "C" __attribute__((visibility("default"))) const char* name()                                               \
    {                                                                                                                  \
        return #name;                                                                                                  \
    }

#ifdef FAKE_1_0
#define FAKE_Core_1_0(name) FAKE_ENTRY(name)
#else
#define FAKE_Core_1_0(name)
#endif
#ifdef FAKE_1_1
#define FAKE_Core_1_1(name) FAKE_ENTRY(name)
#else
#define FAKE_Core_1_1(name)
#endif
#ifdef FAKE_1_2
#define FAKE_Core_1_2(name) FAKE_ENTRY(name)
#else
#define FAKE_Core_1_2(name)
#endif
#ifdef FAKE_2_0
#define FAKE_Core_2_0(name) FAKE_ENTRY(name)
#else
#define FAKE_Core_2_0(name)
#endif
#ifdef FAKE_EXTENSIONS
#define FAKE_Optional(name) FAKE_ENTRY(name)
#define FAKE_DeviceFission(name) FAKE_ENTRY(name)
#define FAKE_GLEvent(name) FAKE_ENTRY(name)
#else
#define FAKE_Optional(name)
#define FAKE_DeviceFission(name)
#define FAKE_GLEvent(name)
#endif
#define FAKE_Extension(name)

#define CL_ICD_ENTRY(family, name) FAKE_##family(cl##name)
#include "modules/CLEntryPoints.def"
