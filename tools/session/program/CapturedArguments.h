#ifndef KESTREL_TOOLS_PROGRAM_CAPTUREDARGUMENTS_H
#define KESTREL_TOOLS_PROGRAM_CAPTUREDARGUMENTS_H

#include "tools/session/Protocol.h"
#include "tools/session/launch/LaunchFile.h"

namespace KestrelTool
{

/// Reads a waiting launch's arguments and their contents from the layer's message. A buffer that only one argument uses
/// becomes that argument's; buffers of which arguments have parts are shared.
/// \throws CProtocolError, or what reading JSON throws
void TakeArguments(const SMessage& message, SLaunchFile& launch);

} // namespace KestrelTool

#endif
