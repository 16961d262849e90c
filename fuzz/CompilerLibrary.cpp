#include "fuzz/CompilerLibrary.h"

#include "fuzz/Targets.h"

#include <dlfcn.h>

namespace KestrelFuzz
{

void OpenCompilerLibrary()
{
    static void* const s_pCompiler = dlopen(KESTREL_PLATFORM_DIR "/libovkocl12cl64.so", RTLD_NOW);
    Require(s_pCompiler != nullptr, "the compiler library is there", s_pCompiler == nullptr ? dlerror() : "");
}

} // namespace KestrelFuzz
