#ifndef KESTREL_TOOLS_PROGRAM_CAPTUREDARGUMENTS_H
#define KESTREL_TOOLS_PROGRAM_CAPTUREDARGUMENTS_H

#include "tools/session/Protocol.h"
#include "tools/session/launch/LaunchFile.h"

namespace KestrelTool
{

/// Takes a waiting launch's arguments, with their contents, from what the layer has said of it. Buffers that only one
/// argument reaches are its own; those of which arguments have parts are shared.
/// \throws CProtocolError, or what reading JSON throws
void TakeArguments(const SMessage& message, SLaunchFile& launch);

} // namespace KestrelTool

#endif
