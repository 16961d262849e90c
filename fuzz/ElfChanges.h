#ifndef KESTREL_FUZZ_ELFCHANGES_H
#define KESTREL_FUZZ_ELFCHANGES_H

#include <functional>
#include <string>
#include <vector>

namespace KestrelFuzz
{

/// Receives each changed image, with the name of the change.
typedef std::function<void(const char* pszChange, const std::vector<char>& vImage)> ImageSink;

/// Changes copies of a readable image in every way that the kernel binary code offers, for each of its first kernels,
/// and checks the promise of each change. Refusing a change is allowed.
void ChangeImage(const std::vector<char>& vImage, const ImageSink& sink);

/// Reads a written image, and requires that it is read and written back unchanged.
void CheckWritten(const char* pszChange, const std::vector<char>& vImage);

} // namespace KestrelFuzz

#endif
