#include "core/Decimal.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "core/Log.h"

namespace brassline {

namespace {

using u128 = UInt128;
using u64 = uint64_t;

constexpr std::array<u128, 39> makePowersOf10() {
    std::array<u128, 39> powers{};
    u128 value = 1;
    for (auto& power : powers) {
        power = value;
        value *= 10;
    }
    return powers;
}

constexpr std::array<u128, 39> kPow10 = makePowersOf10();

constexpr std::array<u64, 20> makeSmallPowersOf10() {
    std::array<u64, 20> powers{};
    u64 value = 1;
    for (auto& power : powers) {
        power = value;
        value *= 10;
    }
    return powers;
}

constexpr std::array<u64, 20> kPow10Small = makeSmallPowersOf10();
constexpr u128 kSignificandLimit = kPow10[38];
constexpr u64 kPow10To19 = 10'000'000'000'000'000'000ull;

// Exponents of text are clamped to this before they reach int arithmetic: anything beyond
// is far outside the range and ends as overflow or zero either way.
constexpr int64_t kExponentClamp = 100000;

int bitLength(u128 value) {
    u64 high = static_cast<u64>(value >> 64);
    if (high != 0) {
        return 128 - __builtin_clzll(high);
    }
    u64 low = static_cast<u64>(value);
    return low == 0 ? 0 : 64 - __builtin_clzll(low);
}

// Number of decimal digits; 0 for 0.
int digitCount(u128 value) {
    if (value == 0) {
        return 0;
    }
    // bits × log10(2) estimates the digit count from below by at most one.
    int estimate = (bitLength(value) * 1233) >> 12;
    return estimate + (value >= kPow10[estimate] ? 1 : 0);
}

// u128 ÷ u64 where the quotient fits in 64 bits (high < divisor): one hardware division
// on x86-64 instead of the generic 128-bit library routine.
inline u64 divideWide(u64 high, u64 low, u64 divisor, u64& remainder) {
#if defined(__x86_64__)
    u64 quotient;
    u64 rest;
    __asm__("divq %4" : "=a"(quotient), "=d"(rest) : "a"(low), "d"(high), "rm"(divisor));
    remainder = rest;
    return quotient;
#else
    u128 numerator = (static_cast<u128>(high) << 64) | low;
    remainder = static_cast<u64>(numerator % divisor);
    return static_cast<u64>(numerator / divisor);
#endif
}

// u128 ÷ u64 through at most two hardware divisions.
inline u128 divideBySmall(u128 value, u64 divisor, u64& remainder) {
    u64 high = static_cast<u64>(value >> 64);
    u64 low = static_cast<u64>(value);
    u64 quotientHigh = 0;
    u64 rest = 0;
    if (high >= divisor) {
        quotientHigh = high / divisor;
        high %= divisor;
    }
    u64 quotientLow = divideWide(high, low, divisor, rest);
    remainder = rest;
    return (static_cast<u128>(quotientHigh) << 64) | quotientLow;
}

// Number of decimal digits of a 64-bit value; 0 for 0.
int digitCount(u64 value) {
    if (value == 0) {
        return 0;
    }
    int estimate = ((64 - __builtin_clzll(value)) * 1233) >> 12;
    return estimate + (value >= kPow10Small[estimate] ? 1 : 0);
}

// True when the value's last decimal digit is 0: even, and divisible by 5. As 2^32 ≡ 1
// (mod 5), the sum of the 32-bit quarters has the value's residue, and a multiple of 5
// times 5's inverse modulo 2^64 is at most (2^64 − 1) ÷ 5: no division instruction.
bool endsInZero(u128 value) {
    u64 high = static_cast<u64>(value >> 64);
    u64 low = static_cast<u64>(value);
    if ((low & 1) != 0) {
        return false;
    }
    u64 quarters = (high >> 32) + (high & 0xffffffffu) + (low >> 32) + (low & 0xffffffffu);
    return quarters * 0xcccccccccccccccdull <= 0x3333333333333333ull;
}

// An unsigned 256-bit integer, little-endian 64-bit limbs: wide enough for a product of
// two significands (76 digits) and for a dividend scaled to give 39 quotient digits.
struct U256 {
    std::array<u64, 4> limb{};

    static U256 from(u128 value) {
        U256 result;
        result.limb[0] = static_cast<u64>(value);
        result.limb[1] = static_cast<u64>(value >> 64);
        return result;
    }
    bool fitsIn128() const { return limb[2] == 0 && limb[3] == 0; }
    u128 low128() const { return (static_cast<u128>(limb[1]) << 64) | limb[0]; }
    bool isZero() const { return (limb[0] | limb[1] | limb[2] | limb[3]) == 0; }
    int usedLimbs() const {
        int count = 4;
        while (count > 0 && limb[count - 1] == 0) {
            --count;
        }
        return count;
    }
};

U256 multiply(u128 a, u128 b) {
    u64 a0 = static_cast<u64>(a);
    u64 a1 = static_cast<u64>(a >> 64);
    u64 b0 = static_cast<u64>(b);
    u64 b1 = static_cast<u64>(b >> 64);
    u128 p00 = static_cast<u128>(a0) * b0;
    u128 p01 = static_cast<u128>(a0) * b1;
    u128 p10 = static_cast<u128>(a1) * b0;
    u128 p11 = static_cast<u128>(a1) * b1;
    U256 result;
    result.limb[0] = static_cast<u64>(p00);
    u128 middle = (p00 >> 64) + static_cast<u64>(p01) + static_cast<u64>(p10);
    result.limb[1] = static_cast<u64>(middle);
    u128 upper = (middle >> 64) + (p01 >> 64) + (p10 >> 64) + static_cast<u64>(p11);
    result.limb[2] = static_cast<u64>(upper);
    result.limb[3] = static_cast<u64>((upper >> 64) + (p11 >> 64));
    return result;
}

// value × factor; the callers keep the product below 2^256.
void multiplySmall(U256& value, u64 factor) {
    u64 carry = 0;
    for (auto& part : value.limb) {
        u128 product = static_cast<u128>(part) * factor + carry;
        part = static_cast<u64>(product);
        carry = static_cast<u64>(product >> 64);
    }
}

void multiplyByPowerOf10(U256& value, int power) {
    while (power >= 19) {
        multiplySmall(value, kPow10To19);
        power -= 19;
    }
    if (power > 0) {
        multiplySmall(value, static_cast<u64>(kPow10[power]));
    }
}

void add(U256& value, u64 addend) {
    for (auto& part : value.limb) {
        u64 before = part;
        part += addend;
        if (part >= before) {
            return;
        }
        addend = 1;
    }
}

void add(U256& value, u128 addend) {
    U256 other = U256::from(addend);
    u64 carry = 0;
    for (size_t i = 0; i < 4; ++i) {
        u128 sum = static_cast<u128>(value.limb[i]) + other.limb[i] + carry;
        value.limb[i] = static_cast<u64>(sum);
        carry = static_cast<u64>(sum >> 64);
    }
}

// value − subtrahend; the callers guarantee value ≥ subtrahend.
void subtract(U256& value, u128 subtrahend) {
    U256 other = U256::from(subtrahend);
    u64 borrow = 0;
    for (size_t i = 0; i < 4; ++i) {
        u128 difference = static_cast<u128>(value.limb[i]) - other.limb[i] - borrow;
        value.limb[i] = static_cast<u64>(difference);
        borrow = (difference >> 64) != 0 ? 1 : 0;
    }
}

// value ÷ divisor in place; answers the remainder.
u64 divideSmall(U256& value, u64 divisor) {
    u64 remainder = 0;
    for (int i = value.usedLimbs() - 1; i >= 0; --i) {
        value.limb[i] = divideWide(remainder, value.limb[i], divisor, remainder);
    }
    return remainder;
}

void divideByPowerOf10(U256& value, int power) {
    while (power >= 19) {
        divideSmall(value, kPow10To19);
        power -= 19;
    }
    if (power > 0) {
        divideSmall(value, static_cast<u64>(kPow10[power]));
    }
}

int digitCount(const U256& value) {
    if (value.fitsIn128()) {
        return digitCount(value.low128());
    }
    // Values up to 2^256 (78 digits) may take three steps before they fit in 128 bits.
    U256 rest = value;
    int dropped = 0;
    while (!rest.fitsIn128()) {
        divideSmall(rest, kPow10To19);
        dropped += 19;
    }
    return dropped + digitCount(rest.low128());
}

// The quotient of a dividend below 2^256 and a divisor of 65 to 128 bits (Knuth's
// algorithm D on 64-bit limbs). The remainder is not needed: plain rounding looks only at
// the first digit beyond the kept ones, and the caller asks for one digit more.
U256 divideLarge(const U256& dividend, u128 divisor) {
    const int n = 2;
    int m = dividend.usedLimbs();
    U256 quotient;
    if (m < n) {
        return quotient;
    }
    u64 v[2] = {static_cast<u64>(divisor), static_cast<u64>(divisor >> 64)};
    int shift = __builtin_clzll(v[1]);
    u64 vn[2];
    vn[1] = shift == 0 ? v[1] : (v[1] << shift) | (v[0] >> (64 - shift));
    vn[0] = v[0] << shift;
    u64 un[5] = {};
    un[m] = shift == 0 ? 0 : dividend.limb[m - 1] >> (64 - shift);
    for (int i = m - 1; i > 0; --i) {
        un[i] = shift == 0 ? dividend.limb[i] : (dividend.limb[i] << shift) | (dividend.limb[i - 1] >> (64 - shift));
    }
    un[0] = dividend.limb[0] << shift;

    const u128 base = static_cast<u128>(1) << 64;
    for (int j = m - n; j >= 0; --j) {
        u128 numerator = (static_cast<u128>(un[j + n]) << 64) | un[j + n - 1];
        u128 estimate = numerator / vn[n - 1];
        u128 rest = numerator % vn[n - 1];
        while (estimate >= base || estimate * vn[n - 2] > ((rest << 64) | un[j + n - 2])) {
            --estimate;
            rest += vn[n - 1];
            if (rest >= base) {
                break;
            }
        }
        u64 carry = 0;
        u64 borrow = 0;
        for (int i = 0; i < n; ++i) {
            u128 product = estimate * vn[i] + carry;
            carry = static_cast<u64>(product >> 64);
            u128 difference = static_cast<u128>(un[i + j]) - static_cast<u64>(product) - borrow;
            un[i + j] = static_cast<u64>(difference);
            borrow = (difference >> 64) != 0 ? 1 : 0;
        }
        u128 top = static_cast<u128>(un[j + n]) - carry - borrow;
        un[j + n] = static_cast<u64>(top);
        if ((top >> 64) != 0) {
            // The estimate was one too large: add the divisor back.
            --estimate;
            u64 addCarry = 0;
            for (int i = 0; i < n; ++i) {
                u128 sum = static_cast<u128>(un[i + j]) + vn[i] + addCarry;
                un[i + j] = static_cast<u64>(sum);
                addCarry = static_cast<u64>(sum >> 64);
            }
            un[j + n] += addCarry;
        }
        quotient.limb[j] = static_cast<u64>(estimate);
    }
    return quotient;
}

// Strips trailing zeros from a significand, stopping at the top exponent.
void stripTrailingZeros(u128& significand, int& exponent) {
    if ((significand & 1) != 0) {
        return;
    }
    while (exponent < Decimal::kMaxExponent && (significand >> 64) != 0) {
        u64 remainder = 0;
        u128 quotient = divideBySmall(significand, 10, remainder);
        if (remainder != 0) {
            return;
        }
        significand = quotient;
        ++exponent;
    }
    if ((significand >> 64) != 0) {
        return;
    }
    u64 small = static_cast<u64>(significand);
    while (exponent < Decimal::kMaxExponent && small % 10 == 0) {
        small /= 10;
        ++exponent;
    }
    significand = small;
}

}  // namespace

// The single exit of every operation: takes an exact (or, for division, truncated with
// one spare digit) magnitude, rounds it once, plainly, to 38 digits and to the smallest
// exponent, strips trailing zeros and checks the top of the range. Rounding once matters:
// rounding to 38 digits and then again to the smallest exponent could round twice.
class DecimalBuilder {
public:
    static Decimal make(u128 significand, int exponent, bool negative) {
        Decimal result;
        result.m_significand = significand;
        result.m_exponent = static_cast<int16_t>(exponent);
        result.m_negative = negative;
        return result;
    }

    // Rounded to at most 38 digits already (the value may be exactly 10^38 after a
    // carry); exponent at least the minimum.
    static Decimal normalise(u128 significand, int exponent, bool negative) {
        if (significand == 0) {
            return Decimal();
        }
        stripTrailingZeros(significand, exponent);
        if (significand >= kSignificandLimit) {
            return Decimal::notANumber();
        }
        if (exponent > Decimal::kMaxExponent) {
            int missing = exponent - Decimal::kMaxExponent;
            if (missing >= Decimal::kMaxDigits || significand >= kPow10[Decimal::kMaxDigits - missing]) {
                return Decimal::notANumber();
            }
            significand *= kPow10[missing];
            exponent = Decimal::kMaxExponent;
        }
        return make(significand, exponent, negative);
    }

    // A magnitude below 2^64 at an exponent within the range: only trailing zeros to strip.
    static Decimal normaliseSmall(u64 significand, int exponent, bool negative) {
        if (significand == 0) {
            return Decimal();
        }
        while (exponent < Decimal::kMaxExponent && significand % 10 == 0) {
            significand /= 10;
            ++exponent;
        }
        return make(significand, exponent, negative);
    }

    static Decimal finish(u128 magnitude, int exponent, bool negative) {
        if (magnitude < kSignificandLimit && exponent >= Decimal::kMinExponent) {
            return normalise(magnitude, exponent, negative);
        }
        if (magnitude == 0) {
            return Decimal();
        }
        int digits = digitCount(magnitude);
        int drop = std::max(digits - Decimal::kMaxDigits, Decimal::kMinExponent - exponent);
        if (drop > digits) {
            return Decimal();
        }
        u64 roundingDigit = 0;
        u128 kept = magnitude;
        if (drop > 1) {
            kept /= kPow10[drop - 1];
        }
        kept = divideBySmall(kept, 10, roundingDigit);
        if (roundingDigit >= 5) {
            ++kept;
        }
        return normalise(kept, exponent + drop, negative);
    }

    static Decimal finish(const U256& magnitude, int exponent, bool negative) {
        if (magnitude.fitsIn128()) {
            return finish(magnitude.low128(), exponent, negative);
        }
        int digits = digitCount(magnitude);
        int drop = std::max(digits - Decimal::kMaxDigits, Decimal::kMinExponent - exponent);
        if (drop > digits) {
            return Decimal();
        }
        U256 kept = magnitude;
        divideByPowerOf10(kept, drop - 1);
        u64 roundingDigit = divideSmall(kept, 10);
        u128 significand = kept.low128();
        if (roundingDigit >= 5) {
            ++significand;
        }
        return normalise(significand, exponent + drop, negative);
    }

    static Decimal add(const Decimal& left, const Decimal& right, bool negateRight) {
        if (left.m_nan || right.m_nan) {
            return Decimal::notANumber();
        }
        bool rightNegative = right.m_negative != negateRight;
        if (right.m_significand == 0) {
            return left;
        }
        if (left.m_significand == 0) {
            return make(right.m_significand, right.m_exponent, rightNegative);
        }
        // a: the operand with the larger exponent.
        u128 a = left.m_significand;
        int aExponent = left.m_exponent;
        bool aNegative = left.m_negative;
        u128 b = right.m_significand;
        int bExponent = right.m_exponent;
        bool bNegative = rightNegative;
        if (aExponent < bExponent) {
            std::swap(a, b);
            std::swap(aExponent, bExponent);
            std::swap(aNegative, bNegative);
        }
        int gap = aExponent - bExponent;
        bool sameSign = aNegative == bNegative;

        if (((a | b) >> 64) == 0 && gap < 20) {
            // Money amounts: both operands and the aligned sum fit in 64 bits.
            u64 x = 0;
            u64 y = static_cast<u64>(b);
            if (!__builtin_mul_overflow(static_cast<u64>(a), kPow10Small[gap], &x)) {
                if (!sameSign) {
                    return x >= y ? normaliseSmall(x - y, bExponent, aNegative)
                                  : normaliseSmall(y - x, bExponent, bNegative);
                }
                u64 sum = 0;
                if (!__builtin_add_overflow(x, y, &sum)) {
                    return normaliseSmall(sum, bExponent, aNegative);
                }
            }
        }

        if (gap < Decimal::kMaxDigits && a < kPow10[Decimal::kMaxDigits - gap]) {
            // Both aligned operands fit below 10^38, so the sum fits in 128 bits.
            u128 x = a * kPow10[gap];
            if (sameSign) {
                return finish(x + b, bExponent, aNegative);
            }
            return x >= b ? finish(x - b, bExponent, aNegative) : finish(b - x, bExponent, bNegative);
        }
        if (gap <= 39) {
            // a × 10^39 < 10^77 < 2^256: the aligned sum is exact.
            U256 x = U256::from(a);
            multiplyByPowerOf10(x, gap);
            if (sameSign) {
                ::brassline::add(x, b);
                return finish(x, bExponent, aNegative);
            }
            if (x.fitsIn128() && x.low128() < b) {
                return finish(b - x.low128(), bExponent, bNegative);
            }
            subtract(x, b);
            return finish(x, bExponent, aNegative);
        }
        // The operands are far apart. Scale a to 40 digits; b's digits below a's last one
        // only decide the rounding, so they are replaced by one digit 1 below it (a sticky
        // digit). The result keeps at least 39 digits, so the rounding digit is a's last
        // digit or higher and the stand-in never becomes the rounding digit itself.
        int scale = 40 - digitCount(a);
        U256 x = U256::from(a);
        multiplyByPowerOf10(x, scale);
        int below = gap - scale;
        u128 high = below > Decimal::kMaxDigits ? 0 : b / kPow10[below];
        bool sticky = below > Decimal::kMaxDigits || b % kPow10[below] != 0;
        if (sameSign) {
            ::brassline::add(x, high);
        } else {
            subtract(x, high);
        }
        int exponent = aExponent - scale;
        if (sticky) {
            multiplySmall(x, 10);
            if (sameSign) {
                ::brassline::add(x, u64{1});
            } else {
                subtract(x, 1);
            }
            --exponent;
        }
        return finish(x, exponent, aNegative);
    }

    static Decimal multiply(const Decimal& left, const Decimal& right) {
        if (left.m_nan || right.m_nan) {
            return Decimal::notANumber();
        }
        bool negative = left.m_negative != right.m_negative;
        int exponent = left.m_exponent + right.m_exponent;
        u64 smallProduct = 0;
        if (((left.m_significand | right.m_significand) >> 64) == 0 && exponent >= Decimal::kMinExponent &&
            exponent <= Decimal::kMaxExponent &&
            !__builtin_mul_overflow(static_cast<u64>(left.m_significand), static_cast<u64>(right.m_significand),
                                    &smallProduct)) {
            return normaliseSmall(smallProduct, exponent, negative);
        }
        if ((left.m_significand >> 64) == 0 && (right.m_significand >> 64) == 0) {
            u128 product =
                static_cast<u128>(static_cast<u64>(left.m_significand)) * static_cast<u64>(right.m_significand);
            return finish(product, exponent, negative);
        }
        return finish(::brassline::multiply(left.m_significand, right.m_significand), exponent, negative);
    }

    // Two hardware divisions for operands below 2^64: the dividend is scaled so that the
    // first quotient has exactly 19 digits, the remainder gives 19 more, and the final
    // remainder against half the divisor decides the plain rounding. False where the
    // scaling does not fit or the result would round below the smallest exponent; the
    // general path handles those. Operands are non-zero.
    static bool divideSmallOperands(u64 dividend, u64 divisor, int exponent, bool negative, Decimal& result) {
        int dividendDigits = digitCount(dividend);
        int scale = 18 - dividendDigits + digitCount(divisor);
        if (scale < 0 || dividendDigits + scale + 1 > Decimal::kMaxDigits) {
            return false;
        }
        // dividend × 10^scale < 10^37: a split power keeps each factor within 64 bits.
        u128 scaled = scale <= 19 ? static_cast<u128>(dividend) * kPow10Small[scale]
                                  : static_cast<u128>(dividend * kPow10Small[scale - 19]) * kPow10To19;
        if (scaled < static_cast<u128>(divisor) * kPow10Small[18]) {
            ++scale;
            scaled *= 10;
        }
        // Now 10^18 ≤ scaled ÷ divisor < 10^19.
        u64 remainder = 0;
        u64 high = divideWide(static_cast<u64>(scaled >> 64), static_cast<u64>(scaled), divisor, remainder);
        exponent -= scale;
        if (remainder == 0) {
            result = finish(high, exponent, negative);
            return true;
        }
        u128 next = static_cast<u128>(remainder) * kPow10To19;
        u64 low = divideWide(static_cast<u64>(next >> 64), static_cast<u64>(next), divisor, remainder);
        u128 quotient = static_cast<u128>(high) * kPow10To19 + low;
        exponent -= 19;
        if (remainder == 0) {
            result = finish(quotient, exponent, negative);
            return true;
        }
        if (exponent < Decimal::kMinExponent) {
            return false;
        }
        if (remainder >= divisor - remainder) {
            ++quotient;
        }
        // A quotient rounded at 38 digits that does not end in 0 is already normal.
        result = exponent <= Decimal::kMaxExponent && !endsInZero(quotient) ? make(quotient, exponent, negative)
                                                                            : normalise(quotient, exponent, negative);
        return true;
    }

    // Operands below 2^64 first, out of line of everything else so that the common case
    // does not pay for the general path's registers and stack.
    static Decimal divide(const Decimal& left, const Decimal& right) {
        if (!left.m_nan && !right.m_nan && ((left.m_significand | right.m_significand) >> 64) == 0 &&
            left.m_significand != 0 && right.m_significand != 0) {
            Decimal result;
            if (divideSmallOperands(static_cast<u64>(left.m_significand), static_cast<u64>(right.m_significand),
                                    left.m_exponent - right.m_exponent, left.m_negative != right.m_negative, result)) {
                return result;
            }
        }
        return divideGeneral(left, right);
    }

    [[gnu::noinline]] static Decimal divideGeneral(const Decimal& left, const Decimal& right) {
        if (left.m_nan || right.m_nan || right.m_significand == 0) {
            return Decimal::notANumber();
        }
        if (left.m_significand == 0) {
            return Decimal();
        }
        bool negative = left.m_negative != right.m_negative;
        // Scale the dividend so that the integer quotient has 39 or 40 digits: 38 to keep
        // and at least one to round on. The dividend stays below 10^77.
        int scale = 39 + digitCount(right.m_significand) - digitCount(left.m_significand);
        int exponent = left.m_exponent - right.m_exponent - scale;
        U256 dividend = U256::from(left.m_significand);
        multiplyByPowerOf10(dividend, scale);
        if ((right.m_significand >> 64) == 0) {
            divideSmall(dividend, static_cast<u64>(right.m_significand));
            return finish(dividend, exponent, negative);
        }
        return finish(divideLarge(dividend, right.m_significand), exponent, negative);
    }
};

Decimal::Decimal(int64_t value) {
    u64 magnitude = value < 0 ? 0 - static_cast<u64>(value) : static_cast<u64>(value);
    *this = DecimalBuilder::normalise(magnitude, 0, value < 0);
}

Decimal Decimal::fromParts(UInt128 significand, int exponent, bool negative) {
    int64_t clamped = std::clamp<int64_t>(exponent, -kExponentClamp, kExponentClamp);
    return DecimalBuilder::finish(significand, static_cast<int>(clamped), negative);
}

Decimal Decimal::notANumber() {
    Decimal result;
    result.m_nan = true;
    return result;
}

std::optional<Decimal> Decimal::parse(std::string_view text) {
    if (text == "NaN") {
        return notANumber();
    }
    size_t i = 0;
    const size_t n = text.size();
    bool negative = false;
    if (i < n && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    // The first 38 significant digits go into `head`, the next two into `tail`; later
    // digits cannot change a plainly rounded result and only move the exponent.
    u128 head = 0;
    u64 tail = 0;
    int headDigits = 0;
    int tailDigits = 0;
    int64_t exponent = 0;
    bool anyDigit = false;
    bool seenPoint = false;
    for (; i < n; ++i) {
        char c = text[i];
        if (c >= '0' && c <= '9') {
            anyDigit = true;
            if (seenPoint) {
                --exponent;
            }
            int digit = c - '0';
            if (headDigits == 0 && digit == 0) {
                continue;
            }
            if (headDigits < kMaxDigits) {
                head = head * 10 + static_cast<unsigned>(digit);
                ++headDigits;
            } else if (tailDigits < 2) {
                tail = tail * 10 + static_cast<unsigned>(digit);
                ++tailDigits;
            } else {
                ++exponent;
            }
        } else if (c == '.' && !seenPoint) {
            seenPoint = true;
        } else {
            break;
        }
    }
    if (!anyDigit) {
        return std::nullopt;
    }
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        bool exponentNegative = false;
        if (i < n && (text[i] == '+' || text[i] == '-')) {
            exponentNegative = text[i] == '-';
            ++i;
        }
        if (i == n) {
            return std::nullopt;
        }
        int64_t written = 0;
        for (; i < n; ++i) {
            char c = text[i];
            if (c < '0' || c > '9') {
                return std::nullopt;
            }
            written = std::min<int64_t>(written * 10 + (c - '0'), kExponentClamp);
        }
        exponent += exponentNegative ? -written : written;
    }
    if (i != n) {
        return std::nullopt;
    }
    if (headDigits == 0) {
        return Decimal();
    }
    int clamped = static_cast<int>(std::clamp<int64_t>(exponent, -kExponentClamp, kExponentClamp));
    if (tailDigits == 0) {
        return DecimalBuilder::finish(head, clamped, negative);
    }
    U256 magnitude = U256::from(head);
    multiplyByPowerOf10(magnitude, tailDigits);
    add(magnitude, tail);
    return DecimalBuilder::finish(magnitude, clamped, negative);
}

Decimal Decimal::saveDecimalNumberWithString(std::string_view text) {
    std::optional<Decimal> value = parse(text);
    if (!value) {
        if (!text.empty()) {
            logMessage("Not a number, read as 0: \"%@\"", text);
        }
        return Decimal();
    }
    return value->validNumber();
}

Decimal Decimal::decimalNumberWithFloat(float value) {
    char buffer[64];
    int length = std::snprintf(buffer, sizeof buffer, "%f", static_cast<double>(value));
    if (length <= 0 || static_cast<size_t>(length) >= sizeof buffer) {
        return notANumber();
    }
    std::optional<Decimal> parsed = parse(std::string_view(buffer, static_cast<size_t>(length)));
    return parsed ? *parsed : notANumber();
}

Decimal Decimal::fromDouble(double value) {
    char buffer[64];
    std::to_chars_result written = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (written.ec != std::errc()) {
        return notANumber();
    }
    std::optional<Decimal> parsed = parse(std::string_view(buffer, static_cast<size_t>(written.ptr - buffer)));
    return parsed ? *parsed : notANumber();
}

Decimal Decimal::operator-() const {
    if (m_nan || m_significand == 0) {
        return *this;
    }
    Decimal result = *this;
    result.m_negative = !m_negative;
    return result;
}

Decimal Decimal::addGeneral(const Decimal& other, bool negateOther) const {
    return DecimalBuilder::add(*this, other, negateOther);
}

Decimal Decimal::operator*(const Decimal& other) const {
    return DecimalBuilder::multiply(*this, other);
}

Decimal Decimal::operator/(const Decimal& other) const {
    return DecimalBuilder::divide(*this, other);
}

std::strong_ordering Decimal::operator<=>(const Decimal& other) const {
    if (m_nan || other.m_nan) {
        return other.m_nan <=> m_nan;
    }
    int sign = m_significand == 0 ? 0 : (m_negative ? -1 : 1);
    int otherSign = other.m_significand == 0 ? 0 : (other.m_negative ? -1 : 1);
    if (sign != otherSign || sign == 0) {
        return sign <=> otherSign;
    }
    // Same sign, both non-zero: compare magnitudes, then flip for negatives.
    int adjusted = m_exponent + digitCount(m_significand);
    int otherAdjusted = other.m_exponent + digitCount(other.m_significand);
    std::strong_ordering magnitude = std::strong_ordering::equal;
    if (adjusted != otherAdjusted) {
        magnitude = adjusted <=> otherAdjusted;
    } else {
        // Equal leading-digit positions: the exponents differ by less than 38 digits and
        // the aligned significands stay below 10^38.
        u128 a = m_significand;
        u128 b = other.m_significand;
        if (m_exponent > other.m_exponent) {
            a *= kPow10[m_exponent - other.m_exponent];
        } else {
            b *= kPow10[other.m_exponent - m_exponent];
        }
        magnitude = a <=> b;
    }
    return sign > 0 ? magnitude : 0 <=> magnitude;
}

Decimal Decimal::rounded(int scale, RoundingMode mode) const {
    if (m_nan || m_significand == 0) {
        return *this;
    }
    int target = -std::clamp(scale, -1000, 1000);
    if (m_exponent >= target) {
        return *this;
    }
    int drop = target - m_exponent;
    u128 kept = 0;
    // The dropped part against half a unit of the kept last digit.
    std::strong_ordering againstHalf = std::strong_ordering::less;
    bool inexact = true;
    if (drop <= digitCount(m_significand)) {
        kept = m_significand / kPow10[drop];
        u128 rest = m_significand % kPow10[drop];
        u128 half = kPow10[drop - 1] * 5;
        againstHalf = rest <=> half;
        inexact = rest != 0;
    }
    bool up = false;
    switch (mode) {
        case RoundingMode::Plain:
            up = againstHalf != std::strong_ordering::less;
            break;
        case RoundingMode::Bankers:
            up = againstHalf == std::strong_ordering::greater ||
                 (againstHalf == std::strong_ordering::equal && (kept & 1) != 0);
            break;
        case RoundingMode::Up:
            up = inexact && !m_negative;
            break;
        case RoundingMode::Down:
            up = inexact && m_negative;
            break;
    }
    if (up) {
        ++kept;
    }
    return DecimalBuilder::normalise(kept, target, m_negative);
}

Decimal Decimal::multipliedByPowerOf10(int power) const {
    if (m_nan || m_significand == 0) {
        return *this;
    }
    int exponent = m_exponent + std::clamp(power, -1000, 1000);
    if (exponent < kMinExponent) {
        // The significand carries no trailing zeros, so nothing can be held exactly here.
        return notANumber();
    }
    return DecimalBuilder::normalise(m_significand, exponent, m_negative);
}

Decimal Decimal::roundUpToDigits(int digits) const {
    return rounded(digits, RoundingMode::Up);
}

Decimal Decimal::decimalNumberCalculatePercentage(const Decimal& percent) const {
    if (m_nan || percent.m_nan) {
        return notANumber();
    }
    // The hundredth is taken first and may itself round (at the bottom of the range), as
    // the rule's order of steps says; x × p ÷ 100 could differ in the last digit.
    Decimal hundredth = DecimalBuilder::finish(m_significand, m_exponent - 2, m_negative);
    return hundredth * percent;
}

Decimal Decimal::decimalNumberCalculatePercentage(const Decimal& percent, const BLTaxDetails* details) const {
    if (percent.m_nan) {
        return Decimal();
    }
    Decimal result = decimalNumberCalculatePercentage(percent);
    return details != nullptr ? result.fixedValue() : result;
}

Decimal Decimal::absoluteNumber() const {
    Decimal result = *this;
    result.m_negative = false;
    return result;
}

int Decimal::numberOfFractionDigits() const {
    if (m_nan || m_significand == 0 || m_exponent >= 0) {
        return 0;
    }
    return -m_exponent;
}

namespace {

// Decimal digits of a significand, most significant first; "0" for 0.
std::string significandText(u128 value) {
    char buffer[48];
    char* end = buffer + sizeof buffer;
    char* start = end;
    do {
        u64 remainder = 0;
        value = divideBySmall(value, 10, remainder);
        *--start = static_cast<char>('0' + remainder);
    } while (value != 0);
    return std::string(start, end);
}

}  // namespace

std::string Decimal::toString() const {
    if (m_nan) {
        return "NaN";
    }
    if (m_significand == 0) {
        return "0";
    }
    std::string digits = significandText(m_significand);
    std::string text;
    text.reserve(digits.size() + 2 + static_cast<size_t>(std::abs(m_exponent)));
    if (m_negative) {
        text += '-';
    }
    if (m_exponent >= 0) {
        text += digits;
        text.append(static_cast<size_t>(m_exponent), '0');
        return text;
    }
    int integerDigits = static_cast<int>(digits.size()) + m_exponent;
    if (integerDigits > 0) {
        text.append(digits, 0, static_cast<size_t>(integerDigits));
        text += '.';
        text.append(digits, static_cast<size_t>(integerDigits));
    } else {
        text += "0.";
        text.append(static_cast<size_t>(-integerDigits), '0');
        text += digits;
    }
    return text;
}

int64_t Decimal::toInt64() const {
    if (m_nan || m_significand == 0) {
        return 0;
    }
    u128 magnitude = m_significand;
    if (m_exponent < 0) {
        magnitude = m_exponent < -kMaxDigits ? 0 : magnitude / kPow10[-m_exponent];
    } else if (m_exponent > 0) {
        // 2^127 > 10^38 > 2^64 × 10^19, so anything needing more is past the range.
        if (digitCount(magnitude) + m_exponent > 20) {
            magnitude = kSignificandLimit;
        } else {
            magnitude *= kPow10[m_exponent];
        }
    }
    const u128 limit = m_negative ? (static_cast<u128>(1) << 63) : (static_cast<u128>(1) << 63) - 1;
    magnitude = std::min(magnitude, limit);
    if (m_negative) {
        return magnitude == limit ? INT64_MIN : -static_cast<int64_t>(magnitude);
    }
    return static_cast<int64_t>(magnitude);
}

int32_t Decimal::toInt32() const {
    return static_cast<int32_t>(std::clamp<int64_t>(toInt64(), INT32_MIN, INT32_MAX));
}

namespace {

// Text that the standard reader converts with correct rounding: "<digits>e<exponent>".
template <typename Float>
Float toBinary(bool nan, bool negative, u128 significand, int exponent) {
    if (nan) {
        return std::numeric_limits<Float>::quiet_NaN();
    }
    std::string text = negative ? "-" : "";
    text += significandText(significand);
    text += 'e';
    text += std::to_string(exponent);
    Float value = 0;
    std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (read.ec == std::errc::result_out_of_range) {
        // libstdc++ leaves the value alone out of range; infinity or zero is the answer.
        Float magnitude = exponent > 0 ? std::numeric_limits<Float>::infinity() : Float(0);
        return negative ? -magnitude : magnitude;
    }
    return value;
}

}  // namespace

double Decimal::toDouble() const {
    return toBinary<double>(m_nan, m_negative, m_significand, m_exponent);
}

float Decimal::toFloat() const {
    return toBinary<float>(m_nan, m_negative, m_significand, m_exponent);
}

}  // namespace brassline
