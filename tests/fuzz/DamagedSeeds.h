#ifndef KESTREL_TESTS_FUZZ_DAMAGEDSEEDS_H
#define KESTREL_TESTS_FUZZ_DAMAGEDSEEDS_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// Three kernel binaries of different shapes, and all variants with one changed byte or a cut.
namespace DamagedSeeds
{

struct SSeed
{
    std::string strName;
    std::string strKernel;
    std::string strDevice;
    std::vector<char> vImage;
};

/// One kernel with its text, for the newer device; two kernels in one image; and a 32-bit image for the older device
/// with tokens, like those that the debugger makes, and without code.
const std::vector<SSeed>& All();

typedef std::function<void(const std::string& strWhat, const std::vector<char>& vImage)> Sink;

/// Passes every nStride-th damaged image to the sink: each byte set to 00, set to FF, and with each of its bits
/// flipped, then every truncation.
/// \return the number of images
size_t Damage(const SSeed& seed, size_t nStride, const Sink& sink);

} // namespace DamagedSeeds

#endif
