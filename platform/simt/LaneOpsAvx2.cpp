#define KESTREL_LANE_SET g_LaneTableAvx2
#define KESTREL_LANE_NAME "AVX2"
#include "platform/simt/LaneOpsFast.inl"
