#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"
#include "model/NotificationCenter.h"

namespace brassline {

class ManagedObjectContext;

// A group of layout tags as the tag menu shows it: full keys ("sender.firstName") and
// nested groups ("document" holds "sum", which holds "itemgroup.<key>").
struct LayoutTagSection {
    std::string name;
    std::vector<std::string> tags;
    std::vector<LayoutTagSection> sections;
};

// The tags a layout text can use, from the resource tags.plist, the company file's custom
// fields and item groups, and plug-ins. Caches per context until reset, which runs on
// "BLItemGroupsChanged". Main thread.
class BLLayoutTags {
public:
    // Plug-in placeholders (meta values and the plug-ins' own), as sections.
    using PluginPlaceholderProvider = std::function<std::vector<LayoutTagSection>(ManagedObjectContext& context)>;

    BLLayoutTags();
    ~BLLayoutTags();
    BLLayoutTags(const BLLayoutTags&) = delete;
    BLLayoutTags& operator=(const BLLayoutTags&) = delete;

    // The process's catalogue; resettable for tests.
    static BLLayoutTags& sharedTags();
    static void resetSharedTagsForTesting();

    void setPluginPlaceholderProvider(PluginPlaceholderProvider provider);

    // The catalogue for a company file: the resource's sections without the tags its
    // country rules exclude for the sender, plus custom fields ("custom.<key>"), the
    // item group sums under "document" and plug-in sections. A missing or broken resource
    // gives only the parts from the file (and a log line).
    const std::vector<LayoutTagSection>& plainTags(ManagedObjectContext& context);
    // Every tag by its translated title ("Sender: Email"); a title that two tags would
    // share carries the tag in brackets.
    std::map<std::string, std::string> localizedTags(ManagedObjectContext& context);
    // The resource InlineEditors.plist: tag to {"editor", "keyPath"}; empty when missing.
    const Value::Dictionary& editors();
    // The editor name for a tag, nothing for a read-only one.
    std::optional<std::string> editorForTag(std::string_view tag);
    void reset();

    // Sections without the tags whose country list excludes `senderCountry` (an empty
    // country keeps everything). `rules` maps a tag to its countries.
    static std::vector<LayoutTagSection> filterFeatures(std::vector<LayoutTagSection> sections,
                                                        const std::map<std::string, std::vector<std::string>>& rules,
                                                        std::string_view senderCountry);

private:
    void loadResource();

    bool m_resourceLoaded = false;
    std::vector<LayoutTagSection> m_resourceSections;
    std::map<std::string, std::vector<std::string>> m_countryRules;
    std::optional<Value::Dictionary> m_editors;
    std::map<const ManagedObjectContext*, std::vector<LayoutTagSection>> m_cache;
    PluginPlaceholderProvider m_pluginProvider;
    NotificationCenter::Token m_itemGroupsObserver{};
};

}  // namespace brassline
