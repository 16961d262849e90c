#include "fuzz/CompilerLibrary.h"

#include "fuzz/Targets.h"
#include "tests/support/Folders.h"

#include <dlfcn.h>

namespace KestrelFuzz
{

void OpenCompilerLibrary()
{
    static void* const s_pCompiler = dlopen(KestrelTest::PlatformFile("libovkocl12cl64.so").c_str(), RTLD_NOW);
    Require(s_pCompiler != nullptr, "the compiler library is there", s_pCompiler == nullptr ? dlerror() : "");
}

} // namespace KestrelFuzz
