#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ContactFixture.h"
#include "model/entities/BLPreference.h"

namespace brassline {
namespace {

using ContactNamesTest = ContactFixture;

struct NameRow {
    const char* label;
    const char* organization;
    const char* first;
    const char* last;
    const char* department;
    const char* email;
    // Expected, worked out from the rules by hand.
    const char* firstOrder;
    const char* lastOrder;
    const char* shortContact;
    const char* shortDisplay;
};

std::optional<std::string> opt(const char* value) {
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

TEST_F(ContactNamesTest, DisplayAndShortNamesForEveryCombination) {
    const std::vector<NameRow> rows = {
        {"organization and person", "Acme", "Jane", "Doe", nullptr, nullptr, "Acme, Jane Doe", "Acme, Doe Jane",
         "Jane Doe", "Jane Doe"},
        // The blank behind a name is written whether or not another name follows.
        {"first name only", nullptr, "Jane", nullptr, nullptr, nullptr, "Jane ", "Jane", "Jane", "Jane"},
        {"last name only", nullptr, nullptr, "Doe", nullptr, nullptr, "Doe", "Doe ", "Doe", "Doe"},
        {"organization only", "Acme", nullptr, nullptr, nullptr, "a@acme.test", "Acme", "Acme", "a@acme.test", "Acme"},
        {"e-mail only", nullptr, nullptr, nullptr, nullptr, "x@y.test", "New client", "New client", "x@y.test",
         "New contact"},
        {"department behind a name", nullptr, "Jane", "Doe", "Sales", nullptr, "Jane Doe", "Doe Jane",
         "Jane Doe (Sales)", "Jane Doe"},
        {"department alone", "Acme", nullptr, nullptr, "Sales", nullptr, "Acme", "Acme", "Sales", "Acme"},
        {"empty names count as absent", "", "", "", "", "", "New client", "New client", "", "New contact"},
    };
    for (const NameRow& row : rows) {
        SCOPED_TRACE(row.label);
        BLClient* client = insert<BLClient>();
        client->setOrganization(opt(row.organization));
        client->setFirstName(opt(row.first));
        client->setLastName(opt(row.last));
        client->setDepartment(opt(row.department));
        client->setEmail(opt(row.email));
        EXPECT_EQ(client->displayNameFirst(), row.firstOrder);
        EXPECT_EQ(client->displayNameLast(), row.lastOrder);
        EXPECT_EQ(client->displayName(), row.firstOrder);
        EXPECT_EQ(client->shortContactName(), row.shortContact);
        EXPECT_EQ(client->shortDisplayName(), row.shortDisplay);
    }
}

TEST_F(ContactNamesTest, DisplayNameFollowsTheSortDefaultAndMarksArchivedContacts) {
    BLClient* client = insert<BLClient>();
    client->setOrganization(std::string("Acme\r\nGmbH\nBerlin"));
    client->setFirstName(std::string("Jane"));
    client->setLastName(std::string("Doe"));
    client->setDepartment(std::string("Sales"));
    EXPECT_EQ(client->displayName(), "Acme GmbH Berlin, Jane Doe");

    bool lastNameFirst = true;
    modelHooks().userDefaultBool = [&](std::string_view key) { return key == "sortNamesLastName" && lastNameFirst; };
    EXPECT_EQ(client->displayName(), "Acme GmbH Berlin, Doe Jane");
    EXPECT_EQ(client->shortContactName(), "Doe Jane (Sales)");
    EXPECT_EQ(client->shortDisplayName(), "Jane Doe") << "always first name first";
    EXPECT_EQ(client->fileName(), client->displayName());

    client->setArchived(true);
    EXPECT_EQ(client->displayName(), "Acme GmbH Berlin, Doe Jane (Archived)");
    lastNameFirst = false;
    setCurrentLanguage("de");
    EXPECT_EQ(client->displayName(), "Acme GmbH Berlin, Jane Doe (Archiviert)");
}

TEST_F(ContactNamesTest, NameForAnAddressKeepsTitleOnItsOwnLineOnlyForPrivatePersonsOutsideBritain) {
    struct Row {
        const char* label;
        const char* country;
        const char* organization;
        const char* department;
        const char* title;
        const char* first;
        const char* middle;
        const char* last;
        std::string expected;
    };
    const std::string n = kNbsp;
    const std::vector<Row> rows = {
        {"British private person", "GB", nullptr, nullptr, "Dr", "John", nullptr, "Smith",
         "Dr" + n + "John" + n + "Smith"},
        {"British code in lower case", "gb", nullptr, nullptr, "Dr", "John", nullptr, "Smith",
         "Dr" + n + "John" + n + "Smith"},
        {"German private person", "DE", nullptr, nullptr, "Dr.", "Eva", nullptr, "Muster", "Dr.\nEva" + n + "Muster"},
        {"German with organization", "DE", "Muster GmbH", nullptr, "Dr.", "Eva", nullptr, "Muster",
         "Dr." + n + "Eva" + n + "Muster"},
        {"German with department", "DE", nullptr, "Einkauf", "Dr.", "Eva", nullptr, "Muster",
         "Dr." + n + "Eva" + n + "Muster"},
        {"blanks inside names", "DE", nullptr, nullptr, nullptr, "Anna Maria", "B.", "von Berg",
         "Anna" + n + "Maria" + n + "B." + n + "von" + n + "Berg"},
        {"no title", "US", nullptr, nullptr, nullptr, "Jane", nullptr, "Doe", "Jane" + n + "Doe"},
        {"no name at all", "DE", "Muster GmbH", nullptr, nullptr, nullptr, nullptr, nullptr, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        BLClient* client = insert<BLClient>();
        client->setCountryCode(opt(row.country));
        client->setOrganization(opt(row.organization));
        client->setDepartment(opt(row.department));
        client->setTitle(opt(row.title));
        client->setFirstName(opt(row.first));
        client->setMiddleName(opt(row.middle));
        client->setLastName(opt(row.last));
        EXPECT_EQ(client->formattedNameForAddress(), row.expected);
    }
}

TEST_F(ContactNamesTest, VCardLineByLine) {
    BLClient* client = contactAt({"1 Main St\nSuite 5", "62701", "Springfield", "IL", "US"});
    client->setFirstName(std::string("Jane"));
    client->setLastName(std::string("Doe"));
    client->setOrganization(std::string("Acme"));
    client->setEmail(std::string("jane@acme.test"));
    client->setPhoneNumber(std::string("+1 217 555 0100"));
    client->setNotes(std::string("met at the fair\ncall in May"));
    const std::string expected =
        "BEGIN:VCARD\n"
        "VERSION:3.0\n"
        "PRODID:-//Orvane//Brassline\n"
        "N:Doe;Jane\n"
        "FN:Jane Doe\n"
        "ORG:Acme\n"
        "EMAIL;type=INTERNET;type=WORK;type=pref:jane@acme.test\n"
        "TEL;type=INTERNET;type=WORK;type=pref:+1 217 555 0100\n"
        "item1.ADR;type=WORK;type=pref:;;1 Main St\\nSuite 5;Springfield;;62701;United States\n"
        "item1.X-ABADR:us\n"
        "NOTE:met at the fair\\ncall in May\n"
        "END:VCARD";
    EXPECT_EQ(client->vCardString(), expected);

    // Every line stays when its fields are empty; the last line has no line feed.
    BLClient* empty = insert<BLClient>();
    const std::string emptyCard =
        "BEGIN:VCARD\nVERSION:3.0\nPRODID:-//Orvane//Brassline\nN:;\nFN: \nORG:\n"
        "EMAIL;type=INTERNET;type=WORK;type=pref:\nTEL;type=INTERNET;type=WORK;type=pref:\n"
        "item1.ADR;type=WORK;type=pref:;;;;;;\nitem1.X-ABADR:\nNOTE:\nEND:VCARD";
    EXPECT_EQ(empty->vCardString(), emptyCard);
    EXPECT_EQ(empty->valueForKey("vCardString").toString(), emptyCard);
}

TEST_F(ContactNamesTest, PayIntervalComesFromTheTopContactAndRateFromTheDocumentDefault) {
    BLClient* client = insert<BLClient>();
    client->setPayInterval(int16_t{30});
    BLContact* person = insert<BLContact>();
    person->setPayInterval(int16_t{10});
    person->setParent(client);
    BLContact* assistant = insert<BLContact>();
    assistant->setParent(person);
    EXPECT_EQ(client->payIntervalValue(), 30);
    EXPECT_EQ(person->payIntervalValue(), 30) << "the parent's, not its own 10";
    EXPECT_EQ(assistant->payIntervalValue(), 30) << "at any depth";
    client->setPayInterval(std::nullopt);
    EXPECT_FALSE(person->payInterval().has_value());

    EXPECT_FALSE(person->effectiveRate().has_value());
    auto* defaultRate = static_cast<BLPreference*>(
        BLBase::insertInManagedObjectContext(context(), "Preference", "BLPref.timeImporter.defaultRate"));
    defaultRate->setPayload(Value(*Decimal::parse("80")));
    ASSERT_TRUE(person->effectiveRate().has_value());
    EXPECT_EQ(person->effectiveRate()->toString(), "80");
    person->setRate(*Decimal::parse("95.5"));
    EXPECT_EQ(person->effectiveRate()->toString(), "95.5");
    EXPECT_EQ(person->valueForKey("effectiveRate").toString(), "95.5");
}

}  // namespace
}  // namespace brassline
