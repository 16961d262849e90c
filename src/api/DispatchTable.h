#ifndef KESTREL_API_DISPATCHTABLE_H
#define KESTREL_API_DISPATCHTABLE_H

#include "modules/CLDispatchTable.h"

namespace Kestrel
{

/// A vendor's function by its name, through the call that the runtime's version has for that; null if
/// there is none.
/// \param platform  used by runtimes of exactly version 1.2
void* FindExtensionFunction(cl_platform_id platform, const char* szName);

} // namespace Kestrel

#endif
