#ifndef KESTREL_PLATFORM_RUNTIME_METADATA_H
#define KESTREL_PLATFORM_RUNTIME_METADATA_H

#include <cstddef>

namespace KestrelPlatform::Runtime
{

/// Passes a value of the object metadata extension to the destructor of its key, if there is one and the value isn't
/// null.
void DestroyMetadataValue(size_t nKey, void* pValue);

} // namespace KestrelPlatform::Runtime

#endif
