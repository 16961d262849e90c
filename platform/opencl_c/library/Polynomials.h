// Written by FitPolynomials.py: polynomials in double precision, the first coefficient is the highest.

#ifndef KESTREL_OPENCL_C_POLYNOMIALS_H
#define KESTREL_OPENCL_C_POLYNOMIALS_H

#include "Builtins.h"

// (exp(x) - 1 - x) / x^2, for -0.3475 to 0.3475, within 1e-18.
HELPER double ExpRest(double x)
{
    double sum = 0x1.1f73b376c0f55p-29;
    sum = __builtin_fma(sum, x, 0x1.af4f1ddf981a8p-26);
    sum = __builtin_fma(sum, x, 0x1.27e4db0f8a3efp-22);
    sum = __builtin_fma(sum, x, 0x1.71de019d031e7p-19);
    sum = __builtin_fma(sum, x, 0x1.a01a01a6f35fbp-16);
    sum = __builtin_fma(sum, x, 0x1.a01a01ac16f76p-13);
    sum = __builtin_fma(sum, x, 0x1.6c16c16c162a3p-10);
    sum = __builtin_fma(sum, x, 0x1.1111111110085p-7);
    sum = __builtin_fma(sum, x, 0x1.5555555555556p-5);
    sum = __builtin_fma(sum, x, 0x1.5555555555557p-3);
    sum = __builtin_fma(sum, x, 0x1.0000000000000p-1);
    return sum;
}

// (log((1 + s) / (1 - s)) - 2 s) / s^3 of s^2, for 0 to 0.02955, within 1e-20.
HELPER double LogRest(double x)
{
    double sum = 0x1.e6ea39de18da4p-4;
    sum = __builtin_fma(sum, x, 0x1.deb865a9aa1dep-4);
    sum = __builtin_fma(sum, x, 0x1.111d4c37f79f0p-3);
    sum = __builtin_fma(sum, x, 0x1.3b137a593c9ecp-3);
    sum = __builtin_fma(sum, x, 0x1.745d17d61efb2p-3);
    sum = __builtin_fma(sum, x, 0x1.c71c71c647a0bp-3);
    sum = __builtin_fma(sum, x, 0x1.249249249297bp-2);
    sum = __builtin_fma(sum, x, 0x1.9999999999998p-2);
    sum = __builtin_fma(sum, x, 0x1.5555555555555p-1);
    return sum;
}

// (LogRest(s^2) - 2 / 3) / s^2 of s^2, for 0 to 0.02955, within 2e-18.
HELPER double LogRestAfter(double x)
{
    double sum = 0x1.e0605b57dc192p-4;
    sum = __builtin_fma(sum, x, 0x1.df78008697c8ep-4);
    sum = __builtin_fma(sum, x, 0x1.1118decc12f70p-3);
    sum = __builtin_fma(sum, x, 0x1.3b139566166d5p-3);
    sum = __builtin_fma(sum, x, 0x1.745d177b994aep-3);
    sum = __builtin_fma(sum, x, 0x1.c71c71c6e97bbp-3);
    sum = __builtin_fma(sum, x, 0x1.2492492492525p-2);
    sum = __builtin_fma(sum, x, 0x1.999999999999ap-2);
    return sum;
}

// (sin(x) - x) / x^3 of x^2, for 0 to 0.6175, within 1e-20.
HELPER double SinRest(double x)
{
    double sum = -0x1.ab16e9f2b693ep-41;
    sum = __builtin_fma(sum, x, 0x1.61217d7e3619cp-33);
    sum = __builtin_fma(sum, x, -0x1.ae645410cfd07p-26);
    sum = __builtin_fma(sum, x, 0x1.71de3a545f74cp-19);
    sum = __builtin_fma(sum, x, -0x1.a01a01a01992fp-13);
    sum = __builtin_fma(sum, x, 0x1.1111111111110p-7);
    sum = __builtin_fma(sum, x, -0x1.5555555555555p-3);
    return sum;
}

// (cos(x) - 1 + x^2 / 2) / x^4 of x^2, for 0 to 0.6175, within 1e-18.
HELPER double CosRest(double x)
{
    double sum = -0x1.907cce35dd891p-37;
    sum = __builtin_fma(sum, x, 0x1.1eeb67c12a0b4p-29);
    sum = __builtin_fma(sum, x, -0x1.27e4fa16bdc76p-22);
    sum = __builtin_fma(sum, x, 0x1.a01a019f4dd4cp-16);
    sum = __builtin_fma(sum, x, -0x1.6c16c16c16963p-10);
    sum = __builtin_fma(sum, x, 0x1.5555555555555p-5);
    return sum;
}

// (atan(x) - x) / x^3 of x^2, for 0 to 0.17158, within 1e-18.
HELPER double AtanRest(double x)
{
    double sum = 0x1.0ad10221730d6p-6;
    sum = __builtin_fma(sum, x, -0x1.1b32a3266af2ep-5);
    sum = __builtin_fma(sum, x, 0x1.74dd67f0d3109p-5);
    sum = __builtin_fma(sum, x, -0x1.ac7a7bd8f05c0p-5);
    sum = __builtin_fma(sum, x, 0x1.e19a10824a50bp-5);
    sum = __builtin_fma(sum, x, -0x1.110e87e6a8722p-4);
    sum = __builtin_fma(sum, x, 0x1.3b1392d7e8f74p-4);
    sum = __builtin_fma(sum, x, -0x1.745d165de250bp-4);
    sum = __builtin_fma(sum, x, 0x1.c71c71c3045bap-4);
    sum = __builtin_fma(sum, x, -0x1.249249248d7e6p-3);
    sum = __builtin_fma(sum, x, 0x1.9999999999953p-3);
    sum = __builtin_fma(sum, x, -0x1.5555555555555p-2);
    return sum;
}

// (asin(x) - x) / x^3 of x^2, for 0 to 0.25, within 1e-18.
HELPER double AsinRest(double x)
{
    double sum = 0x1.e529c6fce9bb4p-6;
    sum = __builtin_fma(sum, x, -0x1.3b416bb7d9257p-6);
    sum = __builtin_fma(sum, x, 0x1.406192d124629p-6);
    sum = __builtin_fma(sum, x, 0x1.8f193743418ffp-9);
    sum = __builtin_fma(sum, x, 0x1.31622469ce5adp-7);
    sum = __builtin_fma(sum, x, 0x1.3b49de7121487p-7);
    sum = __builtin_fma(sum, x, 0x1.7b027ee1dd585p-7);
    sum = __builtin_fma(sum, x, 0x1.c990ad3d8fdcap-7);
    sum = __builtin_fma(sum, x, 0x1.1c4efce23019fp-6);
    sum = __builtin_fma(sum, x, 0x1.6e8ba123e494cp-6);
    sum = __builtin_fma(sum, x, 0x1.f1c71c7a52ba3p-6);
    sum = __builtin_fma(sum, x, 0x1.6db6db6dac1e0p-5);
    sum = __builtin_fma(sum, x, 0x1.3333333333388p-4);
    sum = __builtin_fma(sum, x, 0x1.5555555555555p-3);
    return sum;
}

// erf(x) / x - 2 / sqrt(pi) of x^2, over x^2, for 0 to 1, within 5e-19.
HELPER double ErfRest(double x)
{
    double sum = 0x1.0f8a27a51ad26p-34;
    sum = __builtin_fma(sum, x, -0x1.3c1e91b012003p-30);
    sum = __builtin_fma(sum, x, 0x1.f8d476ab1a455p-27);
    sum = __builtin_fma(sum, x, -0x1.5f39372686202p-23);
    sum = __builtin_fma(sum, x, 0x1.b9e2333703249p-20);
    sum = __builtin_fma(sum, x, -0x1.f4d21efdafc7dp-17);
    sum = __builtin_fma(sum, x, 0x1.f9a324ddf0f34p-14);
    sum = __builtin_fma(sum, x, -0x1.c02db3f4735cbp-11);
    sum = __builtin_fma(sum, x, 0x1.565bcd0e434bbp-8);
    sum = __builtin_fma(sum, x, -0x1.b82ce312882f8p-6);
    sum = __builtin_fma(sum, x, 0x1.ce2f21a042bd7p-4);
    sum = __builtin_fma(sum, x, -0x1.812746b0379e7p-2);
    return sum;
}

// (1 + 2 x) exp(x^2) erfc(x) of (x - 4) / (x + 4), for -0.6667 to 0.75, within 1e-18.
HELPER double ErfcScaled(double x)
{
    double sum = -0x1.02f80c3c63644p-27;
    sum = __builtin_fma(sum, x, -0x1.e6947b8dd5e4ep-27);
    sum = __builtin_fma(sum, x, 0x1.a678470065b19p-24);
    sum = __builtin_fma(sum, x, 0x1.337212435b7dbp-24);
    sum = __builtin_fma(sum, x, -0x1.b5606dc3e85bap-21);
    sum = __builtin_fma(sum, x, 0x1.3cbd6de2538c8p-22);
    sum = __builtin_fma(sum, x, 0x1.7ec7352516c59p-18);
    sum = __builtin_fma(sum, x, -0x1.788ddc653e959p-17);
    sum = __builtin_fma(sum, x, -0x1.99510a3d60877p-16);
    sum = __builtin_fma(sum, x, 0x1.3be060325f0eep-13);
    sum = __builtin_fma(sum, x, -0x1.a1df5e69abe96p-13);
    sum = __builtin_fma(sum, x, -0x1.8d4a9b4670668p-11);
    sum = __builtin_fma(sum, x, 0x1.49c672c49a0b7p-8);
    sum = __builtin_fma(sum, x, -0x1.09623883f6125p-6);
    sum = __builtin_fma(sum, x, 0x1.3079edf5dd384p-5);
    sum = __builtin_fma(sum, x, -0x1.0fb06dfe4da63p-4);
    sum = __builtin_fma(sum, x, 0x1.7fee004e161c1p-4);
    sum = __builtin_fma(sum, x, -0x1.9ddb23c3e8e88p-4);
    sum = __builtin_fma(sum, x, 0x1.16ecefcfa5250p-4);
    sum = __builtin_fma(sum, x, 0x1.f7f5df66fd77cp-7);
    sum = __builtin_fma(sum, x, -0x1.1df1ad154a28dp-3);
    sum = __builtin_fma(sum, x, 0x1.3ba5916e9fd7fp+0);
    return sum;
}

// gamma(2.5 + x), for -0.5 to 0.5, within 1e-18.
HELPER double GammaMiddle(double x)
{
    double sum = -0x1.61678760e530bp-24;
    sum = __builtin_fma(sum, x, 0x1.ba42dbab2658fp-23);
    sum = __builtin_fma(sum, x, -0x1.c189aebb2619bp-22);
    sum = __builtin_fma(sum, x, 0x1.1e01a1e36520ap-20);
    sum = __builtin_fma(sum, x, -0x1.57dc4d9963c13p-19);
    sum = __builtin_fma(sum, x, 0x1.e716924cc6e9dp-18);
    sum = __builtin_fma(sum, x, -0x1.ad8b2d371d88ep-17);
    sum = __builtin_fma(sum, x, 0x1.013bdfc057f7bp-14);
    sum = __builtin_fma(sum, x, 0x1.0886fa7157a6ep-18);
    sum = __builtin_fma(sum, x, 0x1.8b8fcf944edc5p-11);
    sum = __builtin_fma(sum, x, 0x1.a55ed2133d31ep-10);
    sum = __builtin_fma(sum, x, 0x1.5489cc6a2c406p-7);
    sum = __builtin_fma(sum, x, 0x1.d0a9bc49334e7p-6);
    sum = __builtin_fma(sum, x, 0x1.c138b89493ef9p-4);
    sum = __builtin_fma(sum, x, 0x1.03f6d2fa4f4fdp-2);
    sum = __builtin_fma(sum, x, 0x1.4f224d4b7e016p-1);
    sum = __builtin_fma(sum, x, 0x1.de9585f1a7093p-1);
    sum = __builtin_fma(sum, x, 0x1.544fa6d47b390p+0);
    return sum;
}

// log(gamma(2 + x)) / (x (1 + x)), for -1 to 1, within 1e-18.
HELPER double LogGammaMiddle(double x)
{
    double sum = 0x1.b3541ab65bdbfp-32;
    sum = __builtin_fma(sum, x, -0x1.c035341ec058fp-31);
    sum = __builtin_fma(sum, x, -0x1.47270e5e1fb65p-30);
    sum = __builtin_fma(sum, x, 0x1.4ff438323b2c8p-29);
    sum = __builtin_fma(sum, x, 0x1.27da3df040450p-28);
    sum = __builtin_fma(sum, x, -0x1.3103f029c7ba0p-27);
    sum = __builtin_fma(sum, x, 0x1.a42ed3de5b793p-32);
    sum = __builtin_fma(sum, x, -0x1.f849c85b95e9dp-31);
    sum = __builtin_fma(sum, x, 0x1.ab61d22cc9788p-26);
    sum = __builtin_fma(sum, x, -0x1.bdb9f4ce42d8dp-25);
    sum = __builtin_fma(sum, x, 0x1.7c7b8a89c3cd7p-24);
    sum = __builtin_fma(sum, x, -0x1.8ff67cc7ad32ep-23);
    sum = __builtin_fma(sum, x, 0x1.b2c54c428c424p-22);
    sum = __builtin_fma(sum, x, -0x1.cb3ff70f30455p-21);
    sum = __builtin_fma(sum, x, 0x1.e541e1a32fbd5p-20);
    sum = __builtin_fma(sum, x, -0x1.022302a40660bp-18);
    sum = __builtin_fma(sum, x, 0x1.13e4c880cb9a3p-17);
    sum = __builtin_fma(sum, x, -0x1.285110f192ea9p-16);
    sum = __builtin_fma(sum, x, 0x1.402f0a28deda1p-15);
    sum = __builtin_fma(sum, x, -0x1.5c86af6d06700p-14);
    sum = __builtin_fma(sum, x, 0x1.7ed733d21cbf4p-13);
    sum = __builtin_fma(sum, x, -0x1.a96a403976f3ap-12);
    sum = __builtin_fma(sum, x, 0x1.dfebcf8e001b7p-11);
    sum = __builtin_fma(sum, x, -0x1.145121f959a87p-9);
    sum = __builtin_fma(sum, x, 0x1.47974853aa7eap-8);
    sum = __builtin_fma(sum, x, -0x1.95ce223a9d24ap-7);
    sum = __builtin_fma(sum, x, 0x1.0e0c9df293530p-5);
    sum = __builtin_fma(sum, x, -0x1.9ae6509ea109ep-4);
    sum = __builtin_fma(sum, x, 0x1.b0ee6072093cep-2);
    return sum;
}

// x (log(gamma(x)) - Stirling's formula) of 1 / x^2, for 0 to 0.015625, within 6e-19.
HELPER double StirlingRest(double x)
{
    double sum = 0x1.4bffc9d8b455bp-8;
    sum = __builtin_fma(sum, x, -0x1.ef8d748aeb0f2p-10);
    sum = __builtin_fma(sum, x, 0x1.b92c33f9445e5p-11);
    sum = __builtin_fma(sum, x, -0x1.38134d4f8896fp-11);
    sum = __builtin_fma(sum, x, 0x1.a01a017dcf9e1p-11);
    sum = __builtin_fma(sum, x, -0x1.6c16c16c149f4p-9);
    sum = __builtin_fma(sum, x, 0x1.5555555555555p-4);
    return sum;
}

#endif
