#include <string>

#include <gtest/gtest.h>

#include "../model/EntityFixture.h"
#include "core/Localization.h"
#include "core/ValueTransformers.h"
#include "lifecycle/NumberTokens.h"
#include "lifecycle/Numbering.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLProject.h"

namespace brassline {
namespace {

class NumberTokensTest : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        TimeZone::setCurrent("Europe/Berlin");
        setCurrentLanguage("en");
    }
    void TearDown() override {
        setCurrentFormattingLocale("");
        setCurrentLanguage("");
        Clock::setNow(std::nullopt);
        TimeZone::setCurrent("");
        EntityFixture::TearDown();
    }

    // An invoice of client "K-7" in project "Website", sent on Tuesday 5 March 2024.
    BLInvoice* sentInvoice() {
        auto* client = insert<BLClient>();
        client->setClientID(std::string("K-7"));
        auto* project = insert<BLProject>();
        project->setName(std::string("Website"));
        project->setParentDocument(client);
        auto* invoice = insert<BLInvoice>();
        invoice->setParentDocument(project);
        invoice->setDateSent(Date::dateWithYear(2024, 3, 5));
        invoice->setReference(std::string("PO 4711"));
        return invoice;
    }
};

// Preferences in a map, so that token tests need no stored preference objects.
class MapPreferences : public NumberingPreferences {
public:
    Value valueForKeyPath(std::string_view keyPath) override {
        auto it = values.find(keyPath);
        return it == values.end() ? Value() : it->second;
    }
    void setValueForKeyPath(const Value& value, std::string_view keyPath) override {
        values[std::string(keyPath)] = value;
    }
    std::map<std::string, Value, std::less<>> values;
};

TEST_F(NumberTokensTest, EachTokenInEachLocale) {
    BLInvoice* invoice = sentInvoice();
    MapPreferences preferences;
    preferences.values["invoice.number"] = Value(7);
    preferences.values["estimate.number"] = Value(12345);
    preferences.values["client.number"] = Value(42);
    preferences.values["project.number"] = Value(3);
    preferences.values["followUpType.A.number"] = Value(9);
    TokenInput input{invoice, &preferences, 4};

    struct Row {
        const char* option;
        const char* enUS;
        const char* deDE;
        const char* deCH;
        const char* frFR;
    };
    // 5 March 2024 is a Tuesday in ISO week 10; in the US count (weeks from Sunday, week
    // one holding 1 January) it is week 10 as well. Counters ignore the locale.
    const Row rows[] = {
        {"ZPYear", "2024", "2024", "2024", "2024"},
        {"ZPShortYear", "24", "24", "24", "24"},
        {"ZPMonth", "03", "03", "03", "03"},
        {"ZPMonthAbbreviation", "Mar", "Mär", "Mär", "mars"},
        {"ZPDay", "05", "05", "05", "05"},
        {"ZPShortDayName", "Tue", "Di.", "Di.", "mar."},
        {"ZPDayName", "Tuesday", "Dienstag", "Dienstag", "mardi"},
        {"ZPWeek", "10", "10", "10", "10"},
        {"ZPIncrement", "7", "7", "7", "7"},
        {"ZPIncrement2", "07", "07", "07", "07"},
        {"ZPIncrement5", "00007", "00007", "00007", "00007"},
        // Wider than its format: printed in full.
        {"ZPEstimateIncrement3", "12345", "12345", "12345", "12345"},
        {"ZPClientIncrement3", "042", "042", "042", "042"},
        {"ZPProjectIncrement4", "0003", "0003", "0003", "0003"},
        {"ZPIncrement4.followUpType.A", "0009", "0009", "0009", "0009"},
        {"ZPAutoIncrement", "4", "4", "4", "4"},
        {"ZPAutoIncrement3", "004", "004", "004", "004"},
        {"ZPClientID", "K-7", "K-7", "K-7", "K-7"},
        {"ZPProject", "Website", "Website", "Website", "Website"},
        {"ZPReference", "PO 4711", "PO 4711", "PO 4711", "PO 4711"},
        // Sent plus 7 days, through the medium date style.
        {"ZPCashDiscountDate7", "Mar 12, 2024", "12.03.2024", "12.03.2024", "12 mars 2024"},
        // No due date: the missing-date mark.
        {"ZPCashDiscountDate", "\u2753", "\u2753", "\u2753", "\u2753"},
        // No balance yet: zero through the money format.
        {"ZPAmount", "0.00", "0,00", "0.00", "0,00"},
    };
    for (const char* locale : {"en_US", "de_DE", "de_CH", "fr_FR"}) {
        setCurrentFormattingLocale(locale);
        for (const Row& row : rows) {
            const char* expected = std::string_view(locale) == "en_US"   ? row.enUS
                                   : std::string_view(locale) == "de_DE" ? row.deDE
                                   : std::string_view(locale) == "de_CH" ? row.deCH
                                                                         : row.frFR;
            SCOPED_TRACE(std::string(locale) + " " + row.option);
            EXPECT_EQ(tokenValue(row.option, input), std::optional<std::string>(expected));
        }
    }
}

TEST_F(NumberTokensTest, WeeksFollowTheLocalesCalendar) {
    auto* invoice = insert<BLInvoice>();
    // Sunday 3 January 2021: ISO week 53 of 2020, but week 2 where weeks start on Sunday.
    invoice->setDateSent(Date::dateWithYear(2021, 1, 3));
    TokenInput input{invoice, nullptr, 1};
    const std::pair<const char*, const char*> rows[] = {
        {"en_US", "02"}, {"de_DE", "53"}, {"de_CH", "53"}, {"fr_FR", "53"}};
    for (const auto& [locale, expected] : rows) {
        SCOPED_TRACE(locale);
        setCurrentFormattingLocale(locale);
        EXPECT_EQ(tokenValue("ZPWeek", input), std::optional<std::string>(expected));
    }
}

TEST_F(NumberTokensTest, WithoutAnObjectTokensShowPlaceholdersAndCounters) {
    MapPreferences preferences;
    preferences.values["invoice.number"] = Value(12);
    TokenInput input{nullptr, &preferences, 1};
    const std::pair<const char*, std::optional<std::string>> rows[] = {
        {"ZPIncrement3", "012"},
        // An absent counter has handed out nothing: it stands at 1.
        {"ZPEstimateIncrement2", "01"},
        {"ZPAutoIncrement", "?"},
        {"ZPAutoIncrement3", "00?"},
        {"ZPAutoIncrement5", "0000?"},
        {"ZPClientID", "???"},
        {"ZPProject", "???"},
        {"ZPReference", "???"},
        {"ZPLayoutName", std::nullopt},
        {"ZPCurrency", ""},
        {"ZPNoSuchToken", std::nullopt},
        // The two-digit client counter does not exist.
        {"ZPClientIncrement2", std::nullopt},
        {"ZPYear.followUpType.A", std::nullopt},
    };
    for (const auto& [option, expected] : rows) {
        SCOPED_TRACE(option);
        EXPECT_EQ(tokenValue(option, input), expected);
    }
    // Dates without an object are today's.
    Clock::setNow(Date::dateWithYear(2023, 11, 30));
    setCurrentFormattingLocale("de_DE");
    EXPECT_EQ(tokenValue("ZPMonthAbbreviation", input), std::optional<std::string>("Nov"));
    EXPECT_EQ(tokenDisplayName("ZPYear", &preferences), std::optional<std::string>("year (2023)"));
}

TEST_F(NumberTokensTest, NameTokensReadTheContactOrTheClient) {
    auto* client = insert<BLClient>();
    client->setOrganization(std::string("Acme/West"));
    auto* invoice = insert<BLInvoice>();
    invoice->setParentDocument(client);
    auto* layout = insert<BLLayout>();
    layout->setName(std::string("Modern"));
    invoice->setLayout(layout);
    TokenInput input{invoice, nullptr, 1};
    EXPECT_EQ(tokenValue("ZPClientName", input), std::optional<std::string>("Acme/West"));
    EXPECT_EQ(tokenValue("ZPLayoutName", input), std::optional<std::string>("Modern"));
    // An own contact wins over the client.
    auto* contact = insert<BLClient>();
    contact->setFirstName(std::string("Ada"));
    contact->setLastName(std::string("Lovelace"));
    invoice->setContact(contact);
    EXPECT_EQ(tokenValue("ZPClientName", input), std::optional<std::string>("Ada Lovelace"));
    // No reference set: the token adds nothing.
    EXPECT_EQ(tokenValue("ZPReference", input), std::nullopt);
}

TEST_F(NumberTokensTest, CountersArePaddedButNeverCut) {
    const std::tuple<int64_t, int, const char*> rows[] = {
        {7, 0, "7"}, {7, 1, "7"}, {7, 3, "007"}, {12345, 3, "12345"}, {0, 2, "00"}, {-3, 3, "-03"}, {99999, 5, "99999"},
    };
    for (const auto& [value, width, expected] : rows) {
        SCOPED_TRACE(std::to_string(value) + " width " + std::to_string(width));
        EXPECT_EQ(formatCounter(value, width), expected);
    }
}

}  // namespace
}  // namespace brassline
