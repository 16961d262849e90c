#include "tests/platform/opencl_c/library/Elementwise.h"

namespace KestrelTest
{
namespace
{

// A multiple of every vector size.
constexpr size_t s_nStep = 48;

// The binary of a program has the text of all its kernels for each of them.
constexpr size_t s_nCasesOfProgram = 16;

std::string SizeName(unsigned nSize)
{
    return nSize == 1 ? "" : std::to_string(nSize);
}

std::string KernelName(size_t nCase, unsigned nSize)
{
    return "k" + std::to_string(nCase) + "_" + std::to_string(nSize);
}

std::string Kernel(size_t nCase, unsigned nSize, const std::string& strExpression, const SArray& result,
                   const std::vector<SArray>& vArguments)
{
    const std::string strSize = SizeName(nSize);
    std::string strText = "kernel void " + KernelName(nCase, nSize) + "(global " + result.pszType + "* r";
    std::string strLoads;
    char cName = 'a';
    for (const SArray& argument : vArguments)
    {
        const std::string strName(1, cName++);
        strText += Joined({", global const ", argument.pszType, "* p", strName});
        const std::string strLoad =
            nSize == 1 ? Joined({"p", strName, "[i]"}) : Joined({"vload", strSize, "(i, p", strName, ")"});
        strLoads += Joined({"  ", argument.pszType, strSize, " ", strName, " = ", strLoad, ";\n"});
    }
    std::string strValue;
    for (const char c : strExpression)
    {
        strValue += c == '$' ? strSize : std::string(1, c);
    }
    return strText + ")\n{\n  size_t i = get_global_id(0);\n" + strLoads +
           (nSize == 1 ? "  r[i] = " + strValue + ";\n" : "  vstore" + strSize + "(" + strValue + ", i, r);\n") + "}\n";
}

/// The bytes, repeated from their beginning to fill whole steps.
std::vector<char> Filled(const SArray& array)
{
    std::vector<char> vFilled = array.vBytes;
    for (size_t i = 0; vFilled.size() % (s_nStep * array.nElementSize) != 0; ++i)
    {
        vFilled.push_back(array.vBytes[i % array.vBytes.size()]);
    }
    return vFilled;
}

bool IsFloating(const SArray& array)
{
    return array.pszType[0] == 'f' || array.pszType[0] == 'd';
}

double NumberAt(const SArray& array, const char* pElement)
{
    if (array.nElementSize == sizeof(float))
    {
        float f = 0;
        std::memcpy(&f, pElement, sizeof f);
        return f;
    }
    double d = 0;
    std::memcpy(&d, pElement, sizeof d);
    return d;
}

bool IsSame(const SArray& like, const char* pA, const char* pB)
{
    return std::memcmp(pA, pB, like.nElementSize) == 0 ||
           (IsFloating(like) && std::isnan(NumberAt(like, pA)) && std::isnan(NumberAt(like, pB)));
}

std::string Shown(const SArray& array, const char* pElement)
{
    std::ostringstream text;
    if (IsFloating(array))
    {
        text << std::hexfloat << NumberAt(array, pElement);
        return text.str();
    }
    uint64_t nBits = 0;
    std::memcpy(&nBits, pElement, array.nElementSize);
    text << "0x" << std::hex << nBits;
    return text.str();
}

} // namespace

void CElementwise::Add(const std::string& strExpression, const std::string& strOfScalars, SArray expected,
                       std::vector<SArray> vArguments)
{
    std::string strSource;
    for (const unsigned nSize : m_TestDevice.vSizes)
    {
        const std::string& strText = nSize == 1 && !strOfScalars.empty() ? strOfScalars : strExpression;
        strSource += Kernel(m_vCases.size(), nSize, strText, expected, vArguments);
    }
    m_vCases.push_back({strExpression, std::move(strSource), std::move(expected), std::move(vArguments)});
}

void CElementwise::Run(const std::string& strBefore)
{
    for (size_t nFirst = 0; nFirst < m_vCases.size(); nFirst += s_nCasesOfProgram)
    {
        const size_t nEnd = std::min(nFirst + s_nCasesOfProgram, m_vCases.size());
        std::string strSource = strBefore;
        for (size_t nCase = nFirst; nCase < nEnd; ++nCase)
        {
            strSource += m_vCases[nCase].strSource;
        }
        COpenCLProgram program(m_Device, strSource, m_TestDevice.pszOptions);
        for (size_t nCase = nFirst; nCase < nEnd; ++nCase)
        {
            RunOne(program, nCase);
        }
    }
}

void CElementwise::RunOne(COpenCLProgram& program, size_t nCase)
{
    const SCase& entry = m_vCases[nCase];
    const SArray& expected = entry.expected;
    const size_t nBytes = Filled(expected).size();
    std::vector<CDeviceBuffer> vBuffers;
    for (const SArray& argument : entry.vArguments)
    {
        vBuffers.push_back(m_Device.Buffer(Filled(argument)));
    }
    for (const unsigned nSize : m_TestDevice.vSizes)
    {
        const CDeviceBuffer result = m_Device.Buffer(std::vector<char>(nBytes, 77));
        const COpenCLProgram::SRange range = {{nBytes / expected.nElementSize / nSize}, {}, {}};
        const std::string strKernel = KernelName(nCase, nSize);
        switch (vBuffers.size())
        {
        case 1:
            program.Run(strKernel, range, result, vBuffers[0]);
            break;
        case 2:
            program.Run(strKernel, range, result, vBuffers[0], vBuffers[1]);
            break;
        default:
            program.Run(strKernel, range, result, vBuffers[0], vBuffers[1], vBuffers[2]);
            break;
        }
        const std::vector<char> vResult = m_Device.Read<char>(result);
        size_t nWrong = 0;
        for (size_t i = 0; i < expected.Elements(); ++i)
        {
            const char* const pResult = vResult.data() + i * expected.nElementSize;
            const char* const pExpected = expected.vBytes.data() + i * expected.nElementSize;
            if (IsSame(expected, pResult, pExpected) || nWrong++ >= 3)
            {
                continue;
            }
            std::string strArguments;
            for (const SArray& argument : entry.vArguments)
            {
                strArguments += " " + Shown(argument, argument.vBytes.data() + i * argument.nElementSize);
            }
            ADD_FAILURE() << entry.strExpression << " of " << entry.vArguments[0].pszType << ", size " << nSize
                          << ", of" << strArguments << ": " << Shown(expected, pResult) << " instead of "
                          << Shown(expected, pExpected);
        }
        EXPECT_EQ(nWrong, 0u) << entry.strExpression << " of " << entry.vArguments[0].pszType << ", size " << nSize;
    }
}

} // namespace KestrelTest
