#include "lifecycle/BLLayoutTags.h"

#include <algorithm>
#include <memory>

#include "core/BLParser.h"
#include "core/Localization.h"
#include "core/Log.h"
#include "lifecycle/Substitution.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLCustomField.h"
#include "model/entities/BLCustomFieldSet.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLProfile.h"
#include "model/entities/ModelStrings.h"
#include "store/BLSetupDefaultsController.h"
#include "store/ObservationNames.h"

namespace brassline {

namespace {

std::unique_ptr<BLLayoutTags>& sharedInstance() {
    static std::unique_ptr<BLLayoutTags> instance;
    return instance;
}

std::string prefixed(const std::string& prefix, const std::string& key) {
    return prefix.empty() ? key : prefix + "." + key;
}

LayoutTagSection* findSection(std::vector<LayoutTagSection>& sections, std::string_view name) {
    for (LayoutTagSection& section : sections) {
        if (section.name == name) {
            return &section;
        }
    }
    return nullptr;
}

// The sections a custom field set's tags belong in. Sets are named by the document class
// that owns them ("Client", "Invoice") or by the shared names "client", "sendable", "cost".
std::vector<std::string> sectionsForCustomFieldSet(const std::string& identifier) {
    const std::string lowered = asciiLowercase(identifier);
    if (lowered == "client") {
        return {"recipient", "sender"};
    }
    if (lowered == "sendable" || lowered == "invoice" || lowered == "estimate" || lowered == "followup" ||
        lowered == "partialinvoice" || lowered == "sendabletemplate") {
        return {"document", "invoice"};
    }
    if (lowered == "cost" || lowered == "item") {
        return {"item"};
    }
    return {lowered};
}

std::vector<ManagedObject*> fetchAll(ManagedObjectContext& context, const char* entityName) {
    std::string error;
    std::optional<std::vector<ManagedObject*>> objects = context.executeFetchRequest(FetchRequest(entityName), &error);
    if (!objects) {
        logMessage("Layout tags: fetching %@ failed: %@", entityName, error);
        return {};
    }
    return *objects;
}

void addCustomFieldTags(std::vector<LayoutTagSection>& sections, ManagedObjectContext& context) {
    for (ManagedObject* object : fetchAll(context, "CustomFieldSet")) {
        auto* set = static_cast<BLCustomFieldSet*>(object);
        std::string identifier = BLBase::fixedAttribute(set->uid());
        // The uid is the set's identifier in the set format; anything else is no set's.
        const std::string prefix = formatMessage(kCustomFieldSetUIDFormat, "");
        if (identifier.rfind(prefix, 0) != 0) {
            continue;
        }
        identifier.erase(0, prefix.size());
        if (identifier.empty()) {
            continue;
        }
        std::vector<std::string> keys;
        for (BLCustomField* field : set->fields()) {
            const std::string key = keyPathString(BLBase::fixedAttribute(field->name()));
            if (!key.empty()) {
                keys.push_back("custom." + key);
            }
        }
        if (keys.empty()) {
            continue;
        }
        for (const std::string& name : sectionsForCustomFieldSet(identifier)) {
            LayoutTagSection* section = findSection(sections, name);
            if (section == nullptr) {
                sections.push_back({name, {}, {}});
                section = &sections.back();
            }
            // Recipient and sender tags stand below their prefix like every contact key.
            const bool contactSection = name == "recipient" || name == "sender";
            const bool documentSection = name == "document" || name == "invoice";
            for (const std::string& key : keys) {
                section->tags.push_back(contactSection || documentSection ? prefixed(name, key) : key);
            }
        }
    }
}

void insertItemGroupPlaceholders(std::vector<LayoutTagSection>& sections, ManagedObjectContext& context) {
    LayoutTagSection sum{"sum", {}, {}};
    std::vector<std::pair<std::string, std::string>> groups;
    for (ManagedObject* object : fetchAll(context, "ItemGroup")) {
        auto* group = static_cast<BLItemGroup*>(object);
        const std::string key = keyPathString(BLBase::fixedAttribute(group->name()));
        if (!key.empty()) {
            groups.emplace_back(key, BLBase::fixedAttribute(group->uid()));
        }
    }
    // Fetch order is no order a person can follow: by key, then uid for equal names.
    std::sort(groups.begin(), groups.end());
    groups.erase(
        std::unique(groups.begin(), groups.end(), [](const auto& a, const auto& b) { return a.first == b.first; }),
        groups.end());
    for (const auto& [key, uid] : groups) {
        LayoutTagSection group{"itemgroup." + key, {}, {}};
        for (const char* sign : {"", "-"}) {
            for (const char* amount : {"net", "gross", "taxes"}) {
                group.tags.push_back(std::string(sign) + "itemgroup." + key + "." + amount);
            }
        }
        sum.sections.push_back(std::move(group));
    }
    if (sum.sections.empty()) {
        return;
    }
    LayoutTagSection* document = findSection(sections, "document");
    if (document == nullptr) {
        sections.push_back({"document", {}, {}});
        document = &sections.back();
    }
    document->sections.push_back(std::move(sum));
}

void collectTitles(const LayoutTagSection& section, const std::string& sectionTitle, std::map<std::string, int>& uses,
                   std::vector<std::pair<std::string, std::string>>& entries) {
    for (const std::string& tag : section.tags) {
        // The section's own prefix is already in its title.
        std::string key = tag;
        if (key.rfind(section.name + ".", 0) == 0) {
            key.erase(0, section.name.size() + 1);
        }
        std::string title = sectionTitle + ": " + localizedString(key);
        ++uses[title];
        entries.emplace_back(std::move(title), tag);
    }
    for (const LayoutTagSection& child : section.sections) {
        collectTitles(child, sectionTitle + " " + localizedString(child.name), uses, entries);
    }
}

}  // namespace

BLLayoutTags::BLLayoutTags() {
    m_itemGroupsObserver = NotificationCenter::defaultCenter().addObserver(kItemGroupsChangedNotification, nullptr,
                                                                           [this](const Notification&) { reset(); });
}

BLLayoutTags::~BLLayoutTags() {
    NotificationCenter::defaultCenter().removeObserver(m_itemGroupsObserver);
}

BLLayoutTags& BLLayoutTags::sharedTags() {
    std::unique_ptr<BLLayoutTags>& instance = sharedInstance();
    if (!instance) {
        instance = std::make_unique<BLLayoutTags>();
    }
    return *instance;
}

void BLLayoutTags::resetSharedTagsForTesting() {
    sharedInstance().reset();
}

void BLLayoutTags::setPluginPlaceholderProvider(PluginPlaceholderProvider provider) {
    m_pluginProvider = std::move(provider);
    m_cache.clear();
}

void BLLayoutTags::loadResource() {
    if (m_resourceLoaded) {
        return;
    }
    m_resourceLoaded = true;
    std::optional<Value::Dictionary> resource = BLSetupDefaultsController::resourceDictionary("tags.plist");
    if (!resource) {
        return;
    }
    const Value::Array* sections = nullptr;
    if (auto found = resource->find("sections"); found != resource->end()) {
        sections = found->second.array();
    }
    if (sections == nullptr) {
        logMessage("Layout tags: tags.plist has no sections");
        return;
    }
    std::map<std::string, std::vector<std::string>> keysBySection;
    for (const Value& entry : *sections) {
        const Value::Dictionary* section = entry.dictionary();
        if (section == nullptr) {
            continue;
        }
        auto text = [section](const char* key) {
            auto found = section->find(key);
            const std::string* value = found != section->end() ? found->second.string() : nullptr;
            return value != nullptr ? *value : std::string();
        };
        const std::string name = text("name");
        const std::string prefix = text("prefix");
        std::vector<std::string> keys;
        std::vector<std::pair<std::string, std::vector<std::string>>> countryRules;
        if (auto tags = section->find("tags"); tags != section->end() && tags->second.array() != nullptr) {
            for (const Value& tag : *tags->second.array()) {
                if (const std::string* key = tag.string()) {
                    keys.push_back(*key);
                    continue;
                }
                const Value::Dictionary* rule = tag.dictionary();
                if (rule == nullptr || rule->find("key") == rule->end() || !rule->find("key")->second.string()) {
                    continue;
                }
                keys.push_back(*rule->find("key")->second.string());
                if (auto countries = rule->find("countries");
                    countries != rule->end() && countries->second.array() != nullptr) {
                    std::vector<std::string> codes;
                    for (const Value& code : *countries->second.array()) {
                        if (code.string()) {
                            codes.push_back(*code.string());
                        }
                    }
                    countryRules.emplace_back(keys.back(), std::move(codes));
                }
            }
        } else if (auto same = keysBySection.find(text("tagsOf")); same != keysBySection.end()) {
            keys = same->second;
        }
        keysBySection[name] = keys;
        LayoutTagSection built{name, {}, {}};
        for (const std::string& key : keys) {
            built.tags.push_back(prefixed(prefix, key));
        }
        for (auto& [key, codes] : countryRules) {
            m_countryRules[prefixed(prefix, key)] = codes;
        }
        // A section that repeats another's keys repeats its rules too.
        if (const std::string of = text("tagsOf"); !of.empty()) {
            const std::map<std::string, std::vector<std::string>> rules = m_countryRules;
            for (const auto& [tag, codes] : rules) {
                if (tag.rfind(of + ".", 0) == 0) {
                    m_countryRules[prefixed(prefix, tag.substr(of.size() + 1))] = codes;
                }
            }
        }
        m_resourceSections.push_back(std::move(built));
    }
}

std::vector<LayoutTagSection> BLLayoutTags::filterFeatures(std::vector<LayoutTagSection> sections,
                                                           const std::map<std::string, std::vector<std::string>>& rules,
                                                           std::string_view senderCountry) {
    if (senderCountry.empty()) {
        return sections;
    }
    const std::string country = uppercaseText(senderCountry);
    for (LayoutTagSection& section : sections) {
        std::erase_if(section.tags, [&](const std::string& tag) {
            auto rule = rules.find(tag);
            return rule != rules.end() &&
                   std::find(rule->second.begin(), rule->second.end(), country) == rule->second.end();
        });
        section.sections = filterFeatures(std::move(section.sections), rules, senderCountry);
    }
    return sections;
}

const std::vector<LayoutTagSection>& BLLayoutTags::plainTags(ManagedObjectContext& context) {
    if (auto cached = m_cache.find(&context); cached != m_cache.end()) {
        return cached->second;
    }
    loadResource();
    std::string senderCountry;
    // Only looked up: reading the catalogue must not make the default profile.
    if (auto* profile =
            static_cast<BLProfile*>(context.objectWithUid(BLProfile::entityDescription(), kDefaultProfileUID))) {
        senderCountry = BLBase::fixedAttribute(profile->countryCode());
    }
    std::vector<LayoutTagSection> sections = filterFeatures(m_resourceSections, m_countryRules, senderCountry);
    addCustomFieldTags(sections, context);
    if (m_pluginProvider) {
        for (LayoutTagSection& section : m_pluginProvider(context)) {
            sections.push_back(std::move(section));
        }
    }
    insertItemGroupPlaceholders(sections, context);
    return m_cache[&context] = std::move(sections);
}

std::map<std::string, std::string> BLLayoutTags::localizedTags(ManagedObjectContext& context) {
    std::map<std::string, std::string> titles;
    std::map<std::string, int> uses;
    std::vector<std::pair<std::string, std::string>> entries;
    for (const LayoutTagSection& section : plainTags(context)) {
        collectTitles(section, localizedString(section.name), uses, entries);
    }
    for (auto& [title, tag] : entries) {
        titles.emplace(uses[title] > 1 ? title + " (" + tag + ")" : title, tag);
    }
    return titles;
}

const Value::Dictionary& BLLayoutTags::editors() {
    if (!m_editors) {
        m_editors.emplace();
        if (std::optional<Value::Dictionary> resource =
                BLSetupDefaultsController::resourceDictionary("InlineEditors.plist")) {
            if (auto found = resource->find("editors"); found != resource->end() && found->second.dictionary()) {
                m_editors = *found->second.dictionary();
            }
        }
    }
    return *m_editors;
}

std::optional<std::string> BLLayoutTags::editorForTag(std::string_view tag) {
    const Value::Dictionary& all = editors();
    auto found = all.find(tag);
    if (found == all.end() || found->second.dictionary() == nullptr) {
        return std::nullopt;
    }
    const Value::Dictionary& entry = *found->second.dictionary();
    auto editor = entry.find("editor");
    if (editor == entry.end() || editor->second.string() == nullptr) {
        return std::nullopt;
    }
    return *editor->second.string();
}

void BLLayoutTags::reset() {
    m_cache.clear();
}

}  // namespace brassline
