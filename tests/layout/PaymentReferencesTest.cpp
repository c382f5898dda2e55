#include <gtest/gtest.h>

#include "../money/ItemTestSupport.h"
#include "PaymentTestSupport.h"
#include "layout/PaymentReferences.h"
#include "model/entities/BLPreference.h"

namespace brassline {
namespace {

TEST(PaymentReferencesTest, SwissModulo10MatchesPublishedReferences) {
    struct Row {
        const char* digits;
        int check;
    };
    const Row rows[] = {
        // The QR reference of the guidelines' sample bill: 21 00000 00003 13947 14300 0901 7.
        {"21000000000313947143000901", 7},
        // The amount part "0100003949753" of the classic slip's coding line, CHF 3,949.75.
        {"010000394975", 3},
        // A QR reference of the php-swiss-qr-bill samples: 1234...56 then 7.
        {"12345678901234567890123456", 7},
        // 01 and ten zeros: carries 0, 9, then 5 2 4 8 3 6 7 1 9 5; (10 - 5) mod 10 = 5.
        {"010000000000", 5},
        {"", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.digits);
        EXPECT_EQ(ch_modulo10(row.digits), row.check);
    }
}

TEST(PaymentReferencesTest, QRReferencesOfTheValidationVectorsCheckOut) {
    // Rows of 27 digits (blanks removed, not all zeros) are valid exactly when the 27th
    // digit is the check digit of the 26 before it.
    int checked = 0;
    for (const auto& row : paymentCodeTestRows("manuelbl-SwissQRBill-validation-vectors.tsv")) {
        if (row.size() < 3 || row[0] != "isValidQRReference") {
            continue;
        }
        std::string digits;
        bool onlyDigits = true;
        for (char c : row[1]) {
            if (c >= '0' && c <= '9') {
                digits += c;
            } else if (c != ' ') {
                onlyDigits = false;
            }
        }
        if (!onlyDigits || digits.size() != 27 || digits.find_first_not_of('0') == std::string::npos) {
            continue;
        }
        SCOPED_TRACE(row[1]);
        EXPECT_EQ(ch_modulo10(digits.substr(0, 26)) == digits[26] - '0', row[2] == "true");
        ++checked;
    }
    EXPECT_EQ(checked, 3);
}

TEST(PaymentReferencesTest, DocumentNumberAsDigits) {
    struct Row {
        const char* number;
        const char* digits;
    };
    const Row rows[] = {
        {"0042", "42"},
        // R is 82 and E is 69: 2 and 9; the zeros after the letters stay.
        {"RE-0042", "290042"},
        // Only the zeros before the first other character go: A (65) gives 5.
        {"00A07", "507"},
        {"2026/001", "2026001"},
        {"\u00C41", "61"},  // Ä is 196: 6.
        {"000", ""},
        {"", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.number);
        EXPECT_EQ(ch_name(row.number), row.digits);
    }
}

TEST(PaymentReferencesTest, ReferenceNumbers) {
    // No prefix counts as "0": 0, the number padded to 25, check digit 5 (the vector
    // createQRReference "123456" of the published tests).
    EXPECT_EQ(ch_refnumber("", "123456"), "000000000000000000001234565");
    EXPECT_EQ(ch_refnumber("", "  12 3456 "), "000000000000000000001234565");
    // Prefix 210000 and number 313947143000901 padded to 20: the sample bill's reference.
    EXPECT_EQ(ch_refnumber("210000", "313947143000901"), "210000000003139471430009017");
    EXPECT_EQ(ch_splitted_refnumber("123456000000001291146290514"), "12 34560 00000 00129 11462 90514");
    EXPECT_EQ(ch_splitted_refnumber("1234"), "1234");
    EXPECT_EQ(ch_pad("42", 5), "00042");
    EXPECT_EQ(ch_pad("123456", 5), "123456");
}

TEST(PaymentReferencesTest, CodingLineAmountPart) {
    Decimal amount = *Decimal::parse("3949.75");
    EXPECT_EQ(ch_ocr_currency_amount(amount), "0100003949753");
    // Rounded to cents first: 3949.745 is 3949.75.
    EXPECT_EQ(ch_ocr_currency_amount(*Decimal::parse("3949.745")), "0100003949753");
    EXPECT_EQ(ch_ocr_currency_amount(Decimal()), "0100000000005");
    EXPECT_EQ(ch_ocr_currency_amount(*Decimal::parse("-5")), "0100000000005");
}

TEST(PaymentReferencesTest, FinnishReferenceCheckDigit) {
    struct Row {
        const char* base;
        int check;
    };
    const Row rows[] = {
        // Weights from the right 7 3 1: 6×7 + 5×3 + 4×1 + 3×7 + 2×3 + 1×1 = 89; 1000 - 89 → 1.
        {"123456", 1},
        // 3×7 + 2×3 + 1×1 = 28 → 2 (reference 1232).
        {"123", 2},
        // 7×7 + 0×3 + 1×1 = 50 → 0 (reference 1070).
        {"107", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.base);
        EXPECT_EQ(fi_modulo10(row.base), row.check);
    }
}

TEST(PaymentReferencesTest, Modulo97AndBelgianStructuredCommunication) {
    // ISO 7064 on the German IBAN example DE89 3704 0044 0532 0130 00 rearranged: remainder 1.
    EXPECT_EQ(modulo97("370400440532013000131489"), "01");
    // Belgian examples: 0909337554 mod 97 = 93, 0108068171 mod 97 = 83.
    EXPECT_EQ(modulo97("0909337554"), "93");
    EXPECT_EQ(rawOGMString("0909337554"), "090/9337/55493");
    EXPECT_EQ(OGMString("0108068171"), "+++010/8068/17183+++");
    // A number with other characters: its digits 202400042, padded to 0202400042, mod 97 = 36.
    EXPECT_EQ(rawOGMString("RE-2024-00042"), "020/2400/04236");
    // A remainder of 0 is written "00".
    EXPECT_EQ(modulo97("97"), "00");
    EXPECT_EQ(rawOGMString(""), "");
    EXPECT_EQ(OGMString(""), "");
    EXPECT_EQ(numberize("12345678901234", 10), "5678901234");
    EXPECT_EQ(numberize("A-7", 4), "0007");
}

class DocumentReferencesTest : public ItemFixture {
protected:
    void setPreference(const std::string& key, const Value& value) {
        auto* preference =
            static_cast<BLPreference*>(BLBase::insertInManagedObjectContext(context(), "Preference", "BLPref." + key));
        preference->setPayload(value);
    }
};

TEST_F(DocumentReferencesTest, CodingLineFromTheDocumentAndItsPreferences) {
    BLInvoice* invoice = invoiceIn("CHF");
    addCost(invoice, "231.05");
    invoice->setName(std::string("RE-0042"));

    // Without preferences: prefix "0", postal account "0" padded to 9.
    EXPECT_EQ(ch_refnumber(*invoice), ch_refnumber("0", "RE-0042"));
    EXPECT_EQ(ch_padded_postID(*invoice), "000000000");

    setPreference("ch.besr", Value("210000"));
    setPreference("ch.vesr", Value("010001628"));
    // RE-0042 is 290042, padded to 20 after the prefix, check digit 9.
    EXPECT_EQ(ch_refnumber(*invoice), "210000000000000000002900429");
    EXPECT_EQ(ch_padded_refnumber(*invoice), "210000000000000000002900429");
    EXPECT_EQ(ch_splitted_refnumber(*invoice), "21 00000 00000 00000 00029 00429");
    // 231.05 in cents padded to 10 after "01", check digit 6.
    EXPECT_EQ(ch_ocr_currency_amount(*invoice), "0100000231056");
    EXPECT_EQ(ch_ocr(*invoice), "0100000231056>210000000000000000002900429+ ");
    EXPECT_EQ(ch_ocr_line(*invoice), "0100000231056>210000000000000000002900429+ 010001628>");
    EXPECT_EQ(OGMString(*invoice), OGMString("RE-0042"));
}

}  // namespace
}  // namespace brassline
