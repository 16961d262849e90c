// Sphere tracing of a small scene of signed distances, with structs passed by value and by pointer.

typedef struct
{
    float3 origin;
    float3 direction;
} ray_t;

typedef struct
{
    float3 centre;
    float radius;
    float3 colour;
} sphere_t;

typedef struct
{
    float distance;
    int object;
} hit_t;

typedef union
{
    uint value;
    uchar4 channels;
} pixel_t;

hit_t closest(float3 p, __constant sphere_t* spheres, int count)
{
    hit_t hit = {p.y + 1.0f, -1};
    for (int i = 0; i < count; ++i)
    {
        const float d = length(p - spheres[i].centre) - spheres[i].radius;
        if (d < hit.distance)
        {
            hit.distance = d;
            hit.object = i;
        }
    }
    return hit;
}

bool march(const ray_t* ray, __constant sphere_t* spheres, int count, float3* at, hit_t* hit)
{
    float t = 0.0f;
    for (int step = 0; step < 64; ++step)
    {
        *at = ray->origin + t * ray->direction;
        *hit = closest(*at, spheres, count);
        if (hit->distance < 0.001f)
            return true;
        t += hit->distance;
        if (t > 20.0f)
            break;
    }
    return false;
}

float3 normal_at(float3 p, __constant sphere_t* spheres, int count)
{
    const float e = 0.01f;
    const float here = closest(p, spheres, count).distance;
    return normalize((float3)(closest(p + (float3)(e, 0, 0), spheres, count).distance - here,
                              closest(p + (float3)(0, e, 0), spheres, count).distance - here,
                              closest(p + (float3)(0, 0, e), spheres, count).distance - here));
}

__kernel void render(__global uint* image, int width, int height, __constant sphere_t* spheres, int count)
{
    const int x = get_global_id(0), y = get_global_id(1);
    if (x >= width || y >= height)
        return;
    ray_t ray;
    ray.origin = (float3)(0.0f, 0.0f, -4.0f);
    ray.direction = normalize((float3)((x - 0.5f * width) / height, (0.5f * height - y) / height, 1.0f));

    float3 colour = (float3)(0.2f, 0.3f, 0.4f);
    float3 at;
    hit_t hit;
    if (march(&ray, spheres, count, &at, &hit))
    {
        const float3 light = normalize((float3)(1.0f, 1.0f, -1.0f));
        const float3 normal = hit.object < 0 ? (float3)(0, 1, 0) : normal_at(at, spheres, count);
        const float3 base = hit.object < 0 ? (float3)(0.5f) : spheres[hit.object].colour;
        colour = base * (0.1f + 0.9f * fmax(dot(normal, light), 0.0f));
    }
    pixel_t pixel;
    pixel.channels = convert_uchar4_sat((float4)(colour * 255.0f, 255.0f));
    image[y * width + x] = pixel.value;
}
