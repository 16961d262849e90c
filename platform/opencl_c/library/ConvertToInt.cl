// Conversions to int and its vectors.

#include "Convert.h"

CONVERSIONS_TO(int, SATURATED_WIDE, __il_ftoi, __il_dtoi)
