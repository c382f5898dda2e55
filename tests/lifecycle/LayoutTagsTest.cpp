#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../model/ContactFixture.h"
#include "lifecycle/BLLayoutTags.h"
#include "model/entities/BLCustomField.h"
#include "model/entities/BLCustomFieldSet.h"
#include "model/entities/BLItemGroup.h"
#include "store/ObservationNames.h"

namespace brassline {
namespace {

class LayoutTagsTest : public ContactFixture {
protected:
    void customFields(const char* setIdentifier, std::vector<const char*> names) {
        auto* set = insert<BLCustomFieldSet>();
        set->setUid("com.orvane.Brassline.customFieldSet." + std::string(setIdentifier));
        for (const char* name : names) {
            auto* field = insert<BLCustomField>();
            field->setName(std::string(name));
            field->setSet(set);
        }
    }
    void itemGroup(const char* name) { insert<BLItemGroup>()->setName(std::string(name)); }
    static const LayoutTagSection* section(const std::vector<LayoutTagSection>& sections, const std::string& name) {
        for (const LayoutTagSection& candidate : sections) {
            if (candidate.name == name) {
                return &candidate;
            }
        }
        return nullptr;
    }
    static bool has(const LayoutTagSection* section, const std::string& tag) {
        return section != nullptr && std::find(section->tags.begin(), section->tags.end(), tag) != section->tags.end();
    }
    static size_t countTags(const std::vector<LayoutTagSection>& sections) {
        size_t count = 0;
        for (const LayoutTagSection& section : sections) {
            count += section.tags.size() + countTags(section.sections);
        }
        return count;
    }
};

TEST_F(LayoutTagsTest, ResourceSectionsInOrderWithTheirPrefixes) {
    BLLayoutTags tags;
    const std::vector<LayoutTagSection>& sections = tags.plainTags(context());
    std::vector<std::string> names;
    for (const LayoutTagSection& entry : sections) {
        names.push_back(entry.name);
    }
    const std::vector<std::string> expected = {"document", "invoice", "parent", "sender",  "recipient", "teamMember",
                                               "currency", "layout",  "item",   "payment", "tax",       "page"};
    EXPECT_EQ(names, expected);
    struct Row {
        const char* section;
        const char* tag;
    };
    const Row rows[] = {
        {"document", "document.number"},       {"invoice", "invoice.costwithtaxesspelled"},
        {"parent", "parent.conditions"},       {"sender", "sender.IBAN"},
        {"recipient", "recipient.conditions"}, {"teamMember", "teamMember.signature"},
        {"currency", "currency.symbol"},       {"item", "ean_ean13"},
        {"item", "currency.shortname"},        {"tax", "subtotal_it"},
        {"page", "page.totalbefore"},          {"page", "document.pagenumber"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.tag);
        EXPECT_TRUE(has(section(sections, row.section), row.tag));
    }
    // The invoice section repeats every document key.
    EXPECT_EQ(section(sections, "document")->tags.size(), section(sections, "invoice")->tags.size());
}

TEST_F(LayoutTagsTest, CountryRulesFollowTheSender) {
    struct Row {
        const char* country;
        bool swiss;
        bool belgian;
        bool bezahlCode;
    };
    const Row rows[] = {
        {nullptr, true, true, true},
        {"CH", true, false, false},
        {"be", false, true, false},
        {"DE", false, false, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.country != nullptr ? row.country : "no profile");
        BLLayoutTags tags;
        if (row.country != nullptr) {
            profile(row.country);
        }
        const std::vector<LayoutTagSection>& sections = tags.plainTags(context());
        for (const char* name : {"document", "invoice"}) {
            const LayoutTagSection* part = section(sections, name);
            EXPECT_EQ(has(part, std::string(name) + ".ch_refnumber"), row.swiss);
            EXPECT_EQ(has(part, std::string(name) + ".ogm.be"), row.belgian);
            EXPECT_EQ(has(part, std::string(name) + ".balanceForQRCode"), row.bezahlCode);
            EXPECT_TRUE(has(part, std::string(name) + ".balanceForSEPAQRCode"));
        }
    }
}

TEST_F(LayoutTagsTest, CustomFieldsGoToTheirSections) {
    customFields("Client", {"Kunden Nummer", "Rabatt-Stufe"});
    customFields("Invoice", {"Projekt.Code"});
    customFields("Cost", {"Farbe"});
    customFields("Project", {"Budget"});
    customFields("Invoice", {});
    BLLayoutTags tags;
    const std::vector<LayoutTagSection>& sections = tags.plainTags(context());
    struct Row {
        const char* section;
        const char* tag;
    };
    const Row rows[] = {
        {"recipient", "recipient.custom.Kunden_Nummer"},
        {"sender", "sender.custom.Kunden_Nummer"},
        {"recipient", "recipient.custom.Rabatt_Stufe"},
        {"document", "document.custom.Projekt_Code"},
        {"invoice", "invoice.custom.Projekt_Code"},
        {"item", "custom.Farbe"},
        {"project", "custom.Budget"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.tag);
        EXPECT_TRUE(has(section(sections, row.section), row.tag));
    }
    EXPECT_FALSE(has(section(sections, "item"), "custom.Kunden_Nummer"));
}

TEST_F(LayoutTagsTest, ItemGroupSumsFollowTheGroups) {
    itemGroup("Web Design");
    itemGroup("Hosting");
    itemGroup("   ");
    BLLayoutTags tags;
    const LayoutTagSection* document = section(tags.plainTags(context()), "document");
    ASSERT_NE(document, nullptr);
    const LayoutTagSection* sum = section(document->sections, "sum");
    ASSERT_NE(sum, nullptr);
    ASSERT_EQ(sum->sections.size(), 2u);
    EXPECT_EQ(sum->sections[0].name, "itemgroup.Hosting");
    const LayoutTagSection& web = sum->sections[1];
    EXPECT_EQ(web.name, "itemgroup.Web_Design");
    const std::vector<std::string> expected = {"itemgroup.Web_Design.net",    "itemgroup.Web_Design.gross",
                                               "itemgroup.Web_Design.taxes",  "-itemgroup.Web_Design.net",
                                               "-itemgroup.Web_Design.gross", "-itemgroup.Web_Design.taxes"};
    EXPECT_EQ(web.tags, expected);

    // Cached until the groups change.
    itemGroup("Support");
    EXPECT_EQ(section(section(tags.plainTags(context()), "document")->sections, "sum")->sections.size(), 2u);
    NotificationCenter::defaultCenter().postNotificationName(kItemGroupsChangedNotification);
    EXPECT_EQ(section(section(tags.plainTags(context()), "document")->sections, "sum")->sections.size(), 3u);
}

TEST_F(LayoutTagsTest, PluginSectionsTitlesAndEditors) {
    BLLayoutTags tags;
    const size_t plain = countTags(tags.plainTags(context()));
    tags.setPluginPlaceholderProvider([](ManagedObjectContext&) {
        return std::vector<LayoutTagSection>{{"plugin", {"plugin.qrPayload", "plugin.shipment"}, {}}};
    });
    const std::vector<LayoutTagSection>& sections = tags.plainTags(context());
    EXPECT_EQ(countTags(sections), plain + 2);
    EXPECT_TRUE(has(section(sections, "plugin"), "plugin.shipment"));

    // Every tag has a title, even where two sections hold the same key.
    const std::map<std::string, std::string> titles = tags.localizedTags(context());
    EXPECT_EQ(titles.size(), countTags(sections));
    std::vector<std::string> titled;
    for (const auto& [title, tag] : titles) {
        titled.push_back(tag);
    }
    EXPECT_NE(std::find(titled.begin(), titled.end(), "recipient.firstName"), titled.end());

    struct Row {
        const char* tag;
        std::optional<std::string> editor;
    };
    const Row rows[] = {
        {"document.sent", "DateEditor"},   {"invoice.lead", "RichTextEditor"}, {"quantity", "NumberEditor"},
        {"document.number", std::nullopt}, {"no.such.tag", std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.tag);
        EXPECT_EQ(tags.editorForTag(row.tag), row.editor);
    }
}

}  // namespace
}  // namespace brassline
