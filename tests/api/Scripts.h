#ifndef KESTREL_TESTS_API_SCRIPTS_H
#define KESTREL_TESTS_API_SCRIPTS_H

#include "OVKKestrel.h"

#include <ostream>
#include <vector>

/// What a client does in a session into which faults are injected, and on which path the launch goes. The clients
/// allocate nothing of their own.
struct SScript
{
    const char* pszName;
    ovkclDebugCommand (*pfnClient)(ovkclDebugContext, ovkclDebugEvent);
    bool bIntercept;
};

/// Steps, runs with a way back, and queries, each on both paths.
const std::vector<SScript>& GetScripts();

inline std::ostream& operator<<(std::ostream& stream, const SScript& script)
{
    return stream << script.pszName;
}

#endif
