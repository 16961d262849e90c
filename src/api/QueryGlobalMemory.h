#ifndef KESTREL_API_QUERYGLOBALMEMORY_H
#define KESTREL_API_QUERYGLOBALMEMORY_H

#include "OVKKestrel.h"

/// At HALTED: the ranges of global memory that can be read. Not exported.
/// \param numRegions     elements of the array
/// \param regions        may be null with a size of 0
/// \param numRegionsRet  receives the count of all regions; may be null
/// \return OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL, with the array filled, if there are more
ovkclDebugError ovkclDebugGetValidGlobalMemoryRegions(ovkclDebugContext debugContext, size_t numRegions,
                                                      ovkclDebugMemoryRegion* regions, size_t* numRegionsRet);

#endif
