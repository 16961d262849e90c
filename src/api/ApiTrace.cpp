#include "api/ApiTrace.h"

#include <iterator>

namespace Kestrel
{

namespace
{

const char* const s_Events[] = {"EVENT_UNINITIALIZED", "EVENT_STARTED", "EVENT_HALTED", "EVENT_FINISHED",
                                "EVENT_ERROR"};
const char* const s_Commands[] = {"COMMAND_UNINITIALIZED", "COMMAND_CONTINUE", "COMMAND_STEP"};

static_assert(std::size(s_Events) == OVKCLDEBUG_EVENT_MAX, "each event has its text");
static_assert(std::size(s_Commands) == OVKCLDEBUG_COMMAND_MAX, "each command has its text");

template <size_t nCount>
std::string Lookup(const char* const (&names)[nCount], unsigned int nValue)
{
    return nValue < nCount ? names[nValue] : std::to_string(static_cast<int>(nValue));
}

} // namespace

std::string toString(ovkclDebugEvent eEvent)
{
    return Lookup(s_Events, static_cast<unsigned int>(eEvent));
}

std::string toString(ovkclDebugCommand eCommand)
{
    return Lookup(s_Commands, static_cast<unsigned int>(eCommand));
}

} // namespace Kestrel
