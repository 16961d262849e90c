#!/usr/bin/env python3
"""Writes Polynomials.h: the polynomials that the functions of double precision are made of.

Each is a Chebyshev fit, computed with 60 digits and rounded once, of what is left of a function when its
first terms are taken away, so that an error in the polynomial counts for little. Needs mpmath. It isn't part
of the build: the header lies beside it.
"""

import sys

from mpmath import asin, atan, chebyfit, cos, erf, erfc, exp, gamma, log, loggamma, mp, mpf, pi, sin, sqrt

mp.dps = 60


def away_from_zero(f, at_zero):
    """f with its limit where it is 0/0."""
    return lambda x: mpf(at_zero) if abs(x) < mpf(10) ** -25 else f(x)


def correction(t):
    """What Stirling's formula lacks, as a function of t = 1 / x^2, times x."""
    x = 1 / sqrt(t)
    return x * (loggamma(x) - ((x - mpf(1) / 2) * log(x) - x + log(2 * pi) / 2))


# name, function, interval, number of coefficients
POLYNOMIALS = [
    ("ExpRest", "(exp(x) - 1 - x) / x^2", lambda x: (exp(x) - 1 - x) / x**2, 0.5, (-0.3475, 0.3475), 11),
    ("LogRest", "(log((1 + s) / (1 - s)) - 2 s) / s^3 of s^2", lambda z: (2 * mp.atanh(sqrt(z)) - 2 * sqrt(z)) / sqrt(z)**3, mpf(2) / 3, (0, 0.02955), 9),
    ("LogRestAfter", "(LogRest(s^2) - 2 / 3) / s^2 of s^2",
     lambda z: (2 * mp.atanh(sqrt(z)) - 2 * sqrt(z) - 2 * sqrt(z)**3 / 3) / sqrt(z)**5, mpf(2) / 5, (0, 0.02955), 8),
    ("SinRest", "(sin(x) - x) / x^3 of x^2", lambda z: (sin(sqrt(z)) - sqrt(z)) / sqrt(z)**3, -mpf(1) / 6, (0, 0.6175), 7),
    ("CosRest", "(cos(x) - 1 + x^2 / 2) / x^4 of x^2", lambda z: (cos(sqrt(z)) - 1 + z / 2) / z**2, mpf(1) / 24, (0, 0.6175), 6),
    ("AtanRest", "(atan(x) - x) / x^3 of x^2", lambda z: (atan(sqrt(z)) - sqrt(z)) / sqrt(z)**3, -mpf(1) / 3, (0, 0.17158), 12),
    ("AsinRest", "(asin(x) - x) / x^3 of x^2", lambda z: (asin(sqrt(z)) - sqrt(z)) / sqrt(z)**3, mpf(1) / 6, (0, 0.25), 14),
    ("ErfRest", "erf(x) / x - 2 / sqrt(pi) of x^2, over x^2", lambda z: (erf(sqrt(z)) / sqrt(z) - 2 / sqrt(pi)) / z, -2 / sqrt(pi) / 3, (0, 1), 12),
    ("ErfcScaled", "(1 + 2 x) exp(x^2) erfc(x) of (x - 4) / (x + 4)",
     lambda q: (1 + 2 * (4 + 4 * q) / (1 - q)) * exp(((4 + 4 * q) / (1 - q))**2) * erfc((4 + 4 * q) / (1 - q)), None, (-0.6667, 0.75), 22),
    ("GammaMiddle", "gamma(2.5 + x)", lambda x: gamma(x + mpf(5) / 2), None, (-0.5, 0.5), 18),
    ("LogGammaMiddle", "log(gamma(2 + x)) / (x (1 + x))",
     lambda x: loggamma(2 + x) / (x * (1 + x)), None, (-1, 1), 29),
    ("StirlingRest", "x (log(gamma(x)) - Stirling's formula) of 1 / x^2", correction, mpf(1) / 12, (0, mpf(1) / 64), 7),
]


def write(file):
    file.write("// Written by FitPolynomials.py: polynomials in double precision, the first coefficient is the highest.\n\n")
    file.write("#ifndef KESTREL_OPENCL_C_POLYNOMIALS_H\n#define KESTREL_OPENCL_C_POLYNOMIALS_H\n\n#include \"Builtins.h\"\n")
    for name, what, function, at_zero, interval, count in POLYNOMIALS:
        f = away_from_zero(function, at_zero) if at_zero is not None else function
        if name == "LogGammaMiddle":
            euler = mp.euler
            f = lambda x: (1 - euler) if abs(x) < mpf(10)**-25 else (euler if abs(1 + x) < mpf(10)**-25 else function(x))
        coefficients, error = chebyfit(f, [mpf(interval[0]), mpf(interval[1])], count, error=True)
        rounded = [float(c) for c in coefficients]
        print(name, "error", mp.nstr(error, 3), "of", mp.nstr(abs(f(mpf(interval[1]))), 3), file=sys.stderr)
        file.write(f"\n// {what}, for {float(interval[0]):g} to {float(interval[1]):g}, within {float(error):.1g}.\n")
        file.write(f"HELPER double {name}(double x)\n{{\n    double sum = {rounded[0].hex()};\n")
        for c in rounded[1:]:
            file.write(f"    sum = __builtin_fma(sum, x, {c.hex()});\n")
        file.write("    return sum;\n}\n")
    file.write("\n#endif\n")


if __name__ == "__main__":
    with open(sys.argv[1] if len(sys.argv) > 1 else "Polynomials.h", "w") as out:
        write(out)
