#ifndef KESTREL_PLATFORM_RUNTIME_INFOQUERY_H
#define KESTREL_PLATFORM_RUNTIME_INFOQUERY_H

#include "platform/runtime/OpenCL.h"

#include <cstring>
#include <string>
#include <vector>

namespace KestrelPlatform::Runtime
{

/// Where an info query wants its answer, and the size protocol that all queries share: a null value asks for the size
/// alone; if the place is too small, the call gives CL_INVALID_VALUE and writes nothing.
struct SInfoQuery
{
    size_t m_nSize;
    void* m_pValue;
    size_t* m_pnSizeRet;

    cl_int Bytes(const void* pBytes, size_t nBytes) const
    {
        if (m_pValue && m_nSize < nBytes)
        {
            return CL_INVALID_VALUE;
        }
        if (m_pValue && nBytes != 0)
        {
            std::memcpy(m_pValue, pBytes, nBytes);
        }
        if (m_pnSizeRet)
        {
            *m_pnSizeRet = nBytes;
        }
        return CL_SUCCESS;
    }

    template <class T>
    cl_int Value(const T& value) const
    {
        return Bytes(&value, sizeof(T));
    }

    template <class T>
    cl_int Array(const std::vector<T>& vValues) const
    {
        return Bytes(vValues.data(), vValues.size() * sizeof(T));
    }

    cl_int String(const std::string& strValue) const { return Bytes(strValue.c_str(), strValue.size() + 1); }
};

} // namespace KestrelPlatform::Runtime

#endif
