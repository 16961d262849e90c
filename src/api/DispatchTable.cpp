#include "api/DispatchTable.h"

#include "api/ApiTrace.h"
#include "api/MetadataExtension.h"

#include <sstream>

namespace Kestrel
{

void* FindExtensionFunction(cl_platform_id platform, const char* szName)
{
    if (g_CLDispatchTable.OpenCLLoaded() == OpenCLModule::OpenCL_1_2)
    {
        return g_CLDispatchTable.GetExtensionFunctionAddressForPlatform(platform, szName);
    }
    return g_CLDispatchTable.GetExtensionFunctionAddress != nullptr
               ? g_CLDispatchTable.GetExtensionFunctionAddress(szName)
               : nullptr;
}

namespace
{

void TraceTable()
{
    Trace(
        []
        {
            std::ostringstream table;
            table << g_CLDispatchTable;
            GetLogger() << table.str();
        });
}

} // namespace

} // namespace Kestrel

using namespace Kestrel;

cl_int ovkclDebugGetDispatchTable(cl_icd_dispatch_table* pCLDispatchTable)
{
    TraceCall(__func__, pCLDispatchTable);
    return RunExported<cl_int>(__func__, CL_OUT_OF_HOST_MEMORY, CL_INVALID_VALUE,
                               [&]() -> cl_int
                               {
                                   if (pCLDispatchTable == nullptr)
                                   {
                                       return CL_INVALID_VALUE;
                                   }
                                   g_CLDispatchTable.GetAsCLDispatchTable(*pCLDispatchTable);
                                   TraceTable();
                                   return CL_SUCCESS;
                               });
}

cl_int ovkclDebugSetDispatchTable(const cl_icd_dispatch_table* pCLDispatchTable)
{
    TraceCall(__func__, pCLDispatchTable);
    return RunExported<cl_int>(__func__, CL_OUT_OF_HOST_MEMORY, CL_INVALID_VALUE,
                               [&]() -> cl_int
                               {
                                   if (pCLDispatchTable == nullptr)
                                   {
                                       return CL_INVALID_VALUE;
                                   }
                                   g_CLDispatchTable.SetFromCLDispatchTable(*pCLDispatchTable);
                                   OVK_ShaderDebugger::SetCLDispatchTable(*pCLDispatchTable);
                                   ForgetMetadataExtension();
                                   TraceTable();
                                   return CL_SUCCESS;
                               });
}
