#ifndef KESTREL_TESTS_MODULES_FAKELIBRARIES_H
#define KESTREL_TESTS_MODULES_FAKELIBRARIES_H

#include "tests/support/Folders.h"

#include <string>

/// The path of a stand-in library.
inline std::string Library(const std::string& strName)
{
    return KestrelTest::BuiltFile("tests/modules/libraries/lib") + strName + ".so";
}

#endif
