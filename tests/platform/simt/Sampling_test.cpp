#include <CL/cl.h>

#include <cmath>
#include <cstring>
#include <sstream>

#include "tests/platform/simt/RecordedLaunch.h"

/// Compares images with a second implementation, written from the formulas of OpenCL 1.2, sections 8.2 and 8.3, in
/// double precision and one texel at a time.
namespace KestrelPlatformTest
{
namespace
{

using namespace KestrelPlatform;

struct SColour
{
    double c[4] = {0, 0, 0, 0};
};

struct SFormat
{
    uint32_t nOrder;
    uint32_t nType;
};

/// OpenCL 1.2, table 5.8: formats that every device with images must support.
const SFormat s_Minimum[] = {
    {CL_RGBA, CL_UNORM_INT8},      {CL_RGBA, CL_UNORM_INT16},    {CL_RGBA, CL_SIGNED_INT8},
    {CL_RGBA, CL_SIGNED_INT16},    {CL_RGBA, CL_SIGNED_INT32},   {CL_RGBA, CL_UNSIGNED_INT8},
    {CL_RGBA, CL_UNSIGNED_INT16},  {CL_RGBA, CL_UNSIGNED_INT32}, {CL_RGBA, CL_HALF_FLOAT},
    {CL_RGBA, CL_FLOAT},           {CL_BGRA, CL_UNORM_INT8},     {CL_R, CL_UNORM_INT8},
    {CL_RG, CL_SNORM_INT16},       {CL_A, CL_UNORM_INT16},       {CL_INTENSITY, CL_FLOAT},
    {CL_LUMINANCE, CL_HALF_FLOAT}, {CL_RGB, CL_UNORM_SHORT_565}, {CL_RGB, CL_UNORM_INT_101010},
    {CL_ARGB, CL_SNORM_INT8},      {CL_RA, CL_UNORM_INT8},
};

bool IsInteger(uint32_t nType)
{
    return nType >= CL_SIGNED_INT8 && nType <= CL_UNSIGNED_INT32;
}

/// The channels of an order, in memory order.
const char* Channels(uint32_t nOrder)
{
    switch (nOrder)
    {
    case CL_R:
    case CL_INTENSITY:
    case CL_LUMINANCE:
        return "r";
    case CL_A:
        return "a";
    case CL_RG:
        return "rg";
    case CL_RA:
        return "ra";
    case CL_RGB:
        return "rgb";
    case CL_BGRA:
        return "bgra";
    case CL_ARGB:
        return "argb";
    default:
        return "rgba";
    }
}

double HalfValue(uint32_t n)
{
    const double dSign = (n & 0x8000) ? -1.0 : 1.0;
    const int nExponent = static_cast<int>((n >> 10) & 31);
    const double dFraction = (n & 0x3FF) / 1024.0;
    return dSign * (nExponent ? std::ldexp(1.0 + dFraction, nExponent - 15) : std::ldexp(dFraction, -14));
}

uint32_t LittleEndian(const unsigned char* p, uint32_t nBytes)
{
    uint32_t n = 0;
    for (uint32_t i = 0; i < nBytes; ++i)
    {
        n |= static_cast<uint32_t>(p[i]) << (8 * i);
    }
    return n;
}

uint32_t ChannelSize(uint32_t nType)
{
    if (nType == CL_UNORM_INT_101010 || nType == CL_SIGNED_INT32 || nType == CL_UNSIGNED_INT32 || nType == CL_FLOAT)
    {
        return 4;
    }
    const bool bByte =
        nType == CL_SNORM_INT8 || nType == CL_UNORM_INT8 || nType == CL_SIGNED_INT8 || nType == CL_UNSIGNED_INT8;
    return bByte ? 1 : 2;
}

double ChannelValue(const unsigned char* p, uint32_t nType)
{
    const uint32_t n = LittleEndian(p, ChannelSize(nType));
    switch (nType)
    {
    case CL_SNORM_INT8:
        return std::max(static_cast<int8_t>(n) / 127.0, -1.0);
    case CL_SNORM_INT16:
        return std::max(static_cast<int16_t>(n) / 32767.0, -1.0);
    case CL_UNORM_INT8:
        return n / 255.0;
    case CL_UNORM_INT16:
        return n / 65535.0;
    case CL_SIGNED_INT8:
        return static_cast<int8_t>(n);
    case CL_SIGNED_INT16:
        return static_cast<int16_t>(n);
    case CL_SIGNED_INT32:
        return static_cast<int32_t>(n);
    case CL_HALF_FLOAT:
        return HalfValue(n);
    case CL_FLOAT:
        return Float(n);
    default:
        return n;
    }
}

SColour Decode(const unsigned char* p, const SFormat& format)
{
    SColour colour;
    colour.c[3] = 1;
    if (format.nType == CL_UNORM_SHORT_565 || format.nType == CL_UNORM_INT_101010)
    {
        const bool bShort = format.nType == CL_UNORM_SHORT_565;
        const uint32_t n = LittleEndian(p, bShort ? 2 : 4);
        colour.c[0] = bShort ? (n >> 11) / 31.0 : ((n >> 20) & 1023) / 1023.0;
        colour.c[1] = bShort ? ((n >> 5) & 63) / 63.0 : ((n >> 10) & 1023) / 1023.0;
        colour.c[2] = bShort ? (n & 31) / 31.0 : (n & 1023) / 1023.0;
        return colour;
    }
    const std::string strNames = "rgba";
    const char* const pszChannels = Channels(format.nOrder);
    if (format.nOrder == CL_A)
    {
        colour.c[3] = 0;
    }
    for (uint32_t n = 0; pszChannels[n]; ++n)
    {
        colour.c[strNames.find(pszChannels[n])] = ChannelValue(p + n * ChannelSize(format.nType), format.nType);
    }
    if (format.nOrder == CL_INTENSITY || format.nOrder == CL_LUMINANCE)
    {
        colour.c[1] = colour.c[2] = colour.c[0];
    }
    if (format.nOrder == CL_INTENSITY)
    {
        colour.c[3] = colour.c[0];
    }
    return colour;
}

/// An image of random texels.
struct SImage
{
    SImage(const SFormat& formatIn, uint32_t nDimensionsIn, uint32_t nSeed)
        : format(formatIn), nDimensions(nDimensionsIn)
    {
        const bool bPacked = format.nType == CL_UNORM_SHORT_565 || format.nType == CL_UNORM_INT_101010;
        nTexel =
            ChannelSize(format.nType) * (bPacked ? 1 : static_cast<uint32_t>(std::strlen(Channels(format.nOrder))));
        for (uint32_t n = nDimensions; n < 3; ++n)
        {
            nSize[n] = 1;
        }
        const uint32_t nCount = nSize[0] * nSize[1] * nSize[2];
        vBytes.resize(nCount * nTexel);
        for (unsigned char& byte : vBytes)
        {
            nSeed = nSeed * 1664525 + 1013904223;
            byte = static_cast<unsigned char>(nSeed >> 24);
        }
        // Random bits make unsuitable floats, so these are small numbers, all finite.
        for (uint32_t n = 0; n < vBytes.size(); n += 2)
        {
            if (format.nType == CL_HALF_FLOAT)
            {
                vBytes[n + 1] = static_cast<unsigned char>((vBytes[n + 1] & 0x83) | 0x38);
            }
            if (format.nType == CL_FLOAT && n % 4 == 2)
            {
                vBytes[n + 1] = static_cast<unsigned char>((vBytes[n + 1] & 0x80) | 0x3F);
                vBytes[n] = static_cast<unsigned char>(vBytes[n] & 0x7F);
            }
        }
    }

    SImageBinding Binding()
    {
        static const uint32_t s_nTypes[] = {CL_MEM_OBJECT_IMAGE1D, CL_MEM_OBJECT_IMAGE2D, CL_MEM_OBJECT_IMAGE3D};
        SImageBinding binding;
        binding.pData = vBytes.data();
        binding.nChannelOrder = format.nOrder;
        binding.nChannelType = format.nType;
        binding.nType = s_nTypes[nDimensions - 1];
        binding.nWidth = nSize[0];
        binding.nHeight = nSize[1];
        binding.nDepth = nSize[2];
        binding.nRowPitch = nSize[0] * nTexel;
        binding.nSlicePitch = binding.nRowPitch * nSize[1];
        return binding;
    }

    /// The texel, or the border colour of OpenCL 1.2, 8.2.
    SColour At(const int* pPlace) const
    {
        uint32_t nIndex = 0;
        for (int n = 2; n >= 0; --n)
        {
            if (pPlace[n] < 0 || pPlace[n] >= static_cast<int>(nSize[n]))
            {
                SColour border;
                const bool bOpaque = format.nOrder == CL_R || format.nOrder == CL_RG || format.nOrder == CL_RGB ||
                                     format.nOrder == CL_LUMINANCE;
                border.c[3] = bOpaque ? 1 : 0;
                return border;
            }
            nIndex = nIndex * nSize[n] + static_cast<uint32_t>(pPlace[n]);
        }
        return Decode(&vBytes[nIndex * nTexel], format);
    }

    SFormat format;
    uint32_t nDimensions;
    uint32_t nSize[3] = {5, 4, 3};
    uint32_t nTexel = 0;
    std::vector<unsigned char> vBytes;
};

/// Where one coordinate falls: one place for the nearest filter, two and a weight for the linear one.
struct SAxis
{
    int nNearest = 0;
    int nLinear[2] = {0, 0};
    double dWeight = 0;
};

SAxis PlaceAxis(double s, int nSize, const SSamplerBinding& sampler)
{
    SAxis axis;
    double u = sampler.bNormalized ? s * nSize : s;
    const auto clamp = [](int n, int nLow, int nHigh) { return std::max(nLow, std::min(n, nHigh)); };
    if (sampler.nAddressing == CL_ADDRESS_REPEAT)
    {
        u = (s - std::floor(s)) * nSize;
    }
    if (sampler.nAddressing == CL_ADDRESS_MIRRORED_REPEAT)
    {
        u = std::fabs(s - 2.0 * std::rint(0.5 * s)) * nSize;
    }
    axis.nNearest = static_cast<int>(std::floor(u));
    axis.nLinear[0] = static_cast<int>(std::floor(u - 0.5));
    axis.nLinear[1] = axis.nLinear[0] + 1;
    axis.dWeight = (u - 0.5) - std::floor(u - 0.5);
    for (int* pPlace : {&axis.nNearest, &axis.nLinear[0], &axis.nLinear[1]})
    {
        if (sampler.nAddressing == CL_ADDRESS_REPEAT)
        {
            *pPlace = (*pPlace + nSize) % nSize;
        }
        else if (sampler.nAddressing == CL_ADDRESS_CLAMP)
        {
            *pPlace = clamp(*pPlace, -1, nSize);
        }
        else
        {
            *pPlace = clamp(*pPlace, 0, nSize - 1);
        }
    }
    return axis;
}

void PlaceAxes(const SImage& image, const SSamplerBinding& sampler, const float* pAt, SAxis* pAxes)
{
    for (uint32_t n = 0; n < image.nDimensions; ++n)
    {
        pAxes[n] = PlaceAxis(pAt[n], static_cast<int>(image.nSize[n]), sampler);
    }
}

double Compared(bool bCompare, double dReference, double dValue)
{
    return bCompare ? (dReference <= dValue ? 1.0 : 0.0) : dValue;
}

SColour Reference(const SImage& image, const SSamplerBinding& sampler, const float* pAt, bool bCompare,
                  double dReference)
{
    SAxis axes[3];
    PlaceAxes(image, sampler, pAt, axes);
    SColour result;
    const bool bLinear = sampler.nFilter == CL_FILTER_LINEAR && !IsInteger(image.format.nType);
    for (uint32_t nCorner = 0; nCorner < (bLinear ? 1u << image.nDimensions : 1u); ++nCorner)
    {
        int place[3];
        double dWeight = 1;
        for (uint32_t n = 0; n < 3; ++n)
        {
            const uint32_t nSide = (nCorner >> n) & 1;
            place[n] = bLinear ? axes[n].nLinear[nSide] : axes[n].nNearest;
            if (bLinear && n < image.nDimensions)
            {
                dWeight *= nSide ? axes[n].dWeight : 1.0 - axes[n].dWeight;
            }
        }
        const SColour texel = image.At(place);
        for (uint32_t c = 0; c < 4; ++c)
        {
            result.c[c] += dWeight * Compared(bCompare, dReference, texel.c[bCompare ? 0 : c]);
        }
    }
    return result;
}

/// Coordinates for each work-item, in four words.
std::vector<uint32_t> MakeCoordinates(const SImage& image, bool bNormalized)
{
    std::vector<uint32_t> vWords;
    uint32_t nSeed = 7;
    for (uint32_t nItem = 0; nItem < 48; ++nItem)
    {
        for (uint32_t n = 0; n < 4; ++n)
        {
            nSeed = nSeed * 1664525 + 1013904223;
            // Multiples of 1/16 around the image, so that borders and centres of texels occur, and are exact.
            const float fTexels = static_cast<float>(static_cast<int>(nSeed >> 20) % 192 - 56) / 16.0f;
            const float fSize = n < 3 ? static_cast<float>(image.nSize[n]) : 1.0f;
            vWords.push_back(Bits(bNormalized ? std::round(fTexels / fSize * 64.0f) / 64.0f : fTexels));
        }
    }
    return vWords;
}

/// Runs one instruction for all coordinates; r1 holds the coordinates, l1 the reference, l2 offsets.
std::vector<uint32_t> RunInstruction(SImage& image, const SSamplerBinding& sampler, const std::string& strInstruction,
                                     const std::vector<uint32_t>& vCoordinates, float fReference)
{
    CKernelRun run(std::string(IndexLines()) + "ishl r101.x, r100.x, l100.x\niadd r101.x, r101.x, cb1[1].x\n" +
                       "uav_raw_load_id(11) r1, r101.x\n" + strInstruction +
                       "\nuav_raw_store_id(11) mem0, r100.y, r0\n",
                   std::string(IndexLiterals()) + "dcl_resource_id(3)_type(2d) 0x0\ndcl_literal l1, " +
                       std::to_string(Bits(fReference)) + ", 0, 0, 0\ndcl_literal l2, 1, 0xFFFFFFFE, 0, 0\n");
    run.launch.mapResources[3] = image.Binding();
    run.launch.mapSamplers[2] = sampler;
    run.vInput = vCoordinates;
    run.vOutput.assign(vCoordinates.size(), 0);
    run.SetSize(vCoordinates.size() / 4, vCoordinates.size() / 4);
    EXPECT_EQ(run.Run().nBadAccesses, 0u);
    return run.vOutput;
}

std::vector<SSamplerBinding> AllSamplers()
{
    std::vector<SSamplerBinding> vSamplers;
    for (const uint32_t nFilter : {CL_FILTER_NEAREST, CL_FILTER_LINEAR})
    {
        for (const bool bNormalized : {false, true})
        {
            for (const uint32_t nAddressing : {CL_ADDRESS_CLAMP, CL_ADDRESS_CLAMP_TO_EDGE})
            {
                vSamplers.push_back({bNormalized, nAddressing, nFilter});
            }
        }
        for (const uint32_t nAddressing : {CL_ADDRESS_REPEAT, CL_ADDRESS_MIRRORED_REPEAT})
        {
            vSamplers.push_back({true, nAddressing, nFilter});
        }
    }
    return vSamplers;
}

std::string Describe(const SImage& image, const SSamplerBinding& sampler, const uint32_t* pAt)
{
    std::stringstream text;
    text << std::hex << "order " << image.format.nOrder << " type " << image.format.nType << " addressing "
         << sampler.nAddressing << " filter " << sampler.nFilter << " normalised " << sampler.bNormalized << std::dec
         << " at " << Float(pAt[0]) << " " << Float(pAt[1]) << " " << Float(pAt[2]);
    return text.str();
}

/// Checks the difference between result and expectation, in units of the format's largest value.
void ExpectColour(const SColour& expected, const uint32_t* pOut, const SImage& image, const std::string& strWhere)
{
    for (uint32_t c = 0; c < 4; ++c)
    {
        if (!IsInteger(image.format.nType))
        {
            EXPECT_NEAR(Float(pOut[c]), expected.c[c], 4e-6) << strWhere << ", component " << c;
            continue;
        }
        const bool bSigned = image.format.nType <= CL_SIGNED_INT32;
        const double dOut = bSigned ? static_cast<double>(static_cast<int32_t>(pOut[c])) : static_cast<double>(pOut[c]);
        EXPECT_EQ(dOut, expected.c[c]) << strWhere << ", component " << c;
    }
}

TEST(Sampling, EveryFormatModeAndFilter)
{
    uint32_t nSeed = 1;
    for (const SFormat& format : s_Minimum)
    {
        for (uint32_t nDimensions = 1; nDimensions <= 3; ++nDimensions)
        {
            SImage image(format, nDimensions, ++nSeed);
            for (const SSamplerBinding& sampler : AllSamplers())
            {
                const std::vector<uint32_t> vAt = MakeCoordinates(image, sampler.bNormalized);
                const std::vector<uint32_t> vOut =
                    RunInstruction(image, sampler, "sample_resource(3)_sampler(2) r0, r1", vAt, 0);
                for (size_t n = 0; n < vAt.size(); n += 4)
                {
                    const float at[] = {Float(vAt[n]), Float(vAt[n + 1]), Float(vAt[n + 2])};
                    ExpectColour(Reference(image, sampler, at, false, 0), &vOut[n], image,
                                 Describe(image, sampler, &vAt[n]));
                }
                if (HasFailure())
                {
                    return;
                }
            }
        }
    }
}

TEST(Sampling, Comparisons)
{
    SImage image({CL_R, CL_FLOAT}, 2, 99);
    const float fReference = 0.75f;
    static const char* const s_pszInstructions[] = {
        "sample_c_resource(3)_sampler(2) r0, r1, l1.x", "sample_c_lz_resource(3)_sampler(2) r0, r1, l1.x",
        "sample_c_l_resource(3)_sampler(2) r0, r1, l1.x, l1.y", "sample_c_b_resource(3)_sampler(2) r0, r1, l1.x, l1.y",
        "sample_c_g_resource(3)_sampler(2) r0, r1, l1.x, l1.y, l1.y"};
    for (const char* pszInstruction : s_pszInstructions)
    {
        for (const SSamplerBinding& sampler : AllSamplers())
        {
            const std::vector<uint32_t> vAt = MakeCoordinates(image, sampler.bNormalized);
            const std::vector<uint32_t> vOut = RunInstruction(image, sampler, pszInstruction, vAt, fReference);
            for (size_t n = 0; n < vAt.size(); n += 4)
            {
                const float at[] = {Float(vAt[n]), Float(vAt[n + 1]), 0};
                ExpectColour(Reference(image, sampler, at, true, fReference), &vOut[n], image,
                             pszInstruction + Describe(image, sampler, &vAt[n]));
            }
        }
    }
}

struct SGatherCase
{
    const char* pszInstruction;
    uint32_t nComponent;
    bool bCompare;
    bool bOffset; ///< by one texel to the right and two up
};

const SGatherCase s_Gathers[] = {
    {"fetch4_resource(3)_sampler(2) r0, r1", 0, false, false},
    {"fetch4_resource(3)_sampler(2)_pri(2) r0, r1", 2, false, false},
    {"fetch4_b_resource(3)_sampler(2)_pri(3) r0, r1, l1.y", 3, false, false},
    {"fetch4_l_resource(3)_sampler(2) r0, r1, l1.y", 0, false, false},
    {"fetch4c_resource(3)_sampler(2) r0, r1, l1.x", 0, true, false},
    {"fetch4_c_lz_resource(3)_sampler(2) r0, r1, l1.x", 0, true, false},
    {"fetch4po_resource(3)_sampler(2)_pri(1) r0, r1, l2", 1, false, true},
    {"fetch4_po_b_resource(3)_sampler(2) r0, r1, l2, l1.y", 0, false, true},
    {"fetch4_po_l_resource(3)_sampler(2) r0, r1, l2, l1.y", 0, false, true},
    {"fetch4poc_resource(3)_sampler(2) r0, r1, l2, l1.x", 0, true, true},
    {"fetch4_po_c_lz_resource(3)_sampler(2) r0, r1, l2, l1.x", 0, true, true},
};

TEST(Sampling, Gathers)
{
    SImage image({CL_RGBA, CL_FLOAT}, 2, 5);
    image.nSize[0] = 4; // offsets of normalised coordinates are exact
    const float fReference = 0.75f;
    for (const SGatherCase& test : s_Gathers)
    {
        for (const SSamplerBinding& sampler : AllSamplers())
        {
            const std::vector<uint32_t> vAt = MakeCoordinates(image, sampler.bNormalized);
            const std::vector<uint32_t> vOut = RunInstruction(image, sampler, test.pszInstruction, vAt, fReference);
            for (size_t n = 0; n < vAt.size(); n += 4)
            {
                const float fUnit = sampler.bNormalized ? 0.25f : 1.0f;
                const float at[] = {Float(vAt[n]) + (test.bOffset ? fUnit : 0.0f),
                                    Float(vAt[n + 1]) - (test.bOffset ? 2 * fUnit : 0.0f)};
                SAxis axes[3];
                PlaceAxes(image, sampler, at, axes);
                static const int s_nSides[4][2] = {{0, 1}, {1, 1}, {1, 0}, {0, 0}};
                for (uint32_t i = 0; i < 4; ++i)
                {
                    const int place[] = {axes[0].nLinear[s_nSides[i][0]], axes[1].nLinear[s_nSides[i][1]], 0};
                    const double dTexel = image.At(place).c[test.bCompare ? 0 : test.nComponent];
                    EXPECT_EQ(Float(vOut[n + i]), Compared(test.bCompare, fReference, dTexel))
                        << test.pszInstruction << Describe(image, sampler, &vAt[n]) << ", texel " << i;
                }
            }
            if (HasFailure())
            {
                return;
            }
        }
    }
}

TEST(Sampling, FixedAnswersAndInfo)
{
    SImage image({CL_RGBA, CL_FLOAT}, 3, 5);
    const SSamplerBinding sampler = {false, CL_ADDRESS_CLAMP, CL_FILTER_NEAREST};
    struct SCase
    {
        const char* pszInstruction;
        uint32_t nExpected[4];
    };
    const SCase cases[] = {
        {"sampleinfo_resource(3) r0", {1, 0, 0, 0}},
        {"samplepos_resource(3) r0, r1", {0, 0, 0, 0}},
        {"getlod_resource(3)_sampler(2) r0, r1", {0, 0, 0, 0}},
        {"sample_return_code r0", {0, 0, 0, 0}},
        {"resinfo_resource(3) r0, l1.y", {5, 4, 3, 1}},
        {"bufinfo_resource(3) r0", {5, 4, 3, 1}},
    };
    for (const SCase& test : cases)
    {
        const std::vector<uint32_t> vOut = RunInstruction(image, sampler, test.pszInstruction, {9, 9, 9, 9}, 0);
        EXPECT_EQ(vOut, std::vector<uint32_t>(test.nExpected, test.nExpected + 4)) << test.pszInstruction;
    }
}

TEST(Sampling, StoresOfSomeComponents)
{
    SImage image({CL_RGBA, CL_UNSIGNED_INT8}, 2, 5);
    std::vector<unsigned char> vExpected = image.vBytes;
    vExpected[4 * 7 + 1] = 21;
    vExpected[4 * 7 + 3] = 255;
    CKernelRun run("uav_store_mask_id(1) mem0._y_w, l0.xyzz, l1\n",
                   "dcl_typed_uav_id(1)_access(rw) 0x2\ndcl_literal l0, 2, 1, 0, 0\ndcl_literal l1, 20, 21, 22, 300\n");
    run.launch.mapUavImages[1] = image.Binding();
    EXPECT_EQ(run.Run().nBadAccesses, 0u);
    EXPECT_EQ(image.vBytes, vExpected);
}

TEST(Sampling, TypedBuffersWithoutAnImageAreFlat)
{
    // Elements of four words at 16 times the index; a masked store, and one address past the end.
    const std::string strBody = "imul r1.x, r100.x, l0.x\niadd r1.y, r1.x, cb1[1].x\nuav_load_id(4) r2, r1.y\n"
                                "iadd r2, r2, l1\nuav_store_id(4) r100.y, r2\n"
                                "uav_store_mask_id(4) mem0._y_w, r100.y, l2\n";
    CKernelRun run(IndexLines() + strBody, std::string(IndexLiterals()) +
                                               "dcl_typed_uav_id(4) 0x8\ndcl_literal l0, 16, 0, 0, 0\n" +
                                               "dcl_literal l1, 1, 1, 1, 1\ndcl_literal l2, 6, 7, 8, 9\n");
    run.SetSize(3, 3);
    run.vInput = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
    run.vOutput.assign(12, 0);
    const SLaunchResult result = run.Run();
    EXPECT_EQ(run.vOutput, (std::vector<uint32_t>{11, 7, 31, 9, 51, 7, 71, 9, 91, 7, 1, 9}));
    EXPECT_EQ(result.nBadAccesses, 2u) << "two words of the last element";
    EXPECT_EQ(result.firstBadAccess.nWorkItem, 2u);
    EXPECT_EQ(result.firstBadAccess.nAddress, CKernelRun::s_nInput + 40u);

    // The same kernel uses an image if one is bound.
    SImage image({CL_R, CL_UNSIGNED_INT32}, 1, 3);
    CKernelRun bound("uav_store_id(4) l0.y, l0.x\n", "dcl_typed_uav_id(4) 0x8\ndcl_literal l0, 16, 3, 0, 0\n");
    bound.launch.mapUavImages[4] = image.Binding();
    EXPECT_EQ(bound.Run().nBadAccesses, 0u);
    EXPECT_EQ(LittleEndian(&image.vBytes[12], 4), 16u);
}

} // namespace
} // namespace KestrelPlatformTest
