#include <array>
#include <cstring>
#include <set>

#include "platform/simt/LaneOps.h"
#include "platform/simt/Structure.h"
#include "tests/platform/simt/HostNumbers.h"
#include "tests/platform/simt/RecordedLaunch.h"

/// Every rule for one component or one pair, over products of lists of special values, compared with the host.
namespace KestrelPlatformTest
{
namespace
{

__extension__ typedef unsigned __int128 Wide;

/// The components involved: each its own; w of the sources for all; pairs; x and y to pairs; pairs to x and y.
enum EForm
{
    VEC,
    SCALAR,
    PAIR,
    TOPAIR,
    FROMPAIR
};

/// How the result may differ.
enum ESlack
{
    Exact,   ///< except for the bits of a NaN
    AnyZero, ///< and for the sign of zero
    LastBit  ///< and by one in the last place, for mathematical functions
};

struct SRule
{
    const char* pszName;
    EForm eForm;
    const char* pszSources; ///< a letter each: U I words, B class bits, C shift counts, F D H floats, G finite floats,
                            ///< L 64 bits, W 16 bits
    char cResult;           ///< F D H compare as floats; U 32 bits; L 64
    ESlack eSlack;
    uint64_t (*pfHost)(uint64_t a, uint64_t b, uint64_t c);
};

#define R(name, form, sources, result, slack, expression)                                                              \
    {                                                                                                                  \
        name, form, sources, #result[0], slack,                                                                        \
            [](uint64_t a, uint64_t b, uint64_t c) -> uint64_t                                                         \
        {                                                                                                              \
            static_cast<void>(a), static_cast<void>(b), static_cast<void>(c);                                          \
            return expression;                                                                                         \
        }                                                                                                              \
    }

// clang-format off
const SRule s_Singles[] = {
    R("mov", VEC, "F", F, Exact, a),
    R("invariant_mov", VEC, "F", F, Exact, a),
    R("abs", VEC, "F", F, Exact, a & 0x7FFFFFFF),
    R("add", VEC, "FF", F, Exact, F(f(a) + f(b))),
    R("sub", VEC, "FF", F, Exact, F(f(a) - f(b))),
    R("mul", VEC, "FF", F, Exact, F(f(a) * f(b))),
    R("mad", VEC, "FFF", F, Exact, F(f(F(f(a) * f(b))) + f(c))),
    R("fma", VEC, "FFF", F, Exact, BitsAs<uint32_t>(std::fma(BitsAs<float>(u(a)), BitsAs<float>(u(b)), BitsAs<float>(u(c))))),
    R("lrp", VEC, "FFF", F, Exact, F(f(F(f(a) * f(b))) + f(F(f(F(1.0 - f(a))) * f(c))))),
    R("div", VEC, "FF", F, Exact, F(f(a) / f(b))),
    R("div_precise", VEC, "FF", F, Exact, F(f(a) / f(b))),
    R("rcp", SCALAR, "F", F, Exact, F(1.0 / f(a))),
    R("rcp_vec", VEC, "F", F, Exact, F(1.0 / f(a))),
    R("sqrt", SCALAR, "F", F, Exact, F(std::sqrt(f(a)))),
    R("sqrt_vec", VEC, "F", F, Exact, F(std::sqrt(f(a)))),
    R("sqrt_precise", SCALAR, "F", F, Exact, F(std::sqrt(f(a)))),
    R("rsq", SCALAR, "F", F, Exact, F(1.0 / f(F(std::sqrt(f(a)))))),
    R("rsq_vec", VEC, "F", F, Exact, F(1.0 / f(F(std::sqrt(f(a)))))),
    R("rsq_precise", SCALAR, "F", F, Exact, F(1.0 / f(F(std::sqrt(f(a)))))),
    R("min", VEC, "FF", F, AnyZero, F(Smaller(f(a), f(b)))),
    R("max", VEC, "FF", F, AnyZero, F(Larger(f(a), f(b)))),
    R("min3", VEC, "FFF", F, AnyZero, F(Smaller(Smaller(f(a), f(b)), f(c)))),
    R("max3", VEC, "FFF", F, AnyZero, F(Larger(Larger(f(a), f(b)), f(c)))),
    R("med3", VEC, "GGG", F, AnyZero, F(Middle(f(a), f(b), f(c)))),
    R("clamp", VEC, "FFF", F, AnyZero, F(Smaller(Larger(f(a), f(b)), f(c)))),
    R("colorclamp", VEC, "F", F, AnyZero, F(Clamped(f(a), 0, 1))),
    R("sgn", VEC, "F", F, Exact, F(Sign(f(a)))),
    R("flr", VEC, "F", F, Exact, F(std::floor(f(a)))),
    R("clg", VEC, "F", F, Exact, F(std::ceil(f(a)))),
    R("trc", VEC, "F", F, Exact, F(std::trunc(f(a)))),
    R("rnd", VEC, "F", F, Exact, F(std::nearbyint(f(a)))),
    R("frc", VEC, "F", F, AnyZero, F(f(a) - std::floor(f(a)))),
    R("round_nearest", VEC, "F", F, Exact, F(std::nearbyint(f(a)))),
    R("round_neginf", VEC, "F", F, Exact, F(std::floor(f(a)))),
    R("round_plusinf", VEC, "F", F, Exact, F(std::ceil(f(a)))),
    R("round_z", VEC, "F", F, Exact, F(std::trunc(f(a)))),
    R("mod", VEC, "FF", F, Exact, F(std::fmod(f(a), f(b)))),
    R("pireduce", VEC, "F", F, LastBit, F(std::remainder(static_cast<long double>(f(a)), static_cast<long double>(6.283185307179586)))),
    R("exp", SCALAR, "F", F, LastBit, F(std::exp2(static_cast<long double>(f(a))))),
    R("expp", SCALAR, "F", F, LastBit, F(std::exp2(static_cast<long double>(f(a))))),
    R("exp_vec", VEC, "F", F, LastBit, F(std::exp2(static_cast<long double>(f(a))))),
    R("exn", SCALAR, "F", F, LastBit, F(std::exp(static_cast<long double>(f(a))))),
    R("log", SCALAR, "F", F, LastBit, F(std::log2(static_cast<long double>(f(a))))),
    R("logp", SCALAR, "F", F, LastBit, F(std::log2(static_cast<long double>(f(a))))),
    R("log_vec", VEC, "F", F, LastBit, F(std::log2(static_cast<long double>(f(a))))),
    R("ln", SCALAR, "F", F, LastBit, F(std::log(static_cast<long double>(f(a))))),
    R("pow", SCALAR, "FF", F, LastBit, F(std::pow(static_cast<long double>(f(a)), static_cast<long double>(f(b))))),
    R("sin", SCALAR, "F", F, LastBit, F(std::sin(static_cast<long double>(f(a))))),
    R("sin_vec", VEC, "F", F, LastBit, F(std::sin(static_cast<long double>(f(a))))),
    R("cos", SCALAR, "F", F, LastBit, F(std::cos(static_cast<long double>(f(a))))),
    R("cos_vec", VEC, "F", F, LastBit, F(std::cos(static_cast<long double>(f(a))))),
    R("tan", SCALAR, "F", F, LastBit, F(std::tan(static_cast<long double>(f(a))))),
    R("asin", SCALAR, "F", F, LastBit, F(std::asin(static_cast<long double>(f(a))))),
    R("acos", SCALAR, "F", F, LastBit, F(std::acos(static_cast<long double>(f(a))))),
    R("atan", SCALAR, "F", F, LastBit, F(std::atan(static_cast<long double>(f(a))))),
    R("eq", VEC, "FF", U, Exact, M(f(a) == f(b))),
    R("ne", VEC, "FF", U, Exact, M(!(f(a) == f(b)))),
    R("lt", VEC, "FF", U, Exact, M(f(a) < f(b))),
    R("ge", VEC, "FF", U, Exact, M(f(a) >= f(b))),
    R("cmov_logical", VEC, "UFF", F, Exact, u(a) ? b : c),
    R("ftoi", VEC, "F", U, Exact, CutInt(f(a))),
    R("ftou", VEC, "F", U, Exact, CutUint(f(a))),
    R("ftoi_flr", VEC, "F", U, Exact, CutInt(std::floor(f(a)))),
    R("ftoi_rpi", VEC, "F", U, Exact, CutInt(std::floor(f(F(f(a) + 0.5))))),
    R("itof", VEC, "I", F, Exact, F(static_cast<double>(i(a)))),
    R("utof", VEC, "U", F, Exact, F(static_cast<double>(u(a)))),
    R("fldexp", VEC, "FI", F, Exact, F(std::ldexp(f(a), std::min(std::max(i(b), -900), 900)))),
    R("frexp_exp", VEC, "F", U, Exact, U(f(a) == 0 || !std::isfinite(f(a)) ? 0 : static_cast<uint64_t>(std::ilogb(f(a)) + 1))),
    R("frexp_mant", VEC, "F", F, Exact, f(a) == 0 || !std::isfinite(f(a)) ? a : F(std::scalbn(f(a), -std::ilogb(f(a)) - 1))),
    R("class", VEC, "FB", U, Exact, M((ClassBit(u(a), 32, 23) & b) != 0)),
    R("cubeid", VEC, "GGG", F, Exact, F(static_cast<double>(SCube(f(a), f(b), f(c)).nFace))),
    R("cubema", VEC, "GGG", F, Exact, F(SCube(f(a), f(b), f(c)).dMajor)),
    R("cubesc", VEC, "GGG", F, Exact, F(SCube(f(a), f(b), f(c)).dS)),
    R("cubetc", VEC, "GGG", F, Exact, F(SCube(f(a), f(b), f(c)).dT)),
    R("unpack0", VEC, "U", F, Exact, F(static_cast<double>(Byte(a, 0)))),
    R("unpack1", VEC, "U", F, Exact, F(static_cast<double>(Byte(a, 1)))),
    R("unpack2", VEC, "U", F, Exact, F(static_cast<double>(Byte(a, 2)))),
    R("unpack3", VEC, "U", F, Exact, F(static_cast<double>(Byte(a, 3)))),
    R("pk_f32u8tou32", VEC, "FUU", U, Exact, (u(c) & ~(0xFFu << (8 * (b & 3)))) | (U(static_cast<uint64_t>(std::nearbyint(Clamped(f(a), 0, 255)))) << (8 * (b & 3)))),
    R("pk_snorm16tou32", VEC, "FF", U, Exact, W(static_cast<uint64_t>(std::lrint(BitsAs<float>(u(F(Clamped(f(a), -1, 1) * 32767))))))  | (W(static_cast<uint64_t>(std::lrint(BitsAs<float>(u(F(Clamped(f(b), -1, 1) * 32767)))))) << 16)),
    R("pk_unorm16tou32", VEC, "FF", U, Exact, static_cast<uint64_t>(std::lrint(BitsAs<float>(u(F(Clamped(f(a), 0, 1) * 65535))))) | (static_cast<uint64_t>(std::lrint(BitsAs<float>(u(F(Clamped(f(b), 0, 1) * 65535))))) << 16)),
    R("pk_f16tof32", VEC, "GG", U, Exact, ToHalf(f(a), Zero) | (ToHalf(f(b), Zero) << 16)),
    R("f2f16", VEC, "F", H, Exact, ToHalf(f(a), Zero)),
    R("f2f16_near", VEC, "F", H, Exact, ToHalf(f(a), Nearest)),
    R("f2f16_neg_inf", VEC, "F", H, Exact, ToHalf(f(a), Down)),
    R("f2f16_plus_inf", VEC, "F", H, Exact, ToHalf(f(a), Up)),
};

const SRule s_Integers[] = {
    R("iadd", VEC, "II", U, Exact, U(a + b)),
    R("isub", VEC, "II", U, Exact, U(a - b)),
    R("imul", VEC, "II", U, Exact, U(a * b)),
    R("umul", VEC, "UU", U, Exact, U(a * b)),
    R("imad", VEC, "III", U, Exact, U(a * b + c)),
    R("umad", VEC, "UUU", U, Exact, U(a * b + c)),
    R("imul_high", VEC, "II", U, Exact, U(static_cast<uint64_t>(static_cast<int64_t>(i(a)) * i(b)) >> 32)),
    R("umul_high", VEC, "UU", U, Exact, (a * b) >> 32),
    R("imul24", VEC, "II", U, Exact, U(static_cast<uint64_t>(Sign24(a) * Sign24(b)))),
    R("umul24", VEC, "UU", U, Exact, U((a & 0xFFFFFF) * (b & 0xFFFFFF))),
    R("imul24_high", VEC, "II", U, Exact, U(static_cast<uint64_t>(Sign24(a) * Sign24(b)) >> 32)),
    R("umul24_high", VEC, "UU", U, Exact, ((a & 0xFFFFFF) * (b & 0xFFFFFF)) >> 32),
    R("imad24", VEC, "III", U, Exact, U(static_cast<uint64_t>(Sign24(a) * Sign24(b)) + c)),
    R("umad24", VEC, "UUU", U, Exact, U((a & 0xFFFFFF) * (b & 0xFFFFFF) + c)),
    R("inegate", VEC, "I", U, Exact, U(0 - a)),
    R("inot", VEC, "U", U, Exact, U(0xFFFFFFFF - a)),
    R("iand", VEC, "UU", U, Exact, a & b),
    R("ior", VEC, "UU", U, Exact, a | b),
    R("ixor", VEC, "UU", U, Exact, (a | b) - (a & b)),
    R("ishl", VEC, "UC", U, Exact, U(a << (b % 32))),
    R("ishr", VEC, "IC", U, Exact, U(static_cast<uint64_t>(static_cast<int64_t>(i(a)) >> (b % 32)))),
    R("ushr", VEC, "UC", U, Exact, a >> (b % 32)),
    R("idiv", VEC, "II", U, Exact, i(b) == 0 ? 0xFFFFFFFF : U(static_cast<uint64_t>(static_cast<int64_t>(i(a)) / i(b)))),
    R("imod", VEC, "II", U, Exact, i(b) == 0 ? a : U(static_cast<uint64_t>(static_cast<int64_t>(i(a)) % i(b)))),
    R("udiv", VEC, "UU", U, Exact, b == 0 ? 0xFFFFFFFF : a / b),
    R("umod", VEC, "UU", U, Exact, b == 0 ? a : a % b),
    R("imax", VEC, "II", U, Exact, U(static_cast<uint64_t>(std::max(i(a), i(b))))),
    R("imin", VEC, "II", U, Exact, U(static_cast<uint64_t>(std::min(i(a), i(b))))),
    R("umax", VEC, "UU", U, Exact, std::max(a, b)),
    R("umin", VEC, "UU", U, Exact, std::min(a, b)),
    R("imax3", VEC, "III", U, Exact, U(static_cast<uint64_t>(std::max({i(a), i(b), i(c)})))),
    R("imin3", VEC, "III", U, Exact, U(static_cast<uint64_t>(std::min({i(a), i(b), i(c)})))),
    R("imed3", VEC, "III", U, Exact, U(static_cast<uint64_t>(Middle(i(a), i(b), i(c))))),
    R("umax3", VEC, "UUU", U, Exact, std::max({a, b, c})),
    R("umin3", VEC, "UUU", U, Exact, std::min({a, b, c})),
    R("umed3", VEC, "UUU", U, Exact, Middle(a, b, c)),
    R("ieq", VEC, "II", U, Exact, M(a == b)),
    R("ine", VEC, "II", U, Exact, M(a != b)),
    R("ilt", VEC, "II", U, Exact, M(i(a) < i(b))),
    R("ige", VEC, "II", U, Exact, M(i(a) >= i(b))),
    R("ult", VEC, "UU", U, Exact, M(a < b)),
    R("uge", VEC, "UU", U, Exact, M(a >= b)),
    R("icarry", VEC, "UU", U, Exact, (a + b) >> 32),
    R("iborrow", VEC, "UU", U, Exact, (a - b) >> 63),
    R("icbits", VEC, "U", U, Exact, static_cast<uint64_t>(__builtin_popcountll(a))),
    R("ubit_reverse", VEC, "U", U, Exact, Reverse(a)),
    R("ubit_extract", VEC, "CCU", U, Exact, Extract(a, b, c, false)),
    R("ibit_extract", VEC, "CCU", U, Exact, U(Extract(a, b, c, true))),
    R("bfi", VEC, "UUU", U, Exact, (a & b) + (U(~a) & c)),
    R("bfm", VEC, "CC", U, Exact, U(((1ull << (a % 32)) - 1) << (b % 32))),
    R("bitalign", VEC, "UUC", U, Exact, U(((a << 32) | b) >> (c % 32))),
    R("bytealign", VEC, "UUC", U, Exact, U(((a << 32) | b) >> (8 * (c % 4)))),
    R("u4lerp", VEC, "UUU", U, Exact, ByteLerp(a, b, c)),
    R("sad", VEC, "UUU", U, Exact, U(ByteSad(a, b, false) + c)),
    R("sadhi", VEC, "UUU", U, Exact, U((ByteSad(a, b, false) << 16) + c)),
    R("msad", VEC, "UUU", U, Exact, U(ByteSad(a, b, true) + c)),
    R("sad_u16", VEC, "UUU", U, Exact, U(Distance(w(a), w(b)) + Distance(a >> 16, b >> 16) + c)),
    R("sad_u32", VEC, "UUU", U, Exact, U(Distance(a, b) + c)),
    R("pk_i16toi32", VEC, "II", U, Exact, W(static_cast<uint64_t>(std::min(std::max(i(a), -32768), 32767))) | (W(static_cast<uint64_t>(std::min(std::max(i(b), -32768), 32767))) << 16)),
    R("pk_u16tou32", VEC, "UU", U, Exact, std::min<uint64_t>(a, 0xFFFF) | (std::min<uint64_t>(b, 0xFFFF) << 16)),
    R("f16class", VEC, "HB", U, Exact, M((ClassBit(w(a), 16, 10) & b) != 0)),
    R("f16abs", VEC, "H", U, Exact, a & 0x7FFF),
    R("f16mov", VEC, "H", U, Exact, W(a)),
};

const SRule s_Pairs[] = {
    R("i64add", PAIR, "LL", L, Exact, a + b),
    R("i64sub", PAIR, "LL", L, Exact, a - b),
    R("i64mul", PAIR, "LL", L, Exact, static_cast<uint64_t>(static_cast<Wide>(a) * b)),
    R("u64mul", PAIR, "LL", L, Exact, static_cast<uint64_t>(static_cast<Wide>(a) * b)),
    R("i64mad", PAIR, "LLL", L, Exact, static_cast<uint64_t>(static_cast<Wide>(a) * b + c)),
    R("u64mad", PAIR, "LLL", L, Exact, static_cast<uint64_t>(static_cast<Wide>(a) * b + c)),
    R("vmad_u64_u32", PAIR, "UUL", L, Exact, static_cast<uint64_t>(static_cast<Wide>(a) * b + c)),
    R("vmad_i64_i32", PAIR, "IIL", L, Exact, static_cast<uint64_t>(static_cast<int64_t>(i(a)) * i(b)) + c),
    R("i64negate", PAIR, "L", L, Exact, ~a + 1),
    R("i64div", PAIR, "LL", L, Exact, b == 0 ? ~0ull : static_cast<uint64_t>(static_cast<__int128>(s(a)) / s(b))),
    R("i64mod", PAIR, "LL", L, Exact, b == 0 ? a : static_cast<uint64_t>(static_cast<__int128>(s(a)) % s(b))),
    R("u64div", PAIR, "LL", L, Exact, b == 0 ? ~0ull : a / b),
    R("u64mod", PAIR, "LL", L, Exact, b == 0 ? a : a % b),
    R("i64shl", PAIR, "LC", L, Exact, static_cast<uint64_t>(static_cast<Wide>(a) << (b % 64))),
    R("i64shr", PAIR, "LC", L, Exact, static_cast<uint64_t>(static_cast<__int128>(s(a)) >> (b % 64))),
    R("u64shr", PAIR, "LC", L, Exact, static_cast<uint64_t>(static_cast<Wide>(a) >> (b % 64))),
    R("i64max", PAIR, "LL", L, Exact, static_cast<uint64_t>(std::max(s(a), s(b)))),
    R("i64min", PAIR, "LL", L, Exact, static_cast<uint64_t>(std::min(s(a), s(b)))),
    R("u64max", PAIR, "LL", L, Exact, std::max(a, b)),
    R("u64min", PAIR, "LL", L, Exact, std::min(a, b)),
    R("i64eq", PAIR, "LL", L, Exact, M64(a == b)),
    R("i64ne", PAIR, "LL", L, Exact, M64(a != b)),
    R("i64lt", PAIR, "LL", L, Exact, M64(s(a) < s(b))),
    R("i64ge", PAIR, "LL", L, Exact, M64(s(a) >= s(b))),
    R("u64lt", PAIR, "LL", L, Exact, M64(a < b)),
    R("u64ge", PAIR, "LL", L, Exact, M64(a >= b)),
    R("qsad", PAIR, "LUL", L, Exact, QuadSad(a, b, c, false)),
    R("mqsad", PAIR, "LUL", L, Exact, QuadSad(a, b, c, true)),
    R("dmov", PAIR, "D", D, Exact, a),
    R("dmovc", PAIR, "LDD", D, Exact, a ? b : c),
    R("dabs", PAIR, "D", D, Exact, a & ~(1ull << 63)),
    R("dadd", PAIR, "DD", D, Exact, D(d(a) + d(b))),
    R("dsub", PAIR, "DD", D, Exact, D(d(a) - d(b))),
    R("dmul", PAIR, "DD", D, Exact, D(d(a) * d(b))),
    R("dmad", PAIR, "DDD", D, Exact, D(d(D(d(a) * d(b))) + d(c))),
    R("dfma", PAIR, "DDD", D, Exact, D(std::fma(d(a), d(b), d(c)))),
    R("ddiv", PAIR, "DD", D, Exact, D(d(a) / d(b))),
    R("drcp", PAIR, "D", D, Exact, D(1.0 / d(a))),
    R("drcp_native", PAIR, "D", D, Exact, D(1.0 / d(a))),
    R("dsqrt", PAIR, "D", D, Exact, D(std::sqrt(d(a)))),
    R("dsqrt_precise", PAIR, "D", D, Exact, D(std::sqrt(d(a)))),
    R("drsq", PAIR, "D", D, LastBit, D(1.0L / std::sqrt(static_cast<long double>(d(a))))),
    R("dmin", PAIR, "DD", D, AnyZero, D(Smaller(d(a), d(b)))),
    R("dmax", PAIR, "DD", D, AnyZero, D(Larger(d(a), d(b)))),
    R("dfrac", PAIR, "D", D, AnyZero, D(d(a) - std::floor(d(a)))),
    R("dround_z", PAIR, "D", D, Exact, D(std::trunc(d(a)))),
    R("dround_plusinf", PAIR, "D", D, Exact, D(std::ceil(d(a)))),
    R("dround_neginf", PAIR, "D", D, Exact, D(std::floor(d(a)))),
    R("dround_nearest", PAIR, "D", D, Exact, D(std::nearbyint(d(a)))),
    R("deq", PAIR, "DD", L, Exact, M64(d(a) == d(b))),
    R("dne", PAIR, "DD", L, Exact, M64(!(d(a) == d(b)))),
    R("dlt", PAIR, "DD", L, Exact, M64(d(a) < d(b))),
    R("dge", PAIR, "DD", L, Exact, M64(d(a) >= d(b))),
    R("dclass", PAIR, "DB", L, Exact, M64((ClassBit(a, 64, 52) & b) != 0)),
    R("dldexp", PAIR, "DI", D, Exact, D(static_cast<long double>(std::ldexp(static_cast<long double>(d(a)), std::min(std::max(i(b), -5000), 5000))))),
    R("dfrexp_mant", PAIR, "D", D, Exact, d(a) == 0 || !std::isfinite(d(a)) ? a : D(std::scalbn(d(a), -std::ilogb(d(a)) - 1))),
    R("dfrexp_exp", FROMPAIR, "D", U, Exact, U(d(a) == 0 || !std::isfinite(d(a)) ? 0 : static_cast<uint64_t>(std::ilogb(d(a)) + 1))),
    R("dtoi", FROMPAIR, "D", U, Exact, CutInt(d(a))),
    R("dtou", FROMPAIR, "D", U, Exact, CutUint(d(a))),
    R("dtoi64", PAIR, "D", L, Exact, CutInt64(d(a))),
    R("dtou64", PAIR, "D", L, Exact, CutUint64(d(a))),
    R("itod", TOPAIR, "I", D, Exact, D(static_cast<double>(i(a)))),
    R("utod", TOPAIR, "U", D, Exact, D(static_cast<double>(u(a)))),
    R("i64tod", PAIR, "L", D, Exact, D(static_cast<long double>(s(a)))),
    R("u64tod", PAIR, "L", D, Exact, D(static_cast<long double>(a))),
    R("f2d", TOPAIR, "F", D, Exact, D(f(a))),
    R("d2f", FROMPAIR, "D", F, Exact, F(d(a))),
};

const SRule s_Halves[] = {
    R("f162f", VEC, "H", F, Exact, F(h(a))),
    R("f16add", VEC, "HH", H, Exact, H(h(a) + h(b))),
    R("f16sub", VEC, "HH", H, Exact, H(h(a) - h(b))),
    R("f16mul", VEC, "HH", H, Exact, H(h(a) * h(b))),
    R("f16div", VEC, "HH", H, Exact, H(h(a) / h(b))),
    R("f16div_precise", VEC, "HH", H, Exact, H(h(a) / h(b))),
    R("f16mod", VEC, "HH", H, Exact, H(std::fmod(h(a), h(b)))),
    R("f16mod_precise", VEC, "HH", H, Exact, H(std::fmod(h(a), h(b)))),
    R("f16fma", VEC, "HHH", H, Exact, H(h(a) * h(b) + h(c))),
    R("f16mad", VEC, "HHH", H, Exact, H(h(H(h(a) * h(b))) + h(c))),
    R("f16rcp", VEC, "H", H, Exact, H(1.0 / h(a))),
    R("f16sqrt", VEC, "H", H, Exact, H(std::sqrt(h(a)))),
    R("f16rsq", VEC, "H", H, LastBit, H(1.0 / std::sqrt(h(a)))),
    R("f16max", VEC, "HH", H, AnyZero, H(Larger(h(a), h(b)))),
    R("f16min", VEC, "HH", H, AnyZero, H(Smaller(h(a), h(b)))),
    R("f16exp", VEC, "H", H, LastBit, H(std::exp2(h(a)))),
    R("f16log", VEC, "H", H, LastBit, H(std::log2(h(a)))),
    R("f16exn", VEC, "H", H, LastBit, H(std::exp(h(a)))),
    R("f16ln", VEC, "H", H, LastBit, H(std::log(h(a)))),
    R("f16pow", VEC, "HH", H, LastBit, IsSignalling(a) || IsSignalling(b) ? 0x7E00 : H(std::pow(h(a), h(b)))),
    R("f16sin", VEC, "H", H, LastBit, H(std::sin(h(a)))),
    R("f16cos", VEC, "H", H, LastBit, H(std::cos(h(a)))),
    R("f16tan", VEC, "H", H, LastBit, H(std::tan(h(a)))),
    R("f16eq", VEC, "HH", U, Exact, M(h(a) == h(b))),
    R("f16ne", VEC, "HH", U, Exact, M(!(h(a) == h(b)))),
    R("f16lt", VEC, "HH", U, Exact, M(h(a) < h(b))),
    R("f16ge", VEC, "HH", U, Exact, M(h(a) >= h(b))),
    R("f16round_nearest", VEC, "H", H, Exact, H(std::nearbyint(h(a)))),
    R("f16round_neginf", VEC, "H", H, Exact, H(std::floor(h(a)))),
    R("f16round_plusinf", VEC, "H", H, Exact, H(std::ceil(h(a)))),
    R("f16round_z", VEC, "H", H, Exact, H(std::trunc(h(a)))),
    R("f16flr", VEC, "H", H, Exact, H(std::floor(h(a)))),
    R("f16clg", VEC, "H", H, Exact, H(std::ceil(h(a)))),
    R("f16trc", VEC, "H", H, Exact, H(std::trunc(h(a)))),
    R("f16frc", VEC, "H", H, AnyZero, H(h(a) - std::floor(h(a)))),
    R("f16sgn", VEC, "H", H, Exact, H(Sign(h(a)))),
    R("f16ldexp", VEC, "HW", H, Exact, H(std::ldexp(h(a), std::min(std::max(x(b), -900), 900)))),
    R("f16frexp_exp", VEC, "H", U, Exact, W(h(a) == 0 || !std::isfinite(h(a)) ? 0 : static_cast<uint64_t>(std::ilogb(h(a)) + 1))),
    R("f16frexp_mant", VEC, "H", H, Exact, h(a) == 0 || !std::isfinite(h(a)) ? W(a) : H(std::scalbn(h(a), -std::ilogb(h(a)) - 1))),
    R("f16toi16", VEC, "H", U, Exact, W(Cut(h(a), -32768, 32767, 0x8000, 0x7FFF))),
    R("f16tou16", VEC, "H", U, Exact, Cut(h(a), 0, 65535, 0, 0xFFFF)),
    R("i16tof16", VEC, "W", H, Exact, H(static_cast<double>(x(a)))),
    R("u16tof16", VEC, "W", H, Exact, H(static_cast<double>(w(a)))),
    R("i16shl", VEC, "WC", U, Exact, W(a << (b % 16))),
    R("i16shr", VEC, "WC", U, Exact, W(static_cast<uint64_t>(x(a) >> (b % 16)))),
    R("u16shr", VEC, "WC", U, Exact, w(a) >> (b % 16)),
    R("i16max", VEC, "WW", U, Exact, W(static_cast<uint64_t>(std::max(x(a), x(b))))),
    R("i16min", VEC, "WW", U, Exact, W(static_cast<uint64_t>(std::min(x(a), x(b))))),
    R("u16max", VEC, "WW", U, Exact, std::max(w(a), w(b))),
    R("u16min", VEC, "WW", U, Exact, std::min(w(a), w(b))),
    R("u16add", VEC, "WW", U, Exact, W(a + b)),
    R("u16sub", VEC, "WW", U, Exact, W(a - b)),
    R("u16mul", VEC, "WW", U, Exact, W(a * b)),
    R("u16mad", VEC, "WWW", U, Exact, W(a * b + c)),
    R("i16mad", VEC, "WWW", U, Exact, W(a * b + c)),
    R("i16eq", VEC, "WW", U, Exact, M(w(a) == w(b))),
    R("i16ne", VEC, "WW", U, Exact, M(w(a) != w(b))),
    R("i16lt", VEC, "WW", U, Exact, M(x(a) < x(b))),
    R("i16ge", VEC, "WW", U, Exact, M(x(a) >= x(b))),
    R("u16lt", VEC, "WW", U, Exact, M(w(a) < w(b))),
    R("u16ge", VEC, "WW", U, Exact, M(w(a) >= w(b))),
};
// clang-format on

/// The values for a letter, the most special ones first: with three sources each uses the first ten.
const std::vector<uint64_t>& Values(char cLetter)
{
    static const std::vector<uint64_t> s_vWords = {0,          1,          0xFFFFFFFF, 0x80000000, 0x7FFFFFFF, 2,
                                                   0xFFFFFFF9, 0x00FFFFFF, 0x01000002, 0x12345678, 0x800000,   31,
                                                   32,         10,         0xFF00FF00, 0x10000,    0xFFFF8000, 0xFFFF};
    static const std::vector<uint64_t> s_vCounts = {0,  1, 31, 32, 33, 63,         64,
                                                    65, 8, 15, 16, 17, 0xFFFFFFFF, 0x80000000};
    static const std::vector<uint64_t> s_vClasses = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 0, 0x3FF};
    static const std::vector<uint64_t> s_vFloats = {
        F(0.0),  F(-0.0),         F(1.0),        F(INFINITY),     F(-INFINITY),    F(double{NAN}), F(1e-40),
        F(-1.5), F(3.4028235e38), F(2.5),        0x00000001,      0x80800000,      F(-2.5),        F(0.5),
        F(-0.5), F(1e10),         F(-3e9),       F(2147483648.0), F(4294967296.0), F(65519.99),    F(16777217.5),
        F(3.3),  F(-1e-3),        F(0.99999994), F(300.0),        0x7F800001,      F(-7.0),        F(6e-8)};
    static const std::vector<uint64_t> s_vFinite = {F(0.0),  F(1.0), F(-1.0), F(-2.5), F(0.75),
                                                    F(-3.0), F(2.5), F(1e-3), F(-1e3), F(3.0)};
    static const std::vector<uint64_t> s_vLongs = {0,
                                                   1,
                                                   ~0ull,
                                                   1ull << 63,
                                                   ~(1ull << 63),
                                                   0xFFFFFFFF,
                                                   1ull << 32,
                                                   0x100000001ull,
                                                   ~0ull - 6,
                                                   0xDEADBEEF12345678ull,
                                                   7,
                                                   10,
                                                   1ull << 53,
                                                   (1ull << 53) + 1,
                                                   0x80000000,
                                                   0xFFFFFFFF00000000ull};
    static const std::vector<uint64_t> s_vDoubles = {D(0.0),
                                                     D(-0.0),
                                                     D(1.0),
                                                     D(INFINITY),
                                                     D(-INFINITY),
                                                     D(double{NAN}),
                                                     1,
                                                     D(-1.5),
                                                     D(2.5),
                                                     D(1e308),
                                                     D(1e-310),
                                                     D(-2.5),
                                                     D(3.9),
                                                     D(-3e9),
                                                     D(1e20),
                                                     D(-1e30),
                                                     D(0.5),
                                                     D(-0.5),
                                                     D(4294967295.5),
                                                     D(9.3e18),
                                                     D(1.8e19),
                                                     D(1e-50),
                                                     0x7FF0000000000001ull,
                                                     D(0x1p-1022)};
    static const std::vector<uint64_t> s_vHalves = {0,      0x8000, 0x3C00, 0x7C00, 0xFC00, 0x7E00, 0x0001,
                                                    0xBE00, 0x7BFF, 0x4100, 0x0400, 0x83FF, 0x3555, 0xC100,
                                                    0x3800, 0xB800, 0x7C01, 0x4D00, 0xF800, 0x5640, 0x2001};
    static const std::vector<uint64_t> s_vShorts = {0,      1,      0xFFFF, 0x8000, 0x7FFF, 0x1FFFF,   2,
                                                    0xFFF9, 0x0100, 0x1234, 15,     16,     0xABCD8001};
    switch (cLetter)
    {
    case 'C':
        return s_vCounts;
    case 'B':
        return s_vClasses;
    case 'F':
        return s_vFloats;
    case 'G':
        return s_vFinite;
    case 'L':
        return s_vLongs;
    case 'D':
        return s_vDoubles;
    case 'H':
        return s_vHalves;
    case 'W':
        return s_vShorts;
    default:
        return s_vWords;
    }
}

bool IsLong(char cLetter)
{
    return cLetter == 'L' || cLetter == 'D';
}

typedef std::array<uint64_t, 3> Sources;

/// All products of the sources' values, repeated to fill whole work-items of four.
std::vector<Sources> Products(const SRule& rule)
{
    const size_t nSources = std::strlen(rule.pszSources);
    std::vector<Sources> vProducts = {{0, 0, 0}};
    for (size_t n = 0; n < nSources; ++n)
    {
        const std::vector<uint64_t>& vValues = Values(rule.pszSources[n]);
        const size_t nValues = nSources == 3 ? std::min<size_t>(vValues.size(), 10) : vValues.size();
        std::vector<Sources> vNext;
        for (const Sources& product : vProducts)
        {
            for (size_t v = 0; v < nValues; ++v)
            {
                vNext.push_back(product);
                vNext.back()[n] = vValues[v];
            }
        }
        vProducts = vNext;
    }
    while (vProducts.size() % 4 != 0)
    {
        vProducts.push_back(vProducts[vProducts.size() % 4]);
    }
    return vProducts;
}

/// How a rule's products are arranged in a work-item's registers.
struct SLayout
{
    explicit SLayout(const SRule& rule) : eForm(rule.eForm), bLongResult(IsLong(rule.cResult))
    {
        nPerItem = eForm == VEC ? 4 : (eForm == SCALAR ? 1 : 2);
    }

    uint32_t SourceWord(uint32_t nSlot, bool bLong) const
    {
        if (bLong)
        {
            return nSlot * 2;
        }
        return eForm == SCALAR ? 3 : (eForm == PAIR ? nSlot * 2 : nSlot);
    }

    uint32_t ResultWord(uint32_t nSlot) const { return bLongResult ? nSlot * 2 : nSlot; }

    EForm eForm;
    bool bLongResult;
    uint32_t nPerItem;
};

bool IsNaN(char cResult, uint64_t n)
{
    return cResult == 'F' ? f(n) != f(n) : (cResult == 'D' ? d(n) != d(n) : cResult == 'H' && h(n) != h(n));
}

bool Agrees(const SRule& rule, uint64_t nExpected, uint64_t nOut)
{
    if (nExpected == nOut || (IsNaN(rule.cResult, nExpected) && IsNaN(rule.cResult, nOut)))
    {
        return true;
    }
    const uint64_t nSign = 1ull << (rule.cResult == 'D' ? 63 : (rule.cResult == 'H' ? 15 : 31));
    if (rule.eSlack == AnyZero)
    {
        return (nExpected & ~nSign) == 0 && (nOut & ~nSign) == 0;
    }
    return rule.eSlack == LastBit && !IsNaN(rule.cResult, nOut) && Distance(nExpected, nOut) <= 1;
}

class CRuleRun
{
public:
    explicit CRuleRun(const SRule& rule)
        : m_rule(rule), m_layout(rule), m_vProducts(Products(rule)),
          m_nItems(static_cast<uint32_t>(m_vProducts.size()) / m_layout.nPerItem), m_run(Text(rule), Declarations())
    {
        m_run.vInput.assign(m_nItems * 12, 0x7FC12345);
        for (uint32_t n = 0; n < m_vProducts.size(); ++n)
        {
            for (uint32_t i = 0; rule.pszSources[i]; ++i)
            {
                const bool bLong = IsLong(rule.pszSources[i]);
                uint32_t* const pWord = &m_run.vInput[(n / m_layout.nPerItem) * 12 + i * 4 +
                                                      m_layout.SourceWord(n % m_layout.nPerItem, bLong)];
                pWord[0] = u(m_vProducts[n][i]);
                if (bLong)
                {
                    pWord[1] = u(m_vProducts[n][i] >> 32);
                }
            }
        }
        m_run.SetSize(m_nItems, 1);
        for (uint32_t n = 2; n <= 256; ++n)
        {
            if (m_nItems % n == 0)
            {
                m_run.SetSize(m_nItems, n);
            }
        }
    }

    /// \param bMasked only every other work-item executes the instruction; for the others nothing may change
    void Check(bool bMasked)
    {
        const uint32_t nKept = 0x5A5A5A5A;
        m_run.launch.vConstantBuffer1.assign(32, 0);
        m_run.launch.vConstantBuffer1[8] = bMasked ? 1 : 0;
        m_run.vOutput.assign(m_nItems * 4, 0);
        EXPECT_EQ(m_run.Run().nBadAccesses, 0u);
        uint32_t nFaults = 0;
        for (uint32_t n = 0; n < m_vProducts.size() && nFaults < 5; ++n)
        {
            const uint32_t nItem = n / m_layout.nPerItem;
            const uint32_t* const pOut = &m_run.vOutput[nItem * 4 + m_layout.ResultWord(n % m_layout.nPerItem)];
            const bool bStays = bMasked && nItem % 2 == 1;
            const uint64_t nOut = m_layout.bLongResult ? pOut[0] | (static_cast<uint64_t>(pOut[1]) << 32) : pOut[0];
            const Sources& product = m_vProducts[n];
            const uint64_t nExpected = m_rule.pfHost(product[0], product[1], product[2]);
            const bool bRight = bStays ? pOut[0] == nKept : Agrees(m_rule, nExpected, nOut);
            nFaults += bRight ? 0 : 1;
            EXPECT_TRUE(bRight) << m_rule.pszName << std::hex << " of " << product[0] << ", " << product[1] << ", "
                                << product[2] << ": " << nOut << " for " << nExpected << (bMasked ? ", masked" : "");
        }
    }

private:
    static std::string Text(const SRule& rule)
    {
        const std::string strSources[] = {"", ", r1", ", r1, r2", ", r1, r2, r3"};
        return IndexLines() +
               std::string("imul r101.x, r100.x, l0.x\niadd r101.x, r101.x, cb1[1].x\n"
                           "uav_raw_load_id(11) r1, r101.x\niadd r101.y, r101.x, l0.y\n"
                           "uav_raw_load_id(11) r2, r101.y\niadd r101.z, r101.y, l0.y\n"
                           "uav_raw_load_id(11) r3, r101.z\nmov r0, l1\n"
                           "and r102.x, r100.x, cb1[2].x\nif_logicalz r102.x\n") +
               rule.pszName + " r0" + strSources[std::strlen(rule.pszSources)] +
               "\nendif\nuav_raw_store_id(11) mem0, r100.y, r0\n";
    }

    static std::string Declarations()
    {
        return std::string(IndexLiterals()) + "dcl_literal l0, 48, 16, 0, 0\n" +
               "dcl_literal l1, 0x5A5A5A5A, 0x5A5A5A5A, 0x5A5A5A5A, 0x5A5A5A5A\n";
    }

    const SRule& m_rule;
    SLayout m_layout;
    std::vector<Sources> m_vProducts;
    uint32_t m_nItems;
    CKernelRun m_run;
};

template <size_t N>
void CheckRules(const SRule (&rules)[N])
{
    for (const auto eSet : {KestrelPlatform::EInstructionSet::Baseline, KestrelPlatform::EInstructionSet::Avx2,
                            KestrelPlatform::EInstructionSet::Avx512})
    {
        if (!KestrelPlatform::ChooseInstructionSet(eSet))
        {
            continue;
        }
        for (const SRule& rule : rules)
        {
            CRuleRun run(rule);
            run.Check(false);
            run.Check(true);
        }
    }
}

TEST(RuleSweep, Singles)
{
    CheckRules(s_Singles);
}

TEST(RuleSweep, Integers)
{
    CheckRules(s_Integers);
}

TEST(RuleSweep, Pairs)
{
    CheckRules(s_Pairs);
}

TEST(RuleSweep, Halves)
{
    CheckRules(s_Halves);
}

/// A rule that is added to the interpreter needs a row here.
TEST(RuleSweep, NoRuleIsLeftOut)
{
    std::set<std::string> setNames;
    for (const SRule& rule : s_Singles)
    {
        setNames.insert(rule.pszName);
    }
    for (const SRule& rule : s_Integers)
    {
        setNames.insert(rule.pszName);
    }
    for (const SRule& rule : s_Pairs)
    {
        setNames.insert(rule.pszName);
    }
    for (const SRule& rule : s_Halves)
    {
        setNames.insert(rule.pszName);
    }
    std::set<uint32_t> setNumbers;
    std::map<uint32_t, std::string> mapAll;
#define IL_KEYWORD(text, value, format)                                                                                \
    mapAll.emplace(value, text);                                                                                       \
    if (setNames.count(text))                                                                                          \
        setNumbers.insert(value);
#include "il/ILOpCodes.def"
    for (const auto& opCode : mapAll)
    {
        const bool bRule = KestrelPlatform::GetOpCodeClass(opCode.first) == KestrelPlatform::ClassLane;
        EXPECT_TRUE(!bRule || setNumbers.count(opCode.first)) << opCode.second;
    }
}

} // namespace
} // namespace KestrelPlatformTest
