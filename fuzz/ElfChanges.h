#ifndef KESTREL_FUZZ_ELFCHANGES_H
#define KESTREL_FUZZ_ELFCHANGES_H

#include <functional>
#include <string>
#include <vector>

namespace KestrelFuzz
{

/// Gets each image that a change of another image gave, with the name of the change.
typedef std::function<void(const char* pszChange, const std::vector<char>& vImage)> ImageSink;

/// Changes a copy of a readable image in every way that the kernel binary code offers, for each of its first kernels,
/// and checks what each change promises. A change that is refused is fine.
void ChangeImage(const std::vector<char>& vImage, const ImageSink& sink);

/// Reads an image that was written, and requires that it reads, and writes, as what it is.
void CheckWritten(const char* pszChange, const std::vector<char>& vImage);

} // namespace KestrelFuzz

#endif
