#include "tests/platform/opencl_c/kernels/ExampleKernels.h"

#include <array>
#include <complex>

namespace KestrelTest
{
namespace
{

class PhysicsKernels : public CExampleKernels
{
};

TEST_P(PhysicsKernels, FourierTransformAgainstTheDefinition)
{
    COpenCLProgram& program = Build("fft");
    const cl_uint nLog = 6, n = 1u << nLog;
    const auto vIn = Random<cl_float>(2 * 2 * n, -1, 1);
    auto in = m_Device.Buffer(vIn);
    auto out = m_Device.Buffer(std::vector<cl_float>(2 * 2 * n));
    program.Run("fft", {{2 * 16}, {16}, {}}, in, out, SLocalBytes{n * 8}, nLog, cl_float{-1.0f});
    std::vector<cl_float> vWanted;
    for (cl_uint nBlock = 0; nBlock < 2; ++nBlock)
    {
        for (cl_uint k = 0; k < n; ++k)
        {
            std::complex<double> sum = 0;
            for (cl_uint i = 0; i < n; ++i)
            {
                const float* pPoint = &vIn[2 * (nBlock * n + i)];
                sum += std::complex<double>(pPoint[0], pPoint[1]) * std::polar(1.0, -2 * M_PI * k * i / n);
            }
            vWanted.push_back(static_cast<cl_float>(sum.real()));
            vWanted.push_back(static_cast<cl_float>(sum.imag()));
        }
    }
    ExpectNear(m_Device.Read<cl_float>(out), vWanted, 1e-5, 2e-5);
}

TEST_P(PhysicsKernels, SparseProductByRowsAndByGroups)
{
    COpenCLProgram& program = Build("spmv");
    const cl_uint nRows = 50, nColumns = 40;
    std::vector<cl_uint> vStart = {0}, vColumns;
    for (cl_uint nRow = 0; nRow < nRows; ++nRow)
    {
        for (cl_uint n = 0, nCount = static_cast<cl_uint>(m_Random() % 40); n < nCount; ++n)
        {
            vColumns.push_back(static_cast<cl_uint>(m_Random() % nColumns));
        }
        vStart.push_back(static_cast<cl_uint>(vColumns.size()));
    }
    const auto vValues = Random<cl_float>(vColumns.size(), -2, 2), vX = Random<cl_float>(nColumns, -1, 1);
    std::vector<cl_float> vWanted(nRows);
    for (cl_uint nRow = 0; nRow < nRows; ++nRow)
    {
        double fSum = 0;
        for (cl_uint k = vStart[nRow]; k < vStart[nRow + 1]; ++k)
        {
            fSum += double{vValues[k]} * vX[vColumns[k]];
        }
        vWanted[nRow] = static_cast<cl_float>(fSum);
    }
    auto start = m_Device.Buffer(vStart), columns = m_Device.Buffer(vColumns);
    auto values = m_Device.Buffer(vValues), x = m_Device.Buffer(vX);
    auto y = m_Device.Buffer(std::vector<cl_float>(nRows));
    program.Run("spmv_scalar", {{64}, {16}, {}}, start, columns, values, x, y, nRows);
    ExpectNear(m_Device.Read<cl_float>(y), vWanted, 1e-5, 1e-5);
    auto yByGroups = m_Device.Buffer(std::vector<cl_float>(nRows));
    program.Run("spmv_vector", {{nRows * 16}, {16}, {}}, start, columns, values, x, yByGroups);
    ExpectNear(m_Device.Read<cl_float>(yByGroups), vWanted, 1e-5, 1e-5);
}

TEST_P(PhysicsKernels, HeatInThreeDimensions)
{
    COpenCLProgram& program = Build("heat_stencil");
    const cl_int nx = 13, ny = 9, nz = 6;
    const cl_float c = 0.125f;
    auto vIn = Random<cl_float>(nx * ny * nz, 0, 100);
    auto in = m_Device.Buffer(vIn);
    auto out = m_Device.Buffer(vIn);
    program.Run("heat", {{16, 12}, {8, 4}, {}}, in, out, nx, ny, nz, c);
    std::vector<cl_float> vWanted = vIn;
    const auto At = [&](int x, int y, int z) { return vIn[(z * ny + y) * nx + x]; };
    for (int z = 1; z < nz - 1; ++z)
    {
        for (int y = 1; y < ny - 1; ++y)
        {
            for (int x = 1; x < nx - 1; ++x)
            {
                vWanted[(z * ny + y) * nx + x] +=
                    c * (At(x - 1, y, z) + At(x + 1, y, z) + At(x, y - 1, z) + At(x, y + 1, z) + At(x, y, z - 1) +
                         At(x, y, z + 1) - 6 * At(x, y, z));
            }
        }
    }
    ExpectNear(m_Device.Read<cl_float>(out), vWanted, 1e-5, 1e-4);
}

TEST_P(PhysicsKernels, LatticeBoltzmannStep)
{
    COpenCLProgram& program = Build("lbm");
    const int nWidth = 12, nHeight = 10, nCells = nWidth * nHeight;
    auto vF = Random<cl_float>(9 * nCells, 0.1, 1);
    std::vector<cl_uchar> vWall(nCells);
    for (cl_uchar& n : vWall)
    {
        n = m_Random() % 5 == 0;
    }
    auto f = m_Device.Buffer(vF), next = m_Device.Buffer(vF);
    auto wall = m_Device.Buffer(vWall);
    const cl_float fOmega = 1.2f;
    program.Run("lbm_step", {{nWidth, nHeight}, {4, 2}, {}}, f, next, wall, fOmega);

    const int cx[] = {0, 1, 0, -1, 0, 1, -1, -1, 1}, cy[] = {0, 0, 1, 0, -1, 1, 1, -1, -1};
    const int opposite[] = {0, 3, 4, 1, 2, 7, 8, 5, 6};
    std::vector<cl_float> vWanted = vF;
    for (int nCell = 0; nCell < nCells; ++nCell)
    {
        if (vWall[nCell])
        {
            continue;
        }
        double here[9], fDensity = 0, fX = 0, fY = 0;
        for (int q = 0; q < 9; ++q)
        {
            const int x = (nCell % nWidth - cx[q] + nWidth) % nWidth, y = (nCell / nWidth - cy[q] + nHeight) % nHeight;
            const int nFrom = y * nWidth + x;
            here[q] = vWall[nFrom] ? vF[opposite[q] * nCells + nCell] : vF[q * nCells + nFrom];
            fDensity += here[q];
            fX += here[q] * cx[q];
            fY += here[q] * cy[q];
        }
        fX /= fDensity;
        fY /= fDensity;
        for (int q = 0; q < 9; ++q)
        {
            const double fEu = cx[q] * fX + cy[q] * fY;
            const double fWeight = q == 0 ? 4.0 / 9 : q < 5 ? 1.0 / 9 : 1.0 / 36;
            const double fEquilibrium =
                fWeight * fDensity * (1 + 3 * fEu + 4.5 * fEu * fEu - 1.5 * (fX * fX + fY * fY));
            vWanted[q * nCells + nCell] = static_cast<cl_float>(here[q] + fOmega * (fEquilibrium - here[q]));
        }
    }
    ExpectNear(m_Device.Read<cl_float>(next), vWanted, 1e-5, 1e-5);
}

TEST_P(PhysicsKernels, BodiesFallTogether)
{
    COpenCLProgram& program = Build("nbody");
    const cl_int nBodies = 64;
    const auto vPosition = Random<cl_float>(4 * nBodies, 0.5, 2);
    const auto vVelocity = Random<cl_float>(4 * nBodies, -1, 1);
    auto position = m_Device.Buffer(vPosition), velocity = m_Device.Buffer(vVelocity);
    auto moved = m_Device.Buffer(std::vector<cl_float>(4 * nBodies));
    const cl_float fStep = 0.01f, fSoftening = 0.05f;
    program.Run("nbody", {{64}, {16}, {}}, position, velocity, moved, nBodies, fStep, fSoftening, SLocalBytes{16 * 16});
    std::vector<cl_float> vWanted(4 * nBodies);
    for (int i = 0; i < nBodies; ++i)
    {
        for (int c = 0; c < 3; ++c)
        {
            double fSum = 0;
            for (int j = 0; j < nBodies; ++j)
            {
                double r2 = fSoftening;
                for (int k = 0; k < 3; ++k)
                {
                    r2 += std::pow(double{vPosition[4 * j + k]} - vPosition[4 * i + k], 2);
                }
                fSum +=
                    (double{vPosition[4 * j + c]} - vPosition[4 * i + c]) * vPosition[4 * j + 3] / (r2 * std::sqrt(r2));
            }
            vWanted[4 * i + c] =
                static_cast<cl_float>(vPosition[4 * i + c] + (vVelocity[4 * i + c] + fSum * fStep) * fStep);
        }
        vWanted[4 * i + 3] = vPosition[4 * i + 3];
    }
    ExpectNear(m_Device.Read<cl_float>(moved), vWanted, 1e-5, 1e-5);
}

TEST_P(PhysicsKernels, OptionsInDoublePrecision)
{
    COpenCLProgram& program = Build("black_scholes");
    const size_t n = 200;
    const auto vPrice = Random<cl_double>(n, 5, 30), vStrike = Random<cl_double>(n, 1, 100),
               vYears = Random<cl_double>(n, 0.25, 10);
    const cl_double fRate = 0.02, fVolatility = 0.3;
    auto price = m_Device.Buffer(vPrice), strike = m_Device.Buffer(vStrike), years = m_Device.Buffer(vYears);
    auto call = m_Device.Buffer(std::vector<cl_double>(n)), put = m_Device.Buffer(std::vector<cl_double>(n));
    program.Run("black_scholes", {{n}, {}, {}}, price, strike, years, fRate, fVolatility, call, put);
    std::vector<cl_double> vCall, vPut;
    for (size_t i = 0; i < n; ++i)
    {
        const long double t = vYears[i], s = vPrice[i], x = vStrike[i], v = fVolatility;
        const long double d1 = (std::log(s / x) + (fRate + v * v / 2) * t) / (v * std::sqrt(t)),
                          d2 = d1 - v * std::sqrt(t);
        const auto Cdf = [](long double f) { return std::erfc(-f / std::sqrt(2.0L)) / 2; };
        const long double fDiscounted = x * std::exp(-fRate * t);
        vCall.push_back(static_cast<cl_double>(s * Cdf(d1) - fDiscounted * Cdf(d2)));
        vPut.push_back(static_cast<cl_double>(fDiscounted * Cdf(-d2) - s * Cdf(-d1)));
    }
    ExpectNear(m_Device.Read<cl_double>(call), vCall, 1e-13, 1e-12);
    ExpectNear(m_Device.Read<cl_double>(put), vPut, 1e-13, 1e-12);
}

TEST_P(PhysicsKernels, ProductOfMatricesInTiles)
{
    const cl_int m = 16, n = 24, k = 32;
    const auto vA = Random<cl_float>(m * k, -1, 1), vB = Random<cl_float>(k * n, -1, 1);
    auto a = m_Device.Buffer(vA), b = m_Device.Buffer(vB);
    std::vector<cl_float> vWanted;
    for (int nRow = 0; nRow < m; ++nRow)
    {
        for (int nColumn = 0; nColumn < n; ++nColumn)
        {
            float fSum = 0;
            for (int i = 0; i < k; ++i)
            {
                fSum += vA[nRow * k + i] * vB[i * n + nColumn];
            }
            vWanted.push_back(fSum);
        }
    }
    for (const char* pszTile : {"-DTILE=8", "-D TILE=4"})
    {
        COpenCLProgram& program = Build("matrix_multiply", pszTile);
        auto c = m_Device.Buffer(std::vector<cl_float>(m * n));
        const size_t nTile = pszTile[std::strlen(pszTile) - 1] - '0';
        program.Run("matrix_multiply", {{n, m}, {nTile, nTile}, {}}, a, b, c, n, k);
        ExpectNear(m_Device.Read<cl_float>(c), vWanted, 1e-5, 1e-5);
    }
}

TEST_P(PhysicsKernels, TranspositionWithAnOffsetAndARest)
{
    COpenCLProgram& program = Build("transpose");
    const cl_uint nWidth = 37, nHeight = 21, nOffset = 5;
    const auto vIn = Random<cl_int>(nWidth * nHeight + nOffset, -1000, 1000);
    auto in = m_Device.Buffer(vIn);
    auto out = m_Device.Buffer(std::vector<cl_int>(nWidth * nHeight));
    program.Run("transpose", {{48, 32}, {16, 16}, {}}, in, out, nWidth, nHeight, nOffset);
    std::vector<cl_int> vWanted;
    for (cl_uint x = 0; x < nWidth; ++x)
    {
        for (cl_uint y = 0; y < nHeight; ++y)
        {
            vWanted.push_back(vIn[nOffset + y * nWidth + x]);
        }
    }
    EXPECT_EQ(m_Device.Read<cl_int>(out), vWanted);
}

TEST_P(PhysicsKernels, SystemsOfEquationsWithASingularOne)
{
    COpenCLProgram& program = Build("gauss_jordan");
    const size_t n = 20;
    auto vMatrices = Random<cl_double>(n * 25, -5, 5);
    const auto vSolutions = Random<cl_double>(n * 5, -3, 3);
    for (int i = 0; i < 5; ++i)
    {
        vMatrices[3 * 25 + 5 + i] = vMatrices[3 * 25 + i];
    }
    std::vector<cl_double> vSides(n * 5);
    for (size_t i = 0; i < n * 25; ++i)
    {
        vSides[i / 5] += vMatrices[i] * vSolutions[i / 25 * 5 + i % 5];
    }
    auto matrices = m_Device.Buffer(vMatrices), sides = m_Device.Buffer(vSides);
    auto solutions = m_Device.Buffer(vSolutions);
    auto singular = m_Device.Buffer(std::vector<cl_int>(n, 9));
    program.Run("gauss_jordan", {{n}, {}, {}}, matrices, sides, solutions, singular);
    std::vector<cl_int> vSingular(n);
    vSingular[3] = 1;
    EXPECT_EQ(m_Device.Read<cl_int>(singular), vSingular);
    ExpectNear(m_Device.Read<cl_double>(solutions), vSolutions, 1e-9, 1e-9);
}

TEST_P(PhysicsKernels, KMeansStep)
{
    COpenCLProgram& program = Build("kmeans");
    const size_t n = 128;
    const cl_int k = 4;
    // Elements of three components take the room of four.
    auto vPoints = Random<cl_float>(4 * n, -4, 4), vCentres = Random<cl_float>(4 * k, -4, 4);
    auto points = m_Device.Buffer(vPoints), centres = m_Device.Buffer(vCentres);
    auto cluster = m_Device.Buffer(std::vector<cl_int>(n));
    auto sums = m_Device.Buffer(std::vector<cl_int>(3 * k));
    auto counts = m_Device.Buffer(std::vector<cl_uint>(k));
    program.Run("assign", {{n}, {}, {}}, points, centres, cluster, k);
    program.Run("accumulate", {{n}, {}, {}}, points, cluster, sums, counts);
    program.Run("update", {{static_cast<size_t>(k)}, {}, {}}, centres, sums, counts);

    std::vector<cl_int> vCluster(n);
    std::vector<std::array<double, 4>> vSums(k);
    for (size_t i = 0; i < n; ++i)
    {
        float fBest = INFINITY;
        for (cl_int c = 0; c < k; ++c)
        {
            float fDistance = 0;
            for (int d = 0; d < 3; ++d)
            {
                fDistance += std::pow(vPoints[4 * i + d] - vCentres[4 * c + d], 2.0f);
            }
            if (fDistance < fBest)
            {
                fBest = fDistance;
                vCluster[i] = c;
            }
        }
        for (int d = 0; d < 3; ++d)
        {
            vSums[vCluster[i]][d] += std::nearbyint(vPoints[4 * i + d] * 1024.0f);
        }
        ++vSums[vCluster[i]][3];
    }
    EXPECT_EQ(m_Device.Read<cl_int>(cluster), vCluster);
    auto vGot = m_Device.Read<cl_float>(centres);
    for (cl_int c = 0; c < k; ++c)
    {
        for (int d = 0; d < 3; ++d)
        {
            const double fWanted = vSums[c][3] > 0 ? vSums[c][d] / 1024 / vSums[c][3] : vCentres[4 * c + d];
            EXPECT_NEAR(vGot[4 * c + d], fWanted, 1e-5) << c << "," << d;
        }
    }
}

KESTREL_ON_ALL_DEVICES(PhysicsKernels);

} // namespace
} // namespace KestrelTest
