#ifndef KESTREL_FUZZ_LLVMMAKER_H
#define KESTREL_FUZZ_LLVMMAKER_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace KestrelFuzz
{

/// Makes a program in LLVM's intermediate code from any bytes: a kernel with arbitrary flow between its blocks, over
/// values of many types. It is always valid by LLVM's rules.
///
/// \param b64BitAddresses for which of the two targets
/// \return the program as bitcode
std::string MakeLlvmObject(const uint8_t* pData, size_t nSize, bool b64BitAddresses);

} // namespace KestrelFuzz

#endif
