#include "bench/BenchHost.h"

#include <cmath>

namespace KestrelBench::Host
{

void VectorAdd(uint32_t nCount, const float* a, const float* b, float* pSum)
{
    for (uint32_t i = 0; i < nCount; ++i)
    {
        pSum[i] = a[i] + b[i];
    }
}

void Saxpy(uint32_t nCount, float a, const float* x, const float* y, float* pResult)
{
    for (uint32_t i = 0; i < nCount; ++i)
    {
        float fValue = x[i];
        for (int n = 0; n < 100; ++n)
        {
            fValue = a * fValue + y[i];
        }
        pResult[i] = fValue;
    }
}

void Mandelbrot(uint32_t nWidth, uint32_t nHeight, const SView& view, uint32_t* pPasses)
{
    for (uint32_t nY = 0; nY < nHeight; ++nY)
    {
        for (uint32_t nX = 0; nX < nWidth; ++nX)
        {
            const float cx = static_cast<float>(static_cast<int>(nX)) * view.fStepX + view.fLeft;
            const float cy = static_cast<float>(static_cast<int>(nY)) * view.fStepY + view.fTop;
            float x = 0;
            float y = 0;
            uint32_t n = 0;
            for (; n < 256; ++n)
            {
                const float xx = x * x;
                const float yy = y * y;
                if (xx + yy > 4.0f)
                {
                    break;
                }
                const float xy = x * y;
                x = xx - yy + cx;
                y = xy * 2.0f + cy;
            }
            pPasses[nY * nWidth + nX] = n;
        }
    }
}

void MatrixProduct(uint32_t n, const float* a, const float* b, float* pProduct)
{
    for (uint32_t nRow = 0; nRow < n; ++nRow)
    {
        for (uint32_t nColumn = 0; nColumn < n; ++nColumn)
        {
            float fSum = 0;
            for (uint32_t k = 0; k < n; ++k)
            {
                fSum = a[nRow * n + k] * b[k * n + nColumn] + fSum;
            }
            pProduct[nRow * n + nColumn] = fSum;
        }
    }
}

void Reduction(uint32_t nGroups, const uint32_t* pValues, uint32_t* pSums)
{
    uint32_t nLeft[256];
    for (uint32_t nGroup = 0; nGroup < nGroups; ++nGroup)
    {
        for (uint32_t i = 0; i < 256; ++i)
        {
            nLeft[i] = pValues[nGroup * 256 + i];
        }
        for (uint32_t nHalf = 128; nHalf > 0; nHalf /= 2)
        {
            for (uint32_t i = 0; i < nHalf; ++i)
            {
                nLeft[i] += nLeft[i + nHalf];
            }
        }
        pSums[nGroup] = nLeft[0];
    }
}

void PlainSums(uint32_t nGroups, const uint32_t* pValues, uint32_t* pSums)
{
    for (uint32_t nGroup = 0; nGroup < nGroups; ++nGroup)
    {
        uint32_t nSum = 0;
        for (uint32_t i = 0; i < 256; ++i)
        {
            nSum += pValues[nGroup * 256 + i];
        }
        pSums[nGroup] = nSum;
    }
}

void Histogram(uint32_t nCount, const uint32_t* pValues, uint32_t* pBins)
{
    for (uint32_t i = 0; i < nCount; ++i)
    {
        ++pBins[pValues[i] & 255];
    }
}

void BodyStep(uint32_t nCount, float fTime, float fSoftening, const SBody* pPlaces, const SBody* pSpeeds,
              SBody* pNewPlaces, SBody* pNewSpeeds)
{
    for (uint32_t i = 0; i < nCount; ++i)
    {
        const SBody place = pPlaces[i];
        SBody pull = {0, 0, 0, 0};
        for (uint32_t n = 0; n < nCount; ++n)
        {
            const SBody other = pPlaces[n];
            const float dx = other.x - place.x;
            const float dy = other.y - place.y;
            const float dz = other.z - place.z;
            const float fSquare = dx * dx + dy * dy + dz * dz + fSoftening;
            const float fInverse = 1.0f / std::sqrt(fSquare);
            const float fFactor = fInverse * fInverse * fInverse * other.w;
            pull.x = dx * fFactor + pull.x;
            pull.y = dy * fFactor + pull.y;
            pull.z = dz * fFactor + pull.z;
        }
        SBody speed = pSpeeds[i];
        speed.x = pull.x * fTime + speed.x;
        speed.y = pull.y * fTime + speed.y;
        speed.z = pull.z * fTime + speed.z;
        pNewSpeeds[i] = speed;
        pNewPlaces[i] = {speed.x * fTime + place.x, speed.y * fTime + place.y, speed.z * fTime + place.z, place.w};
    }
}

void PrivateArray(uint32_t nCount, const uint32_t* pSeeds, uint32_t* pSums)
{
    for (uint32_t i = 0; i < nCount; ++i)
    {
        uint32_t nPlaces[16];
        uint32_t nState = pSeeds[i];
        for (uint32_t n = 0; n < 16; ++n)
        {
            nPlaces[n] = n * nState + n;
        }
        for (uint32_t n = 0; n < 64; ++n)
        {
            uint32_t& nPlace = nPlaces[(nState >> 24) & 15];
            const uint32_t nOld = nPlace;
            nPlace = nOld + n;
            nState = nState * 1664525 + nOld;
        }
        uint32_t nSum = 0;
        for (const uint32_t nPlace : nPlaces)
        {
            nSum = nSum * 3 + nPlace;
        }
        pSums[i] = nSum;
    }
}

} // namespace KestrelBench::Host
