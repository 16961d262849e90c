#define KESTREL_LANE_SET g_LaneTableAvx512
#define KESTREL_LANE_NAME "AVX-512"
#include "platform/simt/LaneOpsFast.inl"
