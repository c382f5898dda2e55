#include "lifecycle/Numbering.h"

#include <cstdlib>
#include <filesystem>
#include <functional>

#include "core/Localization.h"
#include "core/Log.h"
#include "core/ValueTransformers.h"
#include "model/FetchRequest.h"
#include "model/ManagedObject.h"
#include "model/ManagedObjectContext.h"
#include "store/BLDoc.h"
#include "store/BLPreferenceController.h"

namespace brassline {

namespace {

ManagedObject* relatedObject(const ManagedObject& object, std::string_view key) {
    return dynamic_cast<ManagedObject*>(object.valueForKey(key).object());
}

NumberingKind kindWithPrefsKey(std::string prefsKey) {
    NumberingKind kind;
    kind.counterKey = prefsKey + ".number";
    kind.patternKey = prefsKey + ".numbering";
    kind.resetModeKey = prefsKey + ".numberResetMode";
    kind.lastResetKey = prefsKey + ".numberLastReset";
    kind.numberKey = "name";
    kind.incrementPrefix = "ZPIncrement";
    kind.isSendable = true;
    kind.prefsKey = std::move(prefsKey);
    return kind;
}

NumberingKind contactKind(std::string prefsKey, std::string entity, std::string numberKey) {
    NumberingKind kind;
    kind.counterKey = prefsKey + ".number";
    kind.patternKey = prefsKey + ".numbering";
    kind.usedNamesEntity = std::move(entity);
    kind.numberKey = std::move(numberKey);
    kind.prefsKey = std::move(prefsKey);
    return kind;
}

// Walks the counter past the numbers in use. A pattern whose text does not move with the
// counter being advanced (its counter token belongs to another kind of document) can never
// reach a free number: the walk stops at the first repeat and answers no number, with a log
// line, instead of spinning.
void skipUsedNumbers(std::optional<std::string>& text, const std::unordered_set<std::string>& used,
                     const std::function<std::optional<std::string>()>& next, const std::function<void()>& advance) {
    while (text && used.contains(*text)) {
        std::optional<std::string> following = next();
        advance();
        if (following == text) {
            logMessage("The number %@ is in use and its pattern does not count with this counter", *text);
            text.reset();
            return;
        }
        text = std::move(following);
    }
}

std::optional<std::string> textOf(const Value& value) {
    if (const std::string* text = value.string()) {
        return *text;
    }
    return std::nullopt;
}

// The option a sendable evaluates: a copied pattern may hold another kind's counter, but a
// sendable always counts on its own, at the width the option asks for.
std::string fixedIncrementClassName(const NumberingKind& kind, const std::string& option) {
    if (!kind.isSendable || option.find("AutoIncrement") != std::string::npos ||
        option.find("Increment") == std::string::npos) {
        return option;
    }
    std::string first = option.substr(0, option.find('.'));
    char last = first.empty() ? 'x' : first.back();
    int width = last >= '0' && last <= '9' ? last - '0' : 0;
    if (width < 1) {
        return kind.incrementPrefix + kind.incrementSuffix;
    }
    return kind.incrementPrefix + std::to_string(width) + kind.incrementSuffix;
}

// Tags that a document-path or mail field may hold without an option, answered like the
// token of the same meaning until a substitution map is installed.
std::optional<std::string> fallbackFieldValue(ManagedObject& object, const std::string& field,
                                              const TokenInput& input) {
    static const std::map<std::string, const char*, std::less<>> kTokenForField = {
        {"clientid", "ZPClientID"}, {"client", "ZPClientName"}, {"project", "ZPProject"}, {"reference", "ZPReference"},
        {"layout", "ZPLayoutName"}, {"year", "ZPYear"},         {"month", "ZPMonth"},     {"day", "ZPDay"},
        {"amount", "ZPAmount"},     {"currency", "ZPCurrency"},
    };
    if (auto it = kTokenForField.find(field); it != kTokenForField.end()) {
        return tokenValue(it->second, input);
    }
    Value value = object.valueForKey(field == "number" ? "name" : field);
    if (value.isNull()) {
        return std::nullopt;
    }
    return value.toString();
}

NumberingScript& numberingScript() {
    static NumberingScript script;
    return script;
}

std::function<std::optional<std::string>(ManagedObject&, std::string_view)>& substitutionProvider() {
    static std::function<std::optional<std::string>(ManagedObject&, std::string_view)> provider;
    return provider;
}

}  // namespace

NumberResetMode parseResetMode(const Value& value) {
    if (const std::string* text = value.string()) {
        if (*text == "year") {
            return NumberResetMode::Year;
        }
        if (*text == "month") {
            return NumberResetMode::Month;
        }
        if (*text == "day") {
            return NumberResetMode::Day;
        }
        return NumberResetMode::Never;
    }
    if (value.isNumber()) {
        switch (value.toInt64()) {
            case 1:
                return NumberResetMode::Day;
            case 2:
                return NumberResetMode::Month;
            case 3:
                return NumberResetMode::Year;
            default:
                return NumberResetMode::Never;
        }
    }
    return NumberResetMode::Never;
}

std::optional<NumberingKind> numberingKindForPrefsKey(std::string_view prefsKey) {
    if (prefsKey == "invoice") {
        NumberingKind kind = kindWithPrefsKey("invoice");
        kind.usedNamesEntity = "Invoice";
        return kind;
    }
    if (prefsKey == "estimate") {
        NumberingKind kind = kindWithPrefsKey("estimate");
        kind.usedNamesEntity = "Estimate";
        kind.incrementPrefix = "ZPEstimateIncrement";
        return kind;
    }
    if (prefsKey == "client") {
        return contactKind("client", "Client", "clientID");
    }
    if (prefsKey == "project") {
        return contactKind("project", "Project", "number");
    }
    constexpr std::string_view kFollowUpPrefix = "followUpType.";
    if (prefsKey.starts_with(kFollowUpPrefix) && prefsKey.size() > kFollowUpPrefix.size()) {
        NumberingKind kind = kindWithPrefsKey(std::string(prefsKey));
        kind.usedNamesEntity = "FollowUp";
        kind.incrementSuffix = "." + std::string(prefsKey);
        return kind;
    }
    return std::nullopt;
}

std::optional<NumberingKind> numberingKindForObject(const ManagedObject& object) {
    if (object.isKindOfEntity("Invoice")) {
        return numberingKindForPrefsKey("invoice");
    }
    if (object.isKindOfEntity("Estimate")) {
        return numberingKindForPrefsKey("estimate");
    }
    if (object.isKindOfEntity("FollowUp")) {
        ManagedObject* type = relatedObject(object, "followUpType");
        if (type == nullptr || !type->valueForKey("useCustomNumbering").toBool()) {
            return std::nullopt;
        }
        return numberingKindForPrefsKey("followUpType." + type->valueForKey("uid").toString());
    }
    if (object.isKindOfEntity("Sendable")) {
        // Other sendables read the estimate's pattern and reset rule but count on a
        // counter of their own that nothing shows.
        NumberingKind kind = kindWithPrefsKey("estimate");
        kind.counterKey = "dummy.number";
        kind.usedNamesEntity = object.entityName();
        return kind;
    }
    if (object.isKindOfEntity("Client")) {
        return numberingKindForPrefsKey("client");
    }
    if (object.isKindOfEntity("Project")) {
        return numberingKindForPrefsKey("project");
    }
    return std::nullopt;
}

DocumentNumberingPreferences::DocumentNumberingPreferences(ManagedObjectContext& context)
    : m_context(context), m_mergeCount(context.mergeCount()) {
    if (BLDoc* document = BLDoc::documentForContext(context)) {
        m_controller = &document->prefsController();
    } else {
        m_owned = std::make_unique<BLPreferenceController>(context);
        m_controller = m_owned.get();
    }
}

DocumentNumberingPreferences::~DocumentNumberingPreferences() = default;

Value DocumentNumberingPreferences::valueForKeyPath(std::string_view keyPath) {
    if (m_owned && m_context.mergeCount() != m_mergeCount) {
        m_mergeCount = m_context.mergeCount();
        m_owned->refresh();
    }
    return m_controller->valueForKeyPath(keyPath);
}

void DocumentNumberingPreferences::setValueForKeyPath(const Value& value, std::string_view keyPath) {
    m_controller->setValueForKeyPath(value, keyPath);
}

Value OverlayNumberingPreferences::valueForKeyPath(std::string_view keyPath) {
    if (auto it = m_writes.find(keyPath); it != m_writes.end()) {
        return it->second;
    }
    return m_base.valueForKeyPath(keyPath);
}

void OverlayNumberingPreferences::setValueForKeyPath(const Value& value, std::string_view keyPath) {
    m_writes[std::string(keyPath)] = value;
}

Numbering::Numbering(ManagedObjectContext& context)
    : m_context(context),
      m_ownPreferences(std::make_unique<DocumentNumberingPreferences>(context)),
      m_preferences(m_ownPreferences.get()),
      m_active(m_preferences) {}

Numbering::Numbering(ManagedObjectContext& context, NumberingPreferences& preferences)
    : m_context(context), m_preferences(&preferences), m_active(&preferences) {}

Numbering::~Numbering() = default;

std::optional<std::string> Numbering::transformedValue(const NumberPattern* pattern, ManagedObject* object) {
    if (pattern == nullptr) {
        return std::nullopt;
    }
    std::optional<NumberingKind> kind = object != nullptr ? numberingKindForObject(*object) : std::nullopt;
    TokenInput input{object, m_active, m_autoIncrement};
    std::string text;
    for (const PatternElement& element : *pattern) {
        if (!element.isToken) {
            // A literal may hold a slash: folder patterns rely on it.
            text += element.text;
            continue;
        }
        std::optional<std::string> value;
        if (element.option) {
            std::string option = kind ? fixedIncrementClassName(*kind, *element.option) : *element.option;
            value = tokenValue(option, input);
            // A token's answer never splits a path: "A/B" as a client name becomes "A_B".
            if (value) {
                for (char& c : *value) {
                    if (c == '/') {
                        c = '_';
                    }
                }
            }
        } else if (object != nullptr) {
            if (!kind || !kind->isSendable) {
                value = element.field;
            } else if (element.field == "/") {
                value = "/";
            } else if (substitutionProvider()) {
                value = substitutionProvider()(*object, element.field);
            } else {
                value = fallbackFieldValue(*object, element.field, input);
            }
        }
        if (value) {
            text += *value;
        }
    }
    return text;
}

std::optional<NumberPattern> Numbering::pattern(const NumberingKind& kind) {
    Value stored = m_active->valueForKeyPath(kind.patternKey);
    if (stored.isNull()) {
        return std::nullopt;
    }
    std::string error;
    std::optional<NumberPattern> decoded = patternFromValue(stored, &error);
    if (!decoded) {
        logMessage("Number pattern %s: %s", kind.patternKey, error);
    }
    return decoded;
}

void Numbering::setPattern(const NumberingKind& kind, const NumberPattern& pattern) {
    m_active->setValueForKeyPath(archivedPattern(pattern), kind.patternKey);
}

int64_t Numbering::currentCounter(const NumberingKind& kind) {
    Value counter = m_active->valueForKeyPath(kind.counterKey);
    // An absent counter has handed out nothing yet: its next value is 1.
    return counter.isNull() ? 1 : counter.toInt64();
}

void Numbering::setCurrentCounter(const NumberingKind& kind, int64_t value) {
    m_active->setValueForKeyPath(Value(value), kind.counterKey);
}

const std::unordered_set<std::string>& Numbering::usedNumbers(const NumberingKind& kind) {
    std::string cacheKey = kind.usedNamesEntity + "." + kind.numberKey;
    auto it = m_used.find(cacheKey);
    if (it != m_used.end()) {
        return it->second;
    }
    std::unordered_set<std::string> used;
    std::optional<std::vector<ManagedObject*>> objects =
        m_context.executeFetchRequest(FetchRequest(kind.usedNamesEntity));
    if (objects) {
        used.reserve(objects->size());
        for (ManagedObject* object : *objects) {
            if (std::optional<std::string> number = textOf(object->valueForKey(kind.numberKey))) {
                used.insert(std::move(*number));
            }
        }
    } else {
        logMessage("Numbers in use of %s could not be fetched", kind.usedNamesEntity);
    }
    return m_used.emplace(std::move(cacheKey), std::move(used)).first->second;
}

std::optional<std::string> Numbering::draw(ManagedObject& object, const NumberingKind& kind, std::optional<Date> date,
                                           NumberingPreferences& preferences) {
    m_active = &preferences;
    m_autoIncrement = 1;
    const std::unordered_set<std::string>& used = usedNumbers(kind);
    std::optional<NumberPattern> stored = pattern(kind);
    const NumberPattern* evaluated = stored ? &*stored : nullptr;
    bool hasIncrement = stored && patternHasField(*stored, "increment");
    bool hasAutoIncrement = stored && patternHasField(*stored, "autoincrement");

    if (numberingScript()) {
        std::optional<std::string> scripted = numberingScript()(object, used);
        if (scripted && !used.contains(*scripted)) {
            m_active = m_preferences;
            return scripted;
        }
    }
    NumberResetMode mode = parseResetMode(preferences.valueForKeyPath(kind.resetModeKey));
    const Date now = Date::now();
    bool restarted = false;
    if (mode != NumberResetMode::Never) {
        // The period is the present one, not the document's: the date argument only
        // decides back-dating below.
        Date periodStart = mode == NumberResetMode::Day ? now.dayStart()
                           : mode == NumberResetMode::Month
                               ? Date::dateWithYear(now.yearOfCommonEra(), now.monthOfYear())
                               : Date::dateWithYear(now.yearOfCommonEra(), 1);
        bool hasPeriodTags = stored && patternHasField(*stored, "year") && hasIncrement &&
                             (mode == NumberResetMode::Year || patternHasField(*stored, "month")) &&
                             (mode != NumberResetMode::Day || patternHasField(*stored, "day"));
        if (hasPeriodTags) {
            // The number itself names the period, so the free-number search finds the lowest
            // number unused in it: a number given up in the period is handed out again.
            setCurrentCounter(kind, 1);
            preferences.setValueForKeyPath(Value(periodStart), kind.lastResetKey);
            restarted = true;
        } else {
            const Value lastResetValue = preferences.valueForKeyPath(kind.lastResetKey);
            const Date* lastReset = lastResetValue.date();
            if (lastReset == nullptr || periodStart > *lastReset) {
                logMessage("Resetted number for %@ interval %@", object.entityName(),
                           mode == NumberResetMode::Day     ? "day"
                           : mode == NumberResetMode::Month ? "month"
                                                            : "year");
                setCurrentCounter(kind, 1);
                preferences.setValueForKeyPath(Value(periodStart), kind.lastResetKey);
            }
        }
    }
    std::optional<int64_t> remembered;
    if (mode == NumberResetMode::Year && (!date || date->yearOfCommonEra() != now.yearOfCommonEra())) {
        // A document dated in another year counts through that year's numbers from 1 and
        // leaves the running counter as it was.
        remembered = currentCounter(kind);
        setCurrentCounter(kind, 1);
        restarted = true;
    }
    auto advance = [&] {
        if (hasAutoIncrement) {
            ++m_autoIncrement;
        } else {
            setCurrentCounter(kind, currentCounter(kind) + 1);
        }
    };
    std::optional<std::string> text = transformedValue(evaluated, &object);
    // With a counter restarted at 1, the search walks past every
    // number of the period each time. The numbers in use only grow within this object's
    // life, so a counter value that was found free for the same text at 1 is where the
    // next search for that text may start.
    std::string hintKey;
    if (restarted && hasIncrement && !hasAutoIncrement && text) {
        hintKey = kind.counterKey + '\x1f' + *text;
        if (auto hint = m_searchHints.find(hintKey);
            hint != m_searchHints.end() && hint->second > currentCounter(kind)) {
            setCurrentCounter(kind, hint->second);
            text = transformedValue(evaluated, &object);
        }
    }
    const int64_t counterBefore = currentCounter(kind);
    advance();
    if (hasIncrement || hasAutoIncrement) {
        skipUsedNumbers(
            text, used, [&] { return transformedValue(evaluated, &object); }, advance);
        if (!text) {
            // No number was handed out, so the counter stays where it was.
            setCurrentCounter(kind, counterBefore);
        }
    }
    if (!hintKey.empty()) {
        m_searchHints[hintKey] = currentCounter(kind) - 1;
    }
    if (remembered) {
        setCurrentCounter(kind, *remembered);
    }
    m_active = m_preferences;
    return text;
}

std::optional<std::string> Numbering::drawSimple(ManagedObject& object, const NumberingKind& kind,
                                                 NumberingPreferences& preferences) {
    m_active = &preferences;
    m_autoIncrement = 1;
    const std::unordered_set<std::string>& used = usedNumbers(kind);
    std::optional<NumberPattern> stored = pattern(kind);
    bool hasIncrement = stored && patternHasField(*stored, "increment");
    // Client numbers advance only through their counter; projects may count per draw.
    bool hasAutoIncrement = kind.prefsKey == "project" && stored && patternHasField(*stored, "autoincrement");
    std::optional<std::string> text = transformedValue(stored ? &*stored : nullptr, &object);
    if (!text || text->empty()) {
        m_active = m_preferences;
        return std::nullopt;
    }
    auto advance = [&] {
        if (hasAutoIncrement) {
            ++m_autoIncrement;
        } else {
            setCurrentCounter(kind, currentCounter(kind) + 1);
        }
    };
    const int64_t counterBefore = currentCounter(kind);
    advance();
    if (hasIncrement || hasAutoIncrement) {
        skipUsedNumbers(
            text, used, [&] { return transformedValue(&*stored, &object); }, advance);
        if (!text) {
            // No number was handed out, so the counter stays where it was.
            setCurrentCounter(kind, counterBefore);
        }
    }
    m_active = m_preferences;
    return text;
}

std::optional<std::string> Numbering::createNumber(ManagedObject& object) {
    std::optional<Date> date;
    const Value sentValue = object.valueForKey("dateSent");
    if (const Date* sent = sentValue.date()) {
        date = *sent;
    }
    return createNumberForDate(object, date);
}

std::optional<std::optional<std::string>> Numbering::settledNumber(ManagedObject& object, const NumberingKind& kind) {
    // A number once given stays (a sendable's empty text counts as none).
    if (std::optional<std::string> existing = textOf(object.valueForKey(kind.numberKey));
        existing && (!kind.isSendable || !existing->empty())) {
        return existing;
    }
    // Projects are numbered only with numbering switched on.
    if (kind.prefsKey == "project" && !m_preferences->valueForKeyPath("project.useNumbering").toBool()) {
        return std::optional<std::string>();
    }
    return std::nullopt;
}

std::optional<std::string> Numbering::createNumberForDate(ManagedObject& object, std::optional<Date> date) {
    std::optional<NumberingKind> kind = numberingKindForObject(object);
    if (!kind) {
        return std::nullopt;
    }
    if (std::optional<std::optional<std::string>> settled = settledNumber(object, *kind)) {
        return *settled;
    }
    // The counter and the numbers in use are read under the file's write lock, with what
    // other programs saved merged in, so that two of them never draw the same number.
    if (m_context.isMainContext()) {
        std::string error;
        if (!m_context.beginWriting(&error)) {
            logMessage("No number drawn for %@: %@", object.entityName(), error);
            return std::nullopt;
        }
        if (m_context.mergeCount() != m_mergeCount) {
            m_mergeCount = m_context.mergeCount();
            m_used.clear();
            m_searchHints.clear();
        }
    }
    std::optional<std::string> text =
        kind->isSendable ? draw(object, *kind, date, *m_preferences) : drawSimple(object, *kind, *m_preferences);
    if (text) {
        object.setValueForKey(Value(*text), kind->numberKey);
        m_used[kind->usedNamesEntity + "." + kind->numberKey].insert(*text);
    }
    return text;
}

std::optional<std::string> Numbering::peekNumber(ManagedObject& object) {
    std::optional<NumberingKind> kind = numberingKindForObject(object);
    if (!kind) {
        return std::nullopt;
    }
    if (std::optional<std::optional<std::string>> settled = settledNumber(object, *kind)) {
        return *settled;
    }
    OverlayNumberingPreferences overlay(*m_preferences);
    std::optional<Date> date;
    const Value sentValue = object.valueForKey("dateSent");
    if (const Date* sent = sentValue.date()) {
        date = *sent;
    } else if (kind->isSendable) {
        // A draft is numbered when it is sent, which for the preview is now.
        date = Date::now();
    }
    return kind->isSendable ? draw(object, *kind, date, overlay) : drawSimple(object, *kind, overlay);
}

bool Numbering::numberIsUnique(const ManagedObject& object) {
    std::optional<NumberingKind> kind = numberingKindForObject(object);
    std::string key = kind ? kind->numberKey : "name";
    std::optional<std::string> number = textOf(object.valueForKey(key));
    if (!number) {
        return true;
    }
    FetchRequest request(object.entityName());
    request.setIncludesSubentities(false);
    std::optional<std::vector<ManagedObject*>> objects = m_context.executeFetchRequest(request);
    if (!objects) {
        return true;
    }
    for (ManagedObject* other : *objects) {
        if (other != &object && textOf(other->valueForKey(key)) == number) {
            return false;
        }
    }
    return true;
}

namespace {

// A file name may not hold a slash or a colon; control characters and surrounding blanks
// are dropped.
std::string cleanedPathNoSlashes(std::string_view text) {
    std::string cleaned;
    for (char c : text) {
        if (c == '/' || c == ':') {
            cleaned += '-';
        } else if (static_cast<unsigned char>(c) >= 0x20) {
            cleaned += c;
        }
    }
    size_t first = cleaned.find_first_not_of(' ');
    size_t last = cleaned.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : cleaned.substr(first, last - first + 1);
}

std::string cleanedPath(std::string_view text) {
    std::string cleaned;
    for (char c : text) {
        if (c == ':') {
            cleaned += '-';
        } else if (static_cast<unsigned char>(c) >= 0x20) {
            cleaned += c;
        }
    }
    return cleaned;
}

std::string expandTilde(std::string_view path) {
    if (!path.starts_with('~')) {
        return std::string(path);
    }
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "") + std::string(path.substr(1));
}

}  // namespace

std::string documentName(Numbering& numbering, ManagedObject& document) {
    NumberingKind kind;
    kind.patternKey = "documents.filename";
    std::optional<NumberPattern> pattern = numbering.pattern(kind);
    std::string name =
        cleanedPathNoSlashes(numbering.transformedValue(pattern ? &*pattern : nullptr, &document).value_or(""));
    return name.empty() ? localizedString("untitled") : name;
}

std::string documentPath(Numbering& numbering, ManagedObject& document, std::string_view documentsRoot) {
    NumberingKind kind;
    kind.patternKey = "documents.directory";
    std::optional<NumberPattern> pattern = numbering.pattern(kind);
    std::string folder = cleanedPath(numbering.transformedValue(pattern ? &*pattern : nullptr, &document).value_or(""));
    // The folder is relative to the root even when its pattern starts with a slash.
    size_t start = folder.find_first_not_of('/');
    folder = start == std::string::npos ? std::string() : folder.substr(start);
    std::filesystem::path path = std::filesystem::path(expandTilde(documentsRoot)) / folder;
    path /= documentName(numbering, document);
    return path.lexically_normal().string();
}

std::string timeImportTitle(const NumberPattern& pattern, const Value::Dictionary& entry) {
    std::string title;
    for (const PatternElement& element : pattern) {
        if (!element.isToken) {
            title += element.text;
            continue;
        }
        auto it = entry.find(element.field);
        if (it == entry.end() || it->second.isNull()) {
            continue;
        }
        const Value& value = it->second;
        const ValueTransformer* transformer = nullptr;
        if (value.date() != nullptr) {
            transformer = valueTransformerForName("ZPShortDateTransformer");
        } else if (value.isNumber() && value.boolean() == nullptr) {
            transformer = valueTransformerForName("ZPNumberTransformer");
        }
        title += transformer != nullptr ? transformer->transformedValue(value).toString() : value.toString();
    }
    return title;
}

void setNumberingScript(NumberingScript script) {
    numberingScript() = std::move(script);
}

void setNumberSubstitutionProvider(
    std::function<std::optional<std::string>(ManagedObject&, std::string_view)> provider) {
    substitutionProvider() = std::move(provider);
}

}  // namespace brassline
