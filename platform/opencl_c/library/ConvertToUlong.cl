// Conversions to ulong and its vectors.

#include "Convert.h"

CONVERSIONS_TO(ulong, SATURATED_WIDE, __il_dtou64, __il_dtou64)
