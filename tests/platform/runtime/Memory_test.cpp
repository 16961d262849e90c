#include "Runtime.h"

#include <cstring>
#include <numeric>
#include <random>

namespace
{

std::vector<unsigned char> Bytes(size_t nCount, unsigned char nFirst = 0)
{
    std::vector<unsigned char> vBytes(nCount);
    std::iota(vBytes.begin(), vBytes.end(), nFirst);
    return vBytes;
}

class CMemoryTest : public CRuntimeTest
{
protected:
    template <class T>
    T MemValue(cl_mem mem, cl_mem_info eInfo)
    {
        T value{};
        EXPECT_EQ(cl.clGetMemObjectInfo(mem, eInfo, sizeof(value), &value, nullptr), CL_SUCCESS);
        return value;
    }

    void* Map(cl_mem buffer, cl_map_flags nFlags, size_t nOffset, size_t nBytes)
    {
        cl_int nError = -1;
        void* pMapped =
            cl.clEnqueueMapBuffer(m_queue, buffer, CL_TRUE, nFlags, nOffset, nBytes, 0, nullptr, nullptr, &nError);
        EXPECT_EQ(nError, CL_SUCCESS);
        return pMapped;
    }
};

TEST_F(CMemoryTest, WritesCopiesFillsAndReads)
{
    const std::vector<unsigned char> vIn = Bytes(256);
    cl_mem a = MakeBuffer(256, vIn.data());
    cl_mem b = MakeBuffer(256);
    EXPECT_EQ(ReadAll<unsigned char>(b, 256), std::vector<unsigned char>(256, 0)) << "new memory holds zeros";
    EXPECT_EQ(cl.clEnqueueCopyBuffer(m_queue, a, b, 16, 32, 64, 0, nullptr, nullptr), CL_SUCCESS);
    const unsigned char pattern[4] = {0xA, 0xB, 0xC, 0xD};
    EXPECT_EQ(cl.clEnqueueFillBuffer(m_queue, b, pattern, 4, 128, 12, 0, nullptr, nullptr), CL_SUCCESS);
    EXPECT_EQ(cl.clEnqueueWriteBuffer(m_queue, b, CL_FALSE, 200, 8, vIn.data() + 100, 0, nullptr, nullptr), CL_SUCCESS);
    std::vector<unsigned char> vExpected(256, 0);
    std::copy_n(vIn.begin() + 16, 64, vExpected.begin() + 32);
    for (size_t i = 0; i < 12; ++i)
    {
        vExpected[128 + i] = pattern[i % 4];
    }
    std::copy_n(vIn.begin() + 100, 8, vExpected.begin() + 200);
    EXPECT_EQ(ReadAll<unsigned char>(b, 256), vExpected);
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_BYTES_READ), 512u);
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_BYTES_WRITTEN), 8u);
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_BYTES_COPIED), 64u + 12u);
    cl.clReleaseMemObject(a);
    cl.clReleaseMemObject(b);
}

TEST_F(CMemoryTest, ASubBufferIsAPartOfItsParent)
{
    cl_mem parent = MakeBuffer(512, Bytes(512).data(), CL_MEM_READ_ONLY | CL_MEM_HOST_READ_ONLY);
    const cl_buffer_region region{128, 64};
    cl_mem part = cl.clCreateSubBuffer(parent, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, nullptr);
    EXPECT_EQ(MemValue<cl_mem>(part, CL_MEM_ASSOCIATED_MEMOBJECT), parent);
    EXPECT_EQ(MemValue<size_t>(part, CL_MEM_OFFSET), 128u);
    EXPECT_EQ(MemValue<size_t>(part, CL_MEM_SIZE), 64u);
    EXPECT_EQ(MemValue<cl_mem_flags>(part, CL_MEM_FLAGS) & (CL_MEM_READ_ONLY | CL_MEM_HOST_READ_ONLY),
              static_cast<cl_mem_flags>(CL_MEM_READ_ONLY | CL_MEM_HOST_READ_ONLY));
    EXPECT_EQ(cl.clReleaseMemObject(parent), CL_SUCCESS);
    EXPECT_EQ(ReadAll<unsigned char>(part, 64), Bytes(64, 128)) << "the part keeps its parent";
    cl.clReleaseMemObject(part);
}

TEST_F(CMemoryTest, UsesTheClientsMemoryWhenAskedTo)
{
    std::vector<unsigned char> vMemory = Bytes(64);
    cl_int nError = -1;
    cl_mem buffer = cl.clCreateBuffer(m_context, CL_MEM_USE_HOST_PTR, 64, vMemory.data(), &nError);
    ASSERT_EQ(nError, CL_SUCCESS);
    EXPECT_EQ(MemValue<void*>(buffer, CL_MEM_HOST_PTR), vMemory.data());
    EXPECT_EQ(Map(buffer, CL_MAP_READ, 16, 8), vMemory.data() + 16);
    EXPECT_EQ(cl.clEnqueueUnmapMemObject(m_queue, buffer, vMemory.data() + 16, 0, nullptr, nullptr), CL_SUCCESS);
    EXPECT_EQ(ReadAll<unsigned char>(buffer, 64), vMemory);
    cl.clReleaseMemObject(buffer);
}

TEST_F(CMemoryTest, MappingsAreCountedAndEndOnce)
{
    cl_mem buffer = MakeBuffer(64, Bytes(64).data());
    auto* pFirst = static_cast<unsigned char*>(Map(buffer, CL_MAP_READ, 0, 64));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(pFirst) % 128, 0u) << "aligned for any type";
    auto* pSecond = static_cast<unsigned char*>(Map(buffer, CL_MAP_WRITE, 32, 16));
    EXPECT_EQ(pFirst[5], 5);
    std::memset(pSecond, 0xEE, 16);
    EXPECT_EQ(MemValue<cl_uint>(buffer, CL_MEM_MAP_COUNT), 2u);
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_MAPPINGS), 2u);
    for (void* pMapped : {static_cast<void*>(pSecond), static_cast<void*>(pFirst)})
    {
        EXPECT_EQ(cl.clEnqueueUnmapMemObject(m_queue, buffer, pMapped, 0, nullptr, nullptr), CL_SUCCESS);
    }
    EXPECT_EQ(cl.clEnqueueUnmapMemObject(m_queue, buffer, pFirst, 0, nullptr, nullptr), CL_INVALID_VALUE);
    EXPECT_EQ(ReadAll<unsigned char>(buffer, 64)[40], 0xEE);
    EXPECT_EQ(MemValue<cl_uint>(buffer, CL_MEM_MAP_COUNT), 0u);

    // A map whose wait list fails leaves no mapping.
    cl_event gate = cl.clCreateUserEvent(m_context, nullptr);
    cl_int nError = -1;
    cl_event mapped = nullptr;
    EXPECT_NE(cl.clEnqueueMapBuffer(m_queue, buffer, CL_FALSE, CL_MAP_READ, 0, 64, 1, &gate, &mapped, &nError),
              nullptr);
    EXPECT_EQ(MemValue<cl_uint>(buffer, CL_MEM_MAP_COUNT), 1u);
    cl.clSetUserEventStatus(gate, -1);
    EXPECT_NE(cl.clWaitForEvents(1, &mapped), CL_SUCCESS);
    EXPECT_EQ(MemValue<cl_uint>(buffer, CL_MEM_MAP_COUNT), 0u);
    cl.clReleaseEvent(gate);
    cl.clReleaseEvent(mapped);
    cl.clReleaseMemObject(buffer);
}

TEST_F(CMemoryTest, DestructorCallbacksRunLastOneFirstWhenTheObjectGoes)
{
    static std::string s_strCalls;
    s_strCalls.clear();
    cl_mem buffer = MakeBuffer(16);
    for (const char* pszName : {"a", "b", "c"})
    {
        ASSERT_EQ(cl.clSetMemObjectDestructorCallback(
                      buffer, [](cl_mem, void* pUser) { s_strCalls += static_cast<const char*>(pUser); },
                      const_cast<char*>(pszName)),
                  CL_SUCCESS);
    }
    cl.clRetainMemObject(buffer);
    cl.clReleaseMemObject(buffer);
    EXPECT_EQ(s_strCalls, "");
    cl.clReleaseMemObject(buffer);
    EXPECT_EQ(s_strCalls, "cba");
}

/// A box of bytes in memory, as in the rect calls.
struct SRectSide
{
    size_t m_origin[3];
    size_t m_nRowPitch;
    size_t m_nSlicePitch;

    size_t At(const size_t* pRegion, size_t x, size_t y, size_t z) const
    {
        const size_t nRow = m_nRowPitch ? m_nRowPitch : pRegion[0];
        const size_t nSlice = m_nSlicePitch ? m_nSlicePitch : nRow * pRegion[1];
        return m_origin[0] + x + (m_origin[1] + y) * nRow + (m_origin[2] + z) * nSlice;
    }
};

struct SRectCase
{
    size_t m_region[3];
    SRectSide m_source;
    SRectSide m_target;
};

TEST_F(CMemoryTest, RectanglesGoWhereTheirPitchesSay)
{
    constexpr size_t nSize = 4096;
    const SRectCase cases[] = {
        {{8, 4, 3}, {{0, 0, 0}, 0, 0}, {{0, 0, 0}, 0, 0}},
        {{8, 4, 3}, {{2, 1, 1}, 16, 128}, {{1, 0, 2}, 32, 320}},
        {{1, 1, 1}, {{5, 6, 7}, 10, 100}, {{0, 0, 0}, 0, 0}},
        {{16, 5, 1}, {{0, 2, 0}, 20, 0}, {{3, 3, 1}, 24, 240}},
    };
    const std::vector<unsigned char> vIn = Bytes(nSize, 3);
    for (const SRectCase& c : cases)
    {
        SCOPED_TRACE(testing::PrintToString(c.m_region));
        std::vector<unsigned char> vExpected(nSize, 0);
        for (size_t z = 0; z < c.m_region[2]; ++z)
        {
            for (size_t y = 0; y < c.m_region[1]; ++y)
            {
                for (size_t x = 0; x < c.m_region[0]; ++x)
                {
                    vExpected[c.m_target.At(c.m_region, x, y, z)] = vIn[c.m_source.At(c.m_region, x, y, z)];
                }
            }
        }
        const SRectSide& s = c.m_source;
        const SRectSide& t = c.m_target;

        cl_mem source = MakeBuffer(nSize, vIn.data());
        cl_mem target = MakeBuffer(nSize);
        EXPECT_EQ(cl.clEnqueueCopyBufferRect(m_queue, source, target, s.m_origin, t.m_origin, c.m_region, s.m_nRowPitch,
                                             s.m_nSlicePitch, t.m_nRowPitch, t.m_nSlicePitch, 0, nullptr, nullptr),
                  CL_SUCCESS);
        EXPECT_EQ(ReadAll<unsigned char>(target, nSize), vExpected);

        std::vector<unsigned char> vRead(nSize, 0);
        EXPECT_EQ(cl.clEnqueueReadBufferRect(m_queue, source, CL_TRUE, s.m_origin, t.m_origin, c.m_region,
                                             s.m_nRowPitch, s.m_nSlicePitch, t.m_nRowPitch, t.m_nSlicePitch,
                                             vRead.data(), 0, nullptr, nullptr),
                  CL_SUCCESS);
        EXPECT_EQ(vRead, vExpected);

        const unsigned char nZero = 0;
        cl.clEnqueueFillBuffer(m_queue, target, &nZero, 1, 0, nSize, 0, nullptr, nullptr);
        EXPECT_EQ(cl.clEnqueueWriteBufferRect(m_queue, target, CL_TRUE, t.m_origin, s.m_origin, c.m_region,
                                              t.m_nRowPitch, t.m_nSlicePitch, s.m_nRowPitch, s.m_nSlicePitch,
                                              vIn.data(), 0, nullptr, nullptr),
                  CL_SUCCESS);
        EXPECT_EQ(ReadAll<unsigned char>(target, nSize), vExpected);
        cl.clReleaseMemObject(source);
        cl.clReleaseMemObject(target);
    }
}

} // namespace
