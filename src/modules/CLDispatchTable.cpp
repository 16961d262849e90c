#include "modules/CLDispatchTable.h"

// All tables in one file, so that their order is fixed. Nothing that runs before main reads them.
namespace Kestrel
{

OpenCLModule g_CLDispatchTable(OpenCLModule::s_DefaultModuleName);

} // namespace Kestrel

namespace OVK_ShaderDebugger
{

OpenCLModule g_CLDispatchTable(OpenCLModule::s_DefaultModuleName);
QRLRTModule g_QRLRTDispatchTable(QRLRTModule::s_DefaultModuleName);
QRLCLModule g_QRLCLDispatchTable(QRLCLModule::s_DefaultModuleName);
QRLDDModule g_QRLDDDispatchTable(QRLDDModule::s_DefaultModuleName);

bool GetCLDispatchTable(cl_icd_dispatch_table& dispatchTable)
{
    g_CLDispatchTable.GetAsCLDispatchTable(dispatchTable);
    return true;
}

bool SetCLDispatchTable(const cl_icd_dispatch_table& dispatchTable)
{
    g_CLDispatchTable.SetFromCLDispatchTable(dispatchTable);
    return true;
}

} // namespace OVK_ShaderDebugger
