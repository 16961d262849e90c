// Conversions to float and its vectors.

#include "Convert.h"

EXACT(float, char)
EXACT(float, uchar)
EXACT(float, short)
EXACT(float, ushort)
EXACT(float, float)
INEXACT(float, uint, 24, int)
INEXACT(float, uint, 24, uint)
INEXACT(float, uint, 24, long)
INEXACT(float, uint, 24, ulong)
TO_NEAREST(, float, double)
TO_NEAREST(_rte, float, double)
EACH_DIRECTION(NARROWED, )
