// launch: run([N], [L], iota(T, N), zero(T, N), zero("long", N))
// with: T=float N=128 L=64
// with: T=double N=64 L=32
// bug LOG: items [0, 1, 2]
// bug CONVERSION: items [40]
// Numbers that a function only needs on its way, or that a conversion is asked to limit, are no fault.
#define JOIN(t, n) t##n
#define VECTOR(t, n) JOIN(t, n)
__kernel void functions(__global const T* in, __global T* out, __global long* integers)
{
    const int id = get_global_id(0);
    const T x = (in[id] - 32) / 3;
    const T size = fabs(x);
    int e = 0;
    T rest = 0;
    out[id] = cbrt(x) + sin(x) + cos(x) + tan(x) + sinpi(x) + atan(x) + atan2(x, size + 1) + asinh(x) + tanh(x);
    out[id] += exp(-size) + exp2(x) + exp10(-size) + expm1(-size) + erf(x) + erfc(x) + tgamma(size + (T)0.02) +
               lgamma(size + (T)0.02);
#if defined LOG
    out[id] += log(in[id] - (T)2.5); // fault LOG: nan
#else
    out[id] += log(size + 1) + log2(size + 1) + log10(size + 1) + log1p(size);
#endif
    out[id] += sqrt(size) + rsqrt(size + 1) + hypot(x, x) + pow(size, x / 20 + 3) + powr(size, (T)2) + pown(x, 3);
    out[id] += rootn(x, 3) + fmod(x, (T)2) + remainder(x, (T)2) + fract(x, &rest) + frexp(x, &e) + ldexp(x, e) + logb(size + 1);
    out[id] += length((VECTOR(T, 4))(x)) + normalize((VECTOR(T, 4))(x, 1, 2, 3)).x + smoothstep((T)-5, (T)5, x) + acosh(size + 1);
    const T far = x * (T)1e20;
    integers[id] = convert_char_sat(far) + convert_uchar_sat_rte(far) + convert_short_sat_rtz(far) + convert_int_sat(far);
    integers[id] ^= convert_uint_sat(far) + convert_long_sat_rtp(far) + (long)convert_ulong_sat_rtn(far);
#if defined CONVERSION
    integers[id] ^= convert_int(id == 40 ? far + (T)1e12 : x); // fault CONVERSION: nan
#else
    integers[id] ^= convert_int(x) + convert_long_rte(x);
#endif
    integers[id] ^= rotate((long)id, (long)id) + rotate(id, id) + rotate((char)id, (char)id) + upsample(id, (uint)id) +
                    mul_hi((long)id << 40, 77L << 50) + mad_sat(id, id, id) + clz(id) + popcount(id);
}
