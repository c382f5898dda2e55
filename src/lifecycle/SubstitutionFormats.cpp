#include "lifecycle/SubstitutionFormats.h"

#include <memory>

#include "core/ValueTransformers.h"

namespace brassline {

namespace {

// Weights print in kilograms with up to two fraction digits.
class MassTransformer : public ValueTransformer {
public:
    Value transformedValue(const Value& value) const override {
        Value number = m_number.transformedValue(value);
        return number.string() ? Value(*number.string() + " kg") : Value();
    }

private:
    NumberTransformer m_number{NumberStyle::Short};
};

const ValueTransformer& named(const char* name, const char* fallback) {
    const ValueTransformer* transformer = valueTransformerForName(name);
    if (transformer == nullptr) {
        transformer = valueTransformerForName(fallback);
    }
    return *transformer;
}

}  // namespace

SubstitutionFormats SubstitutionFormats::forDocument(const BLSendable* document) {
    // Documents carry no transformers of their own yet: every document formats in the
    // current locale, so the registered transformers are the document's.
    (void)document;
    static const DateTransformer dateAndTime(DateStyle::MediumWithTime);
    static const MassTransformer mass;
    SubstitutionFormats formats;
    formats.number = &named("ZPShortNumberTransformer", "ZPNumberTransformer");
    formats.shortNumber = &named("ZPShortNumberTransformer", "ZPNumberTransformer");
    formats.currency = &named("ZPNumberTransformer", "ZPNumberTransformer");
    formats.date = &named("ZPMediumDateTransformer", "ZPDateTransformer");
    formats.dateAndTime = &dateAndTime;
    formats.dueDate = &named("ZPddmmyyyyTransformer", "ZPDateTransformer");
    formats.duration = &named("ZPDurationTransformer", "ZPShortNumberTransformer");
    const ValueTransformer* registeredMass = valueTransformerForName("ZPMassValueTransformer");
    formats.mass = registeredMass != nullptr ? registeredMass : &mass;
    formats.locale = currentFormattingLocale();
    return formats;
}

}  // namespace brassline
