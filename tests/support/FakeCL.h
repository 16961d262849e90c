#ifndef KESTREL_TESTS_SUPPORT_FAKECL_H
#define KESTREL_TESTS_SUPPORT_FAKECL_H

#include "modules/CLDispatchTable.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

/// An OpenCL runtime in one file: objects with reference counts and contents; every call is recorded, and can be made
/// to fail on demand. Kernels don't compute; a launch is only recorded. One runtime in the process, one thread.
class CFakeCL
{
public:
    struct SObject
    {
        std::string strKind; ///< "context", "queue", "mem", "program", "kernel", "event"
        int nRefs = 1;
        std::string strName;               ///< a kernel's name, a program's build options
        std::vector<unsigned char> vBytes; ///< a memory object's contents, a program's binary
        cl_ulong nProperties = 0;          ///< a queue's properties, a memory object's flags
        cl_uint nType = 0;                 ///< a memory object's type, an event's command type
        cl_image_format format = {};
        size_t size[3] = {0, 1, 1}; ///< an image's width, height, depth
        size_t nArraySize = 0;
        size_t nRowPitch = 0;
        size_t nSlicePitch = 0;
        void* pSession = nullptr; ///< an event's metadata
        std::vector<std::function<void(cl_int)>> vCallbacks;
        std::vector<std::vector<unsigned char>> vArguments;
    };

    struct SPending
    {
        SObject* pEvent;
        std::string strKernel;
    };

    static CFakeCL& Get()
    {
        static CFakeCL s_fake;
        return s_fake;
    }

    /// Resets everything to its initial state, and drops live objects.
    void Reset()
    {
        for (SObject* pObject : live)
        {
            delete pObject;
        }
        Owner() = SObject();
        Get() = CFakeCL();
    }

    /// The context and program of every kernel. One reference is the fixture's own.
    static SObject& Owner()
    {
        static SObject s_owner;
        return s_owner;
    }

    /// Whether every object is released, and nothing references the owner of the kernels.
    bool IsAllReleased() const { return live.empty() && Owner().nRefs == 1; }

    // Settings.
    std::string strVendor = "Oberon Vector Kinetics, Inc.";
    std::string strExtensions = "cl_khr_icd cl_ovk_event_callback cl_ovk_object_metadata";
    std::string strDeviceName = "Quench";
    std::string strDeviceVersion = "OpenCL 1.2 (1800.0)";
    cl_device_type nDeviceType = CL_DEVICE_TYPE_GPU;
    size_t nWorkGroupLimit = 256;
    size_t nRowPadding = 0;   ///< bytes by which the row pitch of new images exceeds the row
    size_t nSlicePadding = 0; ///< and the slice pitch the slice
    cl_uint nKernelArguments = 0;
    std::vector<char> vProgramBinary; ///< of each new program
    std::string strRefusedOption;     ///< builds with options that hold this text fail
    bool bVersion20 = false;
    std::function<void(SObject&)> onRun; ///< called for each launch that runs

    // Recorded events.
    std::vector<std::string> vCalls;
    std::vector<std::string> vRuns; ///< kernels that ran
    std::vector<SPending> vPending; ///< launches that wait for the intercept
    std::vector<std::string> vBuildOptions;
    std::set<SObject*> live;
    std::vector<cl_context_properties> vContextProperties; ///< of the last context
    const size_t* pLastLocalSize = nullptr;

    /// Makes the nCall-th call from now of an entry (of any if the name is empty) give nCode.
    void Fail(const std::string& strEntry, size_t nCall, cl_int nCode)
    {
        m_strFail = strEntry;
        m_nFailCall = nCall;
        m_nFailCode = nCode;
    }

    /// Whether a requested failure hasn't happened yet.
    bool IsFailurePending() const { return m_nFailCall != 0; }

    size_t CountCalls(const std::string& strEntry) const
    {
        size_t nCount = 0;
        for (const std::string& strCall : vCalls)
        {
            nCount += strCall == strEntry;
        }
        return nCount;
    }

    size_t CountLive(const std::string& strKind) const
    {
        size_t nCount = 0;
        for (const SObject* pObject : live)
        {
            nCount += pObject->strKind == strKind;
        }
        return nCount;
    }

    SObject* New(const std::string& strKind)
    {
        SObject* pObject = new SObject;
        pObject->strKind = strKind;
        live.insert(pObject);
        return pObject;
    }

    void Release(SObject* pObject)
    {
        if (--pObject->nRefs == 0)
        {
            live.erase(pObject);
            delete pObject;
        }
    }

    static cl_device_id Device() { return reinterpret_cast<cl_device_id>(0x1000); }
    static cl_platform_id Platform() { return reinterpret_cast<cl_platform_id>(0x2000); }

    template <typename Handle>
    static SObject* Of(Handle handle)
    {
        return reinterpret_cast<SObject*>(handle);
    }

    template <typename Handle>
    static Handle To(SObject* pObject)
    {
        return reinterpret_cast<Handle>(pObject);
    }

    SObject* NewKernel(const std::string& strName)
    {
        SObject* pKernel = New("kernel");
        pKernel->strName = strName;
        pKernel->vArguments.resize(nKernelArguments);
        return pKernel;
    }

    /// Lets the commands that wait for the intercept reach the head of their queue.
    /// \param nStatus  CL_COMPLETE, or the failure of a command that they wait for
    void RunPending(cl_int nStatus = CL_COMPLETE)
    {
        typedef cl_int(CL_CALLBACK * PFNHook)(cl_event, cl_int*);
        PFNHook pHook = nullptr;
        for (size_t i = 0; i + 1 < vContextProperties.size(); i += 2)
        {
            if (vContextProperties[i] == 0x403D)
            {
                pHook = reinterpret_cast<PFNHook>(vContextProperties[i + 1]);
            }
        }
        std::vector<SPending> vNow;
        vNow.swap(vPending);
        for (const SPending& pending : vNow)
        {
            cl_int nCode = CL_SUCCESS;
            if (nStatus == CL_COMPLETE && pHook(To<cl_event>(pending.pEvent), &nCode) == 0)
            {
                vRuns.push_back(pending.strKernel);
            }
            nLastEventCode = nStatus != CL_COMPLETE ? nStatus : nCode;
            for (const auto& callback : pending.pEvent->vCallbacks)
            {
                callback(nLastEventCode);
            }
            Release(pending.pEvent);
        }
    }
    cl_int nLastEventCode = CL_SUCCESS;

    /// The table: everything of version 1.2 that this runtime has, and a placeholder for every other entry.
    cl_icd_dispatch_table Table();

    /// Makes it the runtime that the debugger's core uses.
    void Install() { OVK_ShaderDebugger::SetCLDispatchTable(Table()); }

private:
    static CFakeCL& F() { return Get(); }

    static cl_int Enter(const char* pszEntry)
    {
        F().vCalls.push_back(pszEntry);
        if (F().m_nFailCall != 0 && (F().m_strFail.empty() || F().m_strFail == pszEntry) && --F().m_nFailCall == 0)
        {
            return F().m_nFailCode;
        }
        return CL_SUCCESS;
    }

    /// \return whether the call proceeds
    static bool EnterCreate(const char* pszEntry, cl_int* pnCode)
    {
        const cl_int nCode = Enter(pszEntry);
        if (pnCode != nullptr)
        {
            *pnCode = nCode;
        }
        return nCode == CL_SUCCESS;
    }

    static cl_int PutBytes(const void* pBytes, size_t nBytes, size_t nSize, void* pValue, size_t* pnSize)
    {
        if (pnSize != nullptr)
        {
            *pnSize = nBytes;
        }
        if (pValue != nullptr)
        {
            if (nSize < nBytes)
            {
                return CL_INVALID_VALUE;
            }
            std::memcpy(pValue, pBytes, nBytes);
        }
        return CL_SUCCESS;
    }

    template <typename T>
    static cl_int Put(const T& value, size_t nSize, void* pValue, size_t* pnSize)
    {
        return PutBytes(&value, sizeof(value), nSize, pValue, pnSize);
    }

    static cl_int PutText(const std::string& strText, size_t nSize, void* pValue, size_t* pnSize)
    {
        return PutBytes(strText.c_str(), strText.size() + 1, nSize, pValue, pnSize);
    }

    static SObject* NewImage(cl_uint nType, cl_ulong nFlags, const cl_image_format& format, size_t nWidth,
                             size_t nHeight, size_t nDepth, size_t nArraySize);
    static void* CL_API_CALL FindFunction(const char* szName);
    static void Unexpected() {}

    std::string m_strFail;
    size_t m_nFailCall = 0;
    cl_int m_nFailCode = CL_SUCCESS;
};

#include "tests/support/FakeCLEntries.h"

#endif
