// Conversions to uchar and its vectors.

#include "Convert.h"

CONVERSIONS_TO(uchar, SATURATED_NARROW)
