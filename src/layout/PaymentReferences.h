#pragma once

#include <string>
#include <string_view>

#include "core/Decimal.h"

namespace brassline {

class BLSendable;

// Reference numbers and check digits of payment slips and payment codes. Inputs are
// texts of digits unless told otherwise; other characters in them are skipped.

// The recursive modulo 10 check digit of the Swiss reference: with a carry of 0, for each
// digit carry = T[(carry + digit) mod 10], T = 0 9 4 6 8 2 7 1 3 5; the digit is
// (10 - carry) mod 10.
int ch_modulo10(std::string_view digits);
// `text` with zeros on the left up to `digits` characters; a longer text stays as it is.
std::string ch_pad(std::string_view text, int digits);
// A document number as digits: "0" characters before the first other character go,
// digits stay, a letter becomes its character code modulo 10, anything else goes.
std::string ch_name(std::string_view number);
// The customer prefix ("0" when empty), the number's ch_name padded to 26 minus the
// prefix's length, and the check digit over both.
std::string ch_refnumber(std::string_view prefix, std::string_view number);
// A reference in groups of five counted from the right, separated by blanks.
std::string ch_splitted_refnumber(std::string_view reference);
// "01", the amount rounded to cents (fixedValue) in cents padded to 10 digits, and the
// check digit over the twelve: the amount part of the coding line. Below 0 counts as 0.
std::string ch_ocr_currency_amount(const Decimal& amount);

// The Finnish reference check digit: the number padded to 19 digits, weights 7, 3, 1
// repeating from the right, (1000 - sum) mod 10.
int fi_modulo10(std::string_view digits);
// ISO 7064 mod 97 remainder of a text of digits as two digits ("%02ld").
std::string modulo97(std::string_view digits);
// The digits of `text`, the last `count` of them, padded with zeros on the left.
std::string numberize(std::string_view text, int count);
// The Belgian structured communication of a document number: its 10 digits and their
// modulo 97, as "123/4567/89012"; "" for an empty number.
std::string rawOGMString(std::string_view number);
// "+++123/4567/89012+++"; "" for an empty number.
std::string OGMString(std::string_view number);

// The same, read from a document: its number (`name`), its `balance`, and the document's
// preferences "ch.besr" (customer prefix) and "ch.vesr" (postal account number).
std::string ch_name(const BLSendable& document);
std::string ch_refnumber(const BLSendable& document);
std::string ch_padded_refnumber(const BLSendable& document);
std::string ch_splitted_refnumber(const BLSendable& document);
std::string ch_ocr_currency_amount(BLSendable& document);
std::string ch_padded_postID(const BLSendable& document);
// "<amount part>><reference>+ ".
std::string ch_ocr(BLSendable& document);
// "<amount part>><reference>+ <postal account>>": the coding line of the slip.
std::string ch_ocr_line(BLSendable& document);
std::string rawOGMString(const BLSendable& document);
std::string OGMString(const BLSendable& document);

}  // namespace brassline
