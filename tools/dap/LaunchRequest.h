#ifndef KESTREL_TOOLS_DAP_LAUNCHREQUEST_H
#define KESTREL_TOOLS_DAP_LAUNCHREQUEST_H

#include "tools/session/program/Debuggee.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// What a launch request asks for. \throws CRequestError
SDebuggeeOptions ReadLaunchRequest(const nlohmann::json& arguments);

} // namespace KestrelTool

#endif
