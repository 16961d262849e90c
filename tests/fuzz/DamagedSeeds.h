#ifndef KESTREL_TESTS_FUZZ_DAMAGEDSEEDS_H
#define KESTREL_TESTS_FUZZ_DAMAGEDSEEDS_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// Three kernel binaries of different shapes, and all that becomes of them by one changed byte or a cut.
namespace DamagedSeeds
{

struct SSeed
{
    std::string strName;
    std::string strKernel;
    std::string strDevice;
    std::vector<char> vImage;
};

/// One kernel with its text, for the newer device; two kernels in one image; and an image of 32-bit class for the older
/// device that holds tokens, as the debugger itself makes them, and no code.
const std::vector<SSeed>& All();

typedef std::function<void(const std::string& strWhat, const std::vector<char>& vImage)> Sink;

/// Gives the sink every nStride-th of the changed images: each byte set to 00, to FF and with each of its bits flipped,
/// then every truncation.
/// \return how many it gave
size_t Damage(const SSeed& seed, size_t nStride, const Sink& sink);

} // namespace DamagedSeeds

#endif
