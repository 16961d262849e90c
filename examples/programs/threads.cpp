// Two threads with queues of their own, one of them out of order, launch kernels of one program; one launch waits for
// an event that the program sets later. Prints how many results are right.
#define CL_HPP_TARGET_OPENCL_VERSION 120
#define CL_HPP_MINIMUM_OPENCL_VERSION 120
#define CL_HPP_CL_1_2_DEFAULT_BUILD
#define CL_HPP_ENABLE_EXCEPTIONS
#include <CL/opencl.hpp>

#include <atomic>
#include <iostream>
#include <thread>
#include <vector>

static const char* const s_pszSource = R"(
__kernel void count(__global int* data, int by)
{
    data[get_global_id(0)] += by;
}
)";

int main()
{
    std::vector<cl::Device> devices;
    cl::Platform::getDefault().getDevices(CL_DEVICE_TYPE_ALL, &devices);
    const cl::Context context(devices.front());
    const cl::Program program(context, s_pszSource, true);
    std::atomic<int> right{0};
    const auto work = [&](cl_command_queue_properties properties, int by)
    {
        const cl::CommandQueue queue(context, devices.front(), properties);
        std::vector<int> data(64, 1);
        cl::Buffer buffer(context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, data.size() * sizeof(int), data.data());
        cl::Kernel kernel(program, "count");
        kernel.setArg(0, buffer);
        kernel.setArg(1, by);
        std::vector<cl::Event> last(1);
        for (int round = 0; round < 4; ++round)
        {
            const std::vector<cl::Event> before = last;
            queue.enqueueNDRangeKernel(kernel, cl::NullRange, cl::NDRange(64), cl::NullRange,
                                       round == 0 ? nullptr : &before, &last.front());
        }
        queue.enqueueReadBuffer(buffer, CL_TRUE, 0, data.size() * sizeof(int), data.data(), &last);
        right += data == std::vector<int>(64, 1 + 4 * by) ? 1 : 0;
    };
    std::thread first(work, 0, 3);
    std::thread second(work, CL_QUEUE_OUT_OF_ORDER_EXEC_MODE_ENABLE, 5);
    first.join();
    second.join();

    const cl::CommandQueue queue(context, devices.front());
    cl::Buffer buffer(context, CL_MEM_READ_WRITE, sizeof(int));
    cl::Kernel kernel(program, "count");
    int value = 7;
    queue.enqueueWriteBuffer(buffer, CL_TRUE, 0, sizeof(int), &value);
    kernel.setArg(0, buffer);
    kernel.setArg(1, 1);
    cl::UserEvent gate(context);
    const std::vector<cl::Event> waits = {gate};
    queue.enqueueNDRangeKernel(kernel, cl::NullRange, cl::NDRange(1), cl::NullRange, &waits);
    gate.setStatus(CL_COMPLETE);
    queue.enqueueReadBuffer(buffer, CL_TRUE, 0, sizeof(int), &value);
    right += value == 8 ? 1 : 0;
    std::cout << right << " of 3 right\n";
    return right == 3 ? 0 : 1;
}
