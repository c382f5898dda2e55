#include "layout/PaymentReferences.h"

#include <array>

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include "model/ManagedObjectContext.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLSendable.h"

namespace brassline {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string digitsOf(std::string_view text) {
    std::string digits;
    for (char c : text) {
        if (isDigit(c)) {
            digits += c;
        }
    }
    return digits;
}

std::string preferenceText(const BLSendable& document, std::string_view key) {
    ManagedObjectContext* context = document.managedObjectContext();
    if (context == nullptr) {
        return {};
    }
    return BLPreference::preferenceValue(*context, key).toString();
}

std::string documentNumber(const BLSendable& document) {
    return document.name().value_or(std::string());
}

}  // namespace

int ch_modulo10(std::string_view digits) {
    static constexpr std::array<int, 10> kTable = {0, 9, 4, 6, 8, 2, 7, 1, 3, 5};
    int carry = 0;
    for (char c : digits) {
        if (isDigit(c)) {
            carry = kTable[static_cast<size_t>((carry + (c - '0')) % 10)];
        }
    }
    return (10 - carry) % 10;
}

std::string ch_pad(std::string_view text, int digits) {
    std::string result(text);
    if (static_cast<int>(result.size()) < digits) {
        result.insert(0, static_cast<size_t>(digits) - result.size(), '0');
    }
    return result;
}

std::string ch_name(std::string_view number) {
    std::string result;
    const auto* bytes = reinterpret_cast<const uint8_t*>(number.data());
    auto length = static_cast<int32_t>(number.size());
    int32_t index = 0;
    bool leading = true;
    while (index < length) {
        UChar32 c = 0;
        U8_NEXT(bytes, index, length, c);
        if (c < 0) {
            continue;
        }
        if (leading && c == '0') {
            continue;
        }
        leading = false;
        if (c >= '0' && c <= '9') {
            result += static_cast<char>(c);
        } else if (u_isalpha(c)) {
            result += static_cast<char>('0' + c % 10);
        }
    }
    return result;
}

std::string ch_refnumber(std::string_view prefix, std::string_view number) {
    std::string reference = prefix.empty() ? std::string("0") : std::string(prefix);
    reference += ch_pad(ch_name(number), 26 - static_cast<int>(reference.size()));
    reference += static_cast<char>('0' + ch_modulo10(reference));
    return reference;
}

std::string ch_splitted_refnumber(std::string_view reference) {
    std::string result;
    size_t size = reference.size();
    for (size_t index = 0; index < size; ++index) {
        if (index > 0 && (size - index) % 5 == 0) {
            result += ' ';
        }
        result += reference[index];
    }
    return result;
}

std::string ch_ocr_currency_amount(const Decimal& amount) {
    Decimal cents = amount.fixedValue() * Decimal::hundred();
    int64_t value = cents.isNegative() ? 0 : cents.toInt64();
    std::string part = "01" + ch_pad(std::to_string(value), 10);
    part += static_cast<char>('0' + ch_modulo10(part));
    return part;
}

int fi_modulo10(std::string_view digits) {
    static constexpr std::array<int, 3> kWeights = {7, 3, 1};
    std::string padded = ch_pad(digitsOf(digits), 19);
    int sum = 0;
    size_t size = padded.size();
    for (size_t index = 0; index < size; ++index) {
        sum += (padded[index] - '0') * kWeights[(size - 1 - index) % 3];
    }
    return (1000 - sum % 1000) % 10;
}

std::string modulo97(std::string_view digits) {
    long value = 0;
    for (char c : digits) {
        if (isDigit(c)) {
            value = (value * 10 + (c - '0')) % 97;
        }
    }
    std::string text = std::to_string(value);
    return text.size() < 2 ? "0" + text : text;
}

std::string numberize(std::string_view text, int count) {
    std::string digits = digitsOf(text);
    if (static_cast<int>(digits.size()) > count) {
        digits.erase(0, digits.size() - static_cast<size_t>(count));
    }
    return ch_pad(digits, count);
}

std::string rawOGMString(std::string_view number) {
    if (number.empty()) {
        return {};
    }
    std::string digits = numberize(number, 10);
    digits += modulo97(digits);
    return digits.substr(0, 3) + "/" + digits.substr(3, 4) + "/" + digits.substr(7, 5);
}

std::string OGMString(std::string_view number) {
    std::string raw = rawOGMString(number);
    return raw.empty() ? std::string() : "+++" + raw + "+++";
}

std::string ch_name(const BLSendable& document) {
    return ch_name(documentNumber(document));
}

std::string ch_refnumber(const BLSendable& document) {
    return ch_refnumber(preferenceText(document, "ch.besr"), documentNumber(document));
}

std::string ch_padded_refnumber(const BLSendable& document) {
    return ch_pad(ch_refnumber(document), 27);
}

std::string ch_splitted_refnumber(const BLSendable& document) {
    return ch_splitted_refnumber(ch_refnumber(document));
}

std::string ch_ocr_currency_amount(BLSendable& document) {
    return ch_ocr_currency_amount(document.balance());
}

std::string ch_padded_postID(const BLSendable& document) {
    std::string account = preferenceText(document, "ch.vesr");
    return ch_pad(account.empty() ? std::string("0") : account, 9);
}

std::string ch_ocr(BLSendable& document) {
    return ch_ocr_currency_amount(document) + ">" + ch_padded_refnumber(document) + "+ ";
}

std::string ch_ocr_line(BLSendable& document) {
    return ch_ocr(document) + ch_padded_postID(document) + ">";
}

std::string rawOGMString(const BLSendable& document) {
    return rawOGMString(documentNumber(document));
}

std::string OGMString(const BLSendable& document) {
    return OGMString(documentNumber(document));
}

}  // namespace brassline
