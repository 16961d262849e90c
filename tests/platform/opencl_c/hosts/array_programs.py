#!/usr/bin/python3
"""Host programs in Python with pyopencl: its own kernels for arrays, reductions, scans, sorting, random numbers and
functions, and kernels of a user. Each result is held against numpy. Ends with 0 if all are right.

    array_programs.py [DEVICE]
"""

import sys

import numpy as np
import pyopencl as cl
import pyopencl.array as cl_array
import pyopencl.clmath as clmath
import pyopencl.clrandom as clrandom
from pyopencl.algorithm import RadixSort, copy_if, unique
from pyopencl.bitonic_sort import BitonicSort
from pyopencl.elementwise import ElementwiseKernel
from pyopencl.reduction import ReductionKernel
from pyopencl.scan import GenericScanKernel, InclusiveScanKernel

rng = np.random.default_rng(5)


def users_kernel(ctx, queue):
    """The first program of most tutorials, a struct and a constant argument added."""
    program = cl.Program(
        ctx,
        """
        typedef struct { float x, y; int n; } point_t;
        __kernel void shift(__global point_t* points, __constant float* by)
        {
            const int i = get_global_id(0);
            point_t p = points[i];
            p.x += by[0];
            p.y *= by[1];
            p.n = i % 3 == 0 ? -p.n : p.n + 1;
            points[i] = p;
        }
        """,
    ).build(options="-cl-fast-relaxed-math")
    dtype = np.dtype([("x", np.float32), ("y", np.float32), ("n", np.int32)])
    host = np.zeros(50, dtype)
    host["x"], host["y"], host["n"] = rng.random(50), rng.random(50), np.arange(50)
    by = np.array([1.5, -2], np.float32)
    flags = cl.mem_flags
    points = cl.Buffer(ctx, flags.READ_WRITE | flags.COPY_HOST_PTR, hostbuf=host)
    constant = cl.Buffer(ctx, flags.READ_ONLY | flags.COPY_HOST_PTR, hostbuf=by)
    program.shift(queue, host.shape, None, points, constant)
    got = np.empty_like(host)
    cl.enqueue_copy(queue, got, points)
    np.testing.assert_allclose(got["x"], host["x"] + by[0], rtol=1e-6)
    np.testing.assert_allclose(got["y"], host["y"] * by[1], rtol=1e-6)
    np.testing.assert_array_equal(got["n"], np.where(np.arange(50) % 3 == 0, -host["n"], host["n"] + 1))


def arithmetic_of_arrays(ctx, queue):
    for dtype in (np.float32, np.float64, np.int32, np.int64, np.uint8, np.complex64):
        a = (rng.random(500) * 20 + 1).astype(dtype)
        b = (rng.random(500) * 20 + 1).astype(dtype)
        a_dev, b_dev = cl_array.to_device(queue, a), cl_array.to_device(queue, b)
        tolerance = 1e-5 if dtype in (np.float32, np.complex64) else 1e-12
        for name, got, wanted in (
            ("a+b", a_dev + b_dev, a + b),
            ("a*b", a_dev * b_dev, a * b),
            ("2*a-b", 2 * a_dev - b_dev, 2 * a - b),
            ("slice", (a_dev[3:400])[::1], a[3:400]),
        ):
            np.testing.assert_allclose(got.get(), wanted.astype(got.dtype), rtol=tolerance, err_msg=f"{name} {dtype}")
        if dtype != np.complex64:
            np.testing.assert_array_equal((a_dev > b_dev).get().astype(bool), a > b)
            assert cl_array.max(a_dev).get() == a.max() and cl_array.min(a_dev).get() == a.min()
        total = cl_array.sum(a_dev, dtype=np.dtype(np.int64) if np.issubdtype(dtype, np.integer) else None).get()
        np.testing.assert_allclose(total, a.sum(), rtol=1e-4)


def elementwise_and_reduction(ctx, queue):
    a, b = rng.random(1000).astype(np.float32), rng.random(1000).astype(np.float32)
    a_dev, b_dev = cl_array.to_device(queue, a), cl_array.to_device(queue, b)
    out = cl_array.empty_like(a_dev)
    ElementwiseKernel(
        ctx,
        "float k, const float *x, const float *y, float *z",
        "z[i] = helper(k, x[i]) + y[i]",
        preamble="float helper(float k, float x) { return x > 0.5f ? k * x : -x; }",
    )(np.float32(3), a_dev, b_dev, out)
    np.testing.assert_allclose(out.get(), np.where(a > 0.5, 3 * a, -a) + b, rtol=1e-6)
    dot = ReductionKernel(ctx, np.float32, neutral="0", reduce_expr="a+b", map_expr="x[i]*y[i]",
                          arguments="__global const float *x, __global const float *y")
    np.testing.assert_allclose(dot(a_dev, b_dev).get(), np.dot(a, b), rtol=1e-5)


def scans(ctx, queue):
    n = 2500
    a = rng.integers(-5, 6, n).astype(np.int32)
    a_dev = cl_array.to_device(queue, a)
    InclusiveScanKernel(ctx, np.int32, "a+b", neutral="0")(a_dev)
    np.testing.assert_array_equal(a_dev.get(), np.cumsum(a))

    # A segmented sum; segments start where a flag is set.
    flags = (rng.random(n) < 0.05).astype(np.uint8)
    values, result = cl_array.to_device(queue, a), cl_array.zeros(queue, n, np.int32)
    GenericScanKernel(
        ctx, np.int32,
        arguments="__global int *ary, __global char *segflags, __global int *out",
        input_expr="ary[i]",
        scan_expr="across_seg_boundary ? b : (a+b)",
        neutral="0",
        is_segment_start_expr="(segflags[i])",
        output_statement="out[i] = item;",
    )(values, cl_array.to_device(queue, flags), result)
    wanted, total = [], 0
    for value, start in zip(a, flags):
        total = int(value) if start else total + int(value)
        wanted.append(total)
    np.testing.assert_array_equal(result.get(), wanted)

    kept, count, _ = copy_if(cl_array.to_device(queue, a), "ary[i] > 2")
    np.testing.assert_array_equal(kept.get()[: int(count.get())], a[a > 2])
    ordered = np.sort(a)
    different, count, _ = unique(cl_array.to_device(queue, ordered))
    np.testing.assert_array_equal(different.get()[: int(count.get())], np.unique(a))


def sorting(ctx, queue):
    keys = rng.integers(0, 2**30, 1500).astype(np.int32)
    sort = RadixSort(ctx, "int *ary", key_expr="ary[i]", sort_arg_names=["ary"], scan_kernel=GenericScanKernel)
    (result,), _ = sort(cl_array.to_device(queue, keys), key_bits=30)
    np.testing.assert_array_equal(result.get(), np.sort(keys))
    powers = rng.random(1024).astype(np.float32)
    result, _ = BitonicSort(ctx)(cl_array.to_device(queue, powers))
    np.testing.assert_array_equal(result.get(), np.sort(powers))


def functions(ctx, queue):
    x = (rng.random(400) * 4 + 0.1).astype(np.float32)
    for dtype, tolerance in ((np.float32, 2e-6), (np.float64, 1e-14)):
        x_dev = cl_array.to_device(queue, x.astype(dtype))
        for name in ("sin", "cos", "tan", "exp", "log", "sqrt", "sinh", "tanh", "ceil", "floor", "log10", "fabs"):
            got = getattr(clmath, name)(x_dev).get()
            wanted = getattr(np, name)(x.astype(np.float64))
            np.testing.assert_allclose(got, wanted, rtol=tolerance, atol=tolerance, err_msg=f"{name} {dtype}")


def random_numbers(ctx, queue):
    for generator in (clrandom.PhiloxGenerator, clrandom.ThreefryGenerator):
        numbers = generator(ctx, seed=15).uniform(queue, 4000, np.float32).get()
        assert 0 <= numbers.min() and numbers.max() < 1 and abs(numbers.mean() - 0.5) < 0.02, generator
        normal = generator(ctx, seed=3).normal(queue, 4000, np.float64).get()
        assert abs(normal.mean()) < 0.06 and abs(normal.std() - 1) < 0.05, generator


def main():
    wanted = sys.argv[1] if len(sys.argv) > 1 else "Quench"
    platform = cl.get_platforms()[0]
    device = [d for d in platform.get_devices() if d.name == wanted][0]
    ctx = cl.Context([device])
    queue = cl.CommandQueue(ctx)
    failed = 0
    for check in (users_kernel, arithmetic_of_arrays, elementwise_and_reduction, scans, sorting, functions,
                  random_numbers):
        try:
            check(ctx, queue)
            print(f"{check.__name__}: right")
        except Exception as error:  # A failing program doesn't stop the others.
            failed += 1
            print(f"{check.__name__}: {type(error).__name__}: {error}")
    return 1 if failed else 0


sys.exit(main())
