#ifndef KESTREL_FUZZ_COMPILERLIBRARY_H
#define KESTREL_FUZZ_COMPILERLIBRARY_H

namespace KestrelFuzz
{

/// Opens the software platform's compiler library once, so that the debugger's conversions find it by its name alone.
void OpenCompilerLibrary();

} // namespace KestrelFuzz

#endif
