#ifndef KESTREL_TESTS_REFERENCE_MACHINEPOSITION_H
#define KESTREL_TESTS_REFERENCE_MACHINEPOSITION_H

#include <array>
#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace KestrelTest
{

/// The loops around an instruction in its own function: start and pass, outermost first.
typedef std::vector<std::pair<uint32_t, uint32_t>> Loops;

/// A dynamic position: an instruction and the passes of the loops around it, in a certain call of its function.
struct SPosition
{
    uint32_t nInstruction = 0;
    Loops vLoops;
    std::vector<std::pair<uint32_t, Loops>> vCalls; ///< instruction and loops of each, outermost first

    bool operator<(const SPosition& other) const
    {
        return std::tie(nInstruction, vLoops, vCalls) < std::tie(other.nInstruction, other.vLoops, other.vCalls);
    }
    bool operator==(const SPosition& other) const
    {
        return std::tie(nInstruction, vLoops, vCalls) == std::tie(other.nInstruction, other.vLoops, other.vCalls);
    }
    std::string ToString() const;
};

/// The four components of a register.
typedef std::array<uint32_t, 4> Words;

} // namespace KestrelTest

#endif
