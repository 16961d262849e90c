#include "tools/session/debug/Arithmetic.h"

#include "tools/source/CNumbers.h"

#include <vector>

namespace KestrelTool
{

namespace
{

/// Defines what C leaves undefined: integers wrap, a division by 0 gives 0, and a shift uses only the bits that it
/// needs.
template <typename T>
T CombineIntegers(ENode eNode, T left, T right)
{
    typedef std::make_unsigned_t<T> Bits;
    typedef std::conditional_t<(sizeof(T) < sizeof(unsigned int)), unsigned int, Bits> Wide;
    const Wide nLeft = static_cast<Bits>(left);
    const Wide nRight = static_cast<Bits>(right);
    const unsigned int nBits = 8 * sizeof(T);
    const bool bMinusOne = std::is_signed_v<T> && right == static_cast<T>(-1);
    switch (eNode)
    {
    case ENode::Add:
        return static_cast<T>(nLeft + nRight);
    case ENode::Subtract:
        return static_cast<T>(nLeft - nRight);
    case ENode::Multiply:
        return static_cast<T>(nLeft * nRight);
    case ENode::Divide:
        return right == 0 || bMinusOne ? static_cast<T>(nLeft * nRight) : static_cast<T>(left / right);
    case ENode::Remainder:
        return right == 0 || bMinusOne ? 0 : static_cast<T>(left % right);
    case ENode::ShiftLeft:
        return static_cast<T>(nLeft << (nRight & (nBits - 1)));
    case ENode::ShiftRight:
        return static_cast<T>(left >> (nRight & (nBits - 1)));
    case ENode::BitAnd:
        return static_cast<T>(nLeft & nRight);
    case ENode::BitOr:
        return static_cast<T>(nLeft | nRight);
    default:
        return static_cast<T>(nLeft ^ nRight);
    }
}

template <typename T>
T CombineFloats(ENode eNode, T fLeft, T fRight)
{
    switch (eNode)
    {
    case ENode::Add:
        return fLeft + fRight;
    case ENode::Subtract:
        return fLeft - fRight;
    case ENode::Multiply:
        return fLeft * fRight;
    default:
        return fLeft / fRight;
    }
}

template <typename T>
bool CompareNumbers(ENode eNode, T left, T right, bool bNaNsEqual)
{
    const bool bEqual = left == right || (bNaNsEqual && left != left && right != right);
    switch (eNode)
    {
    case ENode::Less:
        return left < right;
    case ENode::LessEqual:
        return left <= right;
    case ENode::Greater:
        return left > right;
    case ENode::GreaterEqual:
        return left >= right;
    default:
        return bEqual == (eNode == ENode::Equal);
    }
}

} // namespace

void CombineNumbers(const SExpressionNode& node, const SSourceType& operand, const unsigned char* pLeft,
                    const unsigned char* pRight, unsigned char* pResults, size_t nCount)
{
    const size_t nNumbers = nCount * CountScalars(operand);
    const SSourceType& result = ScalarOf(*node.pType);
    const int64_t nTrue = IsVector(*node.pType) ? -1 : 1;
    const auto combine = [&](auto zero)
    {
        typedef decltype(zero) T;
        for (size_t n = 0; n < nNumbers; ++n)
        {
            const T left = LoadAs<T>(pLeft + n * sizeof(T));
            const T right = LoadAs<T>(pRight + n * sizeof(T));
            if (IsComparison(node.eNode))
            {
                const int64_t nResult = CompareNumbers(node.eNode, left, right, node.bNaNsEqual) ? nTrue : 0;
                std::memcpy(pResults + n * result.nSize, &nResult, result.nSize);
            }
            else if constexpr (std::is_integral_v<T>)
            {
                StoreAs(pResults + n * sizeof(T), CombineIntegers(node.eNode, left, right));
            }
            else
            {
                const T value = CombineFloats(node.eNode, left, right);
                ConvertNumbers(ScalarOf(operand), reinterpret_cast<const unsigned char*>(&value), result,
                               pResults + n * result.nSize, 1);
            }
        }
    };
    VisitScalar(ScalarOf(operand),
                [&](auto zero)
                {
                    // Halves are computed as floats.
                    if constexpr (!std::is_same_v<decltype(zero), SHalf>)
                    {
                        combine(zero);
                    }
                });
}

void ChangeNumbers(const SExpressionNode& node, const SSourceType& operand, const unsigned char* pValues,
                   unsigned char* pResults, size_t nCount)
{
    const SSourceType& scalar = ScalarOf(operand);
    const SSourceType& result = ScalarOf(*node.pType);
    const size_t nNumbers = nCount * CountScalars(operand);
    const int64_t nTrue = IsVector(*node.pType) ? -1 : 1;
    for (size_t n = 0; n < nNumbers && node.eNode == ENode::Not; ++n)
    {
        const int64_t nResult = IsNumberTrue(scalar, pValues + n * scalar.nSize) ? 0 : nTrue;
        std::memcpy(pResults + n * result.nSize, &nResult, result.nSize);
    }
    if (node.eNode == ENode::Not)
    {
        return;
    }
    VisitScalar(scalar,
                [&](auto zero)
                {
                    typedef decltype(zero) T;
                    for (size_t n = 0; n < nNumbers; ++n)
                    {
                        const T value = LoadAs<T>(pValues + n * sizeof(T));
                        if constexpr (std::is_same_v<T, SHalf>)
                        {
                            StoreAs(pResults + n * sizeof(T), static_cast<uint16_t>(value.nBits ^ 0x8000));
                        }
                        else if constexpr (std::is_floating_point_v<T>)
                        {
                            StoreAs(pResults + n * sizeof(T), -value);
                        }
                        else
                        {
                            const T negated = CombineIntegers(ENode::Subtract, T(0), value);
                            StoreAs(pResults + n * sizeof(T),
                                    node.eNode == ENode::Complement ? static_cast<T>(~value) : negated);
                        }
                    }
                });
}

void ConvertValues(const SSourceType& from, const unsigned char* pFrom, const SSourceType& to, unsigned char* pTo,
                   size_t nCount)
{
    if (!IsVector(to) || IsVector(from))
    {
        if (IsArithmetic(ScalarOf(to)) || IsPointer(to))
        {
            return ConvertNumbers(ScalarOf(from), pFrom, ScalarOf(to), pTo, nCount * CountScalars(to));
        }
        std::memcpy(pTo, pFrom, nCount * to.nSize); // a structure, unchanged
        return;
    }
    const SSourceType& element = *to.pElement;
    std::vector<unsigned char> vConverted(nCount * element.nSize);
    ConvertNumbers(from, pFrom, element, vConverted.data(), nCount);
    const size_t nComponents = CountScalars(to);
    for (size_t n = 0; n < nCount * nComponents; ++n)
    {
        std::memcpy(pTo + n * element.nSize, &vConverted[n / nComponents * element.nSize], element.nSize);
    }
}

} // namespace KestrelTool
