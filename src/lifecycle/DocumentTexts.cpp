#include "lifecycle/DocumentTexts.h"

#include "core/Localization.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLFollowUp.h"
#include "model/entities/BLFollowUpType.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLPreference.h"
#include "store/BLUserDefaults.h"

namespace brassline {

namespace {

bool isKeyCharacter(char c) {
    return c != '<' && c != '>' && c != '/' && c != ' ' && c != '\t' && c != '\n' && c != '\r';
}

std::string valueText(const Value& value) {
    if (const std::string* text = value.string()) {
        return *text;
    }
    return value.toString();
}

std::string preferenceText(BLSendable& document, const std::string& key) {
    ManagedObjectContext* context = document.managedObjectContext();
    if (context == nullptr) {
        return {};
    }
    Value value = BLPreference::preferenceValue(*context, key);
    return value.string() ? *value.string() : std::string();
}

std::string mailText(BLSendable& document, const char* field) {
    const std::string group = mailPrefsKey(document);
    std::string text = preferenceText(document, group + "." + field);
    if (text.empty()) {
        text = UserDefaults::standard().registeredDefault("BLPref." + group + "." + field).toString();
    }
    if (text.empty()) {
        text = UserDefaults::standard().registeredDefault(std::string("BLPref.invoice.") + field).toString();
    }
    return fillTags(text, substitutionDictionary(document));
}

}  // namespace

std::string fillTags(std::string_view text, const SubstitutionDictionary& dictionary) {
    std::string result;
    result.reserve(text.size());
    size_t position = 0;
    while (position < text.size()) {
        size_t open = text.find('<', position);
        if (open == std::string_view::npos) {
            result.append(text.substr(position));
            break;
        }
        result.append(text.substr(position, open - position));
        size_t end = open + 1;
        while (end < text.size() && isKeyCharacter(text[end])) {
            ++end;
        }
        const bool isTag = end > open + 1 && end + 1 < text.size() && text[end] == '/' && text[end + 1] == '>';
        if (!isTag) {
            // Not a tag: keep the "<" and look again right after it, so "<<key/>" still
            // finds the inner tag.
            result += '<';
            position = open + 1;
            continue;
        }
        std::string_view key = text.substr(open + 1, end - open - 1);
        if (key == kSubstitutionObjectKey) {
            result.append(text.substr(open, end + 2 - open));
        } else if (auto found = dictionary.find(key); found != dictionary.end()) {
            result += valueText(found->second);
        }
        position = end + 2;
    }
    return result;
}

std::string mailPrefsKey(BLSendable& document) {
    if (dynamic_cast<BLEstimate*>(&document) != nullptr) {
        return "estimate";
    }
    if (auto* followUp = dynamic_cast<BLFollowUp*>(&document)) {
        if (followUp->followUpType() != nullptr && followUp->followUpType()->uid()) {
            return *followUp->followUpType()->uid();
        }
        return "invoice";
    }
    return document.cost() < Decimal() ? "creditnote" : "invoice";
}

std::string documentLabel(BLSendable& document) {
    std::string kind;
    if (dynamic_cast<BLEstimate*>(&document) != nullptr) {
        kind = "estimate";
    } else if (auto* followUp = dynamic_cast<BLFollowUp*>(&document)) {
        if (followUp->followUpType() != nullptr && followUp->followUpType()->name()) {
            return document.translateString(*followUp->followUpType()->name());
        }
        kind = "followup";
    } else if (dynamic_cast<BLInvoice*>(&document) != nullptr) {
        kind = document.costWithTaxes() < Decimal() ? "creditnote" : "invoice";
    } else {
        return "Sendable";
    }
    std::string label = preferenceText(document, kind + ".label");
    if (label.empty()) {
        label = localizedString(kind);
    }
    return document.translateString(label);
}

std::string mailSubject(BLSendable& document) {
    return mailText(document, "mailSubject");
}

std::string mailBody(BLSendable& document) {
    return mailText(document, "mailBody");
}

}  // namespace brassline
