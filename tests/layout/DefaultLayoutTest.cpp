#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include "../model/EntityFixture.h"
#include "../store/StoreTestSupport.h"
#include "core/Localization.h"
#include "layout/BLLayoutController.h"
#include "layout/BLLayoutTextView.h"
#include "layout/DefaultLayout.h"
#include "layout/LayoutHooks.h"
#include "layout/LayoutPackage.h"
#include "layout/LayoutStorageRules.h"
#include "model/FetchRequest.h"
#include "model/entities/BLContainer.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLLayoutStorage.h"
#include "model/entities/BLProfile.h"
#include "store/BLSetupDefaultsController.h"
#include "store/BLUserDefaults.h"
#include "store/DocumentHooks.h"

namespace brassline {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> texts(const BLView& view) {
    std::vector<std::string> result;
    view.collectStrings(result);
    return result;
}

bool anyTextContains(const BLView& view, const std::string& part) {
    for (const std::string& text : texts(view)) {
        if (text.find(part) != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST(DefaultLayoutTest, TheBuiltPackageHasEverySectionFilledAndBothPages) {
    const std::optional<Bytes> data = defaultLayoutData(false);
    ASSERT_TRUE(data);
    BLLayoutController controller;
    ASSERT_TRUE(controller.loadGT3Layout(*data));
    EXPECT_EQ(controller.paperSize(), (Size{595, 842}));
    ASSERT_EQ(controller.pageViews().size(), 2U);
    EXPECT_EQ(controller.pageViews()[0].identifier, "firstpage");
    EXPECT_EQ(controller.pageViews()[1].identifier, "middlepage");
    for (const LayoutRecord& page : controller.pageViews()) {
        SCOPED_TRACE(page.identifier);
        const auto* view = static_cast<const BLLayoutPageView*>(page.view.get());
        ASSERT_NE(view->tableView(), nullptr);
        EXPECT_TRUE(anyTextContains(*view, "<page.totalafter/>"));
        EXPECT_TRUE(anyTextContains(*view, "<sender.IBAN/>"));
        EXPECT_TRUE(anyTextContains(*view, "<page.number/>"));
    }
    EXPECT_TRUE(anyTextContains(*controller.pageViews()[1].view, "<page.totalbefore/>"));
    // DIN 5008 form B: the address field 20 mm from the left and 45 mm from the top
    // (56.7 and 127.6 points), 85 mm wide; the address itself inside that window.
    bool hasAddress = false;
    for (const ViewPtr& element : controller.pageViews()[0].view->subviews()) {
        const auto* text = dynamic_cast<const BLLayoutTextView*>(element.get());
        if (text != nullptr && text->string() == "<recipient.formattedAddress/>") {
            hasAddress = true;
            EXPECT_GE(text->left(), 56.7);
            EXPECT_GE(text->top(), 127.6);
            EXPECT_LE(text->right(), 56.7 + 241.0);
            EXPECT_LE(text->bottom(), 127.6 + 127.6);
        }
    }
    EXPECT_TRUE(hasAddress);
    ASSERT_EQ(controller.tableViews().size(), 15U);
    for (const LayoutRecord& section : controller.tableViews()) {
        SCOPED_TRACE(section.identifier);
        EXPECT_FALSE(section.view->subviews().empty());
        EXPECT_EQ(section.view->width(), 467.0);
    }
    auto item = controller.tableSectionViewForIdentifier("item");
    for (const char* tag : {"<index/>", "<shortquantity/>", "<unit/>", "<rate/>", "<discount/>", "<cost/>"}) {
        EXPECT_TRUE(anyTextContains(*item, tag)) << tag;
    }
    EXPECT_TRUE(anyTextContains(*controller.tableSectionViewForIdentifier("tax"), "<taxes/>"));
    EXPECT_TRUE(anyTextContains(*controller.tableSectionViewForIdentifier("net"), "<document.cost/>"));
}

TEST(DefaultLayoutTest, TheLetterVariantMovesTheFootAndWidensTheTable) {
    const std::optional<Bytes> a4 = defaultLayoutData(false);
    const std::optional<Bytes> letter = defaultLayoutData(true);
    ASSERT_TRUE(a4 && letter);
    BLLayoutController wide;
    BLLayoutController tall;
    ASSERT_TRUE(wide.loadGT3Layout(*letter));
    ASSERT_TRUE(tall.loadGT3Layout(*a4));
    EXPECT_EQ(wide.paperSize(), (Size{612, 792}));
    // Letter is 17 points wider and 50 lower than A4: the table grows by 17 and shrinks by
    // 50, the footer rises by 50.
    const auto* a4Page = static_cast<const BLLayoutPageView*>(tall.pageViews()[0].view.get());
    const auto* letterPage = static_cast<const BLLayoutPageView*>(wide.pageViews()[0].view.get());
    const Rect a4Table = a4Page->tableView()->frame();
    const Rect letterTable = letterPage->tableView()->frame();
    EXPECT_EQ(letterTable.width, a4Table.width + 17.0);
    EXPECT_EQ(letterTable.height, a4Table.height - 50.0);
    for (const ViewPtr& element : letterPage->subviews()) {
        EXPECT_LE(element->bottom(), 792.0 - 20.0);
        EXPECT_LE(element->right(), 612.0 - 40.0);
    }
}

TEST(DefaultLayoutTest, ABadDescriptionIsRefusedWithItsReason) {
    struct Case {
        const char* json;
        const char* reason;
    };
    const Case cases[] = {
        {"[1, 2", "Layout description"},
        {R"({"paper": [595, 842], "pages": [{"identifier": "firstpage", "elements": [{"class": "NoSuchView"}]}]})",
         "unknown class NoSuchView"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.json);
        std::string error;
        EXPECT_FALSE(buildLayoutFromDescription(c.json, "", &error));
        EXPECT_NE(error.find(c.reason), std::string::npos) << error;
    }
    std::string error;
    EXPECT_FALSE(buildLayoutFromDescription(R"({"paper": [595, 842]})", "Letter", &error));
}

class LayoutFileTest : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        UserDefaults::setDirectoryForTesting(m_folder / "config");
        resetDocumentHooks();
        installLayoutHooks();
    }
    void TearDown() override {
        resetDocumentHooks();
        UserDefaults::setDirectoryForTesting("");
        setCurrentLanguage("");
        EntityFixture::TearDown();
    }
    std::vector<BLLayout*> layouts() {
        std::vector<BLLayout*> result;
        for (ManagedObject* object :
             context().executeFetchRequest(FetchRequest("Layout")).value_or(std::vector<ManagedObject*>{})) {
            result.push_back(static_cast<BLLayout*>(object));
        }
        return result;
    }
    storetest::TemporaryFolder m_folder;
};

TEST_F(LayoutFileTest, FirstTimeSetUpGivesTheNewFileItsDefaultLayout) {
    setCurrentLanguage("en");
    // The profile takes its country from the locale, and the country decides the paper: a
    // German one prints on A4.
    const icu::Locale previous = icu::Locale::getDefault();
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale("de_DE"), status);
    BLSetupDefaultsController::setupWithObject({{"taxable", Value(true)}}, context());
    auto* layout = dynamic_cast<BLLayout*>(context().objectWithUid(BLLayout::entityDescription(), kDefaultLayoutUID));
    ASSERT_NE(layout, nullptr);
    ASSERT_NE(layout->storage(), nullptr);
    ASSERT_NE(layout->storage()->data(), nullptr);
    EXPECT_EQ(layout->paperFormat(), "{595, 842}");
    auto* profile = BLContainer::defaultItemForContext<BLProfile>(context());
    ASSERT_NE(profile, nullptr);
    EXPECT_EQ(profile->valueForKey("layout").object(), layout);
    BLLayoutController controller;
    controller.setLayout(layout);
    EXPECT_EQ(controller.pageViews().size(), 2U);
    EXPECT_EQ(controller.tableViews().size(), 15U);
    icu::Locale::setDefault(previous, status);
}

TEST_F(LayoutFileTest, ACompanyInTheUnitedStatesGetsLetterAndGermanWordsFollowTheLanguage) {
    auto* profile = BLContainer::defaultItemForContext<BLProfile>(context());
    ASSERT_NE(profile, nullptr);
    profile->setCountryCode(std::string("US"));
    auto* layout = insert<BLLayout>();
    fillDefaultLayout(*layout);
    EXPECT_EQ(layout->paperFormat(), "{612, 792}");

    setCurrentLanguage("de");
    profile->setCountryCode(std::string("DE"));
    auto* german = insert<BLLayout>();
    fillDefaultLayout(*german);
    EXPECT_EQ(german->paperFormat(), "{595, 842}");
    BLLayoutController controller;
    controller.setLayout(german);
    auto header = controller.tableSectionViewForIdentifier("header");
    // Short labels are translated whole; the tags stay.
    EXPECT_TRUE(anyTextContains(*header, "Beschreibung"));
    EXPECT_TRUE(anyTextContains(*header, "Einzelpreis"));
    EXPECT_FALSE(anyTextContains(*header, "Description"));
    EXPECT_TRUE(anyTextContains(*controller.pageViews()[0].view, "Übertrag <page.totalafter/>"));
}

TEST_F(LayoutFileTest, ExportThenImportGivesAnEqualLayout) {
    setCurrentLanguage("en");
    auto* layout = insert<BLLayout>();
    layout->setName(std::string("Studio"));
    fillDefaultLayout(*layout);
    const std::string package = m_folder / "Studio.brassline";
    std::string error;
    ASSERT_TRUE(saveLayoutPackage(*layout, package, &error)) << error;
    EXPECT_TRUE(fs::exists(fs::path(package) / "Info.plist"));
    // The fonts the layout uses travel with it.
    EXPECT_TRUE(fs::exists(fs::path(package) / "Fonts" / "LiberationSans-Regular.ttf"));

    // Same name: refused without replace, replaced with it.
    LayoutImport taken = importLayoutPackage(&context(), package, false);
    EXPECT_EQ(taken.outcome, LayoutImport::Outcome::NameTaken);
    EXPECT_EQ(layouts().size(), 1U);
    LayoutImport replaced = importLayoutPackage(&context(), package, true);
    EXPECT_EQ(replaced.outcome, LayoutImport::Outcome::Replaced);
    EXPECT_EQ(replaced.layout, layout);

    layout->setName(std::string("Old studio"));
    LayoutImport imported = importLayoutPackage(&context(), package, false);
    ASSERT_EQ(imported.outcome, LayoutImport::Outcome::Imported) << imported.message;
    ASSERT_NE(imported.layout, layout);
    EXPECT_EQ(imported.layout->name(), "Studio");
    EXPECT_EQ(imported.layout->paperFormat(), layout->paperFormat());
    BLLayoutController original;
    BLLayoutController copy;
    original.setLayout(layout);
    copy.setLayout(imported.layout);
    ASSERT_EQ(copy.pageViews().size(), original.pageViews().size());
    for (size_t i = 0; i < original.pageViews().size(); ++i) {
        EXPECT_EQ(Value(copy.pageViews()[i].view->compareDictionary()),
                  Value(original.pageViews()[i].view->compareDictionary()));
    }
    for (size_t i = 0; i < original.tableViews().size(); ++i) {
        EXPECT_EQ(Value(copy.tableViews()[i].view->compareDictionary()),
                  Value(original.tableViews()[i].view->compareDictionary()));
    }
}

TEST_F(LayoutFileTest, BadPackagesAreRefusedAndWriteNothing) {
    auto* layout = insert<BLLayout>();
    layout->setName(std::string("Good"));
    fillDefaultLayout(*layout);
    const std::string good = m_folder / "Good.brassline";
    std::string error;
    ASSERT_TRUE(saveLayoutPackage(*layout, good, &error)) << error;
    layout->setName(std::string("Existing"));
    const std::string outside = m_folder / "secret.ttf";
    std::ofstream(outside) << "not a font";

    struct Case {
        const char* name;
        std::function<void(const fs::path&)> spoil;
        const char* message;
    };
    const Case cases[] = {
        {"no Data.plist", [](const fs::path& p) { fs::remove(p / "Data.plist"); }, "no readable Data.plist"},
        {"damaged Data.plist",
         [](const fs::path& p) { std::ofstream(p / "Data.plist", std::ios::trunc) << "bplist00garbage"; },
         "damaged Data.plist"},
        {"a font that is none", [](const fs::path& p) { std::ofstream(p / "Fonts" / "Evil.ttf") << "MZ\x90"; },
         "no font"},
        {"a font outside the package",
         [&](const fs::path& p) { fs::create_symlink(outside, p / "Fonts" / "Link.ttf"); }, "outside itself"},
        {"another type",
         [](const fs::path& p) {
             std::ofstream(p / "Info.plist", std::ios::trunc)
                 << Value(Value::Dictionary{{"type", Value("backup")}}).toXMLPropertyList();
         },
         "is no layout"},
        {"no Info.plist", [](const fs::path& p) { fs::remove(p / "Info.plist"); }, "is no layout package"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const fs::path copy = fs::path(m_folder / "Bad.brassline");
        fs::remove_all(copy);
        fs::copy(good, copy, fs::copy_options::recursive);
        c.spoil(copy);
        const LayoutImport result = importLayoutPackage(&context(), copy.string(), true);
        EXPECT_EQ(result.outcome, LayoutImport::Outcome::Refused);
        EXPECT_NE(result.message.find(c.message), std::string::npos) << result.message;
        EXPECT_EQ(layouts().size(), 1U);
        EXPECT_EQ(layout->name(), "Existing");
    }
    const LayoutImport noCompany = importLayoutPackage(nullptr, good, false);
    EXPECT_EQ(noCompany.message, "Please open a company first. Then open the layout.");
}

}  // namespace
}  // namespace brassline
