#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brassline {

class BLTaxDetails;

// The significand's type. __extension__ marks the GNU 128-bit integer as intended, so
// -Wpedantic stays on for everything else.
__extension__ typedef unsigned __int128 UInt128;

// How a value is rounded to a number of fraction digits. Plain rounds a digit 5 away
// from zero; Down and Up round toward negative and positive infinity (-1.234 rounds Down
// to -1.24 and Up to -1.23 at 2 digits); Bankers rounds a 5 to the even neighbour.
enum class RoundingMode : uint8_t { Plain, Down, Up, Bankers };

// The money value: sign, a base-10 significand of at most 38 digits, an exponent and a
// not-a-number state. Arithmetic is exact while the result fits in 38 significant digits
// and rounds plainly to 38 digits otherwise. Nothing throws: division by zero, overflow
// and any operation with not-a-number give not-a-number.
class Decimal {
public:
    static constexpr int kMaxDigits = 38;
    static constexpr int kMinExponent = -128;
    static constexpr int kMaxExponent = 127;

    constexpr Decimal() = default;
    Decimal(int64_t value);  // NOLINT: implicit from integers reads naturally in formulas.
    Decimal(int value) : Decimal(static_cast<int64_t>(value)) {}

    // Builds significand × 10^exponent, normalised; not-a-number when it cannot be held.
    static Decimal fromParts(UInt128 significand, int exponent, bool negative);
    static Decimal notANumber();
    static Decimal zero() { return {}; }
    static Decimal one() { return Decimal(int64_t{1}); }
    static Decimal hundred() { return Decimal(int64_t{100}); }

    // Text in plain or exponent notation ("1.5", "-0.005", "1e-3", ".5", "+2") or "NaN";
    // an optional is empty for anything else, spaces included. Digits beyond 38 are
    // rounded plainly; a value past the exponent range is not-a-number, one below it 0.
    static std::optional<Decimal> parse(std::string_view text);
    // parse, answering 0 for bad or empty text and for "NaN" (bad non-empty text is logged).
    static Decimal saveDecimalNumberWithString(std::string_view text);
    static Decimal decimalNumberWithInteger(int64_t value) { return Decimal(value); }
    // The float's text through "%f" (six fraction digits), then parsed.
    static Decimal decimalNumberWithFloat(float value);
    // The shortest decimal text that reads back as the same double (17 digits at most).
    static Decimal fromDouble(double value);

    bool isNaN() const { return m_nan; }
    bool isZero() const { return !m_nan && m_significand == 0; }
    bool isNegative() const { return !m_nan && m_negative && m_significand != 0; }
    // The test against 0 that the business rules make: through a 32-bit float.
    bool isZeroAsFloat() const { return toFloat() == 0.0f; }

    UInt128 significand() const { return m_significand; }
    int exponent() const { return m_exponent; }

    Decimal operator-() const;
    Decimal operator+(const Decimal& other) const {
        Decimal result;
        return addSmall(other, false, result) ? result : addGeneral(other, false);
    }
    Decimal operator-(const Decimal& other) const {
        Decimal result;
        return addSmall(other, true, result) ? result : addGeneral(other, true);
    }
    Decimal operator*(const Decimal& other) const;
    Decimal operator/(const Decimal& other) const;
    Decimal& operator+=(const Decimal& other) { return *this = *this + other; }
    Decimal& operator-=(const Decimal& other) { return *this = *this - other; }
    Decimal& operator*=(const Decimal& other) { return *this = *this * other; }
    Decimal& operator/=(const Decimal& other) { return *this = *this / other; }

    // Numeric comparison; not-a-number orders before every number and equals only itself,
    // so that sorting is total.
    std::strong_ordering operator<=>(const Decimal& other) const;
    bool operator==(const Decimal& other) const { return (*this <=> other) == 0; }

    // Rounds to `scale` fraction digits (negative scales round to tens, hundreds, ...).
    Decimal rounded(int scale, RoundingMode mode = RoundingMode::Plain) const;
    // × 10^power without rounding (not-a-number past the exponent range at either end).
    Decimal multipliedByPowerOf10(int power) const;

    // Named rounding steps of the money rules.
    Decimal fixedValue() const { return rounded(2); }
    Decimal fixed4DigitsValue() const { return rounded(4); }
    Decimal fixed5DigitsValue() const { return rounded(5); }
    // In spite of their names both round plainly.
    Decimal truncate() const { return rounded(2); }
    Decimal truncateTo5() const { return rounded(5); }
    Decimal roundUpToDigits(int digits) const;

    // x ÷ 100 × p, unrounded.
    Decimal decimalNumberCalculatePercentage(const Decimal& percent) const;
    // As above, rounded to 2 digits when a details object is given; a not-a-number
    // percentage gives 0. Filling the details is the caller's part.
    Decimal decimalNumberCalculatePercentage(const Decimal& percent, const BLTaxDetails* details) const;
    Decimal invert() const { return -*this; }
    Decimal absoluteNumber() const;
    // Not-a-number becomes 0; any other value stays.
    Decimal validNumber() const { return m_nan ? Decimal() : *this; }
    // Length of the fraction in the canonical text, 0 for a whole number.
    int numberOfFractionDigits() const;

    // Canonical text: plain notation, no exponent, no trailing zeros ("19", "-0.005"),
    // "NaN" for not-a-number.
    std::string toString() const;
    // Truncates toward zero and saturates at the int64 range; not-a-number gives 0.
    int64_t toInt64() const;
    int32_t toInt32() const;
    double toDouble() const;
    float toFloat() const;

private:
    friend class DecimalBuilder;

    static constexpr uint64_t kSmallPowersOf10[19] = {1ull,
                                                      10ull,
                                                      100ull,
                                                      1000ull,
                                                      10000ull,
                                                      100000ull,
                                                      1000000ull,
                                                      10000000ull,
                                                      100000000ull,
                                                      1000000000ull,
                                                      10000000000ull,
                                                      100000000000ull,
                                                      1000000000000ull,
                                                      10000000000000ull,
                                                      100000000000000ull,
                                                      1000000000000000ull,
                                                      10000000000000000ull,
                                                      100000000000000000ull,
                                                      1000000000000000000ull};

    // The sum (or difference) of money amounts, inline: both significands below 2^64, the
    // exponents at most 18 apart and the aligned result below 2^64 and not ending in 0 (so
    // already normal). Answers false, leaving `result` alone, for anything else.
    bool addSmall(const Decimal& other, bool negateOther, Decimal& result) const {
        if (m_nan || other.m_nan || ((m_significand | other.m_significand) >> 64) != 0) {
            return false;
        }
        auto a = static_cast<uint64_t>(m_significand);
        auto b = static_cast<uint64_t>(other.m_significand);
        int gap = m_exponent - other.m_exponent;
        int exponent = m_exponent;
        if (gap > 0) {
            if (gap > 18 || __builtin_mul_overflow(a, kSmallPowersOf10[gap], &a)) {
                return false;
            }
            exponent = other.m_exponent;
        } else if (gap < 0) {
            if (gap < -18 || __builtin_mul_overflow(b, kSmallPowersOf10[-gap], &b)) {
                return false;
            }
        }
        bool otherNegative = other.m_negative != negateOther;
        uint64_t sum = 0;
        bool negative = m_negative;
        if (m_negative == otherNegative) {
            if (__builtin_add_overflow(a, b, &sum)) {
                return false;
            }
        } else if (a >= b) {
            sum = a - b;
        } else {
            sum = b - a;
            negative = otherNegative;
        }
        // Ends in 0 (zero included): even and a multiple of 5, which times 5's inverse
        // modulo 2^64 is at most (2^64 − 1) ÷ 5. The general path strips those zeros.
        if ((sum & 1) == 0 && sum * 0xcccccccccccccccdull <= 0x3333333333333333ull) {
            return false;
        }
        result.m_significand = sum;
        result.m_exponent = static_cast<int16_t>(exponent);
        result.m_negative = negative;
        return true;
    }
    Decimal addGeneral(const Decimal& other, bool negateOther) const;

    // Normal form: significand below 10^38 without trailing zeros (unless the exponent
    // is at its top), zero as 0 × 10^0 and never negative.
    UInt128 m_significand = 0;
    int16_t m_exponent = 0;
    bool m_negative = false;
    bool m_nan = false;
};

}  // namespace brassline
