#ifndef KESTREL_MODULES_CLDISPATCHTABLE_H
#define KESTREL_MODULES_CLDISPATCHTABLE_H

#include "modules/OpenCLModule.h"
#include "modules/QRLModules.h"

namespace Kestrel
{

/// The table through which the front end makes every OpenCL call. Filled while the library loads, replaced
/// by ovkclDebugSetDispatchTable, read without a lock.
extern OpenCLModule g_CLDispatchTable;

} // namespace Kestrel

namespace OVK_ShaderDebugger
{

/// The table through which the debugger's core makes every OpenCL call. It is filled while the library
/// loads and can be replaced by SetCLDispatchTable; it is read without a lock.
extern OpenCLModule g_CLDispatchTable;

/// The low-level runtime, for the conversion of IL text on old runtimes.
extern QRLRTModule g_QRLRTDispatchTable;
extern QRLCLModule g_QRLCLDispatchTable;
extern QRLDDModule g_QRLDDDispatchTable;

/// Copies the core's table out. Slots that it has no entry for keep what they hold. \return true
bool GetCLDispatchTable(cl_icd_dispatch_table& dispatchTable);

/// Copies a client's table into the core's. \return true
bool SetCLDispatchTable(const cl_icd_dispatch_table& dispatchTable);

} // namespace OVK_ShaderDebugger

#endif
