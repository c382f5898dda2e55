#include "lifecycle/NumberTokens.h"

#include <cstdio>
#include <map>

#include "core/Localization.h"
#include "core/Log.h"
#include "core/ValueTransformers.h"
#include "lifecycle/SubstitutionFormats.h"
#include "model/ManagedObject.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLSendable.h"

namespace brassline {

namespace {

enum class TokenKind : uint8_t {
    Counter,
    AutoIncrement,
    DatePattern,
    DayName,
    Week,
    ClientID,
    ClientName,
    FullClientName,
    Project,
    Reference,
    LayoutName,
    DueDate,
    SentDatePlus,
    DateInBetween,
    CashDiscount,
    Amount,
    Currency,
    CurrencyShortName,
    CurrencySymbol,
};

// One row of the catalogue. `counterKey` for counters, `pattern` for dates, `number` for
// widths, offsets and percentages, `customPercent` (1 to 3) for the percentages kept in
// the preferences "cashDiscount1" to "cashDiscount3".
struct TokenSpec {
    TokenKind kind;
    const char* prefix = nullptr;
    const char* counterKey = nullptr;
    const char* pattern = nullptr;
    int number = 0;
    int customPercent = 0;
};

using Catalogue = std::map<std::string, TokenSpec, std::less<>>;

const Catalogue& catalogue() {
    static const Catalogue table = [] {
        Catalogue made;
        auto counters = [&made](const std::string& base, const char* key, bool twoDigits) {
            made.emplace(base, TokenSpec{TokenKind::Counter, "increment", key, nullptr, 0});
            for (int width = twoDigits ? 2 : 3; width <= 5; ++width) {
                made.emplace(base + std::to_string(width),
                             TokenSpec{TokenKind::Counter, "increment", key, nullptr, width});
            }
        };
        counters("ZPIncrement", "invoice.number", true);
        counters("ZPEstimateIncrement", "estimate.number", true);
        // Client and project numbers deliberately have no two-digit member.
        counters("ZPClientIncrement", "client.number", false);
        counters("ZPProjectIncrement", "project.number", false);
        made.emplace("ZPAutoIncrement", TokenSpec{TokenKind::AutoIncrement, "autoincrement"});
        for (int width = 2; width <= 5; ++width) {
            made.emplace("ZPAutoIncrement" + std::to_string(width),
                         TokenSpec{TokenKind::AutoIncrement, "autoincrement", nullptr, nullptr, width});
        }
        made.emplace("ZPYear", TokenSpec{TokenKind::DatePattern, "year", nullptr, "%yyyy"});
        made.emplace("ZPShortYear", TokenSpec{TokenKind::DatePattern, "year", nullptr, "%yy"});
        made.emplace("ZPMonth", TokenSpec{TokenKind::DatePattern, "month", nullptr, "%MM"});
        made.emplace("ZPMonthAbbreviation", TokenSpec{TokenKind::DatePattern, "month", nullptr, "%LLL"});
        made.emplace("ZPDay", TokenSpec{TokenKind::DatePattern, "day", nullptr, "%dd"});
        made.emplace("ZPShortDayName", TokenSpec{TokenKind::DayName, "day", nullptr, "E"});
        made.emplace("ZPDayName", TokenSpec{TokenKind::DayName, "day", nullptr, "EEEE"});
        made.emplace("ZPWeek", TokenSpec{TokenKind::Week, "week"});
        made.emplace("ZPClientID", TokenSpec{TokenKind::ClientID});
        made.emplace("ZPClientName", TokenSpec{TokenKind::ClientName, "client"});
        made.emplace("ZPFullClientName", TokenSpec{TokenKind::FullClientName});
        made.emplace("ZPProject", TokenSpec{TokenKind::Project});
        made.emplace("ZPReference", TokenSpec{TokenKind::Reference});
        // The layout token shares the client's prefix; it has none of its own.
        made.emplace("ZPLayoutName", TokenSpec{TokenKind::LayoutName, "client"});
        made.emplace("ZPCashDiscountDate", TokenSpec{TokenKind::DueDate});
        for (int days : {3, 5, 7, 10, 14}) {
            made.emplace("ZPCashDiscountDate" + std::to_string(days),
                         TokenSpec{TokenKind::SentDatePlus, nullptr, nullptr, nullptr, days});
        }
        made.emplace("ZPCashDiscountDateInBetween", TokenSpec{TokenKind::DateInBetween});
        for (int percent = 1; percent <= 5; ++percent) {
            made.emplace("ZPCashDiscount" + std::to_string(percent),
                         TokenSpec{TokenKind::CashDiscount, nullptr, nullptr, nullptr, percent});
            made.emplace("ZPAmount" + std::to_string(percent),
                         TokenSpec{TokenKind::Amount, nullptr, nullptr, nullptr, percent});
        }
        for (int custom = 1; custom <= 3; ++custom) {
            made.emplace("ZPCustomCashDiscount" + std::to_string(custom),
                         TokenSpec{TokenKind::CashDiscount, nullptr, nullptr, nullptr, 0, custom});
            made.emplace("ZPCustomCashDiscountAmount" + std::to_string(custom),
                         TokenSpec{TokenKind::Amount, nullptr, nullptr, nullptr, 0, custom});
        }
        made.emplace("ZPAmount", TokenSpec{TokenKind::Amount});
        made.emplace("ZPCurrency", TokenSpec{TokenKind::Currency});
        made.emplace("ZPCurrencyShortName", TokenSpec{TokenKind::CurrencyShortName});
        made.emplace("ZPCurrencySymbol", TokenSpec{TokenKind::CurrencySymbol});
        return made;
    }();
    return table;
}

// The row of an option, and for a composed counter name ("ZPIncrement3.followUpType.A")
// the counter key its suffix names.
const TokenSpec* lookup(std::string_view option, std::string* composedCounterKey) {
    const Catalogue& table = catalogue();
    if (auto it = table.find(option); it != table.end()) {
        return &it->second;
    }
    size_t dot = option.find('.');
    if (dot == std::string_view::npos || dot + 1 >= option.size()) {
        return nullptr;
    }
    auto it = table.find(option.substr(0, dot));
    if (it == table.end() || it->second.kind != TokenKind::Counter) {
        return nullptr;
    }
    if (composedCounterKey != nullptr) {
        *composedCounterKey = std::string(option.substr(dot + 1)) + ".number";
    }
    return &it->second;
}

ManagedObject* relatedObject(const ManagedObject* object, std::string_view key) {
    if (object == nullptr) {
        return nullptr;
    }
    return dynamic_cast<ManagedObject*>(object->valueForKey(key).object());
}

std::optional<std::string> textOrNothing(const Value& value) {
    if (value.isNull()) {
        return std::nullopt;
    }
    return value.toString();
}

// A sendable's dateSent; today for anything else and for a draft.
Date dateForObject(const ManagedObject* object) {
    if (object != nullptr && object->isKindOfEntity("Sendable")) {
        const Value sentValue = object->valueForKey("dateSent");
        if (const Date* sent = sentValue.date()) {
            return *sent;
        }
    }
    return Date::now();
}

// A sendable's own date and currency transformers (its reader's locale); the registered
// ones for anything else.
const ValueTransformer* objectTransformer(const ManagedObject* object, bool date) {
    if (const auto* sendable = dynamic_cast<const BLSendable*>(object)) {
        SubstitutionFormats formats = SubstitutionFormats::forDocument(sendable);
        return date ? formats.date : formats.currency;
    }
    return valueTransformerForName(date ? "ZPDateTransformer" : "ZPNumberTransformer");
}

std::string formatDate(const ManagedObject* object, Date date) {
    const ValueTransformer* transformer = objectTransformer(object, true);
    return transformer != nullptr ? transformer->transformedValue(Value(date)).toString() : date.isoDateString();
}

std::string formatMoney(const ManagedObject* object, const Decimal& amount) {
    const ValueTransformer* transformer = objectTransformer(object, false);
    return transformer != nullptr ? transformer->transformedValue(Value(amount)).toString() : amount.toString();
}

// The text for a date that cannot be had.
constexpr const char* kMissingDate = "\u2753";

Decimal percentFor(const TokenSpec& spec, NumberingPreferences* preferences) {
    if (spec.customPercent == 0) {
        return Decimal(spec.number);
    }
    if (preferences == nullptr) {
        return Decimal::zero();
    }
    return preferences->valueForKeyPath("cashDiscount" + std::to_string(spec.customPercent)).toDecimal().validNumber();
}

// The base less `percent` percent of it.
Decimal deductingPercentage(const Decimal& base, const Decimal& percent) {
    return base - base * percent / Decimal::hundred();
}

std::string contactFileName(const ManagedObject* contact, bool shortForm) {
    if (const auto* card = dynamic_cast<const BLContact*>(contact)) {
        return shortForm ? card->shortDisplayName() : card->fileName();
    }
    return contact->valueForKey("name").toString();
}

std::optional<std::string> evaluate(const TokenSpec& spec, const std::string& counterKey, const TokenInput& input) {
    ManagedObject* object = input.object;
    switch (spec.kind) {
        case TokenKind::Counter: {
            // Counters are read with or without an object, so the preview shows the counter.
            Value counter = input.preferences != nullptr ? input.preferences->valueForKeyPath(counterKey) : Value();
            return formatCounter(counter.isNull() ? 1 : counter.toInt64(), spec.number);
        }
        case TokenKind::AutoIncrement:
            if (object == nullptr) {
                return std::string(spec.number > 1 ? spec.number - 1 : 0, '0') + "?";
            }
            return formatCounter(input.autoIncrement, spec.number);
        case TokenKind::DatePattern:
        case TokenKind::DayName:
            return formatDateWithPattern(dateForObject(object), spec.pattern);
        case TokenKind::Week:
            return formatCounter(weekOfYear(dateForObject(object)), 2);
        case TokenKind::ClientID: {
            if (object == nullptr) {
                return "???";
            }
            ManagedObject* client = relatedObject(object, "client");
            return client != nullptr ? textOrNothing(client->valueForKey("clientID")) : std::nullopt;
        }
        case TokenKind::ClientName:
        case TokenKind::FullClientName: {
            bool shortForm = spec.kind == TokenKind::ClientName;
            if (object == nullptr) {
                return shortForm ? localizedString("organization")
                                 : localizedString("organization") + ", " + localizedString("name");
            }
            ManagedObject* contact = relatedObject(object, "contact");
            if (contact == nullptr) {
                contact = relatedObject(object, "client");
            }
            return contact != nullptr ? std::optional(contactFileName(contact, shortForm)) : std::nullopt;
        }
        case TokenKind::Project: {
            if (object == nullptr) {
                return "???";
            }
            if (std::optional<std::string> name = textOrNothing(object->valueForKey("projectName"))) {
                return name;
            }
            Value project = object->valueForKey("project");
            if (auto* projectObject = dynamic_cast<ManagedObject*>(project.object())) {
                return textOrNothing(projectObject->valueForKey("name"));
            }
            return textOrNothing(project);
        }
        case TokenKind::Reference:
            return object == nullptr ? std::optional<std::string>("???")
                                     : textOrNothing(object->valueForKey("reference"));
        case TokenKind::LayoutName: {
            ManagedObject* layout = relatedObject(object, "layout");
            return layout != nullptr ? textOrNothing(layout->valueForKey("name")) : std::nullopt;
        }
        case TokenKind::DueDate:
        case TokenKind::SentDatePlus:
        case TokenKind::DateInBetween: {
            if (object == nullptr) {
                return kMissingDate;
            }
            const Value sentValue = object->valueForKey("dateSent");
            const Value dueValue = object->valueForKey("dateDue");
            const Date* sent = sentValue.date();
            const Date* due = dueValue.date();
            if (spec.kind == TokenKind::DueDate) {
                return due != nullptr ? formatDate(object, *due) : kMissingDate;
            }
            if (sent == nullptr) {
                return kMissingDate;
            }
            if (spec.kind == TokenKind::SentDatePlus) {
                return formatDate(object, sent->dateByAddingDays(spec.number));
            }
            if (due == nullptr) {
                return kMissingDate;
            }
            return formatDate(object, sent->dateByAddingTimeInterval(due->timeIntervalSinceDate(*sent) / 2));
        }
        case TokenKind::CashDiscount: {
            if (object == nullptr) {
                return std::nullopt;
            }
            Decimal base = object->valueForKey("costForCashDiscount").toDecimal().validNumber();
            // The deduction itself is rounded to cents before it is taken off (2.125 of 106.25
            // is 2.13), as every document discount is.
            Decimal reduced = base - (base * percentFor(spec, input.preferences) / Decimal::hundred()).fixedValue();
            if (const auto* currency = dynamic_cast<const BLCurrency*>(relatedObject(object, "currency"))) {
                reduced = currency->roundCost(reduced);
            }
            // The deduction is taken from the rounded payable amount, so both add up to the base.
            return formatMoney(object, base - reduced);
        }
        case TokenKind::Amount: {
            if (object == nullptr) {
                return std::nullopt;
            }
            Decimal balance = object->valueForKey("balanceForLayout").toDecimal().validNumber();
            return formatMoney(object, deductingPercentage(balance, percentFor(spec, input.preferences)));
        }
        case TokenKind::Currency:
        case TokenKind::CurrencyShortName: {
            if (object == nullptr) {
                return spec.kind == TokenKind::Currency ? std::string() : localizedString("shortName");
            }
            ManagedObject* currency = relatedObject(object, "currency");
            return currency != nullptr ? textOrNothing(currency->valueForKey("name")) : std::nullopt;
        }
        case TokenKind::CurrencySymbol: {
            // The key is the translated word: the currency answers its symbol under it.
            std::string key = localizedString("symbol");
            if (object == nullptr) {
                return key;
            }
            ManagedObject* currency = relatedObject(object, "currency");
            return currency != nullptr ? textOrNothing(currency->valueForKey(key)) : std::nullopt;
        }
    }
    return std::nullopt;
}

}  // namespace

std::string formatCounter(int64_t value, int width) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%0*lld", width < 1 ? 1 : width, static_cast<long long>(value));
    return buffer;
}

std::optional<std::string> tokenValue(std::string_view option, const TokenInput& input) {
    std::string counterKey;
    const TokenSpec* spec = lookup(option, &counterKey);
    if (spec == nullptr) {
        return std::nullopt;
    }
    if (spec->kind == TokenKind::Counter && counterKey.empty()) {
        counterKey = spec->counterKey;
    }
    return evaluate(*spec, counterKey, input);
}

bool isKnownTokenOption(std::string_view option) {
    return lookup(option, nullptr) != nullptr;
}

std::optional<std::string> counterKeyForOption(std::string_view option) {
    std::string counterKey;
    const TokenSpec* spec = lookup(option, &counterKey);
    if (spec == nullptr || spec->kind != TokenKind::Counter) {
        return std::nullopt;
    }
    return counterKey.empty() ? std::string(spec->counterKey) : counterKey;
}

std::optional<std::string> tokenPrefix(std::string_view option) {
    const TokenSpec* spec = lookup(option, nullptr);
    if (spec == nullptr || spec->prefix == nullptr) {
        return std::nullopt;
    }
    return localizedString(spec->prefix);
}

std::optional<std::string> tokenDisplayName(std::string_view option, NumberingPreferences* preferences) {
    const TokenSpec* spec = lookup(option, nullptr);
    if (spec == nullptr) {
        return std::nullopt;
    }
    switch (spec->kind) {
        case TokenKind::DatePattern:
        case TokenKind::DayName:
        case TokenKind::Week: {
            TokenInput input;
            input.preferences = preferences;
            return formatMessage("%@ (%@)", localizedString(spec->prefix), tokenValue(option, input).value_or(""));
        }
        case TokenKind::DueDate:
            return localizedString("due");
        case TokenKind::SentDatePlus:
            return formatMessage("%@ +%ld %@", localizedString("sent"), spec->number, localizedString("days"));
        case TokenKind::DateInBetween:
            return formatMessage("%@ \u2192\u00bd\u2190 %@", localizedString("sent"), localizedString("due"));
        case TokenKind::CashDiscount:
        case TokenKind::Amount: {
            Decimal percent = percentFor(*spec, preferences);
            if (percent.toInt64() == 0) {
                return localizedString("amount");
            }
            if (spec->kind == TokenKind::CashDiscount) {
                return formatMessage("%@ (%@%%)", localizedString("Cash Discount Amount"), percent.toString());
            }
            return formatMessage("%@ -%@%% %@", localizedString("amount"), percent.toString(),
                                 localizedString("Cash discount"));
        }
        default:
            return std::nullopt;
    }
}

}  // namespace brassline
