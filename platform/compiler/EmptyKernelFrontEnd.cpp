#include "platform/compiler/FrontEnd.h"

#include <cctype>

namespace KestrelPlatform
{
namespace
{

/// Number of the first kernel's wrapper function. Each kernel takes two numbers, the wrapper's and the function's.
const unsigned int s_nFirstNumber = 1024;

/// Takes words and marks of C text, past blanks and comments.
class CScanner
{
public:
    explicit CScanner(std::string_view text) : m_text(text) { Skip(); }

    bool AtEnd() const { return m_nPosition == m_text.size(); }

    std::string_view TakeWord()
    {
        const size_t nStart = m_nPosition;
        while (!AtEnd() &&
               (std::isalnum(static_cast<unsigned char>(m_text[m_nPosition])) != 0 || m_text[m_nPosition] == '_'))
        {
            ++m_nPosition;
        }
        const std::string_view word = m_text.substr(nStart, m_nPosition - nStart);
        Skip();
        return word;
    }

    bool Accept(std::string_view word)
    {
        const size_t nStart = m_nPosition;
        if (TakeWord() == word)
        {
            return true;
        }
        m_nPosition = nStart;
        return false;
    }

    bool Accept(char c)
    {
        if (AtEnd() || m_text[m_nPosition] != c)
        {
            return false;
        }
        ++m_nPosition;
        Skip();
        return true;
    }

    bool Fail(const std::string& strExpected, SDiagnostic& diag) const
    {
        const std::string_view before = m_text.substr(0, m_nPosition);
        const size_t nBreak = before.rfind('\n');
        diag.nLine = 1;
        for (const char c : before)
        {
            diag.nLine += c == '\n' ? 1 : 0;
        }
        diag.nColumn =
            static_cast<unsigned int>(nBreak == std::string_view::npos ? m_nPosition : m_nPosition - nBreak - 1) + 1;
        diag.strMessage = "expected " + strExpected +
                          " (of OpenCL C only empty kernels are compiled: '__kernel void NAME( void ) { }')";
        return false;
    }

private:
    bool SkipTo(std::string_view end)
    {
        const size_t nEnd = m_text.find(end, m_nPosition);
        m_nPosition = nEnd == std::string_view::npos ? m_text.size() : nEnd + end.size();
        return true;
    }

    void Skip()
    {
        while (!AtEnd())
        {
            const std::string_view two = m_text.substr(m_nPosition, 2);
            if (std::isspace(static_cast<unsigned char>(m_text[m_nPosition])) != 0)
            {
                ++m_nPosition;
            }
            else if (!(two == "/*" && SkipTo("*/")) && !(two == "//" && SkipTo("\n")))
            {
                return;
            }
        }
    }

    std::string_view m_text;
    size_t m_nPosition = 0;
};

bool TakeKernel(CScanner& scanner, std::string& strName, SDiagnostic& diag)
{
    if (!scanner.Accept("__kernel") && !scanner.Accept("kernel"))
    {
        return scanner.Fail("'__kernel'", diag);
    }
    if (!scanner.Accept("void"))
    {
        return scanner.Fail("'void'", diag);
    }
    strName = scanner.TakeWord();
    if (strName.empty() || std::isdigit(static_cast<unsigned char>(strName[0])) != 0)
    {
        return scanner.Fail("the kernel's name", diag);
    }
    if (!scanner.Accept('('))
    {
        return scanner.Fail("'('", diag);
    }
    scanner.Accept("void");
    for (const char c : {')', '{', '}'})
    {
        if (!scanner.Accept(c))
        {
            return scanner.Fail(std::string("'") + c + "'", diag);
        }
    }
    return true;
}

std::string MakeMetadata(const std::string& strName, unsigned int nWrapper, unsigned int nFunction,
                         const SDeviceTarget& target)
{
    const std::string strWrapperName = "__OpenCL_" + strName + "_kernel";
    std::string strDevice = target.strName;
    for (char& c : strDevice)
    {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return ";ARGSTART:" + strWrapperName + "\n;version:3:1:104\n;device:" + strDevice +
           "\n;uniqueid:" + std::to_string(nWrapper) + "\n" + (target.b64BitAddresses ? ";memory:64bitABI\n" : "") +
           ";memory:uavprivate:0\n;function:1:" + std::to_string(nFunction) + "\n;uavid:11\n;ARGEND:" + strWrapperName +
           "\n";
}

std::string MakeFunctions(const std::string& strName, unsigned int nWrapper, unsigned int nFunction)
{
    const std::string strWrapperName = ";__OpenCL_" + strName + "_kernel\n";
    return "func " + std::to_string(nWrapper) + "\n" + strWrapperName +
           "dcl_max_thread_per_group 256\ndcl_cb cb0[10]\ncall " + std::to_string(nFunction) + "\nret\nendfunc\n" +
           strWrapperName + "func " + std::to_string(nFunction) + "\n;" + strName + "\nret\nendfunc\n;" + strName +
           "\n";
}

class CEmptyKernelFrontEnd : public IFrontEnd
{
public:
    bool Accepts(std::string_view) const override { return true; }

    bool Compile(std::string_view source, const SDeviceTarget& target, SModule& module,
                 SDiagnostic& diag) const override
    {
        CScanner scanner(source);
        std::string strFunctions;
        do
        {
            std::string strName;
            if (!TakeKernel(scanner, strName, diag))
            {
                return false;
            }
            const unsigned int nWrapper = s_nFirstNumber + 2 * static_cast<unsigned int>(module.vKernels.size());
            SModuleKernel kernel;
            kernel.strMetadata = MakeMetadata(strName, nWrapper, nWrapper + 1, target);
            if (!ReadKernelMetadata(kernel.strMetadata, kernel.metadata, diag))
            {
                return false;
            }
            module.vKernels.push_back(std::move(kernel));
            strFunctions += MakeFunctions(strName, nWrapper, nWrapper + 1);
        } while (!scanner.AtEnd());
        module.strText = "il_cs_2_0\n" + std::string(s_Placeholder) + "\nendmain\n" + strFunctions + "end\n";
        return true;
    }
};

} // namespace

const IFrontEnd* GetEmptyKernelFrontEnd()
{
    static const CEmptyKernelFrontEnd s_FrontEnd;
    return &s_FrontEnd;
}

const IFrontEnd* FindFrontEnd(std::string_view source)
{
    for (const IFrontEnd* pFrontEnd : {GetILModuleFrontEnd(), GetEmptyKernelFrontEnd()})
    {
        if (pFrontEnd->Accepts(source))
        {
            return pFrontEnd;
        }
    }
    return GetEmptyKernelFrontEnd();
}

} // namespace KestrelPlatform
