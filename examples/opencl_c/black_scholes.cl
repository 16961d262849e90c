// European options by Black and Scholes, in double precision.

#pragma OPENCL EXTENSION cl_khr_fp64 : enable

double normal_cdf(double x)
{
    return 0.5 * erfc(-x * M_SQRT1_2);
}

__kernel void black_scholes(__global const double* price, __global const double* strike, __global const double* years,
                            double rate, double volatility, __global double* call, __global double* put)
{
    const size_t i = get_global_id(0);
    const double s = price[i], x = strike[i], t = years[i];
    const double root = sqrt(t);
    const double d1 = (log(s / x) + (rate + 0.5 * volatility * volatility) * t) / (volatility * root);
    const double d2 = d1 - volatility * root;
    const double discount = exp(-rate * t);
    call[i] = s * normal_cdf(d1) - x * discount * normal_cdf(d2);
    put[i] = x * discount * normal_cdf(-d2) - s * normal_cdf(-d1);
}
