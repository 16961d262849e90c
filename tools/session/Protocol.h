#ifndef KESTREL_TOOLS_SESSION_PROTOCOL_H
#define KESTREL_TOOLS_SESSION_PROTOCOL_H

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// The protocol between the debugger and the layer inside a program.
//
// The debugger passes one end of a socket pair, the door, down to the program. Each process of the program that uses
// OpenCL creates a socket pair of its own, sends one end through the door, and communicates over it from then on.
//
// Messages from the layer ("what"), with the debugger's answers:
//   hello    pid                                               -> rules
//   program  program (its number), options, log, kernels, built ("source" or "binary"); the text is the blob -> rules
//   kernel   kernel (its number), program, name, arguments: [{name, type}]
//   launch   a launch that isn't debugged: number, turn, kernel, microseconds, global, local, offset, arguments
//   stop     a launch that the debugger wants, and that waits: as launch, with device, memories, and contents in the
//            blob -> rules; or error in place of contents, with the reason
//   refused  a launch that the runtime refuses: number, name (the kernel's), code, arguments: [{number, name, fault}]
//            of those that are the reason: "unset", or "gone" for an object that is released
//   waits    call: a function that waits, called in a callback
//   left     at the end, objects: {"kernel": 2}, that were never released
// The debugger's answer is {"rules": [{kernel, program, first, last, turns}]}: which launches it wants. A rule without
// a kernel or program means any; first and last count the process's launches, or with turns those of the kernel.
// While the program runs the debugger may send rules that nobody asked for, with "unasked": true. The layer looks for
// them before each launch.

namespace KestrelTool
{

/// The environment variable with the door's descriptor and inode, "7:1234".
constexpr const char* g_pszDoorVariable = "KESTREL_LAYER_SOCKET";

/// Thrown for bytes that aren't a message.
class CProtocolError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct SMessage
{
    nlohmann::json header;
    std::vector<unsigned char> vBlob;
};

/// A message's header as JSON text. Invalid UTF-8 in it is replaced.
std::string WriteHeader(const nlohmann::json& header);
/// Sends a complete message. \return false if the other side is gone
bool SendMessage(int nSocket, const nlohmann::json& header, const std::vector<unsigned char>& vBlob = {});
/// The same with a header that is JSON text already.
bool SendText(int nSocket, std::string_view strHeader, const std::vector<unsigned char>& vBlob = {});
/// Waits for a message. The sizes in a message are trusted only as far as bytes have arrived.
/// \return nothing if the other side is gone
/// \throws CProtocolError
std::optional<SMessage> ReceiveMessage(int nSocket);

/// Sends a descriptor to the other side. \return false if the other side is gone
bool SendDescriptor(int nSocket, int nDescriptor);
/// Receives a descriptor, which is set to close on exec; -1 if there is none.
int ReceiveDescriptor(int nSocket);

/// Whether the layer waits for an answer to this message; most are only reports.
bool NeedsAnswer(const SMessage& message);

/// The part of a message's blob that its header names as [first byte, count].
/// \throws CProtocolError if it is outside the blob
std::vector<unsigned char> TakePart(const SMessage& message, const nlohmann::json& part);

/// A set of launches that the debugger wants.
struct SLaunchRule
{
    std::string strKernel; ///< empty for any
    uint32_t nProgram = 0; ///< 0 for any
    uint64_t nFirst = 1;
    uint64_t nLast = ~uint64_t(0);
    bool bTurns = false; ///< count this kernel's launches rather than all
};

/// Whether a rule selects a launch.
/// \param nNumber  counts all launches of the process, nTurn those of the kernel
bool Wants(const SLaunchRule& rule, const std::string& strKernel, uint32_t nProgram, uint64_t nNumber, uint64_t nTurn);

/// Whether a message of the debugger answers none of the layer's.
bool IsUnasked(const SMessage& message);

nlohmann::json DescribeRules(const std::vector<SLaunchRule>& vRules);
/// \throws CProtocolError
std::vector<SLaunchRule> ReadRules(const nlohmann::json& message);

} // namespace KestrelTool

#endif
