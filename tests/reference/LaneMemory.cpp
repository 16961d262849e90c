#include "tests/reference/Lanes.h"

#include <algorithm>
#include <cstring>

namespace KestrelTest
{

namespace
{

/// The written form of a load or store, and what it moves.
struct SAccess
{
    bool bStore;
    bool bNamesMemory;      ///< a store whose first operand is "mem"
    bool bAllComponents;    ///< words by the mask; else one value, component x
    size_t nBytes;          ///< of a value
    bool bSigned;           ///< loads are sign-extended
    bool bInPlace = false;  ///< each component has its own place, even if others are left out
    bool bTwoParts = false; ///< the address is the sum of two operands
};

const std::map<std::string, SAccess> s_Accesses = {
    {"uav_raw_load", {false, false, true, 4, false}},
    {"uav_raw_store", {true, true, true, 4, false}},
    {"uav_arena_load", {false, false, true, 4, false}},
    {"uav_arena_store", {true, false, false, 4, false}},
    {"flat_load", {false, false, true, 4, false}},
    {"flat_store", {true, false, false, 4, false}},
    {"uav_byte_load", {false, false, false, 1, true}},
    {"uav_ubyte_load", {false, false, false, 1, false}},
    {"uav_short_load", {false, false, false, 2, true}},
    {"uav_ushort_load", {false, false, false, 2, false}},
    {"uav_byte_store", {true, true, false, 1, false}},
    {"uav_short_store", {true, true, false, 2, false}},
    {"lds_load", {false, false, true, 4, false}},
    {"lds_store", {true, false, false, 4, false}},
    {"lds_load_byte", {false, false, false, 1, true}},
    {"lds_load_ubyte", {false, false, false, 1, false}},
    {"lds_load_short", {false, false, false, 2, true}},
    {"lds_load_ushort", {false, false, false, 2, false}},
    {"uav_load", {false, false, true, 4, false, true}},
    {"uav_store", {true, false, true, 4, false, true}},
    {"uav_store_mask", {true, true, true, 4, false, true}},
    {"lds_load_vec", {false, false, true, 4, false, false, true}},
    {"lds_store_vec", {true, true, true, 4, false, false, true}},
    {"lds_store_byte", {true, false, false, 1, false}},
    {"lds_store_short", {true, false, false, 2, false}},
};

std::string ComponentsOf(const SOperand& operand)
{
    std::string strComponents = operand.strComponents.empty() ? "xyzw" : operand.strComponents;
    strComponents.erase(std::remove(strComponents.begin(), strComponents.end(), '_'), strComponents.end());
    return strComponents;
}

size_t NumberOf(char cComponent)
{
    return cComponent == 'w' ? 3 : static_cast<size_t>(cComponent - 'x');
}

uint32_t Extend(uint32_t nValue, const SAccess& access)
{
    if (!access.bSigned)
    {
        return nValue;
    }
    return access.nBytes == 1 ? static_cast<uint32_t>(static_cast<int8_t>(nValue))
                              : static_cast<uint32_t>(static_cast<int16_t>(nValue));
}

typedef uint32_t (*Update)(uint32_t nOld, uint32_t a, uint32_t b);

float Float(uint32_t nValue)
{
    float fValue = 0;
    std::memcpy(&fValue, &nValue, sizeof(fValue));
    return fValue;
}

// Without "uav_", "lds_" and "read_".
const std::map<std::string, Update> s_Updates = {
    {"add", [](uint32_t nOld, uint32_t a, uint32_t) { return nOld + a; }},
    {"sub", [](uint32_t nOld, uint32_t a, uint32_t) { return nOld - a; }},
    {"rsub", [](uint32_t nOld, uint32_t a, uint32_t) { return a - nOld; }},
    {"min", [](uint32_t nOld, uint32_t a, uint32_t) { return Signed(a) < Signed(nOld) ? a : nOld; }},
    {"max", [](uint32_t nOld, uint32_t a, uint32_t) { return Signed(a) > Signed(nOld) ? a : nOld; }},
    {"umin", [](uint32_t nOld, uint32_t a, uint32_t) { return a < nOld ? a : nOld; }},
    {"umax", [](uint32_t nOld, uint32_t a, uint32_t) { return a > nOld ? a : nOld; }},
    {"and", [](uint32_t nOld, uint32_t a, uint32_t) { return nOld & a; }},
    {"or", [](uint32_t nOld, uint32_t a, uint32_t) { return nOld | a; }},
    {"xor", [](uint32_t nOld, uint32_t a, uint32_t) { return nOld ^ a; }},
    {"xchg", [](uint32_t, uint32_t a, uint32_t) { return a; }},
    {"cmp", [](uint32_t nOld, uint32_t a, uint32_t b) { return nOld == a ? b : nOld; }},
    {"cmp_xchg", [](uint32_t nOld, uint32_t a, uint32_t b) { return nOld == a ? b : nOld; }},
    {"uinc", [](uint32_t nOld, uint32_t a, uint32_t) { return nOld >= a ? 0 : nOld + 1; }},
    {"inc", [](uint32_t nOld, uint32_t a, uint32_t) { return nOld >= a ? 0 : nOld + 1; }},
    {"udec", [](uint32_t nOld, uint32_t a, uint32_t) { return nOld == 0 || nOld > a ? a : nOld - 1; }},
    {"dec", [](uint32_t nOld, uint32_t a, uint32_t) { return nOld == 0 || nOld > a ? a : nOld - 1; }},
    {"mskor", [](uint32_t nOld, uint32_t a, uint32_t b) { return (nOld & ~a) | b; }},
    // If either is NaN, neither is smaller or larger, and the old value stays.
    {"fmin", [](uint32_t nOld, uint32_t a, uint32_t) { return Float(a) < Float(nOld) ? a : nOld; }},
    {"fmax", [](uint32_t nOld, uint32_t a, uint32_t) { return Float(a) > Float(nOld) ? a : nOld; }},
};

} // namespace

bool CLanes::AccessMemory(const SInstruction& instruction, size_t nItem)
{
    const auto it = s_Accesses.find(instruction.strName);
    if (it == s_Accesses.end())
    {
        return false;
    }
    const SAccess& access = it->second;
    const bool bHasFirst = access.bNamesMemory || !access.bStore;
    Words address = Read(instruction.vOperands[bHasFirst ? 1 : 0], nItem);
    address[0] += access.bTwoParts ? Read(instruction.vOperands[bHasFirst ? 2 : 1], nItem)[0] : 0;
    const Words source = access.bStore ? Read(instruction.vOperands.back(), nItem) : Words{};
    // A store to a typed buffer without a mask of its own has four components, whatever its operand says.
    const bool bAll = instruction.strName == "uav_store";
    const std::string strComponents = bAll ? "xyzw" : bHasFirst ? ComponentsOf(instruction.vOperands[0]) : "x";
    Words loaded = {0, 0, 0, 0};
    Words at = address;
    for (const char c : strComponents)
    {
        at[0] = access.bInPlace ? address[0] + 4 * static_cast<uint32_t>(NumberOf(c)) : at[0];
        unsigned char* pPlace = Find(instruction, at, nItem, access.nBytes);
        if (pPlace != nullptr && access.bStore)
        {
            std::memcpy(pPlace, &source[access.bAllComponents ? NumberOf(c) : 0], access.nBytes);
        }
        else if (pPlace != nullptr)
        {
            std::memcpy(&loaded[NumberOf(c)], pPlace, access.nBytes);
            loaded[NumberOf(c)] = Extend(loaded[NumberOf(c)], access);
        }
        at[0] += access.bAllComponents ? 4 : 0; // no object of a test crosses 4 GiB
    }
    if (!access.bStore)
    {
        Write(instruction.vOperands[0], nItem, loaded);
    }
    return true;
}

bool CLanes::UpdateMemory(const SInstruction& instruction, size_t nItem)
{
    const size_t nPrefix = instruction.strName.find('_');
    std::string strName = nPrefix != std::string::npos ? instruction.strName.substr(nPrefix + 1) : std::string();
    const bool bReads = strName.compare(0, 5, "read_") == 0;
    const auto it = s_Updates.find(bReads ? strName.substr(5) : strName);
    if (it == s_Updates.end())
    {
        return false;
    }
    const std::vector<SOperand>& vOperands = instruction.vOperands;
    const size_t nFirst = bReads ? 1 : 0;
    Words address = Read(vOperands[nFirst], nItem);
    address[0] &= ~3U;
    const uint32_t a = Read(vOperands[nFirst + 1], nItem)[0];
    const uint32_t b = vOperands.size() > nFirst + 2 ? Read(vOperands[nFirst + 2], nItem)[0] : 0;
    uint32_t nOld = 0;
    if (unsigned char* pPlace = Find(instruction, address, nItem, sizeof(nOld)))
    {
        std::memcpy(&nOld, pPlace, sizeof(nOld));
        const uint32_t nNew = it->second(nOld, a, b);
        std::memcpy(pPlace, &nNew, sizeof(nNew));
    }
    if (bReads)
    {
        Write(vOperands[0], nItem, {nOld, nOld, nOld, nOld});
    }
    return true;
}

} // namespace KestrelTest
