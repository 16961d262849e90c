#include "bench/BenchTexts.h"

namespace KestrelBench::Texts
{

// Arguments: a, b, result.
const char* const g_pszVectorAdd = R"(
ishl r1.x, r0.x, l0.x
i64add r2.xy, cb1[0].xy, r1.x000
i64add r3.xy, cb1[1].xy, r1.x000
i64add r4.xy, cb1[2].xy, r1.x000
uav_raw_load_id(10)_addr64 r5.x, r2.xy
uav_raw_load_id(10)_addr64 r5.y, r3.xy
add r5.z, r5.x, r5.y
uav_raw_store_id(10)_addr64 mem0.x, r4.xy, r5.z
)";

// Arguments: x, y, result, a.
const char* const g_pszSaxpy = R"(
dcl_literal l1, 100, 0, 0, 0
ishl r1.x, r0.x, l0.x
i64add r2.xy, cb1[0].xy, r1.x000
i64add r3.xy, cb1[1].xy, r1.x000
i64add r4.xy, cb1[2].xy, r1.x000
uav_raw_load_id(10)_addr64 r5.x, r2.xy
uav_raw_load_id(10)_addr64 r5.y, r3.xy
mov r6.x, l0.z
whileloop
ige r7.x, r6.x, l1.x
break_logicalnz r7.x
mad r5.x, cb1[3].x, r5.x, r5.y
iadd r6.x, r6.x, l0.y
endloop
uav_raw_store_id(10)_addr64 mem0.x, r4.xy, r5.x
)";

// Arguments: result, then the steps and the corner in one element.
const char* const g_pszMandelbrot = R"(
dcl_literal l1, 256, 4.0, 2.0, 0
itof r1.xy, r0.xy
mad r1.xy, r1.xy, cb1[1].xy, cb1[1].zw
mov r2.xy, l0.zz
mov r3.x, l0.z
whileloop
ige r5.z, r3.x, l1.x
break_logicalnz r5.z
mul r4.xy, r2.xy, r2.xy
add r5.x, r4.x, r4.y
lt r5.y, l1.y, r5.x
break_logicalnz r5.y
mul r4.w, r2.x, r2.y
sub r4.z, r4.x, r4.y
add r2.x, r4.z, r1.x
mad r2.y, r4.w, l1.z, r1.y
iadd r3.x, r3.x, l0.y
endloop
imad r6.x, r0.y, cb0[0].x, r0.x
ishl r6.x, r6.x, l0.x
i64add r7.xy, cb1[0].xy, r6.x000
uav_raw_store_id(10)_addr64 mem0.x, r7.xy, r3.x
)";

// Arguments: a, b, product, the size.
const char* const g_pszMatrixProduct = R"(
dcl_literal l1, 4, 0, 0, 0
imul r1.x, r0.y, cb1[3].x
ishl r1.x, r1.x, l0.x
ishl r1.y, r0.x, l0.x
ishl r1.z, cb1[3].x, l0.x
i64add r2.xy, cb1[0].xy, r1.x000
i64add r3.xy, cb1[1].xy, r1.y000
mov r4.xy, l0.zz
whileloop
ige r5.x, r4.y, cb1[3].x
break_logicalnz r5.x
uav_raw_load_id(10)_addr64 r6.x, r2.xy
uav_raw_load_id(10)_addr64 r6.y, r3.xy
mad r4.x, r6.x, r6.y, r4.x
i64add r2.xy, r2.xy, l1.xy
i64add r3.xy, r3.xy, r1.z000
iadd r4.y, r4.y, l0.y
endloop
iadd r1.x, r1.x, r1.y
i64add r7.xy, cb1[2].xy, r1.x000
uav_raw_store_id(10)_addr64 mem0.x, r7.xy, r4.x
)";

// Arguments: values, a sum for each group.
const char* const g_pszReduction = R"(
dcl_literal l1, 128, 0, 0, 0
dcl_lds_id(1) 1024
ishl r1.x, r0.x, l0.x
ishl r1.y, vTidInGrp.x, l0.x
i64add r2.xy, cb1[0].xy, r1.x000
uav_raw_load_id(10)_addr64 r3.x, r2.xy
lds_store_id(1) r1.y, r3.x
fence_threads_lds
mov r4.x, l1.x
whileloop
break_logicalz r4.x
ilt r5.x, vTidInGrp.x, r4.x
if_logicalnz r5.x
ishl r6.x, r4.x, l0.x
iadd r6.x, r6.x, r1.y
lds_load_id(1) r7.x, r1.y
lds_load_id(1) r7.y, r6.x
iadd r7.x, r7.x, r7.y
lds_store_id(1) r1.y, r7.x
endif
fence_threads_lds
ushr r4.x, r4.x, l0.y
endloop
if_logicalz vTidInGrp.x
lds_load_id(1) r8.x, l0.z
ishl r1.x, vThreadGrpId.x, l0.x
i64add r2.xy, cb1[1].xy, r1.x000
uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r8.x
endif
)";

// Arguments: values, bins.
const char* const g_pszHistogram = R"(
dcl_literal l1, 255, 0, 0, 0
dcl_lds_id(1) 1024
ishl r1.x, r0.x, l0.x
ishl r1.y, vTidInGrp.x, l0.x
lds_store_id(1) r1.y, l0.z
fence_threads_lds
i64add r2.xy, cb1[0].xy, r1.x000
uav_raw_load_id(10)_addr64 r3.x, r2.xy
and r3.x, r3.x, l1.x
ishl r3.x, r3.x, l0.x
lds_add_id(1) r3.x, l0.y
fence_threads_lds
lds_load_id(1) r4.x, r1.y
i64add r5.xy, cb1[1].xy, r1.y000
uav_add_id(10)_addr64 r5.xy, r4.x
)";

// Arguments: places, speeds, new places, new speeds; then count, time and softening in one element.
const char* const g_pszBodyStep = R"(
dcl_literal l1, 4, 16, 0, 0
ishl r1.x, r0.x, l1.x
i64add r2.xy, cb1[0].xy, r1.x000
uav_raw_load_id(10)_addr64 r3, r2.xy
mov r4.xyz, l0.zzz
mov r5.xy, cb1[0].xy
mov r6.x, l0.z
whileloop
ige r7.x, r6.x, cb1[4].x
break_logicalnz r7.x
uav_raw_load_id(10)_addr64 r8, r5.xy
sub r9.xyz, r8.xyz, r3.xyz
dp3 r10.x, r9.xyz, r9.xyz
add r10.x, r10.x, cb1[4].z
rsq r10.y, r10.x
mul r10.z, r10.y, r10.y
mul r10.z, r10.z, r10.y
mul r10.z, r10.z, r8.w
mad r4.xyz, r9.xyz, r10.zzz, r4.xyz
i64add r5.xy, r5.xy, l1.yz
iadd r6.x, r6.x, l0.y
endloop
i64add r2.xy, cb1[1].xy, r1.x000
uav_raw_load_id(10)_addr64 r11, r2.xy
mad r11.xyz, r4.xyz, cb1[4].yyy, r11.xyz
i64add r2.xy, cb1[3].xy, r1.x000
uav_raw_store_id(10)_addr64 mem0.xyzw, r2.xy, r11
mad r3.xyz, r11.xyz, cb1[4].yyy, r3.xyz
i64add r2.xy, cb1[2].xy, r1.x000
uav_raw_store_id(10)_addr64 mem0.xyzw, r2.xy, r3
)";

// Arguments of both: seeds, sums.
const char* const g_pszArrayOfTemps = R"(
dcl_literal l1, 16, 64, 24, 15
dcl_literal l2, 1664525, 3, 0, 0
dcl_indexed_temp_array x1[16]
ishl r1.x, r0.x, l0.x
i64add r2.xy, cb1[0].xy, r1.x000
uav_raw_load_id(10)_addr64 r3.x, r2.xy
mov r4.x, l0.z
whileloop
ige r5.x, r4.x, l1.x
break_logicalnz r5.x
imad x1[r4.x].x, r4.x, r3.x, r4.x
iadd r4.x, r4.x, l0.y
endloop
mov r4.x, l0.z
whileloop
ige r5.x, r4.x, l1.y
break_logicalnz r5.x
ushr r6.x, r3.x, l1.z
and r6.x, r6.x, l1.w
mov r7.x, x1[r6.x].x
iadd x1[r6.x].x, r7.x, r4.x
imad r3.x, r3.x, l2.x, r7.x
iadd r4.x, r4.x, l0.y
endloop
mov r4.xy, l0.zz
whileloop
ige r5.x, r4.x, l1.x
break_logicalnz r5.x
imad r4.y, r4.y, l2.y, x1[r4.x].x
iadd r4.x, r4.x, l0.y
endloop
i64add r2.xy, cb1[1].xy, r1.x000
uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r4.y
)";

const char* const g_pszArrayInMemory = R"(
dcl_literal l1, 16, 64, 24, 15
dcl_literal l2, 1664525, 3, 0, 0
dcl_typeless_uav_id(8)_stride(4)_length(64)_access(private)
ishl r1.x, r0.x, l0.x
i64add r2.xy, cb1[0].xy, r1.x000
uav_raw_load_id(10)_addr64 r3.x, r2.xy
mov r4.x, l0.z
whileloop
ige r5.x, r4.x, l1.x
break_logicalnz r5.x
imad r7.x, r4.x, r3.x, r4.x
ishl r6.x, r4.x, l0.x
uav_raw_store_id(8) mem0.x, r6.x, r7.x
iadd r4.x, r4.x, l0.y
endloop
mov r4.x, l0.z
whileloop
ige r5.x, r4.x, l1.y
break_logicalnz r5.x
ushr r6.x, r3.x, l1.z
and r6.x, r6.x, l1.w
ishl r6.x, r6.x, l0.x
uav_raw_load_id(8) r7.x, r6.x
iadd r7.y, r7.x, r4.x
uav_raw_store_id(8) mem0.x, r6.x, r7.y
imad r3.x, r3.x, l2.x, r7.x
iadd r4.x, r4.x, l0.y
endloop
mov r4.xy, l0.zz
whileloop
ige r5.x, r4.x, l1.x
break_logicalnz r5.x
ishl r6.x, r4.x, l0.x
uav_raw_load_id(8) r7.x, r6.x
imad r4.y, r4.y, l2.y, r7.x
iadd r4.x, r4.x, l0.y
endloop
i64add r2.xy, cb1[1].xy, r1.x000
uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r4.y
)";

} // namespace KestrelBench::Texts
