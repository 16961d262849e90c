#ifndef KESTREL_PLATFORM_RUNTIME_METADATA_H
#define KESTREL_PLATFORM_RUNTIME_METADATA_H

#include <cstddef>

namespace KestrelPlatform::Runtime
{

/// Hands a value that was stored under a key of the object metadata extension to the destructor
/// that the key was made with, if it has one and the value isn't null.
void DestroyMetadataValue(size_t nKey, void* pValue);

} // namespace KestrelPlatform::Runtime

#endif
