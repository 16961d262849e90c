// Image functions. Coordinates always have four components: those that the image's shape doesn't have are
// 0, and an array's layer comes after its other coordinates. Texels are four words, floats or integers
// depending on the image's channels.

#include "Builtins.h"

#pragma OPENCL EXTENSION cl_khr_3d_image_writes : enable

// The coordinates of each shape.
#define FOUR_OF_1(c) c, 0, 0, 0
#define FOUR_OF_2(c) c, 0, 0
#define FOUR_OF_4(c) c

// M(image type, its name in instructions, type suffix of coordinates, four coordinates) for the shapes that samplers
// support.
#define SAMPLED_SHAPES(M)                                                                                              \
    M(image1d_t, 1d, , FOUR_OF_1)                                                                                      \
    M(image1d_array_t, 1da, 2, FOUR_OF_2)                                                                              \
    M(image2d_t, 2d, 2, FOUR_OF_2)                                                                                     \
    M(image2d_array_t, 2da, 4, FOUR_OF_4)                                                                              \
    M(image3d_t, 3d, 4, FOUR_OF_4)
#define SHAPES(M) SAMPLED_SHAPES(M) M(image1d_buffer_t, 1db, , FOUR_OF_1)

#define SAMPLE(IMAGE, SHAPE, N, FOUR)                                                                                  \
    INSTRUCTION float4 __il_sample_##SHAPE##_f(read_only IMAGE image, sampler_t s, float4 at);                         \
    INSTRUCTION float4 __il_sample_##SHAPE##_i(read_only IMAGE image, sampler_t s, int4 at);                           \
    SAMPLE_AT(IMAGE, SHAPE, float4, float##N, __il_sample_##SHAPE##_f, read_imagef, float4, FOUR)                      \
    SAMPLE_AT(IMAGE, SHAPE, float4, float##N, __il_sample_##SHAPE##_f, read_imagei, int4, FOUR)                        \
    SAMPLE_AT(IMAGE, SHAPE, float4, float##N, __il_sample_##SHAPE##_f, read_imageui, uint4, FOUR)                      \
    SAMPLE_AT(IMAGE, SHAPE, int4, int##N, __il_sample_##SHAPE##_i, read_imagef, float4, FOUR)                          \
    SAMPLE_AT(IMAGE, SHAPE, int4, int##N, __il_sample_##SHAPE##_i, read_imagei, int4, FOUR)                            \
    SAMPLE_AT(IMAGE, SHAPE, int4, int##N, __il_sample_##SHAPE##_i, read_imageui, uint4, FOUR)
#define SAMPLE_AT(IMAGE, SHAPE, C4, C, INSTRUCTION_NAME, NAME, R, FOUR)                                                \
    EFFECT __attribute__((pure)) R NAME(read_only IMAGE image, sampler_t s, C at)                                      \
    {                                                                                                                  \
        return BITS(R, INSTRUCTION_NAME(image, s, (C4)(FOUR(at))));                                                    \
    }
SAMPLED_SHAPES(SAMPLE)

#define LOAD_AND_STORE(IMAGE, SHAPE, N, FOUR)                                                                          \
    INSTRUCTION float4 __il_load_##SHAPE(read_only IMAGE image, int4 at);                                              \
    LOAD(IMAGE, SHAPE, int##N, read_imagef, float4, FOUR)                                                              \
    LOAD(IMAGE, SHAPE, int##N, read_imagei, int4, FOUR)                                                                \
    LOAD(IMAGE, SHAPE, int##N, read_imageui, uint4, FOUR)                                                              \
    STORE(IMAGE, SHAPE, int##N, f, float4, FOUR)                                                                       \
    STORE(IMAGE, SHAPE, int##N, i, int4, FOUR)                                                                         \
    STORE(IMAGE, SHAPE, int##N, ui, uint4, FOUR)
#define LOAD(IMAGE, SHAPE, C, NAME, R, FOUR)                                                                           \
    EFFECT __attribute__((pure)) R NAME(read_only IMAGE image, C at)                                                   \
    {                                                                                                                  \
        return BITS(R, __il_load_##SHAPE(image, (int4)(FOUR(at))));                                                    \
    }
#define STORE(IMAGE, SHAPE, C, KIND, V, FOUR)                                                                          \
    void __il_image_store_##SHAPE##_##KIND(write_only IMAGE image, int4 at, V value);                                  \
    EFFECT void write_image##KIND(write_only IMAGE image, C at, V value)                                               \
    {                                                                                                                  \
        __il_image_store_##SHAPE##_##KIND(image, (int4)(FOUR(at)), value);                                             \
    }
SHAPES(LOAD_AND_STORE)

// Queries of an image: width, height, depth and number of layers; data type and order of its channels.
#define QUERY(IMAGE, SHAPE, ACCESS, A)                                                                                 \
    INSTRUCTION int4 __il_image_size_##SHAPE##__##A(ACCESS IMAGE image);                                               \
    INSTRUCTION int2 __il_image_format__##SHAPE##_##A(ACCESS IMAGE image);                                             \
    FUNCTION int get_image_width(ACCESS IMAGE image) { return __il_image_size_##SHAPE##__##A(image).x; }               \
    FUNCTION int get_image_channel_data_type(ACCESS IMAGE image) { return __il_image_format__##SHAPE##_##A(image).x; } \
    FUNCTION int get_image_channel_order(ACCESS IMAGE image) { return __il_image_format__##SHAPE##_##A(image).y; }
#define QUERIES(IMAGE, SHAPE, N, FOUR) QUERY(IMAGE, SHAPE, read_only, ro) QUERY(IMAGE, SHAPE, write_only, wo)
SHAPES(QUERIES)

#define FLAT_SIZE(IMAGE, SHAPE, ACCESS, A)                                                                             \
    FUNCTION int get_image_height(ACCESS IMAGE image) { return __il_image_size_##SHAPE##__##A(image).y; }              \
    FUNCTION int2 get_image_dim(ACCESS IMAGE image) { return __il_image_size_##SHAPE##__##A(image).xy; }
#define LAYERS(IMAGE, SHAPE, ACCESS, A)                                                                                \
    FUNCTION size_t get_image_array_size(ACCESS IMAGE image) { return (uint)__il_image_size_##SHAPE##__##A(image).w; }
#define DEPTH(IMAGE, SHAPE, ACCESS, A)                                                                                 \
    FUNCTION int get_image_height(ACCESS IMAGE image) { return __il_image_size_##SHAPE##__##A(image).y; }              \
    FUNCTION int get_image_depth(ACCESS IMAGE image) { return __il_image_size_##SHAPE##__##A(image).z; }               \
    FUNCTION int4 get_image_dim(ACCESS IMAGE image)                                                                    \
    {                                                                                                                  \
        return (int4)(__il_image_size_##SHAPE##__##A(image).xyz, 0);                                                   \
    }
#define EACH_ACCESS(M, IMAGE, SHAPE) M(IMAGE, SHAPE, read_only, ro) M(IMAGE, SHAPE, write_only, wo)
EACH_ACCESS(FLAT_SIZE, image2d_t, 2d)
EACH_ACCESS(FLAT_SIZE, image2d_array_t, 2da)
EACH_ACCESS(LAYERS, image1d_array_t, 1da)
EACH_ACCESS(LAYERS, image2d_array_t, 2da)
EACH_ACCESS(DEPTH, image3d_t, 3d)
