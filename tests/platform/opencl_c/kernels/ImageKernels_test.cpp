#include "tests/platform/opencl_c/kernels/ExampleKernels.h"

#include <algorithm>

namespace KestrelTest
{
namespace
{

class ImageKernels : public CExampleKernels
{
};

TEST_P(ImageKernels, ConvolutionClampsAtTheEdge)
{
    COpenCLProgram& program = Build("image_convolution");
    const int nWidth = 20, nHeight = 13;
    const auto vPixels = Random<cl_float>(nWidth * nHeight * 4, 0, 1);
    const auto vWeights = Random<cl_float>(9, -0.2, 0.3);
    const cl_image_format format = {CL_RGBA, CL_FLOAT};
    auto source = m_Device.Image2D(format, nWidth, nHeight, vPixels.data());
    auto target = m_Device.Image2D(format, nWidth, nHeight, nullptr);
    auto weights = m_Device.Buffer(vWeights);
    program.Run("convolve", {{24, 16}, {8, 8}, {}}, source, target, weights, cl_int{1});
    std::vector<cl_float> vWanted;
    for (int n = 0; n < nWidth * nHeight * 4; ++n)
    {
        double fSum = 0;
        for (int w = 0; w < 9; ++w)
        {
            const int x = std::clamp(n / 4 % nWidth + w % 3 - 1, 0, nWidth - 1);
            const int y = std::clamp(n / 4 / nWidth + w / 3 - 1, 0, nHeight - 1);
            fSum += double{vWeights[w]} * vPixels[(y * nWidth + x) * 4 + n % 4];
        }
        vWanted.push_back(n % 4 == 3 ? 1.0f : static_cast<cl_float>(fSum));
    }
    ExpectNear(m_Device.ReadImage2D<cl_float>(target, nWidth, nHeight, 4), vWanted, 1e-5, 1e-6);
}

TEST_P(ImageKernels, SobelThroughASamplerArgument)
{
    COpenCLProgram& program = Build("sobel");
    const int nWidth = 16, nHeight = 12;
    const auto vPixels = Random<cl_uchar>(nWidth * nHeight, 0, 256);
    auto image = m_Device.Image2D({CL_R, CL_UNORM_INT8}, nWidth, nHeight, vPixels.data());
    auto edges = m_Device.Image2D({CL_R, CL_UNSIGNED_INT32}, nWidth, nHeight, nullptr);
    cl_int nCode = -1;
    const cl_sampler sampler =
        m_Device.cl.clCreateSampler(m_Device.m_context, CL_TRUE, CL_ADDRESS_MIRRORED_REPEAT, CL_FILTER_NEAREST, &nCode);
    Need(nCode, "clCreateSampler");
    program.Run("sobel", {{nWidth, nHeight}, {}, {}}, image, sampler, edges);
    m_Device.cl.clReleaseSampler(sampler);
    const auto vGot = m_Device.ReadImage2D<cl_uint>(edges, nWidth, nHeight, 1);
    const auto Mirror = [](int n, int nSize) { return n < 0 ? -n - 1 : n >= nSize ? 2 * nSize - 1 - n : n; };
    for (int y = 0; y < nHeight; ++y)
    {
        for (int x = 0; x < nWidth; ++x)
        {
            const auto At = [&](int dx, int dy)
            { return vPixels[Mirror(y + dy, nHeight) * nWidth + Mirror(x + dx, nWidth)] / 255.0; };
            const double fX = At(1, -1) + 2 * At(1, 0) + At(1, 1) - At(-1, -1) - 2 * At(-1, 0) - At(-1, 1);
            const double fY = At(-1, 1) + 2 * At(0, 1) + At(1, 1) - At(-1, -1) - 2 * At(0, -1) - At(1, -1);
            ASSERT_NEAR(vGot[y * nWidth + x], std::hypot(fX, fY) * 255, 1.001) << x << "," << y;
        }
    }
}

TEST_P(ImageKernels, BilateralFilterOfBytes)
{
    COpenCLProgram& program = Build("bilateral");
    const cl_int nWidth = 18, nHeight = 11, nRadius = 2;
    const cl_float fSpace = 1.5f, fRange = 40.0f;
    const auto vIn = Random<cl_uchar>(nWidth * nHeight, 0, 256);
    auto in = m_Device.Buffer(vIn), out = m_Device.Buffer(std::vector<cl_uchar>(nWidth * nHeight));
    program.Run("bilateral", {{18, 11}, {}, {}}, in, out, nWidth, nHeight, nRadius, fSpace, fRange);
    const auto vGot = m_Device.Read<cl_uchar>(out);
    for (int n = 0; n < nWidth * nHeight; ++n)
    {
        double fSum = 0, fNorm = 0;
        for (int j = -nRadius; j <= nRadius; ++j)
        {
            for (int i = -nRadius; i <= nRadius; ++i)
            {
                const int x = std::clamp(n % nWidth + i, 0, nWidth - 1), y = std::clamp(n / nWidth + j, 0, nHeight - 1);
                const double fValue = vIn[y * nWidth + x], r = fValue - vIn[n];
                const double fWeight =
                    std::exp(-(i * i + j * j) / (2.0 * fSpace * fSpace) - r * r / (2.0 * fRange * fRange));
                fSum += fWeight * fValue;
                fNorm += fWeight;
            }
        }
        ASSERT_NEAR(vGot[n], fSum / fNorm, 0.501) << n;
    }
}

TEST_P(ImageKernels, MedianOfNineByANetwork)
{
    COpenCLProgram& program = Build("median_filter");
    const int nWidth = 15, nHeight = 7;
    const auto vIn = Random<cl_uchar>(4 * nWidth * nHeight, 0, 256);
    auto in = m_Device.Buffer(vIn), out = m_Device.Buffer(vIn);
    program.Run("median_filter", {{nWidth, nHeight}, {}, {}}, in, out);
    std::vector<cl_uchar> vWanted;
    for (int n = 0; n < 4 * nWidth * nHeight; ++n)
    {
        std::vector<cl_uchar> vAround;
        const int x = n / 4 % nWidth, y = n / 4 / nWidth;
        for (int j = std::max(y - 1, 0); j <= y + 1; ++j)
        {
            for (int i = x - 1; i <= x + 1; ++i)
            {
                const int nPixel = std::min(j, nHeight - 1) * nWidth + std::clamp(i, 0, nWidth - 1);
                vAround.push_back(vIn[4 * nPixel + n % 4]);
            }
        }
        vAround.resize(9, vIn[n]);
        std::nth_element(vAround.begin(), vAround.begin() + 4, vAround.end());
        vWanted.push_back(vAround[4]);
    }
    EXPECT_EQ(m_Device.Read<cl_uchar>(out), vWanted);
}

TEST_P(ImageKernels, ColoursFromPlanes)
{
    COpenCLProgram& program = Build("yuv_to_rgb");
    const cl_uint nWidth = 12, nHeight = 6;
    const auto vY = Random<cl_uchar>(nWidth * nHeight, 0, 256), vU = Random<cl_uchar>(nWidth * nHeight / 4, 0, 256),
               vV = Random<cl_uchar>(nWidth * nHeight / 4, 0, 256);
    auto y = m_Device.Buffer(vY), u = m_Device.Buffer(vU), v = m_Device.Buffer(vV);
    auto rgb = m_Device.Buffer(std::vector<cl_uchar>(3 * nWidth * nHeight));
    program.Run("yuv_to_rgb", {{nWidth / 2, nHeight / 2}, {}, {}}, y, u, v, rgb, nWidth);
    std::vector<cl_uchar> vWanted;
    for (cl_uint n = 0; n < nWidth * nHeight; ++n)
    {
        const cl_uint nChroma = n / nWidth / 2 * (nWidth / 2) + n % nWidth / 2;
        const int nU = vU[nChroma] - 128, nV = vV[nChroma] - 128;
        for (int nAdd : {359 * nV, -88 * nU - 183 * nV, 454 * nU})
        {
            vWanted.push_back(static_cast<cl_uchar>(std::clamp((nAdd + vY[n] * 256 + 128) >> 8, 0, 255)));
        }
    }
    EXPECT_EQ(m_Device.Read<cl_uchar>(rgb), vWanted);
}

TEST_P(ImageKernels, CosineTransformOfBlocks)
{
    COpenCLProgram& program = Build("dct8x8");
    const cl_int nStride = 16;
    const auto vIn = Random<cl_short>(nStride * 16, -128, 128);
    auto in = m_Device.Buffer(vIn);
    auto out = m_Device.Buffer(std::vector<cl_float>(nStride * 16));
    program.Run("dct8x8", {{16, 2}, {8, 1}, {}}, in, out, nStride);
    std::vector<cl_float> vWanted;
    for (int n = 0; n < nStride * 16; ++n)
    {
        const int u = n % 8, v = n / nStride % 8, nFirst = n / (8 * nStride) * 8 * nStride + n % nStride / 8 * 8;
        double fSum = 0;
        for (int y = 0; y < 8; ++y)
        {
            for (int x = 0; x < 8; ++x)
            {
                fSum += vIn[nFirst + y * nStride + x] * std::cos((2 * x + 1) * u * M_PI / 16) *
                        std::cos((2 * y + 1) * v * M_PI / 16);
            }
        }
        vWanted.push_back(static_cast<cl_float>(fSum / 4 * (u ? 1 : M_SQRT1_2) * (v ? 1 : M_SQRT1_2)));
    }
    ExpectNear(m_Device.Read<cl_float>(out), vWanted, 1e-5, 1e-3);
}

TEST_P(ImageKernels, MandelbrotSetWithColours)
{
    COpenCLProgram& program = Build("mandelbrot");
    const int nWidth = 32, nHeight = 16, nLimit = 60;
    struct
    {
        cl_float x, y;
    } const centre = {-0.5f, 0.0f};
    auto image = m_Device.Buffer(std::vector<cl_uchar>(4 * nWidth * nHeight));
    auto passes = m_Device.Buffer(std::vector<cl_int>(nWidth * nHeight));
    program.Run("mandelbrot", {{nWidth, nHeight}, {}, {}}, image, passes, centre, cl_float{0.125f}, cl_int{nLimit});
    std::vector<cl_int> vWanted;
    for (int n = 0; n < nWidth * nHeight; ++n)
    {
        const int nRow = n / nWidth;
        const float cx = centre.x + 0.125f * (n % nWidth - 16.0f), cy = centre.y + 0.125f * (nRow - 8.0f);
        float x = 0, y = 0;
        cl_int nPasses = 0;
        for (; nPasses < nLimit && x * x + y * y < 4; ++nPasses)
        {
            const float fNext = x * x - y * y + cx;
            y = 2 * x * y + cy;
            x = fNext;
        }
        vWanted.push_back(nPasses);
    }
    // A compiler may fuse a product and a sum, so points that only just leave may differ by a pass.
    const auto vGot = m_Device.Read<cl_int>(passes);
    int nDifferent = 0;
    for (size_t n = 0; n < vWanted.size(); ++n)
    {
        nDifferent += vGot[n] != vWanted[n];
    }
    EXPECT_LE(nDifferent, 10);
    const auto vImage = m_Device.Read<cl_uchar>(image);
    const cl_uchar red[8] = {66, 25, 9, 4, 0, 12, 24, 57};
    for (size_t n = 0; n < vGot.size(); ++n)
    {
        ASSERT_EQ(vImage[4 * n], vGot[n] == nLimit ? 0 : red[vGot[n] & 7]) << n;
    }
}

TEST_P(ImageKernels, SpheresByMarchingRays)
{
    struct alignas(16) SSphere
    {
        cl_float centre[4];
        cl_float fRadius;
        cl_float pad[3];
        cl_float colour[4];
    };
    COpenCLProgram& program = Build("ray_marcher");
    const std::vector<SSphere> vSpheres = {{{0, 0, 0, 0}, 1.0f, {}, {1, 0, 0, 0}},
                                           {{1.5f, 0, 1, 0}, 0.5f, {}, {0, 1, 0, 0}}};
    const cl_int nSide = 24;
    auto image = m_Device.Buffer(std::vector<cl_uint>(nSide * nSide));
    auto spheres = m_Device.Buffer(vSpheres);
    program.Run("render", {{24, 24}, {8, 8}, {}}, image, nSide, nSide, spheres, cl_int{2});
    const auto vImage = m_Device.Read<cl_uint>(image);
    // What each pixel's ray meets, by geometry: the first sphere, the second, the floor at y = -1, or the sky.
    int nClear = 0;
    for (int n = 0; n < nSide * nSide; ++n)
    {
        const int nRow = n / nSide;
        const double dx = (n % nSide - 0.5 * nSide) / nSide, dy = (0.5 * nSide - nRow) / nSide;
        const double fLength = std::sqrt(dx * dx + dy * dy + 1);
        const double direction[3] = {dx / fLength, dy / fLength, 1 / fLength};
        double fNearest = direction[1] < 0 ? -1 / direction[1] : INFINITY;
        int nObject = fNearest < 15 ? 2 : 3;
        bool bClear = fNearest < 5 || fNearest > 25;
        for (int s = 0; s < 2; ++s)
        {
            const SSphere& sphere = vSpheres[s];
            const double oc[3] = {-sphere.centre[0], -sphere.centre[1], -4 - sphere.centre[2]};
            double b = 0, c = -double{sphere.fRadius} * sphere.fRadius;
            for (int k = 0; k < 3; ++k)
            {
                b += oc[k] * direction[k];
                c += oc[k] * oc[k];
            }
            const double fRoot = b * b - c;
            bClear = bClear && std::fabs(fRoot) > 0.1;
            if (fRoot > 0 && -b - std::sqrt(fRoot) < fNearest)
            {
                fNearest = -b - std::sqrt(fRoot);
                nObject = s;
            }
        }
        if (!bClear)
        {
            continue;
        }
        ++nClear;
        const cl_uint nRed = vImage[n] & 255, nGreen = vImage[n] >> 8 & 255, nBlue = vImage[n] >> 16 & 255;
        ASSERT_EQ(vImage[n] >> 24, 255u);
        const int nSeen = nBlue == 102 && nRed == 51        ? 3
                          : nRed > 0 && nGreen == 0         ? 0
                          : nRed == 0 && nGreen > 0         ? 1
                          : nRed == nGreen && nRed == nBlue ? 2
                                                            : -1;
        ASSERT_EQ(nSeen, nObject) << n % nSide << "," << n / nSide;
    }
    EXPECT_GT(nClear, 300);
}

TEST_P(ImageKernels, LabelsOfConnectedPixels)
{
    COpenCLProgram& program = Build("connected_components");
    const int nWidth = 20, nHeight = 14;
    std::vector<cl_uchar> vPixels(nWidth * nHeight);
    for (cl_uchar& n : vPixels)
    {
        n = m_Random() % 3 != 0;
    }
    auto pixels = m_Device.Buffer(vPixels);
    auto labels = m_Device.Buffer(std::vector<cl_int>(nWidth * nHeight));
    program.Run("init_labels", {{nWidth, nHeight}, {}, {}}, pixels, labels);
    for (cl_int nChanged = 1; nChanged;)
    {
        auto changed = m_Device.Buffer(std::vector<cl_int>{0});
        program.Run("spread_labels", {{nWidth, nHeight}, {}, {}}, pixels, labels, changed);
        nChanged = m_Device.Read<cl_int>(changed)[0];
    }
    std::vector<cl_int> vWanted(nWidth * nHeight, -1);
    for (int nSeed = 0; nSeed < nWidth * nHeight; ++nSeed)
    {
        std::vector<int> vStack;
        if (vPixels[nSeed] && vWanted[nSeed] < 0)
        {
            vStack.push_back(nSeed);
            vWanted[nSeed] = nSeed;
        }
        while (!vStack.empty())
        {
            const int n = vStack.back();
            vStack.pop_back();
            const int steps[4][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
            for (const auto& step : steps)
            {
                const int x = n % nWidth + step[0], y = n / nWidth + step[1];
                if (x >= 0 && x < nWidth && y >= 0 && y < nHeight && vPixels[y * nWidth + x] &&
                    vWanted[y * nWidth + x] < 0)
                {
                    vWanted[y * nWidth + x] = nSeed;
                    vStack.push_back(y * nWidth + x);
                }
            }
        }
    }
    EXPECT_EQ(m_Device.Read<cl_int>(labels), vWanted);
}

TEST_P(ImageKernels, LifeInParallelBits)
{
    COpenCLProgram& program = Build("game_of_life");
    const cl_int nWords = 2, nHeight = 20, nWidth = 64;
    std::vector<cl_uint> vCells(nWords * nHeight);
    for (cl_uint& n : vCells)
    {
        n = static_cast<cl_uint>(m_Random());
    }
    auto in = m_Device.Buffer(vCells), out = m_Device.Buffer(vCells);
    program.Run("life", {{nWords, nHeight}, {}, {}}, in, out, nWords, nHeight);
    const auto IsAlive = [&](int x, int y)
    {
        x = (x + nWidth) % nWidth;
        return vCells[(y + nHeight) % nHeight * nWords + x / 32] >> (x % 32) & 1;
    };
    std::vector<cl_uint> vWanted(vCells.size());
    for (int n = 0; n < nWidth * nHeight; ++n)
    {
        cl_uint nAround = 0;
        for (int i = 0; i < 9; ++i)
        {
            nAround += i == 4 ? 0 : IsAlive(n % nWidth + i % 3 - 1, n / nWidth + i / 3 - 1);
        }
        const bool bAlive = nAround == 3 || (nAround == 2 && IsAlive(n % nWidth, n / nWidth));
        vWanted[n / 32] |= cl_uint{bAlive} << (n % 32);
    }
    EXPECT_EQ(m_Device.Read<cl_uint>(out), vWanted);
}

TEST_P(ImageKernels, HalvesAsStorage)
{
    COpenCLProgram& program = Build("half_storage");
    // 1, 2, -0.5, 65504, 2^-24 (a denormal), 0.333251953125, infinity, 0
    const std::vector<cl_half> vA = {0x3C00, 0x4000, 0xB800, 0x7BFF, 0x0001, 0x3555, 0x7C00, 0x0000};
    const std::vector<cl_half> vB = {0x4200, 0x4400, 0x3800, 0x0000, 0x0001, 0x3555, 0x7C00, 0x3C00};
    auto a = m_Device.Buffer(vA), b = m_Device.Buffer(vB), out = m_Device.Buffer(std::vector<cl_half>(8));
    program.Run("blend", {{2}, {}, {}}, a, b, out, cl_float{0.5f});
    auto vGot = m_Device.Read<cl_half>(out);
    // inf + (inf - inf) * 0.5 is NaN.
    EXPECT_EQ(vGot[6] & 0x7C00, 0x7C00);
    EXPECT_NE(vGot[6] & 0x03FF, 0);
    vGot[6] = 0;
    EXPECT_EQ(vGot, (std::vector<cl_half>{0x4000, 0x4200, 0x0000, 0x77FF, 0x0001, 0x3555, 0, 0x3800}));

    auto data = m_Device.Buffer(std::vector<cl_half>{0x3C00, 0x3C01, 0x7BFF, 0x0003, 0xBC01});
    auto scale = m_Device.Buffer(std::vector<cl_float>{1.5f});
    program.Run("normalise", {{2}, {}, {}}, data, scale, cl_uint{5});
    // 1.5; 1.50146484375 ties to even; too large is infinity; 4.5 * 2^-24 ties to even 4; as the second.
    EXPECT_EQ(m_Device.Read<cl_half>(data), (std::vector<cl_half>{0x3E00, 0x3E02, 0x7C00, 0x0004, 0xBE02}));
}

KESTREL_ON_ALL_DEVICES(ImageKernels);

} // namespace
} // namespace KestrelTest
