// Conversions to double and its vectors.

#include "Convert.h"

EXACT(double, char)
EXACT(double, uchar)
EXACT(double, short)
EXACT(double, ushort)
EXACT(double, int)
EXACT(double, uint)
EXACT(double, float)
EXACT(double, double)
INEXACT(double, ulong, 53, long)
INEXACT(double, ulong, 53, ulong)
