// Conversions to char and its vectors.

#include "Convert.h"

CONVERSIONS_TO(char, SATURATED_NARROW)
