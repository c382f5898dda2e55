#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include "ContactFixture.h"
#include "core/BLLocales.h"

namespace brassline {
namespace {

using ContactAddressTest = ContactFixture;

// Blanks written as they are printed: every blank of an address is non-breaking.
std::string nb(std::string text) {
    for (size_t at = text.find(' '); at != std::string::npos; at = text.find(' ', at + 2)) {
        text.replace(at, 1, kNbsp);
    }
    return text;
}

TEST_F(ContactAddressTest, PostalAddressesFollowEachCountrysConventions) {
    struct Row {
        const char* label;
        const char* sender;
        Address address;
        const char* expected;  // Blanks here stand for non-breaking spaces.
    };
    // Line orders as the postal operators publish them: postcode before town in Germany
    // and Italy (with the province), town, state and ZIP in the US, post town and
    // postcode on lines of their own in Britain, state after the town in Canada,
    // Australia and Brazil, postcode after the town in India with the state below.
    const std::vector<Row> rows = {
        {"domestic German: no country line",
         "DE",
         {"Hauptstr. 1", "10115", "Berlin", nullptr, "DE"},
         "Hauptstr. 1\n10115 Berlin"},
        {"US from Germany",
         "DE",
         {"1 Main St", "62701", "Springfield", "IL", "US"},
         "1 Main St\nSpringfield, IL 62701\nUNITED STATES"},
        {"domestic US", "US", {"1 Main St", "62701", "Springfield", "IL", "US"}, "1 Main St\nSpringfield, IL 62701"},
        {"British",
         "DE",
         {"10 Downing Street", "SW1A 2AA", "London", nullptr, "GB"},
         "10 Downing Street\nLondon\nSW1A 2AA\nUNITED KINGDOM"},
        {"Italian with province",
         "DE",
         {"Via Roma 1", "00184", "Roma", "RM", "IT"},
         "Via Roma 1\n00184 Roma RM\nITALY"},
        {"Canadian",
         "US",
         {"111 Wellington St", "K1A 0A9", "Ottawa", "ON", "CA"},
         "111 Wellington St\nOttawa ON K1A 0A9\nCANADA"},
        {"Australian", "GB", {"1 George St", "2000", "Sydney", "NSW", "AU"}, "1 George St\nSydney NSW 2000\nAUSTRALIA"},
        {"Brazilian",
         "PT",
         {"Av. Paulista 1000", "01310-100", "São Paulo", "SP", "BR"},
         "Av. Paulista 1000\nSão Paulo-SP\n01310-100\nBRAZIL"},
        {"Indian",
         "DE",
         {"12 MG Road", "560001", "Bengaluru", "Karnataka", "IN"},
         "12 MG Road\nBengaluru 560001\nKarnataka\nINDIA"},
        {"Mexican",
         "ES",
         {"Av. Juárez 10", "06050", "Ciudad de México", "CDMX", "MX"},
         "Av. Juárez 10\n06050 Ciudad de México, CDMX\nMEXICO"},
        {"Swiss, code stored in lower case",
         "DE",
         {"Bahnhofstrasse 1", "8001", "Zürich", nullptr, "ch"},
         "Bahnhofstrasse 1\n8001 Zürich\nSWITZERLAND"},
        // Japan's record names the country in English whatever the sender's language.
        {"Japan from abroad",
         "DE",
         {"1-1 Chiyoda", "100-0001", "Chiyoda-ku", "Tokyo", "JP"},
         "1-1 Chiyoda\nChiyoda-ku, Tokyo\n100-0001\nJAPAN"},
        {"empty fields leave no empty lines", "DE", {nullptr, "10115", "Berlin", nullptr, "DE"}, "10115 Berlin"},
        // No code: the current locale's (US) template, and a country line since nothing
        // stored equals the sender's code.
        {"no country code",
         "DE",
         {"1 Main St", "62701", "Springfield", "IL", nullptr},
         "1 Main St\nSpringfield, IL 62701\nUNITED STATES"},
        {"sender without a country",
         nullptr,
         {"Hauptstr. 1", "10115", "Berlin", nullptr, "DE"},
         "Hauptstr. 1\n10115 Berlin\nGERMANY"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        profile(row.sender);
        BLClient* client = contactAt(row.address);
        EXPECT_EQ(client->postalAddress(), nb(row.expected));
    }
}

TEST_F(ContactAddressTest, SenderCountryChoosesTheDomesticFormAndTheRecipientTagPlacesTheName) {
    profile("JP");
    BLClient* client = contactAt({"千代田1-1", "100-0001", "千代田区", "東京都", "JP"});
    client->setFirstName(std::string("太郎"));
    client->setLastName(std::string("山田"));
    client->setOrganization(std::string("山田商事"));
    // Domestic Japanese mail: postcode, prefecture, town and street, the recipient last.
    const std::string expected = std::string("〒100-0001\n東京都千代田区千代田1-1\n山田商事\n太郎") + kNbsp + "山田";
    EXPECT_EQ(client->formattedAddress(), expected);
    EXPECT_EQ(client->formattedAddress().find("山田商事"), client->formattedAddress().rfind("山田商事"))
        << "the recipient stands at the tag and nowhere else";
    EXPECT_EQ(client->singleLinePostalAddress().value_or(""), "〒100-0001, 東京都千代田区千代田1-1");

    // The same client written from Germany takes the Latin form with the name on top.
    profile("DE");
    EXPECT_EQ(client->formattedAddress(),
              std::string("山田商事\n太郎") + kNbsp + "山田\n千代田1-1\n千代田区," + kNbsp + "東京都\n100-0001\nJAPAN");
}

TEST_F(ContactAddressTest, FormattedAddressStacksOrganizationDepartmentNameAndAddress) {
    profile("DE");
    BLClient* client = contactAt({"Hauptstr. 1", "10115", "Berlin", nullptr, "DE"});
    client->setOrganization(std::string("Muster GmbH"));
    client->setDepartment(std::string("Einkauf"));
    client->setTitle(std::string("Dr."));
    client->setFirstName(std::string("Eva"));
    client->setLastName(std::string("Muster"));
    EXPECT_EQ(client->formattedAddress(), nb("Muster GmbH\nEinkauf\nDr. Eva Muster\nHauptstr. 1\n10115 Berlin"));

    BLClient* person = contactAt({nullptr, nullptr, nullptr, nullptr, "DE"});
    person->setTitle(std::string("Dr."));
    person->setFirstName(std::string("Eva"));
    person->setLastName(std::string("Muster"));
    EXPECT_EQ(person->formattedAddress(), nb("Dr.\nEva Muster")) << "no postal address: the name block alone";
    EXPECT_FALSE(person->singleLinePostalAddress().has_value());

    Value::Dictionary card = {{"Organization", Value(std::string("Acme Ltd"))},
                              {"Title", Value(std::string("Mr"))},
                              {"LastName", Value(std::string("Smith"))},
                              {"Street", Value(std::string("1 High St"))},
                              {"City", Value(std::string("Leeds"))},
                              {"ZIP", Value(std::string("LS1 1AA"))},
                              {"CountryCode", Value(std::string("GB"))}};
    EXPECT_EQ(BLContact::formattedAddressForDictionary(card, std::string("DE")),
              nb("Acme Ltd\nMr Smith\n1 High St\nLeeds\nLS1 1AA\nUNITED KINGDOM"));
    EXPECT_EQ(BLContact::postalAddressForDictionary(card, std::string("GB")), nb("1 High St\nLeeds\nLS1 1AA"));
}

TEST_F(ContactAddressTest, SingleLineAndExtendingAPartialAddress) {
    profile("DE");
    BLClient* client = contactAt({"Bahnhofstrasse 1", "8001", "Zürich", nullptr, "CH"});
    const std::string line = "Bahnhofstrasse 1, 8001 Zürich, SWITZERLAND";
    EXPECT_EQ(client->singleLinePostalAddress().value_or(""), line);
    struct Row {
        const char* text;
        std::string expected;
    };
    const std::vector<Row> rows = {
        {"zurich", line},
        {"8001 ZÜRICH", line},
        {"bahnhofstrasse 1, 8001", line},
        {"Basel", "Basel"},
        {"Bahnhofstrasse 2", "Bahnhofstrasse 2"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(client->extendAddressIfPossible(row.text), row.expected);
    }
}

TEST_F(ContactAddressTest, EveryRegionHasATemplateWithStreetAndCity) {
    const BLLocales& locales = BLLocales::sharedLocales();
    int regions = 0;
    for (const char* const* code = icu::Locale::getISOCountries(); *code != nullptr; ++code, ++regions) {
        SCOPED_TRACE(*code);
        const std::string* format = locales.addressFormat(*code);
        ASSERT_NE(format, nullptr);
        EXPECT_NE(format->find("<Street/>"), std::string::npos);
        EXPECT_NE(format->find("<City/>"), std::string::npos);
    }
    EXPECT_GT(regions, 240);
    // Countries with state or province lines carry the tag.
    for (const char* code : {"US", "CA", "AU", "IT", "BR", "MX", "JP", "CN", "IN", "ES", "RU"}) {
        SCOPED_TRACE(code);
        ASSERT_NE(locales.addressFormat(code), nullptr);
        EXPECT_NE(locales.addressFormat(code)->find("<State/>"), std::string::npos);
    }
    ASSERT_NE(locales.addressFormat("CN-CN"), nullptr);
    EXPECT_NE(locales.addressFormat("CN-CN")->find("<Recipient/>"), std::string::npos);
    EXPECT_EQ(locales.countryNameLocale("JP").value_or(""), "en_US");
    EXPECT_FALSE(locales.countryNameLocale("DE").has_value());
}

TEST_F(ContactAddressTest, BrokenFormatFilesAreRefused) {
    EXPECT_FALSE(BLLocales::loadFromJSON("{not json").has_value());
    EXPECT_FALSE(BLLocales::loadFromJSON("[]").has_value());
    EXPECT_FALSE(BLLocales::loadFromJSON(R"({"countries": {}})").has_value());
    EXPECT_FALSE(BLLocales::loadFromFile("/nonexistent/AddressFormats.json").has_value());
    std::optional<BLLocales> small = BLLocales::loadFromJSON(R"({"addressFormats": {"DE": "<Street/>", "XX": 5}})");
    ASSERT_TRUE(small.has_value());
    EXPECT_NE(small->addressFormat("DE"), nullptr);
    EXPECT_EQ(small->addressFormat("XX"), nullptr) << "a template that is no text is skipped";
}

}  // namespace
}  // namespace brassline
