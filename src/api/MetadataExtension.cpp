#include "api/MetadataExtension.h"

#include "api/DispatchTable.h"
#include "api/PlatformQueries.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

namespace Kestrel
{

namespace
{

typedef size_t(CL_API_CALL* PFNCreateKey)(cl_platform_id platform, void(CL_CALLBACK* destructor)(void*),
                                          cl_int* errcode_ret);
typedef cl_int(CL_API_CALL* PFNObjectGetValueForKey)(void* object, size_t key, void** value);
typedef cl_int(CL_API_CALL* PFNObjectSetValueForKey)(void* object, size_t key, void* value);

/// One form of the extension.
struct SMetadataForm
{
    PFNCreateKey pCreateKey = nullptr;
    PFNObjectGetValueForKey pGetValue = nullptr;
    PFNObjectSetValueForKey pSetValue = nullptr;

    bool IsComplete() const { return pCreateKey != nullptr && pGetValue != nullptr && pSetValue != nullptr; }
};

struct SMetadataNames
{
    const char* szCreateKey;
    const char* szGetValue;
    const char* szSetValue;
};

const SMetadataNames s_Forms[] = {
    {"clCreateKeyOVK", "clObjectGetValueForKeyOVK", "clObjectSetValueForKeyOVK"},
    {"clCreateKeyEXT", "clObjectGetValueForKeyEXT", "clObjectSetValueForKeyEXT"},
};

boost::mutex& g_mutexMetadataExt = *new boost::mutex; // a runtime's thread may come while the process ends
SMetadataForm s_form;
size_t s_keyKernelDebugState = 0;
bool s_bObjectMetadataInitialized = false;

SMetadataForm LookUp(cl_platform_id platform, const SMetadataNames& names)
{
    SMetadataForm form;
    form.pCreateKey = reinterpret_cast<PFNCreateKey>(FindExtensionFunction(platform, names.szCreateKey));
    form.pGetValue = reinterpret_cast<PFNObjectGetValueForKey>(FindExtensionFunction(platform, names.szGetValue));
    form.pSetValue = reinterpret_cast<PFNObjectSetValueForKey>(FindExtensionFunction(platform, names.szSetValue));
    return form;
}

} // namespace

bool InitializeMetadataExtension(cl_command_queue queue)
{
    const boost::lock_guard<boost::mutex> lock(g_mutexMetadataExt);
    if (s_bObjectMetadataInitialized)
    {
        return true;
    }
    cl_platform_id platform = nullptr;
    if (GetPlatform(queue, &platform) != CL_SUCCESS)
    {
        return false;
    }
    for (const SMetadataNames& names : s_Forms)
    {
        const SMetadataForm form = LookUp(platform, names);
        if (form.IsComplete())
        {
            cl_int nCode = CL_SUCCESS;
            s_keyKernelDebugState = form.pCreateKey(platform, nullptr, &nCode);
            s_bObjectMetadataInitialized = s_keyKernelDebugState != 0;
            s_form = s_bObjectMetadataInitialized ? form : SMetadataForm();
            return s_bObjectMetadataInitialized;
        }
    }
    return false;
}

void ForgetMetadataExtension()
{
    const boost::lock_guard<boost::mutex> lock(g_mutexMetadataExt);
    s_form = SMetadataForm();
    s_keyKernelDebugState = 0;
    s_bObjectMetadataInitialized = false;
}

cl_int SetEventSession(cl_event event, CKernelDebugState* pKernelDebugState)
{
    const boost::lock_guard<boost::mutex> lock(g_mutexMetadataExt);
    return s_form.pSetValue != nullptr ? s_form.pSetValue(event, s_keyKernelDebugState, pKernelDebugState) : -1;
}

CKernelDebugState* GetEventSession(cl_event event)
{
    const boost::lock_guard<boost::mutex> lock(g_mutexMetadataExt);
    void* pValue = nullptr;
    if (s_form.pGetValue == nullptr || s_form.pGetValue(event, s_keyKernelDebugState, &pValue) != CL_SUCCESS)
    {
        return nullptr;
    }
    return static_cast<CKernelDebugState*>(pValue);
}

} // namespace Kestrel
