#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Decimal.h"
#include "core/Value.h"

namespace brassline {

class BLSendable;
class ManagedObject;
class ValueTransformer;
struct BLTaxDetails;

// The flat view of an object that layout tags and mail texts read: key to display text,
// plus the object itself under kSubstitutionObjectKey.
using SubstitutionDictionary = Value::Dictionary;

inline constexpr const char* kSubstitutionObjectKey = "ZPBrasslineObject";
// Shown for a date or number that a draft does not have yet.
inline constexpr const char* kMissingValueSign = "\u2753";
inline constexpr const char* kOCRLineReplacementMessage =
    "\u267B Please, replace with the new OCRB element in the layout editor";

// Copies `source` into `target` under "prefix.key"; the object entry is copied too.
void addEntriesFromDictionary(SubstitutionDictionary& target, const SubstitutionDictionary& source,
                              std::string_view prefix);
// The number through the transformer with `suffix` appended; an absent number stores
// nothing and leaves the key as it was.
void setNumber(SubstitutionDictionary& dictionary, const std::optional<Decimal>& number,
               const ValueTransformer* transformer, const std::string& key, std::string_view suffix = {});
// A name as a key path component: runs of anything but letters, digits and "_" become
// one "_", with none at either end ("Web Design" is "Web_Design").
std::string keyPathString(std::string_view name);
// The amount in words in a locale ("one hundred twenty-three point four five"); "" when
// the locale has no spell-out rules.
std::string spelledAmount(const Decimal& amount, std::string_view locale);

// The names of the fields fill-in texts may use: contacts list their name fields, team
// members add "signature"; empty for everything else.
std::vector<std::string> substitutionFields(const ManagedObject& object);

// The keys of every contact's dictionary (besides the object entry).
const std::vector<std::string>& contactSubstitutionKeys();

// The substitution dictionary of any object: contacts, currencies, layouts, lines of
// every kind, payments and sendables (the document dictionary, cached for 50 ms). Other
// objects answer only the object entry. Main thread.
SubstitutionDictionary substitutionDictionary(ManagedObject& object);
// The same for a line or payment seen from `document` (may be null: its own sendable).
SubstitutionDictionary substitutionDictionaryForDocument(ManagedObject& object, BLSendable* document);
// One tax slot of a document, amounts through the document's currency transformer.
SubstitutionDictionary substitutionDictionary(const BLTaxDetails& details);
// The sendable's own keys, without prefix and without the cache.
SubstitutionDictionary internalSubstitutionDictionary(BLSendable& document);
// The whole document dictionary built afresh, bypassing and not filling the cache.
SubstitutionDictionary buildDocumentSubstitutionDictionary(BLSendable& document);

// Values that later subsystems give. Each empty hook leaves its key "" (conditions,
// payment codes) or adds nothing (plug-ins). Main thread; resettable in tests.
struct SubstitutionHooks {
    // Plug-ins add to a finished document dictionary.
    std::function<void(BLSendable&, SubstitutionDictionary&)> runPlugins;
    // The client's terms text, already filled from the dictionary built so far.
    std::function<std::string(BLSendable&, const SubstitutionDictionary&)> clientConditionString;
    // The document's original conditions (a follow-up's parent).
    std::function<std::string(BLSendable&)> originalConditionsString;
    // Payment codes: the Swiss OCR line and reference number, the Belgian structured
    // communication.
    std::function<std::string(BLSendable&)> swissOCRLine;
    std::function<std::string(BLSendable&)> swissReferenceNumber;
    std::function<std::string(BLSendable&)> OGMString;
};

SubstitutionHooks& substitutionHooks();
void resetSubstitutionHooks();

}  // namespace brassline
