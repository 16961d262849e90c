#include "api/MetadataExtension.h"

#include "api/DispatchTable.h"
#include "api/PlatformQueries.h"

#include <memory>

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

    size_t key = 0; ///< under which events carry their session

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

// A runtime's thread may come while the process ends, so neither is ever destroyed.
boost::mutex& g_mutexMetadataExt = *new boost::mutex; ///< for the setup; never held with a session's lock
std::shared_ptr<const SMetadataForm>& s_pForm = *new std::shared_ptr<const SMetadataForm>; ///< null until it is set up

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
    if (std::atomic_load(&s_pForm) != nullptr)
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
        SMetadataForm form = LookUp(platform, names);
        if (form.IsComplete())
        {
            cl_int nCode = CL_SUCCESS;
            form.key = form.pCreateKey(platform, nullptr, &nCode);
            if (form.key != 0)
            {
                std::atomic_store(&s_pForm, std::make_shared<const SMetadataForm>(form));
            }
            return form.key != 0;
        }
    }
    return false;
}

void ForgetMetadataExtension()
{
    const boost::lock_guard<boost::mutex> lock(g_mutexMetadataExt);
    std::atomic_store(&s_pForm, std::shared_ptr<const SMetadataForm>());
}

cl_int SetEventSession(cl_event event, CKernelDebugState* pKernelDebugState)
{
    const std::shared_ptr<const SMetadataForm> pForm = std::atomic_load(&s_pForm);
    return pForm != nullptr ? pForm->pSetValue(event, pForm->key, pKernelDebugState) : -1;
}

CKernelDebugState* GetEventSession(cl_event event)
{
    const std::shared_ptr<const SMetadataForm> pForm = std::atomic_load(&s_pForm);
    void* pValue = nullptr;
    if (pForm == nullptr || pForm->pGetValue(event, pForm->key, &pValue) != CL_SUCCESS)
    {
        return nullptr;
    }
    return static_cast<CKernelDebugState*>(pValue);
}

} // namespace Kestrel
