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
///   word 0 is the size of the record in bytes, word 1 the format's number, word 2 the flat number of the work-group.
///   Then come the arguments, low words first. A vector's elements are separate; one of less than 32 bits takes a word.
///
/// Element 3 of constant buffer 0 has the buffer's address in x and y, and in z the bytes for records. An address of 0
/// means that printf is off. The buffer starts with two words: how many bytes are used, and how many records didn't
/// fit. The records follow.
///
/// The formats become the function's metadata "kestrel.printf": one node each, with the string of the argument types
/// and the format string; see docs/kernel-binary.md.
///
/// \param strLog receives an error for a format that isn't a string literal
bool ExpandPrintf(llvm::Function& kernel, std::string& strLog);

} // namespace KestrelOpenCL

#endif
