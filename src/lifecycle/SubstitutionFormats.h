#pragma once

#include <string>

namespace brassline {

class BLSendable;
class ValueTransformer;

// The transformers a document's substitution values go through: the registered kinds
// (short numbers, two-digit amounts, medium dates) in the locale of the document's reader
// (its contact's country, else its client's), else in the current formatting locale.
// Borrowed from the registry or a per-locale cache that lives as long as the process;
// never null.
struct SubstitutionFormats {
    const ValueTransformer* number = nullptr;
    const ValueTransformer* shortNumber = nullptr;
    const ValueTransformer* currency = nullptr;
    const ValueTransformer* date = nullptr;
    const ValueTransformer* dateAndTime = nullptr;
    const ValueTransformer* dueDate = nullptr;  // "ddmmyyyy".
    const ValueTransformer* duration = nullptr;
    const ValueTransformer* mass = nullptr;
    // The locale amounts are spelled in.
    std::string locale;

    // `document` may be null: the registered transformers in the current locale.
    static SubstitutionFormats forDocument(const BLSendable* document);
};

}  // namespace brassline
