/*
 * A client in C of the platform's controls, with the public header alone. Ends with 0 if the runtime's table is
 * laid out as the header has it in C.
 *
 *   platform_client LIBOPENCL
 */

#include <KestrelPlatform.h>

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

typedef void* (*FindFunction)(const char* szName);

static int Fail(const char* szWhat)
{
    fprintf(stderr, "%s\n", szWhat);
    return 1;
}

int main(int argc, char** argv)
{
    void* pLibrary = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
    FindFunction find = NULL;
    KestrelPlatformControlFunction door = NULL;
    const struct SPlatformControl* pControl;
    struct SPlatformSizes sizes;
    struct SPlatformAccess access;
    void* pAddress;

    if (pLibrary == NULL)
    {
        return Fail("no library");
    }
    pAddress = dlsym(pLibrary, "clGetExtensionFunctionAddress");
    memcpy(&find, &pAddress, sizeof find);
    pAddress = find != NULL ? find(KESTREL_PLATFORM_CONTROL) : NULL;
    memcpy(&door, &pAddress, sizeof door);
    if (door == NULL)
    {
        return Fail("no door");
    }

    pControl = door();
    if (pControl->nSize != sizeof *pControl)
    {
        return Fail("another size of the table");
    }
    pControl->Reset();
    if (pControl->GetCounter(PLATFORM_COUNTER_KERNEL_RUNS) != 0 || pControl->GetCounter(PLATFORM_COUNTER_MAPPINGS) != 0)
    {
        return Fail("runs or mappings in a process that has made none");
    }
    memset(&sizes, 0xFF, sizeof sizes);
    pControl->GetLastSizes(&sizes);
    if (sizes.nDimensions != 1 || sizes.global[2] != 1 || sizes.offset[2] != 0)
    {
        return Fail("sizes that aren't those of one work-item, before the first run");
    }
    if (pControl->GetAccesses(&access, 1) != 0)
    {
        return Fail("accesses of a run that hasn't been");
    }
    return 0;
}
