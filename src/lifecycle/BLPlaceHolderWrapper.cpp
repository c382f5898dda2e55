#include "lifecycle/BLPlaceHolderWrapper.h"

#include <map>

#include "core/Localization.h"
#include "core/Log.h"
#include "lifecycle/PlaceHolderRoutes.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLItem.h"
#include "model/entities/BLNote.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLSendableTemplate.h"
#include "model/entities/BLSubTotal.h"
#include "model/entities/BLTitle.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

std::vector<std::string> placeHolderFields(const BLBase& object) {
    // Most specific class first: notes, titles and subtotals are items too.
    if (dynamic_cast<const BLNote*>(&object) != nullptr) {
        return {"notes"};
    }
    if (dynamic_cast<const BLTitle*>(&object) != nullptr || dynamic_cast<const BLSubTotal*>(&object) != nullptr) {
        return {"name"};
    }
    if (dynamic_cast<const BLItem*>(&object) != nullptr) {
        return {"name", "notes"};
    }
    if (dynamic_cast<const BLSendable*>(&object) != nullptr) {
        return {"lead"};
    }
    return {};
}

BLPlaceHolderWrapper::BLPlaceHolderWrapper(BLBase* managedObject, std::string field,
                                           std::vector<PlaceHolderToken> tokens)
    : m_managedObject(managedObject), m_field(std::move(field)), m_tokens(std::move(tokens)) {}

const std::string& BLPlaceHolderWrapper::pattern() {
    static const std::string kPattern = "\\[(.*?)\\]";
    return kPattern;
}

std::vector<BLPlaceHolderWrapper> BLPlaceHolderWrapper::wrappersForManagedObject(BLBase& object,
                                                                                 const BLBase* document) {
    std::vector<BLPlaceHolderWrapper> wrappers;
    // Only templates and catalogue lines are written to be filled in later, so only their
    // texts are worth the detectors; elsewhere the user marks fields with brackets.
    const bool detects = dynamic_cast<const BLSendableTemplate*>(document) != nullptr ||
                         dynamic_cast<const BLCost*>(document) != nullptr;
    for (const std::string& field : placeHolderFields(object)) {
        const Value value = object.valueForKey(field);
        const std::string* text = value.string();
        if (text == nullptr || text->empty()) {
            continue;
        }
        if (detects) {
            std::vector<PlaceHolderToken> tokens = analyzeString(*text);
            if (!tokens.empty()) {
                wrappers.emplace_back(&object, field, std::move(tokens));
                continue;
            }
        }
        if (!placeHolderRanges(*text).empty()) {
            wrappers.emplace_back(&object, field);
        }
    }
    return wrappers;
}

std::vector<BLPlaceHolderWrapper> BLPlaceHolderWrapper::wrappersForManagedObjects(const std::vector<BLBase*>& objects,
                                                                                  const BLBase* document) {
    std::vector<BLPlaceHolderWrapper> wrappers;
    for (BLBase* object : objects) {
        if (object == nullptr) {
            continue;
        }
        std::vector<BLPlaceHolderWrapper> found = wrappersForManagedObject(*object, document);
        wrappers.insert(wrappers.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
    }
    return wrappers;
}

std::vector<UniquePlaceHolderToken> BLPlaceHolderWrapper::uniqueTokensForWrappers(
    const std::vector<BLPlaceHolderWrapper>& wrappers) {
    std::vector<UniquePlaceHolderToken> unique;
    std::map<std::string, size_t, std::less<>> indexByValue;
    for (size_t index = 0; index < wrappers.size(); ++index) {
        for (const PlaceHolderToken& token : wrappers[index].tokens()) {
            auto [position, inserted] = indexByValue.emplace(token.value, unique.size());
            if (inserted) {
                unique.push_back({token.value, token.type, {}, {}});
            }
            std::vector<size_t>& owners = unique[position->second].wrappers;
            if (owners.empty() || owners.back() != index) {
                owners.push_back(index);
            }
        }
    }
    return unique;
}

void BLPlaceHolderWrapper::labelUniqueTokens(std::vector<UniquePlaceHolderToken>& tokens) {
    std::map<std::string, long, std::less<>> uses;
    for (UniquePlaceHolderToken& token : tokens) {
        const std::string base = localizedString(token.type);
        const long count = ++uses[base];
        token.label = count == 1 ? base : formatMessage("%@ %ld", base, count);
    }
}

size_t BLPlaceHolderWrapper::applyTokens(std::vector<BLPlaceHolderWrapper>& wrappers, const TokenChooser& choose) {
    if (userDefaultIsOn(kDisablePlaceHolderCreationDefault)) {
        return 0;
    }
    std::vector<UniquePlaceHolderToken> unique = uniqueTokensForWrappers(wrappers);
    if (unique.empty() || !choose) {
        return 0;
    }
    labelUniqueTokens(unique);
    std::optional<std::vector<size_t>> chosen = choose(unique);
    if (!chosen) {
        return 0;
    }
    size_t applied = 0;
    for (size_t index : *chosen) {
        if (index >= unique.size()) {
            logMessage("Placeholder choice %ld is not among %ld tokens", static_cast<long>(index),
                       static_cast<long>(unique.size()));
            continue;
        }
        const UniquePlaceHolderToken& token = unique[index];
        for (size_t owner : token.wrappers) {
            wrappers[owner].replaceString(token.string, "[" + token.label + "]");
        }
        ++applied;
    }
    return applied;
}

std::string BLPlaceHolderWrapper::text() const {
    if (m_managedObject == nullptr) {
        return {};
    }
    const Value value = m_managedObject->valueForKey(m_field);
    return value.string() != nullptr ? *value.string() : std::string();
}

void BLPlaceHolderWrapper::replaceText(std::string_view text) {
    if (m_managedObject == nullptr) {
        return;
    }
    m_managedObject->setValueForKey(Value(text), m_field);
}

void BLPlaceHolderWrapper::replaceString(std::string_view target, std::string_view replacement) {
    if (target.empty()) {
        return;
    }
    const std::string original = text();
    std::string result;
    size_t from = 0;
    for (size_t found = original.find(target); found != std::string::npos; found = original.find(target, from)) {
        result.append(original, from, found - from);
        result.append(replacement);
        from = found + target.size();
    }
    if (from == 0) {
        return;
    }
    result.append(original, from, std::string::npos);
    replaceText(result);
}

std::vector<std::string> BLPlaceHolderWrapper::preProcess() const {
    if (const auto* cost = dynamic_cast<const BLCost*>(m_managedObject)) {
        return preProcessPlaceHolderWrapper(*cost, *this);
    }
    return {};
}

void BLPlaceHolderWrapper::postProcessWrappers(std::vector<BLPlaceHolderWrapper>& wrappers) {
    std::vector<BLBase*> owners;
    for (const BLPlaceHolderWrapper& wrapper : wrappers) {
        if (wrapper.managedObject() != nullptr &&
            std::find(owners.begin(), owners.end(), wrapper.managedObject()) == owners.end()) {
            owners.push_back(wrapper.managedObject());
        }
    }
    for (BLBase* owner : owners) {
        auto* cost = dynamic_cast<BLCost*>(owner);
        if (cost == nullptr) {
            continue;
        }
        std::vector<BLPlaceHolderWrapper*> own;
        for (BLPlaceHolderWrapper& wrapper : wrappers) {
            if (wrapper.managedObject() == owner) {
                own.push_back(&wrapper);
            }
        }
        postProcessPlaceHolderWrappers(*cost, own);
    }
}

std::string BLPlaceHolderWrapper::description() const {
    std::string tokens = "(";
    for (const PlaceHolderToken& token : m_tokens) {
        tokens += tokens.size() > 1 ? ", " : "";
        tokens += token.type + ": " + token.value;
    }
    tokens += ")";
    const std::string owner = m_managedObject != nullptr ? m_managedObject->displayName() : std::string("(null)");
    return formatMessage("%@ %@ %@", owner, m_field, tokens);
}

std::vector<PlaceHolderToken> BLPlaceHolderWrapper::highlightAlteredRangesInString(
    std::string_view text, const std::vector<std::string>& variations) {
    std::vector<PlaceHolderToken> altered;
    if (!placeHolderRanges(text).empty()) {
        return altered;
    }
    std::vector<std::vector<std::string>> variationWords;
    for (const std::string& variation : variations) {
        std::vector<std::string> words;
        for (const TextRange& range : wordRanges(variation)) {
            words.push_back(variation.substr(range.location, range.length));
        }
        std::sort(words.begin(), words.end());
        variationWords.push_back(std::move(words));
    }
    // Runs of consecutive altered words become one range.
    std::vector<TextRange> ranges;
    bool previousAltered = false;
    for (const TextRange& range : wordRanges(text)) {
        const std::string word(text.substr(range.location, range.length));
        bool inEvery = true;
        for (const std::vector<std::string>& words : variationWords) {
            inEvery = inEvery && std::binary_search(words.begin(), words.end(), word);
        }
        const bool isAltered = !inEvery && word.find_first_of("[]") == std::string::npos;
        if (isAltered && previousAltered) {
            ranges.back().length = range.end() - ranges.back().location;
        } else if (isAltered) {
            ranges.push_back(range);
        }
        previousAltered = isAltered;
    }
    const std::vector<PlaceHolderToken> detected = analyzeString(text);
    for (const TextRange& range : ranges) {
        std::string type = kTokenTypeText;
        for (const PlaceHolderToken& token : detected) {
            if (token.range.intersects(range)) {
                type = token.type;
                break;
            }
        }
        altered.push_back({std::string(text.substr(range.location, range.length)), type, range});
    }
    return altered;
}

}  // namespace brassline
