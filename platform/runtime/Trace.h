#ifndef KESTREL_PLATFORM_RUNTIME_TRACE_H
#define KESTREL_PLATFORM_RUNTIME_TRACE_H

#include "KestrelPlatform.h"
#include "platform/simt/WideLaunch.h"

#include <memory>
#include <string>

namespace KestrelPlatform::Runtime
{

/// A sink that passes each record to a client's callback.
std::shared_ptr<ITraceSink> MakeCallbackTrace(PlatformTraceCallback pCallback, void* pUser);

/// A sink that appends to a text file: a line for each record, and one for each active work-item with the four words of
/// the written register. Null if the file can't be opened.
std::shared_ptr<ITraceSink> MakeFileTrace(const std::string& strPath);

} // namespace KestrelPlatform::Runtime

#endif
