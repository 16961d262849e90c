#ifndef KESTREL_TOOLS_PLATFORMDOOR_H
#define KESTREL_TOOLS_PLATFORMDOOR_H

#include "KestrelPlatform.h"
#include "tools/session/launch/Libraries.h"

namespace KestrelTool
{

/// The software platform's control interface; null on another platform.
const SPlatformControl* FindPlatformControl(const CLibraries& libraries);

} // namespace KestrelTool

#endif
