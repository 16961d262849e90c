// Conversions to ushort and its vectors.

#include "Convert.h"

CONVERSIONS_TO(ushort, SATURATED_NARROW)
