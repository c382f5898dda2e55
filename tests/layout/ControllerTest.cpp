#include <gtest/gtest.h>

#include "../model/EntityFixture.h"
#include "layout/BLLayoutController.h"
#include "layout/BLLayoutTextView.h"
#include "layout/DefaultLayout.h"
#include "layout/LayoutClasses.h"
#include "layout/LayoutStorageRules.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLLayoutStorage.h"

namespace brassline {
namespace {

std::shared_ptr<BLLayoutTableSectionView> section(const std::string& identifier, double width = 400.0) {
    auto view = std::make_shared<BLLayoutTableSectionView>();
    view->setIdentifier(identifier);
    view->setFrame({0, 0, width, 30});
    return view;
}

std::shared_ptr<BLLayoutTextView> text(const std::string& string, Rect frame) {
    auto view = std::make_shared<BLLayoutTextView>();
    view->setFrame(frame);
    view->setString(string);
    return view;
}

LayoutRecord record(const ViewPtr& view, const std::string& identifier) {
    return {view, identifier, identifier, {}, {}};
}

std::vector<std::string> identifiers(const BLLayoutController& controller) {
    std::vector<std::string> result;
    for (const LayoutRecord& record : controller.tableViews()) {
        result.push_back(record.identifier);
    }
    return result;
}

TEST(LayoutControllerTest, LoadingDerivesOptionsAndPartialInvoiceAndFillsTheRestEmpty) {
    // Stored: "title" and "totalBeforePayments" with a label and a right-aligned amount, the
    // widest section 450 wide; no "options", "partialinvoice" or "tax".
    auto title = section("title");
    title->addSubviewWithoutResizing(text("<title/>", {30, 2, 200, 12}));
    auto total = section("totalBeforePayments", 450.0);
    total->addSubviewWithoutResizing(text("Total", {200, 2, 100, 12}));
    total->addSubviewWithoutResizing(text("<document.costwithtaxes/>", {380, 2, 60, 12}));
    const Bytes data = writeLayoutArchive({{}, {record(title, "title"), record(total, "totalBeforePayments")}});

    BLLayoutController controller;
    ASSERT_TRUE(controller.loadGT3Layout(data));
    EXPECT_EQ(identifiers(controller), BLLayoutController::tableOrder());

    auto options = controller.tableSectionViewForIdentifier("options");
    ASSERT_EQ(options->subviews().size(), 1U);
    EXPECT_EQ(static_cast<BLLayoutTextView*>(options->subviews()[0].get())->string(), "<title/>");
    EXPECT_EQ(options->identifier(), "options");

    // The rightmost text of the copy spans from 0 to its old right edge (380 + 60).
    auto partial = controller.tableSectionViewForIdentifier("partialinvoice");
    ASSERT_EQ(partial->subviews().size(), 2U);
    auto* amount = static_cast<BLLayoutTextView*>(partial->subviews()[1].get());
    EXPECT_EQ(amount->frame(), (Rect{0, 2, 440, 12}));
    EXPECT_EQ(amount->string(), "<percentage/> share of <amount/> = <cost/>");

    // A missing section is empty, 20 high and as wide as the widest stored one.
    auto tax = controller.tableSectionViewForIdentifier("tax");
    EXPECT_TRUE(tax->subviews().empty());
    EXPECT_EQ(tax->frame(), (Rect{0, 0, 450, 20}));
    EXPECT_EQ(tax->className(), "ZPLayoutTableSectionView");
    EXPECT_EQ(tax->displayHeight(), 0.0);
}

TEST(LayoutControllerTest, WithAllFifteenSectionsThePositionDecidesTheIdentifier) {
    std::vector<LayoutRecord> sections;
    for (const std::string& identifier : BLLayoutController::tableOrder()) {
        sections.push_back(record(section(identifier), identifier));
    }
    // The section at position 9 ("net") carries a view named "nett": the record's name
    // finds it, and its position renames the view.
    static_cast<BLLayoutEditingView*>(sections[9].view.get())->setIdentifier("nett");
    BLLayoutController controller;
    ASSERT_TRUE(controller.loadGT3Layout(writeLayoutArchive({{}, sections})));
    ASSERT_EQ(controller.tableViews().size(), 15U);
    EXPECT_EQ(static_cast<BLLayoutEditingView*>(controller.tableViews()[9].view.get())->identifier(), "net");
    EXPECT_EQ(controller.tableSectionViewForIdentifier("net")->identifier(), "net");

    // With a name that finds no place, the count is off and nothing is renamed.
    sections[9].identifier = "nett";
    BLLayoutController other;
    ASSERT_TRUE(other.loadGT3Layout(writeLayoutArchive({{}, sections})));
    ASSERT_EQ(other.tableViews().size(), 16U);
    EXPECT_EQ(other.tableViews().back().identifier, "nett");
}

TEST(LayoutControllerTest, ACorruptArchiveLoadsAsAnEmptyLayoutOnA4) {
    const Bytes garbage{'b', 'p', 'l', 'i', 's', 't', '0', '0', 1, 2, 3};
    const Bytes truncated = [] {
        Bytes full = writeLayoutArchive({{}, {record(section("item"), "item")}});
        full.resize(full.size() / 2);
        return full;
    }();
    for (const auto& [name, data] : {std::pair<const char*, Bytes>{"garbage", garbage}, {"truncated", truncated}}) {
        SCOPED_TRACE(name);
        BLLayoutController controller;
        EXPECT_FALSE(controller.loadGT3Layout(data));
        EXPECT_FALSE(controller.lastError().empty());
        EXPECT_TRUE(controller.pageViews().empty());
        // Rebuilt empty; "options" and "partialinvoice" are copies of the empty neighbours.
        EXPECT_EQ(identifiers(controller), BLLayoutController::tableOrder());
        EXPECT_EQ(controller.paperSize(), kFallbackPaperSize);
    }
    BLLayoutController empty;
    EXPECT_TRUE(empty.loadGT3Layout({}));
}

TEST(LayoutControllerTest, CopiesArePrivateAndComeFromTheCache) {
    auto page = std::make_shared<BLLayoutPageView>();
    page->setIdentifier("firstpage");
    page->setFrame({0, 0, 595, 842});
    page->addSubview(text("<document.number/>", {10, 10, 100, 12}));
    auto item = section("item");
    item->addSubviewWithoutResizing(text("<title/>", {0, 0, 100, 12}));
    BLLayoutController controller;
    ASSERT_TRUE(controller.loadGT3Layout(writeLayoutArchive({{record(page, "firstpage")}, {record(item, "item")}})));

    auto first = controller.pageViewForIdentifier("firstpage");
    static_cast<BLLayoutTextView*>(first->subviews()[0].get())->setString("changed");
    auto second = controller.pageViewForIdentifier("firstpage");
    EXPECT_EQ(static_cast<BLLayoutTextView*>(second->subviews()[0].get())->string(), "<document.number/>");
    EXPECT_NE(first.get(), second.get());

    // A cached copy stays as it was archived, even if the original changes later.
    static_cast<BLLayoutTextView*>(controller.tableViews()[2].view->subviews()[0].get())->setString("edited");
    auto copy1 = controller.tableSectionViewForIdentifier("item");
    controller.clearCache();
    auto copy2 = controller.tableSectionViewForIdentifier("item");
    EXPECT_EQ(static_cast<BLLayoutTextView*>(copy1->subviews()[0].get())->string(), "edited");
    EXPECT_EQ(static_cast<BLLayoutTextView*>(copy2->subviews()[0].get())->string(), "edited");

    struct Miss {
        const char* name;
        ViewPtr view;
        Rect frame;
    };
    const Miss misses[] = {
        {"section", controller.tableSectionViewForIdentifier("internalnotes"), {0, 0, 40, 40}},
        {"page", controller.pageViewForIdentifier("extrapage_9"), {0, 0, 800, 500}},
        {"page by uid", controller.pageViewForUID("nope"), {0, 0, 800, 500}},
    };
    for (const Miss& miss : misses) {
        SCOPED_TRACE(miss.name);
        EXPECT_EQ(miss.view->frame(), miss.frame);
    }
    auto* fallback = static_cast<BLLayoutPageView*>(misses[1].view.get());
    ASSERT_EQ(fallback->subviews().size(), 1U);
    EXPECT_EQ(fallback->subviews()[0]->frame(), (Rect{0, 0, 800, 500}));
}

TEST(LayoutControllerTest, PagesAreAddedDeletedAndResized) {
    auto page = std::make_shared<BLLayoutPageView>();
    page->setIdentifier("firstpage");
    page->setFrame({0, 0, 595, 842});
    BLLayoutController controller;
    ASSERT_TRUE(controller.loadGT3Layout(writeLayoutArchive({{record(page, "firstpage")}, {}})));
    controller.addPage();
    ASSERT_EQ(controller.pageViews().size(), 2U);
    const LayoutRecord& added = controller.pageViews()[1];
    EXPECT_EQ(added.identifier, "extrapage_1");
    EXPECT_EQ(added.name, "extrapage_1");
    EXPECT_EQ(added.uid.size(), 22U);
    EXPECT_EQ(controller.pageViewForUID(added.uid)->identifier(), "extrapage_1");
    EXPECT_FALSE(static_cast<BLLayoutPageView*>(added.view.get())->canTakeTable());

    controller.setPaperSize({612, 792});
    for (const LayoutRecord& each : controller.pageViews()) {
        EXPECT_EQ(each.view->frame().size(), (Size{612, 792}));
    }
    controller.deletePage("extrapage_*");
    ASSERT_EQ(controller.pageViews().size(), 1U);
    EXPECT_EQ(controller.paperSize(), (Size{612, 792}));
}

TEST(LayoutControllerTest, PaperNamesMatchWithinFourPoints) {
    struct Case {
        Size size;
        const char* name;
    };
    // A4 is 595 x 842 in whole points; 596 x 843 and 599 x 846 are within 4 on each side.
    const Case cases[] = {{{595, 842}, "A4"},     {{596, 843}, "A4"},         {{599, 846}, "A4"},
                          {{600, 842}, "custom"}, {{612, 792}, "US Letter"},  {{612, 1008}, "US Legal"},
                          {{420, 595}, "A5"},     {{312, 624}, "Envelope DL"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(paperName(c.size), c.name);
    }
    EXPECT_EQ(paperSizeNamed("a4"), (Size{595, 842}));
    EXPECT_EQ(paperSizeNamed("letter"), (Size{612, 792}));
    EXPECT_EQ(paperSizeNamed("{500, 700}"), (Size{500, 700}));
    EXPECT_EQ(paperSizeNamed("{0, 700}"), std::nullopt);
    EXPECT_EQ(paperSizeNamed("napkin"), std::nullopt);
}

TEST(LayoutControllerTest, LikeMatchesAsThePlatformsPredicates) {
    EXPECT_TRUE(matchesLike("extrapage_3", "extrapage_*"));
    EXPECT_TRUE(matchesLike("item", "it?m"));
    EXPECT_FALSE(matchesLike("Item", "item"));
    EXPECT_FALSE(matchesLike("items", "item"));
    EXPECT_TRUE(matchesLike("", "*"));
}

class LayoutStorageTest : public EntityFixture {};

TEST_F(LayoutStorageTest, SavingWritesOnlyRealChangesAndKeepsFontNames) {
    auto* layout = insert<BLLayout>();
    BLLayoutController controller;
    controller.setLayout(layout);
    // A layout without storage gets the default one.
    ASSERT_NE(layout->storage(), nullptr);
    ASSERT_NE(layout->storage()->data(), nullptr);
    EXPECT_EQ(controller.pageViews().size(), 2U);
    EXPECT_TRUE(controller.sameToOldData());
    const Bytes stored = *layout->storage()->data();

    controller.setChanged(true);
    controller.saveIfNeeded();  // Nothing differs: the bytes stay.
    EXPECT_FALSE(controller.changed());
    EXPECT_EQ(*layout->storage()->data(), stored);

    controller.pageViews()[0].view->subviews()[1]->setLeft(80.0);
    EXPECT_FALSE(controller.sameToOldData());
    controller.setChanged(true);
    controller.saveIfNeeded();
    EXPECT_NE(*layout->storage()->data(), stored);
    EXPECT_TRUE(controller.sameToOldData());
    const std::vector<std::string> fonts = layoutFontNames(*layout->storage());
    EXPECT_EQ(fonts, (std::vector<std::string>{"LiberationSans", "LiberationSans-Bold", "LiberationSans-Italic"}));
    EXPECT_NE(layout->classes().value_or("").find("BLLayoutTablePreviewView"), std::string::npos);
}

TEST_F(LayoutStorageTest, DefaultsGoToContactsAndToDocumentsWithoutALayout) {
    auto* chosen = insert<BLLayout>();
    auto* other = insert<BLLayout>();
    auto* client = insert<BLClient>();
    auto* bare = insert<BLInvoice>();
    auto* kept = insert<BLInvoice>();
    kept->setValueForKey(Value(static_cast<Object*>(other)), "layout");
    auto* estimate = insert<BLEstimate>();

    makeDefaultForInvoices(*chosen);
    EXPECT_EQ(client->valueForKey("layout").object(), chosen);
    EXPECT_EQ(bare->valueForKey("layout").object(), chosen);
    EXPECT_EQ(kept->valueForKey("layout").object(), other);  // Only documents without a layout.
    EXPECT_TRUE(estimate->valueForKey("layout").isNull());

    makeDefaultForEstimates(*other);
    EXPECT_EQ(client->valueForKey("estimateLayout").object(), other);
    EXPECT_EQ(estimate->valueForKey("layout").object(), other);
    makeDefaultForStatements(*chosen);
    EXPECT_EQ(client->valueForKey("statementLayout").object(), chosen);
    EXPECT_EQ(layoutSubstitutionDictionary(*chosen).at("uid"), Value(chosen->uid().value_or("")));
}

}  // namespace
}  // namespace brassline
