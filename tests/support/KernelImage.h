#ifndef KESTREL_TESTS_SUPPORT_KERNELIMAGE_H
#define KESTREL_TESTS_SUPPORT_KERNELIMAGE_H

#include "tests/binary/TestImage.h"

#include <string>
#include <vector>

/// A kernel binary with debug IL and the metadata of one kernel.
/// \param strEntries  the lines of the metadata between its frame, each with its newline
inline std::vector<char> MakeKernelImage(const std::string& strKernel, const std::string& strEntries)
{
    const std::string strWrapper = "__OpenCL_" + strKernel + "_kernel\n";
    const std::string strMetadata =
        ";ARGSTART:" + strWrapper + ";version:3:1:104\n;uniqueid:1024\n" + strEntries + ";ARGEND:" + strWrapper;
    CTestImage image;
    image.vSections = {
        {".debugil", SHT_PROGBITS, 1, "il_cs_2_0\n;$$$$$$$$$$\nendmain\nfunc 1024\nret\nendfunc\nend\n", 0, 0},
        {".text", SHT_PROGBITS, 1, "code", 0, 0},
        {".rodata", SHT_PROGBITS, 4, strMetadata, 0, 0}};
    image.vSymbols = {
        {"__OpenCL_" + strKernel + "_metadata", CTestImage::s_nFirst + 2, 0, strMetadata.size(), STT_OBJECT}};
    return image.Make64();
}

#endif
