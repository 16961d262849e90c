// Conversions to uint and its vectors.

#include "Convert.h"

CONVERSIONS_TO(uint, SATURATED_WIDE, __il_ftou, __il_dtou)
