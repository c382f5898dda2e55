#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "core/Date.h"
#include "lifecycle/NumberPattern.h"
#include "lifecycle/NumberTokens.h"

namespace brassline {

class BLPreferenceController;
class ManagedObject;
class ManagedObjectContext;

enum class NumberResetMode : uint8_t { Never, Year, Month, Day };

// The preference keys and rules of one numbered kind (invoice, estimate, client, project,
// a follow-up type with its own numbering, or another sendable on the dummy counter).
struct NumberingKind {
    std::string prefsKey;      // "invoice", "followUpType.<uid>".
    std::string counterKey;    // "invoice.number"; "dummy.number" for other sendables.
    std::string patternKey;    // "invoice.numbering".
    std::string resetModeKey;  // Empty for kinds without resets.
    std::string lastResetKey;
    std::string usedNamesEntity;  // "Invoice" for every invoice kind, else the own entity.
    std::string numberKey;        // "name", "clientID" or "number".
    std::string incrementPrefix;  // "ZPIncrement", "ZPEstimateIncrement".
    std::string incrementSuffix;  // ".followUpType.<uid>" on a follow-up.
    bool isSendable = false;
};

// The kind of an object; empty when it carries no number (a follow-up whose type has no
// numbering of its own, a project with numbering off, any other entity).
std::optional<NumberingKind> numberingKindForObject(const ManagedObject& object);
// The kind whose patterns the command line and settings edit: "invoice", "estimate",
// "client", "project" or "followUpType.<uid>".
std::optional<NumberingKind> numberingKindForPrefsKey(std::string_view prefsKey);
// "never", "year", "month", "day", or the tags 0, 3, 2, 1 of the reset menu; anything
// else, and nothing, is never.
NumberResetMode parseResetMode(const Value& value);

// The document's preferences: the open document's controller when the context belongs to
// one, else a controller of its own over the context.
class DocumentNumberingPreferences : public NumberingPreferences {
public:
    explicit DocumentNumberingPreferences(ManagedObjectContext& context);
    ~DocumentNumberingPreferences() override;
    Value valueForKeyPath(std::string_view keyPath) override;
    void setValueForKeyPath(const Value& value, std::string_view keyPath) override;

private:
    ManagedObjectContext& m_context;
    BLPreferenceController* m_controller = nullptr;
    // Without a document nothing refreshes the controller when other writers' changes
    // are merged: it starts over on its own after each merge.
    std::unique_ptr<BLPreferenceController> m_owned;
    uint64_t m_mergeCount = 0;
};

// Reads through to other preferences and keeps its writes to itself: a dry run.
class OverlayNumberingPreferences : public NumberingPreferences {
public:
    explicit OverlayNumberingPreferences(NumberingPreferences& base) : m_base(base) {}
    Value valueForKeyPath(std::string_view keyPath) override;
    void setValueForKeyPath(const Value& value, std::string_view keyPath) override;

private:
    NumberingPreferences& m_base;
    std::map<std::string, Value, std::less<>> m_writes;
};

// Evaluates patterns and draws numbers for the objects of one context. Keeps the numbers
// in use per entity from the first draw on, adding each number it hands out; make a new
// one after other changes to numbers. Main thread, like the context.
class Numbering {
public:
    explicit Numbering(ManagedObjectContext& context);
    Numbering(ManagedObjectContext& context, NumberingPreferences& preferences);
    ~Numbering();

    // The pattern's text for an object, or for none (the preview): literals as they stand,
    // token answers with "/" made "_", unknown options nothing. Null pattern, null text.
    std::optional<std::string> transformedValue(const NumberPattern* pattern, ManagedObject* object);

    // The stored pattern of a kind; empty when none is stored or it does not read (logged).
    std::optional<NumberPattern> pattern(const NumberingKind& kind);
    void setPattern(const NumberingKind& kind, const NumberPattern& pattern);
    int64_t currentCounter(const NumberingKind& kind);
    void setCurrentCounter(const NumberingKind& kind, int64_t value);

    // Gives the object its number and stores it (name, clientID or number). An object
    // that has one keeps it; a kind that makes none answers empty, as does a client or
    // project pattern that yields the empty text (no counter moves then).
    std::optional<std::string> createNumber(ManagedObject& object);
    // On a sendable: with the date that decides back-dating (usually dateSent).
    std::optional<std::string> createNumberForDate(ManagedObject& sendable, std::optional<Date> date);
    // The number the object has, or would get now, with counters and the object untouched.
    std::optional<std::string> peekNumber(ManagedObject& object);

    // Whether any other object of the object's own entity has the same number.
    bool numberIsUnique(const ManagedObject& object);
    const std::unordered_set<std::string>& usedNumbers(const NumberingKind& kind);

private:
    // The answer when no number is to be drawn: the object's own number, or none at all
    // (an empty inner optional) for a project while numbering is off; nothing otherwise.
    std::optional<std::optional<std::string>> settledNumber(ManagedObject& object, const NumberingKind& kind);
    std::optional<std::string> draw(ManagedObject& object, const NumberingKind& kind, std::optional<Date> date,
                                    NumberingPreferences& preferences);
    std::optional<std::string> drawSimple(ManagedObject& object, const NumberingKind& kind,
                                          NumberingPreferences& preferences);

    ManagedObjectContext& m_context;
    std::unique_ptr<NumberingPreferences> m_ownPreferences;
    NumberingPreferences* m_preferences;
    NumberingPreferences* m_active;  // The preferences of the draw under way.
    int64_t m_autoIncrement = 1;
    std::map<std::string, std::unordered_set<std::string>, std::less<>> m_used;
    uint64_t m_mergeCount = 0;  // The context's merge count when m_used was last valid.
    std::map<std::string, int64_t, std::less<>> m_searchHints;
};

// The text of a token without option on a sendable (the substitution map's value for
// the field). Until one is installed, the common tags answer like their tokens and any
// other field reads the sendable's property of that name.
void setNumberSubstitutionProvider(
    std::function<std::optional<std::string>(ManagedObject&, std::string_view)> provider);

// A numbering script (a plug-in of type documentNumbering), installed by the script host:
// given the sendable and the numbers in use, it answers a number or nothing. A number that
// is already in use is dropped and the counter path takes over; a used script number moves
// no counter. Empty by default.
using NumberingScript = std::function<std::optional<std::string>(
    ManagedObject& object, const std::unordered_set<std::string>& existingNumbers)>;
void setNumberingScript(NumberingScript script);

// The file name and folder of a document's PDF from the patterns "documents.filename"
// and "documents.directory": the name without slashes ("untitled" when empty), the path
// as root, folder and name with "~" expanded and "." and ".." resolved.
std::string documentName(Numbering& numbering, ManagedObject& document);
std::string documentPath(Numbering& numbering, ManagedObject& document, std::string_view documentsRoot);

// The title of an imported time entry from a pattern whose tokens name the entry's keys
// ("project", "title", "notes", "date"): texts as they stand, dates in the short style,
// numbers through the number transformer; a missing key adds nothing.
std::string timeImportTitle(const NumberPattern& pattern, const Value::Dictionary& entry);

}  // namespace brassline
