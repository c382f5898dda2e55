#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lifecycle/PlaceHolderTokens.h"

namespace brassline {

class BLBase;

// The user default that switches off turning detected values into bracket fields.
inline constexpr const char* kDisablePlaceHolderCreationDefault = "BLDisablePlaceHolderCreation";
// Posted when fill-ins changed item texts or quantities.
inline constexpr const char* kRefreshAllItemsNotification = "BLRefreshAllItems";

// The text fields of an object that may hold fill-ins: "name" and "notes" for items,
// "notes" for notes, "name" for titles and subtotals, "lead" for sendables; else none.
std::vector<std::string> placeHolderFields(const BLBase& object);

// Detected values grouped by text over several wrappers, for turning into bracket fields.
// `wrappers` index the vector the group was made from.
struct UniquePlaceHolderToken {
    std::string string;
    std::string type;
    std::vector<size_t> wrappers;
    std::string label;
};

// One text field of one object that holds fill-ins: bracket fields, or values detected in
// a template's text. Borrows the object (owned by its context) for one dialog; main thread.
class BLPlaceHolderWrapper {
public:
    BLPlaceHolderWrapper(BLBase* managedObject, std::string field, std::vector<PlaceHolderToken> tokens = {});

    // The bracket pattern, a non-greedy pair: "\[(.*?)\]".
    static const std::string& pattern();

    // A wrapper per placeholder field with a value: for a template or cost `document`,
    // when its text has detected values; otherwise when it holds a bracket pair.
    static std::vector<BLPlaceHolderWrapper> wrappersForManagedObject(BLBase& object, const BLBase* document);
    static std::vector<BLPlaceHolderWrapper> wrappersForManagedObjects(const std::vector<BLBase*>& objects,
                                                                       const BLBase* document);
    // Tokens of all wrappers grouped by value, first seen first; labels are left empty.
    static std::vector<UniquePlaceHolderToken> uniqueTokensForWrappers(
        const std::vector<BLPlaceHolderWrapper>& wrappers);
    // Labels: the translated type, "%@ %ld" from 2 for a repeated one ("Date", "Date 2").
    static void labelUniqueTokens(std::vector<UniquePlaceHolderToken>& tokens);

    // Answers which labelled tokens to turn into fields, as indexes; nothing cancels.
    using TokenChooser =
        std::function<std::optional<std::vector<size_t>>(const std::vector<UniquePlaceHolderToken>& tokens)>;
    // Labels the unique tokens, asks `choose`, and replaces each chosen token's text in its
    // wrappers by "[label]". Answers how many tokens were applied; 0 when switched off by
    // the user default, with no tokens, or when the choice is cancelled.
    static size_t applyTokens(std::vector<BLPlaceHolderWrapper>& wrappers, const TokenChooser& choose);

    BLBase* managedObject() const { return m_managedObject; }
    const std::string& field() const { return m_field; }
    const std::vector<PlaceHolderToken>& tokens() const { return m_tokens; }
    std::vector<std::string>& insertedStrings() { return m_insertedStrings; }
    const std::vector<std::string>& insertedStrings() const { return m_insertedStrings; }
    std::vector<std::string>& displayedStrings() { return m_displayedStrings; }
    const std::vector<std::string>& displayedStrings() const { return m_displayedStrings; }

    // The field's text; "" when it has none.
    std::string text() const;
    // Stores `text` in the field.
    void replaceText(std::string_view text);
    // Replaces every occurrence of `target` in the field's text and stores it; an empty
    // target changes nothing.
    void replaceString(std::string_view target, std::string_view replacement);
    // Values the owner proposes for the fields (a route's two addresses), else none.
    std::vector<std::string> preProcess() const;
    // Hands each distinct owner its wrappers, in order of first appearance.
    static void postProcessWrappers(std::vector<BLPlaceHolderWrapper>& wrappers);
    // "<object> <field> <tokens>" for logs.
    std::string description() const;

    // The words of `text` that some variation lacks, adjacent ones merged, typed by the
    // detected token they meet ("Text" otherwise). Words with a bracket are skipped; a
    // text that has a bracket answers nothing.
    static std::vector<PlaceHolderToken> highlightAlteredRangesInString(std::string_view text,
                                                                        const std::vector<std::string>& variations);

private:
    BLBase* m_managedObject;
    std::string m_field;
    std::vector<PlaceHolderToken> m_tokens;
    std::vector<std::string> m_insertedStrings;
    std::vector<std::string> m_displayedStrings;
};

// The type of an altered range that meets no detected token.
inline constexpr const char* kTokenTypeText = "Text";

}  // namespace brassline
