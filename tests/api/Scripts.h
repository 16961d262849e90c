#ifndef KESTREL_TESTS_API_SCRIPTS_H
#define KESTREL_TESTS_API_SCRIPTS_H

#include "OVKKestrel.h"

#include <ostream>
#include <vector>

/// A client's behaviour in a session with injected faults, and the path of the launch. The clients allocate nothing
/// themselves.
struct SScript
{
    const char* pszName;
    ovkclDebugCommand (*pfnClient)(ovkclDebugContext, ovkclDebugEvent);
    bool bIntercept;
};

/// Stepping, running with a way back, and queries, each on both paths.
const std::vector<SScript>& GetScripts();

inline std::ostream& operator<<(std::ostream& stream, const SScript& script)
{
    return stream << script.pszName;
}

#endif
