#ifndef KESTREL_TESTS_MODULES_FAKELIBRARIES_H
#define KESTREL_TESTS_MODULES_FAKELIBRARIES_H

#include <string>

/// Where a stand-in for a library lies.
inline std::string Library(const std::string& strName)
{
    return KESTREL_FAKE_LIBRARIES "lib" + strName + ".so";
}

#endif
