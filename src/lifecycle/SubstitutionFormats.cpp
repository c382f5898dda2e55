#include "lifecycle/SubstitutionFormats.h"

#include <map>
#include <memory>
#include <mutex>

#include "core/ValueTransformers.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLSendable.h"

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

// The transformers of one locale, made once and kept for the process: the registered
// kinds, fixed to that locale.
struct LocaleTransformers {
    explicit LocaleTransformers(const std::string& locale)
        : shortNumber(NumberStyle::Short, 2, locale),
          currency(NumberStyle::Grouped, 2, locale),
          date(DateStyle::Medium, locale, {}, true),
          dateAndTime(DateStyle::MediumWithTime, locale) {}
    NumberTransformer shortNumber;
    NumberTransformer currency;
    DateTransformer date;
    DateTransformer dateAndTime;
};

const LocaleTransformers& transformersForLocale(const std::string& locale) {
    static std::mutex mutex;
    static std::map<std::string, std::unique_ptr<LocaleTransformers>> cache;
    std::lock_guard lock(mutex);
    std::unique_ptr<LocaleTransformers>& entry = cache[locale];
    if (!entry) {
        entry = std::make_unique<LocaleTransformers>(locale);
    }
    return *entry;
}

// The locale of the document's reader: the country of its contact, else of its client.
std::string readerLocale(const BLSendable& document) {
    for (const BLContact* reader :
         {static_cast<const BLContact*>(document.contact()), static_cast<const BLContact*>(document.client())}) {
        if (reader == nullptr) {
            continue;
        }
        std::string locale = localeForCountry(reader->countryCode().value_or(""));
        if (!locale.empty()) {
            return locale;
        }
    }
    return {};
}

}  // namespace

SubstitutionFormats SubstitutionFormats::forDocument(const BLSendable* document) {
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
    // A document reads in its reader's language and country, whatever machine prints it:
    // amounts, dates and the spelled total alike.
    const std::string locale = document != nullptr ? readerLocale(*document) : std::string();
    if (!locale.empty()) {
        const LocaleTransformers& own = transformersForLocale(locale);
        formats.number = &own.shortNumber;
        formats.shortNumber = &own.shortNumber;
        formats.currency = &own.currency;
        formats.date = &own.date;
        formats.dateAndTime = &own.dateAndTime;
        formats.locale = locale;
    }
    return formats;
}

}  // namespace brassline
