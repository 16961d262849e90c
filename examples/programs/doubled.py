"""Doubles an array and prints its sum. An ordinary program with pyopencl."""

import numpy
import pyopencl

SOURCE = """
__kernel void doubled(__global int* data)
{
    int i = get_global_id(0);
    int value = data[i];
    data[i] = value + value;
}
"""

device = pyopencl.get_platforms()[0].get_devices()[0]
context = pyopencl.Context([device])
queue = pyopencl.CommandQueue(context)
data = numpy.arange(64, dtype=numpy.int32)
buffer = pyopencl.Buffer(context, pyopencl.mem_flags.READ_WRITE | pyopencl.mem_flags.COPY_HOST_PTR, hostbuf=data)
program = pyopencl.Program(context, SOURCE).build()
program.doubled(queue, data.shape, None, buffer)
pyopencl.enqueue_copy(queue, data, buffer)
print(data.sum())
