#include "lifecycle/BLPlaceHolderEditing.h"

#include <map>

#include "core/UniqueId.h"
#include "model/NotificationCenter.h"

namespace brassline {

namespace {

bool isCharacterBoundary(const std::string& text, size_t offset) {
    return offset >= text.size() || (static_cast<unsigned char>(text[offset]) & 0xC0) != 0x80;
}

// The fill-in ranges of one field: its detected values where they still stand as
// detected, else its bracket fields.
std::vector<TextRange> fillInRanges(const BLPlaceHolderWrapper& wrapper, const std::string& text) {
    std::vector<TextRange> ranges;
    for (const PlaceHolderToken& token : wrapper.tokens()) {
        if (token.range.end() <= text.size() &&
            text.compare(token.range.location, token.range.length, token.value) == 0 &&
            (ranges.empty() || ranges.back().end() <= token.range.location)) {
            ranges.push_back(token.range);
        }
    }
    if (wrapper.tokens().empty()) {
        ranges = placeHolderRanges(text);
    }
    return ranges;
}

}  // namespace

void BLPlaceHolderEditingTextView::setTextWithWrappers(std::vector<BLPlaceHolderWrapper>* wrappers) {
    m_wrappers = wrappers;
    m_runs.clear();
    m_selection = {};
    if (wrappers == nullptr) {
        return;
    }
    std::map<std::string, std::string, std::less<>> tagByOriginal;
    for (size_t index = 0; index < wrappers->size(); ++index) {
        BLPlaceHolderWrapper& wrapper = (*wrappers)[index];
        const std::string text = wrapper.text();
        const std::vector<std::string> proposals = wrapper.preProcess();
        size_t fields = 0;
        size_t position = 0;
        for (const TextRange& range : fillInRanges(wrapper, text)) {
            if (range.location > position) {
                m_runs.push_back({text.substr(position, range.location - position), index, false, false, {}, {}});
            }
            PlaceHolderTextRun run;
            run.wrapper = index;
            run.editable = true;
            run.originalText = text.substr(range.location, range.length);
            auto [tag, inserted] = tagByOriginal.emplace(run.originalText, std::string());
            if (inserted) {
                tag->second = uniqueBase64String();
            }
            run.tagUID = tag->second;
            if (fields < proposals.size()) {
                run.text = proposals[fields];
            } else {
                run.text = run.originalText;
                run.unchanged = true;
            }
            ++fields;
            m_runs.push_back(std::move(run));
            position = range.end();
        }
        if (position < text.size()) {
            m_runs.push_back({text.substr(position), index, false, false, {}, {}});
        }
        m_runs.push_back({"\n", index, false, false, {}, {}});
        replaceDisplayedStringsForWrapper(index);
    }
}

std::string BLPlaceHolderEditingTextView::string() const {
    std::string text;
    for (const PlaceHolderTextRun& run : m_runs) {
        text += run.text;
    }
    return text;
}

TextRange BLPlaceHolderEditingTextView::rangeOfRun(size_t run) const {
    size_t location = 0;
    for (size_t index = 0; index < run && index < m_runs.size(); ++index) {
        location += m_runs[index].text.size();
    }
    return {location, run < m_runs.size() ? m_runs[run].text.size() : 0};
}

Value::Dictionary BLPlaceHolderEditingTextView::attributesAtIndex(size_t location) const {
    Value::Dictionary attributes;
    size_t start = 0;
    for (const PlaceHolderTextRun& run : m_runs) {
        if (location < start + run.text.size()) {
            attributes[kWrapperAttributeName] = Value(static_cast<int64_t>(run.wrapper));
            if (run.editable) {
                attributes[kCustomEditableAttributeName] = Value(true);
                attributes[kOriginalTextAttributeName] = Value(run.originalText);
                attributes[kWrapperTagUIDAttributeName] = Value(run.tagUID);
            }
            if (run.unchanged) {
                attributes[kUnchangedAttributeName] = Value(true);
            }
            break;
        }
        start += run.text.size();
    }
    return attributes;
}

std::optional<size_t> BLPlaceHolderEditingTextView::editableRunFor(TextRange range) const {
    size_t start = 0;
    for (size_t index = 0; index < m_runs.size(); ++index) {
        const size_t end = start + m_runs[index].text.size();
        if (m_runs[index].editable && start <= range.location && range.end() <= end) {
            return index;
        }
        start = end;
    }
    return std::nullopt;
}

bool BLPlaceHolderEditingTextView::shouldChangeTextInRange(TextRange range, std::string_view replacement) const {
    (void)replacement;
    const std::string text = string();
    if (range.location > text.size() || range.length > text.size() - range.location ||
        !isCharacterBoundary(text, range.location) || !isCharacterBoundary(text, range.end())) {
        return false;
    }
    return editableRunFor(range).has_value();
}

bool BLPlaceHolderEditingTextView::replaceCharactersInRange(TextRange range, std::string_view replacement) {
    if (!shouldChangeTextInRange(range, replacement)) {
        return false;
    }
    const size_t index = *editableRunFor(range);
    PlaceHolderTextRun& run = m_runs[index];
    const size_t start = rangeOfRun(index).location;
    run.text.replace(range.location - start, range.length, replacement);
    run.unchanged = false;
    // The same field elsewhere is the same value: it follows, and so do its wrappers.
    const std::string newText = run.text;
    const std::string tag = run.tagUID;
    std::vector<size_t> touched;
    for (PlaceHolderTextRun& other : m_runs) {
        if (other.editable && other.tagUID == tag) {
            other.text = newText;
            other.unchanged = false;
            touched.push_back(other.wrapper);
        }
    }
    for (size_t wrapper : touched) {
        replaceDisplayedStringsForWrapper(wrapper);
    }
    m_selection = {range.location + replacement.size(), 0};
    return true;
}

std::optional<TextRange> BLPlaceHolderEditingTextView::selectNextDifferentOriginalTextAttributeRange() {
    const size_t count = m_runs.size();
    std::optional<size_t> current = editableRunFor({m_selection.location, 0});
    size_t first = 0;
    if (current) {
        first = *current + 1;
    } else {
        // Outside any field the search starts at the first run after the selection.
        while (first < count && rangeOfRun(first).location < m_selection.location) {
            ++first;
        }
    }
    for (size_t step = 0; step < count; ++step) {
        const size_t index = (first + step) % count;
        const PlaceHolderTextRun& run = m_runs[index];
        if (run.editable && (!current || run.originalText != m_runs[*current].originalText)) {
            m_selection = rangeOfRun(index);
            return m_selection;
        }
    }
    return std::nullopt;
}

bool BLPlaceHolderEditingTextView::isCompleted() const {
    for (const PlaceHolderTextRun& run : m_runs) {
        if (run.unchanged) {
            return false;
        }
    }
    return true;
}

void BLPlaceHolderEditingTextView::replaceDisplayedStringsForWrapper(size_t wrapper) {
    if (m_wrappers == nullptr || wrapper >= m_wrappers->size()) {
        return;
    }
    std::vector<std::string>& displayed = (*m_wrappers)[wrapper].displayedStrings();
    displayed.clear();
    for (const PlaceHolderTextRun& run : m_runs) {
        if (run.editable && run.wrapper == wrapper) {
            displayed.push_back(run.text);
        }
    }
}

void BLPlaceHolderEditingTextView::processChanges() {
    if (m_wrappers == nullptr) {
        return;
    }
    for (size_t index = 0; index < m_wrappers->size(); ++index) {
        BLPlaceHolderWrapper& wrapper = (*m_wrappers)[index];
        std::string text;
        std::vector<std::string> inserted;
        for (const PlaceHolderTextRun& run : m_runs) {
            if (run.wrapper != index) {
                continue;
            }
            if (run.editable) {
                inserted.push_back(run.text);
            }
            text += run.text;
        }
        // The newline that separates the fields in the view is not part of the field.
        if (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        wrapper.insertedStrings() = std::move(inserted);
        if (text != wrapper.text()) {
            wrapper.replaceText(text);
        }
    }
    NotificationCenter::defaultCenter().postNotificationName(kRefreshAllItemsNotification);
}

BLPlaceHolderSubstituteController::BLPlaceHolderSubstituteController(std::vector<BLPlaceHolderWrapper> wrappers)
    : m_wrappers(std::move(wrappers)) {
    m_textView.setTextWithWrappers(&m_wrappers);
}

void BLPlaceHolderSubstituteController::apply() {
    if (!m_open) {
        return;
    }
    m_textView.processChanges();
    BLPlaceHolderWrapper::postProcessWrappers(m_wrappers);
    m_open = false;
}

void BLPlaceHolderSubstituteController::cancel() {
    m_open = false;
}

void BLPlaceHolderSubstituteController::reset() {
    m_textView.setTextWithWrappers(&m_wrappers);
}

}  // namespace brassline
