// Conversions to short and its vectors.

#include "Convert.h"

CONVERSIONS_TO(short, SATURATED_NARROW)
