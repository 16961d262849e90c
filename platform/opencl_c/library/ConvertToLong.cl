// Conversions to long and its vectors.

#include "Convert.h"

CONVERSIONS_TO(long, SATURATED_WIDE, __il_dtoi64, __il_dtoi64)
