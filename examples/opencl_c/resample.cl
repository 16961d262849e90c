// An image drawn at another size: each work-item asks for one point, and the sampler that the host chooses decides what
// lies between the texels and beyond the border.
__kernel void resample(__read_only image2d_t source, sampler_t sampler, __global float* out, int width)
{
    const int2 place = (int2)(get_global_id(0), get_global_id(1));
    const float2 point = (convert_float2(place) - 1.0f) * 0.5f + 0.5f;
    out[place.y * width + place.x] = read_imagef(source, sampler, point).x;
}
