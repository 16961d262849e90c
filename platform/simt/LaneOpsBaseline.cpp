#define KESTREL_LANE_SET g_LaneTableBaseline
#define KESTREL_LANE_NAME "x86-64-v2"
#include "platform/simt/LaneOpsFast.inl"
