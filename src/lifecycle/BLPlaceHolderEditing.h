#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"
#include "lifecycle/BLPlaceHolderWrapper.h"
#include "lifecycle/PlaceHolderTokens.h"

namespace brassline {

// Attribute names of the editing text, as a text view would carry them.
inline constexpr const char* kWrapperAttributeName = "WrapperAttributeName";
inline constexpr const char* kUnchangedAttributeName = "UnchangedAttributeName";
inline constexpr const char* kCustomEditableAttributeName = "CustomEditableAttributeName";
inline constexpr const char* kOriginalTextAttributeName = "OriginalTextAttributeName";
inline constexpr const char* kWrapperTagUIDAttributeName = "WrapperTagUID";

// A run of the editing text with one set of attributes. Fixed runs carry only the wrapper.
struct PlaceHolderTextRun {
    std::string text;
    size_t wrapper = 0;
    bool editable = false;
    bool unchanged = false;
    std::string originalText;
    std::string tagUID;
};

// The text of all wrappers' fields, each followed by a newline, in which only the fill-in
// ranges (bracket fields, or detected values) can change. Offsets are UTF-8 bytes. Ranges
// with the same original text share a tag UID and change together. Borrows the wrappers
// given to setTextWithWrappers; main thread.
class BLPlaceHolderEditingTextView {
public:
    // Rebuilds the text; proposals of a wrapper's preProcess fill its first fields in
    // order and count as changed.
    void setTextWithWrappers(std::vector<BLPlaceHolderWrapper>* wrappers);

    std::string string() const;
    const std::vector<PlaceHolderTextRun>& runs() const { return m_runs; }
    TextRange rangeOfRun(size_t run) const;
    // The attributes at a byte offset, keyed by the attribute names; empty past the end.
    // The wrapper is given by its index, the flags as true.
    Value::Dictionary attributesAtIndex(size_t location) const;

    // Allowed only inside one editable range (its ends included), on character boundaries.
    bool shouldChangeTextInRange(TextRange range, std::string_view replacement) const;
    // Makes an allowed change: the range loses "unchanged" and every range with its tag
    // takes the same text. False (and nothing changed) when refused.
    bool replaceCharactersInRange(TextRange range, std::string_view replacement);

    // The next editable range after the selection whose original text differs from the
    // selected one's, from the start again at the end; it becomes the selection.
    std::optional<TextRange> selectNextDifferentOriginalTextAttributeRange();
    TextRange selectedRange() const { return m_selection; }
    void setSelectedRange(TextRange range) { m_selection = range; }

    // No range is left unchanged.
    bool isCompleted() const;
    // Writes each wrapper's text back (its inserted strings become its fields' texts) and
    // posts "BLRefreshAllItems".
    void processChanges();

private:
    std::optional<size_t> editableRunFor(TextRange range) const;
    void replaceDisplayedStringsForWrapper(size_t wrapper);

    std::vector<BLPlaceHolderWrapper>* m_wrappers = nullptr;
    std::vector<PlaceHolderTextRun> m_runs;
    TextRange m_selection;
};

// The fill-in dialog without its window: apply writes and hands the wrappers to their
// owners (routes), cancel writes nothing, reset starts the text again.
class BLPlaceHolderSubstituteController {
public:
    explicit BLPlaceHolderSubstituteController(std::vector<BLPlaceHolderWrapper> wrappers);
    // The text view points into the wrappers: the controller stays where it was made.
    BLPlaceHolderSubstituteController(const BLPlaceHolderSubstituteController&) = delete;
    BLPlaceHolderSubstituteController& operator=(const BLPlaceHolderSubstituteController&) = delete;

    BLPlaceHolderEditingTextView& textView() { return m_textView; }
    std::vector<BLPlaceHolderWrapper>& wrappers() { return m_wrappers; }
    // What the confirmation button's "isCompleted" binding reads.
    bool isCompleted() const { return m_textView.isCompleted(); }
    bool isOpen() const { return m_open; }

    void apply();
    void cancel();
    void reset();

private:
    std::vector<BLPlaceHolderWrapper> m_wrappers;
    BLPlaceHolderEditingTextView m_textView;
    bool m_open = true;
};

}  // namespace brassline
