#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../model/ContactFixture.h"
#include "core/Log.h"
#include "lifecycle/BLPlaceHolderEditing.h"
#include "lifecycle/PlaceHolderRoutes.h"
#include "model/NotificationCenter.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLInvoice.h"

namespace brassline {
namespace {

class PlaceHolderEditingTest : public ContactFixture {
protected:
    void SetUp() override {
        ContactFixture::SetUp();
        m_invoice = insert<BLInvoice>();
        m_invoice->setLead(std::string("Hallo [Name], Ihre Fahrt nach [Ziel]"));
        m_cost = insert<BLCost>();
        m_cost->setName(std::string("Fahrt von [Start] nach [Ziel]"));
        m_cost->setParent(m_invoice);
        m_refreshes = 0;
        NotificationCenter::defaultCenter().addObserver(kRefreshAllItemsNotification, nullptr,
                                                        [this](const Notification&) { ++m_refreshes; });
    }
    void TearDown() override {
        setDrivingDistanceCalculator(nullptr);
        ContactFixture::TearDown();
    }
    std::vector<BLPlaceHolderWrapper> wrappers() {
        return BLPlaceHolderWrapper::wrappersForManagedObjects({m_cost, m_invoice}, m_invoice);
    }
    // The byte offset of the n-th occurrence of `what` in the editing text.
    static size_t offsetOf(const BLPlaceHolderEditingTextView& view, const std::string& what, int occurrence = 0) {
        const std::string text = view.string();
        size_t at = text.find(what);
        while (occurrence-- > 0 && at != std::string::npos) {
            at = text.find(what, at + 1);
        }
        return at;
    }

    BLInvoice* m_invoice = nullptr;
    BLCost* m_cost = nullptr;
    int m_refreshes = 0;
};

TEST_F(PlaceHolderEditingTest, TextCarriesTheFieldAttributes) {
    std::vector<BLPlaceHolderWrapper> list = wrappers();
    BLPlaceHolderEditingTextView view;
    view.setTextWithWrappers(&list);
    EXPECT_EQ(view.string(), "Fahrt von [Start] nach [Ziel]\nHallo [Name], Ihre Fahrt nach [Ziel]\n");

    const Value::Dictionary fixed = view.attributesAtIndex(0);
    EXPECT_EQ(fixed.at(kWrapperAttributeName).toInt64(), 0);
    EXPECT_EQ(fixed.count(kCustomEditableAttributeName), 0u);

    const Value::Dictionary start = view.attributesAtIndex(offsetOf(view, "[Start]") + 1);
    EXPECT_TRUE(start.at(kCustomEditableAttributeName).toBool());
    EXPECT_TRUE(start.at(kUnchangedAttributeName).toBool());
    EXPECT_EQ(start.at(kOriginalTextAttributeName).toString(), "[Start]");

    const Value::Dictionary firstGoal = view.attributesAtIndex(offsetOf(view, "[Ziel]"));
    const Value::Dictionary secondGoal = view.attributesAtIndex(offsetOf(view, "[Ziel]", 1));
    EXPECT_EQ(secondGoal.at(kWrapperAttributeName).toInt64(), 1);
    EXPECT_EQ(firstGoal.at(kWrapperTagUIDAttributeName).toString(),
              secondGoal.at(kWrapperTagUIDAttributeName).toString());
    EXPECT_NE(firstGoal.at(kWrapperTagUIDAttributeName).toString(), start.at(kWrapperTagUIDAttributeName).toString());
    EXPECT_TRUE(view.attributesAtIndex(view.string().size()).empty());
}

TEST_F(PlaceHolderEditingTest, OnlyFieldRangesMayChange) {
    m_cost->setName(std::string("Straße [Ort] – Ende"));
    std::vector<BLPlaceHolderWrapper> list = BLPlaceHolderWrapper::wrappersForManagedObjects({m_cost}, m_invoice);
    BLPlaceHolderEditingTextView view;
    view.setTextWithWrappers(&list);
    // "Straße " is 8 bytes, "[Ort]" 8..13, " – Ende" has a three-byte dash.
    ASSERT_EQ(view.string(), "Straße [Ort] – Ende\n");
    struct Row {
        const char* name;
        TextRange range;
        bool allowed;
    };
    const Row rows[] = {
        {"inside the field", {9, 3}, true},
        {"the whole field", {8, 5}, true},
        {"insert at its start", {8, 0}, true},
        {"insert at its end", {13, 0}, true},
        {"fixed text", {0, 2}, false},
        {"from the field into the text", {10, 5}, false},
        {"from the text into the field", {6, 4}, false},
        {"inside a two-byte letter", {5, 1}, false},
        {"past the end", {40, 0}, false},
        {"the newline", {22, 1}, false},
        {"a range that wraps around", {std::string::npos, 7}, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(view.shouldChangeTextInRange(row.range, "x"), row.allowed);
    }
    EXPECT_FALSE(view.replaceCharactersInRange({0, 2}, "x"));
    EXPECT_EQ(view.string(), "Straße [Ort] – Ende\n");
    EXPECT_TRUE(view.replaceCharactersInRange({8, 5}, "Zürich"));
    EXPECT_EQ(view.string(), "Straße Zürich – Ende\n");
    // The field grew: its new end is still inside it.
    EXPECT_TRUE(view.shouldChangeTextInRange({14, 0}, "!"));
}

TEST_F(PlaceHolderEditingTest, SameFieldsChangeTogetherUntilComplete) {
    std::vector<BLPlaceHolderWrapper> list = wrappers();
    BLPlaceHolderEditingTextView view;
    view.setTextWithWrappers(&list);
    EXPECT_FALSE(view.isCompleted());

    const size_t goal = offsetOf(view, "[Ziel]");
    ASSERT_TRUE(view.replaceCharactersInRange({goal, 6}, "Bern"));
    EXPECT_EQ(view.string(), "Fahrt von [Start] nach Bern\nHallo [Name], Ihre Fahrt nach Bern\n");
    EXPECT_EQ(list[0].displayedStrings(), (std::vector<std::string>{"[Start]", "Bern"}));
    EXPECT_EQ(list[1].displayedStrings(), (std::vector<std::string>{"[Name]", "Bern"}));
    EXPECT_FALSE(view.attributesAtIndex(offsetOf(view, "Bern", 1)).count(kUnchangedAttributeName));
    EXPECT_FALSE(view.isCompleted());

    ASSERT_TRUE(view.replaceCharactersInRange({offsetOf(view, "[Start]"), 7}, "Basel"));
    EXPECT_FALSE(view.isCompleted());
    ASSERT_TRUE(view.replaceCharactersInRange({offsetOf(view, "[Name]"), 6}, "Frau Graf"));
    EXPECT_TRUE(view.isCompleted());

    view.processChanges();
    EXPECT_EQ(*m_cost->name(), "Fahrt von Basel nach Bern");
    EXPECT_EQ(*m_invoice->lead(), "Hallo Frau Graf, Ihre Fahrt nach Bern");
    EXPECT_EQ(list[0].insertedStrings(), (std::vector<std::string>{"Basel", "Bern"}));
    EXPECT_EQ(m_refreshes, 1);
}

TEST_F(PlaceHolderEditingTest, TabMovesToTheNextDifferentField) {
    std::vector<BLPlaceHolderWrapper> list = wrappers();
    BLPlaceHolderEditingTextView view;
    view.setTextWithWrappers(&list);
    const std::vector<std::pair<std::string, int>> order = {
        {"[Start]", 0}, {"[Ziel]", 0}, {"[Name]", 0}, {"[Ziel]", 1}, {"[Start]", 0}};
    for (const auto& [field, occurrence] : order) {
        SCOPED_TRACE(field + " " + std::to_string(occurrence));
        std::optional<TextRange> next = view.selectNextDifferentOriginalTextAttributeRange();
        ASSERT_TRUE(next.has_value());
        EXPECT_EQ(next->location, offsetOf(view, field, occurrence));
        EXPECT_EQ(next->length, field.size());
        EXPECT_EQ(view.selectedRange(), *next);
    }
    list.clear();
    view.setTextWithWrappers(&list);
    EXPECT_FALSE(view.selectNextDifferentOriginalTextAttributeRange().has_value());
}

TEST_F(PlaceHolderEditingTest, ControllerCancelResetAndApply) {
    {
        BLPlaceHolderSubstituteController controller(wrappers());
        auto& view = controller.textView();
        ASSERT_TRUE(view.replaceCharactersInRange({offsetOf(view, "[Start]"), 7}, "Basel"));
        controller.reset();
        EXPECT_EQ(view.string(), "Fahrt von [Start] nach [Ziel]\nHallo [Name], Ihre Fahrt nach [Ziel]\n");
        ASSERT_TRUE(view.replaceCharactersInRange({offsetOf(view, "[Start]"), 7}, "Basel"));
        controller.cancel();
        EXPECT_FALSE(controller.isOpen());
        controller.apply();
    }
    EXPECT_EQ(*m_cost->name(), "Fahrt von [Start] nach [Ziel]");
    EXPECT_EQ(m_refreshes, 0);

    BLPlaceHolderSubstituteController controller(wrappers());
    auto& view = controller.textView();
    ASSERT_TRUE(view.replaceCharactersInRange({offsetOf(view, "[Name]"), 6}, "Team"));
    controller.apply();
    EXPECT_EQ(*m_invoice->lead(), "Hallo Team, Ihre Fahrt nach [Ziel]");
    EXPECT_EQ(m_refreshes, 1);
}

TEST(PlaceHolderRouteTest, QuantityOfARouteThereAndBack) {
    struct Row {
        double metres;
        DistanceUnit unit;
        std::optional<int64_t> expected;
    };
    // 123.4 km doubled is 246.8 km, truncated 246; in miles 246.8 * 0.621371 = 153.35 -> 153.
    const Row rows[] = {
        {123400, DistanceUnit::kilometres, 246},    {123400, DistanceUnit::miles, 153},
        {999, DistanceUnit::kilometres, 1},         {0, DistanceUnit::miles, 0},
        {123400, DistanceUnit::none, std::nullopt}, {-5, DistanceUnit::kilometres, std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.metres);
        EXPECT_EQ(routeQuantity(row.metres, row.unit), row.expected);
    }
}

TEST_F(PlaceHolderEditingTest, DistanceUnitsAreRecognisedInAnyCase) {
    struct Row {
        std::optional<std::string> unit;
        DistanceUnit expected;
    };
    const Row rows[] = {
        {"km", DistanceUnit::kilometres}, {"KM", DistanceUnit::kilometres}, {"Kilometer", DistanceUnit::kilometres},
        {"mi", DistanceUnit::miles},      {"Meilen", DistanceUnit::miles},  {"miles.", DistanceUnit::miles},
        {"h", DistanceUnit::none},        {"kmh", DistanceUnit::none},      {std::nullopt, DistanceUnit::none},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.unit.value_or("(none)"));
        m_cost->setUnit(row.unit);
        EXPECT_EQ(distanceUnitOf(*m_cost), row.expected);
    }
}

TEST_F(PlaceHolderEditingTest, RouteSetsTheQuantityAndCompletesTheAddresses) {
    BLProfile* sender = profile("DE");
    sender->setAddress(std::string("Hauptstraße 1"));
    sender->setZip(std::string("10115"));
    sender->setCity(std::string("Berlin"));
    BLClient* client = contactAt({"Marktplatz 7", "80331", "München", nullptr, "DE"});
    client->setOrganization(std::string("Kunde"));
    m_invoice->setParentDocument(client);
    m_cost->setUnit(std::string("km"));
    m_cost->setQuantity(Decimal(1));

    std::vector<std::pair<std::string, std::string>> asked;
    setDrivingDistanceCalculator([&](const std::string& from, const std::string& to, DrivingDistanceCompletion done) {
        asked.emplace_back(from, to);
        done(123400.0);
    });

    for (DistanceUnit unit : {DistanceUnit::kilometres, DistanceUnit::miles}) {
        SCOPED_TRACE(unit == DistanceUnit::miles ? "miles" : "km");
        m_cost->setUnit(std::string(unit == DistanceUnit::miles ? "mi" : "km"));
        m_cost->setName(std::string("Fahrt von [Start] nach [Ziel]"));
        asked.clear();
        m_refreshes = 0;
        BLPlaceHolderSubstituteController controller(
            BLPlaceHolderWrapper::wrappersForManagedObjects({m_cost}, m_invoice));
        auto& view = controller.textView();
        // The fields start with the sender's and the client's addresses.
        const std::string home = "Hauptstraße 1, 10115 Berlin";
        const std::string away = "Marktplatz 7, 80331 München";
        EXPECT_EQ(view.string(), "Fahrt von " + home + " nach " + away + "\n");
        EXPECT_TRUE(controller.isCompleted());
        // The user shortens the destination: it is completed from the client's address.
        const size_t at = view.string().find(away);
        ASSERT_TRUE(view.replaceCharactersInRange({at, away.size()}, "München"));
        controller.apply();

        ASSERT_EQ(asked.size(), 1u);
        EXPECT_EQ(asked[0], std::make_pair(home, away));
        EXPECT_EQ(m_cost->quantity()->toString(), unit == DistanceUnit::miles ? "153" : "246");
        EXPECT_EQ(*m_cost->name(), "Fahrt von " + home + " nach " + away);
        EXPECT_EQ(m_refreshes, 2);
    }
}

TEST_F(PlaceHolderEditingTest, WithoutMapServiceNothingChanges) {
    m_cost->setUnit(std::string("km"));
    m_cost->setQuantity(Decimal(3));
    LogCapture log;
    int answers = 0;
    for (int call = 0; call < 2; ++call) {
        calculateDrivingDistanceFromCity("Basel", "Bern", [&](std::optional<double> metres) {
            EXPECT_FALSE(metres.has_value());
            ++answers;
        });
    }
    EXPECT_EQ(answers, 2);
    int told = 0;
    for (const std::string& line : log.lines()) {
        told += line.find("No map service") != std::string::npos ? 1 : 0;
    }
    EXPECT_LE(told, 1);

    BLPlaceHolderSubstituteController controller(BLPlaceHolderWrapper::wrappersForManagedObjects({m_cost}, m_invoice));
    auto& view = controller.textView();
    ASSERT_TRUE(view.replaceCharactersInRange({view.string().find("[Start]"), 7}, "Basel"));
    ASSERT_TRUE(view.replaceCharactersInRange({view.string().find("[Ziel]"), 6}, "Bern"));
    controller.apply();
    EXPECT_EQ(m_cost->quantity()->toString(), "3");
    EXPECT_EQ(*m_cost->name(), "Fahrt von Basel nach Bern");
}

}  // namespace
}  // namespace brassline
