"""Makes infinity in one launch, which others pass on from buffer to buffer, among launches that have nothing to do with it."""

import numpy
import pyopencl

TEXT = """__kernel void divide(__global const float* in, __global float* out)
{
    const int id = get_global_id(0);
    out[id] = 1.0f / in[id];
}
__kernel void scale(__global const float* in, __global float* out)
{
    const int id = get_global_id(0);
    const float value = in[id];
    out[id] = value * 2;
}
__kernel void copy(__global const float* in, __global float* out)
{
    const int id = get_global_id(0);
    out[id] = in[id];
}
"""
COUNT = 64

context = pyopencl.Context(pyopencl.get_platforms()[0].get_devices()[:1])
queue = pyopencl.CommandQueue(context)
program = pyopencl.Program(context, TEXT).build()
fine = numpy.arange(1, COUNT + 1, dtype=numpy.float32)
zeros = numpy.where(fine == 9, 0, fine).astype(numpy.float32)
first, second, third, fourth = (
    pyopencl.Buffer(context, pyopencl.mem_flags.READ_WRITE | pyopencl.mem_flags.COPY_HOST_PTR, hostbuf=contents)
    for contents in (zeros, fine, fine, fine))

program.divide(queue, (COUNT,), None, first, second)
program.scale(queue, (COUNT,), None, second, third)
for _ in range(3):
    program.copy(queue, (COUNT,), None, third, fourth)
# What is written over carries nothing on.
pyopencl.enqueue_copy(queue, second, fine)
program.scale(queue, (COUNT,), None, second, first)
queue.finish()
