#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_EXPANDPRINTF_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_EXPANDPRINTF_H

#include <string>

namespace llvm
{
class Function;
class MDNode;
} // namespace llvm

namespace KestrelOpenCL
{

/// Turns each printf of a kernel, with its calls inlined, into code that adds a record to the launch's buffer:
///
///   word 0 the record's bytes, word 1 the format's number, word 2 the flat number of the work-group, then the
///   arguments, low words first, each element of a vector for itself, an element of less than 32 bits as a word.
///
/// The buffer's address is in x and y of element 3 of constant buffer 0, the bytes for records in z; an address of 0
/// means that nobody listens. The buffer starts with the bytes that are used and the number of records that didn't
/// fit, two words, which the records follow.
///
/// The formats become the metadata "kestrel.printf" of the function: a node for each, with the string of the arguments'
/// types and that of the format; see docs/kernel-binary.md.
///
/// \param strLog receives an error for a format that isn't a string literal
bool ExpandPrintf(llvm::Function& kernel, std::string& strLog);

} // namespace KestrelOpenCL

#endif
