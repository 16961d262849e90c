#ifndef KESTREL_TOOLS_DEBUG_COMMANDERROR_H
#define KESTREL_TOOLS_DEBUG_COMMANDERROR_H

#include <stdexcept>

namespace KestrelTool
{

/// A command that can't be executed; the text is meant for the user.
class CCommandError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace KestrelTool

#endif
