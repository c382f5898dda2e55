#pragma once

#include <string>

namespace brassline {

class BLSendable;
class ValueTransformer;

// The transformers a document's substitution values go through: the document's own
// where it names one, else the registered fallbacks (short numbers, two-digit amounts,
// medium dates). Borrowed from the registry; never null.
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

    // `document` may be null: the fallbacks in the current formatting locale.
    static SubstitutionFormats forDocument(const BLSendable* document);
};

}  // namespace brassline
