#include "tools/session/program/ReplayProgram.h"

#include "tools/session/program/LaunchWriter.h"

#include <CL/cl.h>

#include <algorithm>
#include <sstream>

namespace KestrelTool
{

namespace
{

/// The beginning of every such program.
const char s_szHead[] = R"C(#define CL_TARGET_OPENCL_VERSION 120
#include <CL/cl.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char* s_pszFolder = ".";

static void Check(cl_int nCode, const char* pszWhat)
{
    if (nCode != CL_SUCCESS)
    {
        fprintf(stderr, "%s: %d\n", pszWhat, nCode);
        exit(1);
    }
}

static FILE* Open(const char* pszName, const char* pszMode)
{
    char szPath[4096];
    snprintf(szPath, sizeof(szPath), "%s/%s", s_pszFolder, pszName);
    FILE* pFile = fopen(szPath, pszMode);
    if (pFile == NULL)
    {
        perror(szPath);
        exit(1);
    }
    return pFile;
}

/* All of a file and a zero after it. */
static unsigned char* Load(const char* pszName, size_t* pSize)
{
    FILE* pFile = Open(pszName, "rb");
    fseek(pFile, 0, SEEK_END);
    *pSize = (size_t)ftell(pFile);
    rewind(pFile);
    unsigned char* pBytes = malloc(*pSize + 1);
    if (pBytes == NULL || fread(pBytes, 1, *pSize, pFile) != *pSize)
    {
        fprintf(stderr, "%s can't be read\n", pszName);
        exit(1);
    }
    pBytes[*pSize] = 0;
    fclose(pFile);
    return pBytes;
}

static void Save(const char* pszName, const void* pBytes, size_t nBytes)
{
    FILE* pFile = Open(pszName, "wb");
    if (fwrite(pBytes, 1, nBytes, pFile) != nBytes || fclose(pFile) != 0)
    {
        fprintf(stderr, "%s can't be written\n", pszName);
        exit(1);
    }
    printf("%s: %zu bytes\n", pszName, nBytes);
}

/* The first device whose name begins so; without a name a GPU, or else any. */
static cl_device_id Choose(const char* pszName)
{
    cl_platform_id platforms[16];
    cl_uint nPlatforms = 0;
    Check(clGetPlatformIDs(16, platforms, &nPlatforms), "clGetPlatformIDs");
    for (int bAny = pszName[0] != 0; bAny < 2; ++bAny)
    {
        for (cl_uint p = 0; p < nPlatforms && p < 16; ++p)
        {
            cl_device_id devices[64];
            cl_uint nDevices = 0;
            if (clGetDeviceIDs(platforms[p], bAny ? CL_DEVICE_TYPE_ALL : CL_DEVICE_TYPE_GPU, 64, devices, &nDevices) != CL_SUCCESS)
            {
                continue;
            }
            for (cl_uint d = 0; d < nDevices && d < 64; ++d)
            {
                char szName[256] = "";
                clGetDeviceInfo(devices[d], CL_DEVICE_NAME, sizeof(szName), szName, NULL);
                if (strncmp(szName, pszName, strlen(pszName)) == 0)
                {
                    return devices[d];
                }
            }
        }
    }
    fprintf(stderr, "there is no such device\n");
    exit(1);
}

static void Build(cl_program program, cl_device_id device, const char* pszOptions)
{
    const cl_int nCode = clBuildProgram(program, 1, &device, pszOptions, NULL, NULL);
    if (nCode != CL_SUCCESS)
    {
        static char s_szLog[65536];
        clGetProgramBuildInfo(program, device, CL_PROGRAM_BUILD_LOG, sizeof(s_szLog) - 1, s_szLog, NULL);
        fprintf(stderr, "%s\n", s_szLog);
        Check(nCode, "clBuildProgram");
    }
}
)C";

/// Added for programs that read contents from files.
const char s_szLoadContents[] = R"C(
static unsigned char* LoadContents(const char* pszName, size_t nBytes)
{
    size_t nSize = 0;
    unsigned char* pBytes = Load(pszName, &nSize);
    if (nSize != nBytes)
    {
        fprintf(stderr, "%s has %zu bytes instead of %zu\n", pszName, nSize, nBytes);
        exit(1);
    }
    return pBytes;
}
)C";

/// A text as a C string. Octal escapes have three digits, whatever follows, and avoid trigraphs.
std::string Quote(const std::string& strText)
{
    std::string strQuoted = "\"";
    for (const char c : strText)
    {
        if (c >= ' ' && c <= '~' && c != '"' && c != '\\' && c != '?')
        {
            strQuoted += c;
            continue;
        }
        char szEscape[8];
        std::snprintf(szEscape, sizeof(szEscape), "\\%03o", static_cast<unsigned char>(c));
        strQuoted += szEscape;
    }
    return strQuoted + "\"";
}

/// The build options without the debugger's own, which not every platform knows.
std::string WithoutDebugData(const std::string& strOptions)
{
    const std::string strDebugData = " -g";
    const std::string strSpaced = " " + strOptions;
    const size_t nKept = strSpaced.size() - std::min(strSpaced.size(), strDebugData.size());
    return strSpaced.compare(nKept, std::string::npos, strDebugData) == 0 ? strOptions.substr(0, nKept - (nKept != 0))
                                                                          : strOptions;
}

std::string ListBytes(const std::vector<unsigned char>& vBytes)
{
    std::string strList;
    for (const unsigned char nByte : vBytes)
    {
        strList += (strList.empty() ? "" : ", ") + std::to_string(nByte);
    }
    return strList;
}

class CReplayWriter
{
public:
    CReplayWriter(const SLaunchFile& launch, const std::string& strName) : m_Launch(launch), m_strName(strName) {}

    std::string Write(const std::string& strProgram)
    {
        m_Main << "    cl_int nCode = CL_SUCCESS;\n"
                  "    cl_device_id device = Choose(argc > 2 ? argv[2] : \"\");\n"
                  "    cl_context context = clCreateContext(NULL, 1, &device, NULL, NULL, &nCode);\n"
                  "    Check(nCode, \"clCreateContext\");\n"
                  "    cl_command_queue queue = clCreateCommandQueue(context, device, 0, &nCode);\n"
                  "    Check(nCode, \"clCreateCommandQueue\");\n\n";
        WriteProgram(strProgram);
        for (size_t i = 0; i < m_Launch.vBuffers.size(); ++i)
        {
            WriteBuffer(m_Launch.vBuffers[i], "buffer" + std::to_string(i));
        }
        for (size_t i = 0; i < m_Launch.vArguments.size(); ++i)
        {
            WriteArgument(i);
        }
        WriteLaunchCall();
        m_Main << m_Outputs.str();

        return "/* One launch of the kernel " + m_Launch.strKernel + ", as it was captured.\n   cc " + m_strName +
               ".c -o " + m_strName + " -lOpenCL, then ./" + m_strName + " [FOLDER OF THE FILES [DEVICE]] */\n" +
               s_szHead + (m_bFiles ? s_szLoadContents : "") + m_Contents.str() +
               "\nint main(int argc, char** argv)\n{\n    s_pszFolder = argc > 1 ? argv[1] : \".\";\n" + m_Main.str() +
               "    return 0;\n}\n";
    }

private:
    void WriteProgram(const std::string& strProgram)
    {
        const bool bBinary = m_Launch.strSource.compare(0, 4, "\177ELF") == 0;
        m_Main << "    size_t nText = 0;\n    const unsigned char* pText = Load(" << Quote(strProgram) << ", &nText);\n"
               << (bBinary ? "    cl_program program = clCreateProgramWithBinary(context, 1, &device, &nText, &pText, "
                             "NULL, &nCode);\n"
                             "    Check(nCode, \"clCreateProgramWithBinary\");\n"
                           : "    cl_program program = clCreateProgramWithSource(context, 1, (const char**)&pText, "
                             "&nText, &nCode);\n"
                             "    Check(nCode, \"clCreateProgramWithSource\");\n")
               << "    Build(program, device, " << Quote(WithoutDebugData(m_Launch.strOptions))
               << ");\n    cl_kernel kernel = clCreateKernel(program, " << Quote(m_Launch.strKernel)
               << ", &nCode);\n    Check(nCode, \"clCreateKernel\");\n\n";
    }

    /// Writes contents into the program itself, or code that loads a file.
    std::string PlaceContents(const SArgument& argument, const std::string& strName)
    {
        const std::vector<unsigned char>& vBytes = argument.vContents;
        if (IsInLaunchFile(argument))
        {
            m_Contents << "\nstatic unsigned char s_" << strName << "[] = {" << ListBytes(vBytes) << "};\n";
            return "s_" + strName;
        }
        m_bFiles = true;
        return "LoadContents(" + Quote(NameContentsFile(m_strName, strName)) + ", " + std::to_string(vBytes.size()) +
               ")";
    }

    void WriteBuffer(const SArgument& argument, const std::string& strName)
    {
        const size_t nBytes = argument.vContents.size();
        const char* const pszFlags = argument.bUnwritten ? "" : " | CL_MEM_COPY_HOST_PTR";
        m_Main << "    cl_mem " << strName << " = clCreateBuffer(context, CL_MEM_READ_WRITE" << pszFlags << ", "
               << nBytes << ", " << (argument.bUnwritten ? "NULL" : PlaceContents(argument, strName))
               << ", &nCode);\n    Check(nCode, \"clCreateBuffer\");\n";
        m_Outputs << "    {\n        void* pBytes = malloc(" << nBytes
                  << ");\n        Check(clEnqueueReadBuffer(queue, " << strName << ", CL_TRUE, 0, " << nBytes
                  << ", pBytes, 0, NULL, NULL), \"clEnqueueReadBuffer\");\n        Save("
                  << Quote(m_strName + "." + strName + ".out") << ", pBytes, " << nBytes
                  << ");\n        free(pBytes);\n    }\n";
    }

    void WriteImage(const SArgument& image, const std::string& strName)
    {
        const bool bRows = image.nImageType == CL_MEM_OBJECT_IMAGE1D_ARRAY;
        const size_t nRows = bRows ? image.nArray : image.nHeight;
        const size_t nSlices = bRows ? 1 : std::max<size_t>({image.nDepth, image.nArray, 1});
        const size_t nBytes = image.vContents.size();
        const std::string strRegion = strName + "Origin, " + strName + "Size, 0, 0, " + strName + "Bytes";
        m_Main << "    const cl_image_format " << strName << "Format = {" << image.nChannelOrder << ", "
               << image.nChannelType << "};\n"
               << "    cl_image_desc " << strName << "Shape;\n    memset(&" << strName << "Shape, 0, sizeof(" << strName
               << "Shape));\n"
               << "    " << strName << "Shape.image_type = " << image.nImageType << ";\n    " << strName
               << "Shape.image_width = " << image.nWidth << ";\n    " << strName
               << "Shape.image_height = " << image.nHeight << ";\n    " << strName
               << "Shape.image_depth = " << image.nDepth << ";\n    " << strName
               << "Shape.image_array_size = " << image.nArray << ";\n";
        if (image.nImageType == CL_MEM_OBJECT_IMAGE1D_BUFFER)
        {
            m_Main << "    " << strName << "Shape.buffer = clCreateBuffer(context, CL_MEM_READ_WRITE, " << nBytes
                   << ", NULL, &nCode);\n    Check(nCode, \"clCreateBuffer\");\n";
        }
        m_Main << "    cl_mem " << strName << " = clCreateImage(context, CL_MEM_READ_WRITE, &" << strName << "Format, &"
               << strName << "Shape, NULL, &nCode);\n    Check(nCode, \"clCreateImage\");\n    const size_t " << strName
               << "Origin[3] = {0, 0, 0};\n    const size_t " << strName << "Size[3] = {" << image.nWidth << ", "
               << nRows << ", " << nSlices << "};\n    unsigned char* " << strName
               << "Bytes = " << PlaceContents(image, strName) << ";\n    Check(clEnqueueWriteImage(queue, " << strName
               << ", CL_TRUE, " << strRegion << ", 0, NULL, NULL), \"clEnqueueWriteImage\");\n";
        m_Outputs << "    Check(clEnqueueReadImage(queue, " << strName << ", CL_TRUE, " << strRegion
                  << ", 0, NULL, NULL), \"clEnqueueReadImage\");\n    Save("
                  << Quote(m_strName + "." + strName + ".out") << ", " << strName << "Bytes, " << nBytes << ");\n";
    }

    void WritePart(const SArgument& part, const std::string& strName)
    {
        const std::string strWhole = "buffer" + std::to_string(part.nSame);
        if (!part.nOrigin)
        {
            m_Main << "    cl_mem " << strName << " = " << strWhole << ";\n";
            return;
        }
        m_Main << "    const cl_buffer_region " << strName << "Part = {" << *part.nOrigin << ", "
               << part.vContents.size() << "};\n    cl_mem " << strName << " = clCreateSubBuffer(" << strWhole
               << ", 0, CL_BUFFER_CREATE_TYPE_REGION, &" << strName
               << "Part, &nCode);\n    Check(nCode, \"clCreateSubBuffer\");\n";
    }

    /// Gives the size and address of the kernel's argument.
    void WriteArgument(size_t nArgument)
    {
        const SArgument& argument = m_Launch.vArguments[nArgument];
        const std::string strName = "arg" + std::to_string(nArgument);
        std::string strSize = "sizeof(cl_mem)";
        std::string strPlace = "&" + strName;
        switch (argument.eKind)
        {
        case SArgument::Buffer:
            WriteBuffer(argument, strName);
            break;
        case SArgument::Image:
            WriteImage(argument, strName);
            break;
        case SArgument::Sub:
            WritePart(argument, strName);
            break;
        case SArgument::Same:
            m_Main << "    cl_mem " << strName << " = arg" << argument.nSame << ";\n";
            break;
        case SArgument::Sampler:
            m_Main << "    cl_sampler " << strName << " = clCreateSampler(context, " << argument.bNormalized << ", "
                   << argument.nAddressing << ", " << argument.nFilter
                   << ", &nCode);\n    Check(nCode, \"clCreateSampler\");\n";
            strSize = "sizeof(cl_sampler)";
            break;
        case SArgument::Value:
            m_Contents << "\nstatic const unsigned char s_" << strName << "[] = {" << ListBytes(argument.vContents)
                       << "};\n";
            strSize = "sizeof(s_" + strName + ")";
            strPlace = "s_" + strName;
            break;
        case SArgument::Local:
            strSize = std::to_string(argument.nLocalBytes);
            strPlace = "NULL";
            break;
        case SArgument::NullBuffer:
        case SArgument::NullImage:
            m_Main << "    cl_mem " << strName << " = NULL;\n";
            break;
        }
        m_Main << "    Check(clSetKernelArg(kernel, " << nArgument << ", " << strSize << ", " << strPlace
               << "), \"clSetKernelArg of argument " << nArgument << "\");\n";
    }

    /// Declares sizes of the dispatch under a name, and gives the name; "NULL" if the launch doesn't give any.
    std::string PlaceSizes(bool bGiven, const char* pszName, const size_t (&sizes)[3])
    {
        if (!bGiven)
        {
            return "NULL";
        }
        m_Main << "    const size_t " << pszName << "[3] = {" << sizes[0] << ", " << sizes[1] << ", " << sizes[2]
               << "};\n";
        return pszName;
    }

    void WriteLaunchCall()
    {
        m_Main << "\n";
        const std::string strOffset = PlaceSizes(m_Launch.bHasOffset, "offset", m_Launch.nGlobalOffset);
        const std::string strGlobal = PlaceSizes(true, "global", m_Launch.nGlobalSize);
        const std::string strLocal = PlaceSizes(m_Launch.bHasLocalSize, "local", m_Launch.nLocalSize);
        m_Main << "    Check(clEnqueueNDRangeKernel(queue, kernel, " << m_Launch.nDimensions << ", " << strOffset
               << ", " << strGlobal << ", " << strLocal
               << ", 0, NULL, NULL), \"clEnqueueNDRangeKernel\");\n    Check(clFinish(queue), \"clFinish\");\n\n";
    }

    const SLaunchFile& m_Launch;
    const std::string m_strName;
    bool m_bFiles = false; ///< some contents are in files
    std::ostringstream m_Contents;
    std::ostringstream m_Main;
    std::ostringstream m_Outputs; ///< the code after the launch
};

} // namespace

std::string MakeReplayProgram(const SLaunchFile& launch, const std::string& strName, const std::string& strProgram)
{
    return CReplayWriter(launch, strName).Write(strProgram);
}

} // namespace KestrelTool
