#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ContactFixture.h"

namespace brassline {
namespace {

using ContactLabelTest = ContactFixture;

// Blanks written as they are printed: every blank of an address is non-breaking.
std::string nbsp(std::string text) {
    for (size_t at = text.find(' '); at != std::string::npos; at = text.find(' ', at + 2)) {
        text.replace(at, 1, kNbsp);
    }
    return text;
}

void setName(BLContact* contact, const char* title, const char* first, const char* last) {
    auto set = [](const char* value) { return value != nullptr ? std::optional<std::string>(value) : std::nullopt; };
    contact->setTitle(set(title));
    contact->setFirstName(set(first));
    contact->setLastName(set(last));
}

TEST_F(ContactLabelTest, CompanyAddressLeavesOutThePersonUnlessThereIsNoOrganization) {
    profile("DE");
    struct Row {
        const char* label;
        const char* organization;
        const char* department;
        Address address;
        const char* expected;  // Blanks here stand for non-breaking spaces.
    };
    const std::vector<Row> rows = {
        {"firm with department",
         "Muster GmbH",
         "Einkauf",
         {"Hauptstr. 1", "10115", "Berlin", nullptr, "DE"},
         "Muster GmbH\nEinkauf\nHauptstr. 1\n10115 Berlin"},
        {"foreign firm keeps its country line",
         "Acme Ltd",
         nullptr,
         {"1 High St", "LS1 1AA", "Leeds", nullptr, "GB"},
         "Acme Ltd\n1 High St\nLeeds\nLS1 1AA\nUNITED KINGDOM"},
        {"private person: the whole formatted address",
         nullptr,
         nullptr,
         {"Hauptstr. 1", "10115", "Berlin", nullptr, "DE"},
         "Dr.\nEva Muster\nHauptstr. 1\n10115 Berlin"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        BLClient* client = contactAt(row.address);
        setName(client, "Dr.", "Eva", "Muster");
        client->setOrganization(row.organization != nullptr ? std::optional<std::string>(row.organization)
                                                            : std::nullopt);
        client->setDepartment(row.department != nullptr ? std::optional<std::string>(row.department) : std::nullopt);
        EXPECT_EQ(client->formattedCompanyAddress(), nbsp(row.expected));
    }
}

TEST_F(ContactLabelTest, LabelsNameTheContactAtThisAddressInPlainBlanks) {
    profile("DE");
    BLClient* firm = contactAt({"Hauptstr. 1", "10115", "Berlin", nullptr, "DE"});
    firm->setOrganization(std::string("Muster GmbH"));
    setName(firm, nullptr, "Hans", "Chef");
    // The person's own (home) address must not reach the label.
    BLClient* person = contactAt({"Gartenweg 5", "80331", "München", nullptr, "DE"});
    setName(person, "Dr.", "Eva", "Muster");

    EXPECT_EQ(firm->labelAddressForContact(person), "Muster GmbH\nDr. Eva Muster\nHauptstr. 1\n10115 Berlin");
    EXPECT_EQ(firm->labelAddressForContact(nullptr), "Muster GmbH\nHans Chef\nHauptstr. 1\n10115 Berlin");
    EXPECT_EQ(firm->labelAddressForContact(nullptr).find(kNbsp), std::string::npos);

    // A private person's title takes its own line, except at a British address.
    person->setAddress(std::nullopt);
    EXPECT_EQ(person->labelAddressForContact(nullptr), "Dr.\nEva Muster\n80331 München");
    BLClient* british = contactAt({"1 High St", "LS1 1AA", "Leeds", nullptr, "GB"});
    EXPECT_EQ(british->labelAddressForContact(person), "Dr. Eva Muster\n1 High St\nLeeds\nLS1 1AA\nUNITED KINGDOM");
}

TEST_F(ContactLabelTest, HTMLAddressEscapesMarkupAndBreaksLines) {
    profile("GB");
    BLClient* client = contactAt({"1 \"Rose\" Lane", "LS1 1AA", "Leeds", nullptr, "GB"});
    client->setOrganization(std::string("Smith & Sons <North>"));
    EXPECT_EQ(
        client->formattedHTMLAddress(),
        "Smith&nbsp;&amp;&nbsp;Sons&nbsp;&lt;North&gt;<br>1&nbsp;&quot;Rose&quot;&nbsp;Lane<br>Leeds<br>LS1&nbsp;1AA");

    BLClient* empty = contactAt({});
    EXPECT_EQ(empty->formattedHTMLAddress().find('\n'), std::string::npos);
    EXPECT_EQ(empty->formattedHTMLAddress().find(kNbsp), std::string::npos);
}

TEST_F(ContactLabelTest, AddressBookRecordRebuildsTheSameAddress) {
    profile("DE");
    BLClient* british = contactAt({"1 High St", "LS1 1AA", "Leeds", nullptr, "GB"});
    british->setOrganization(std::string("Acme Ltd"));
    setName(british, "Mr", "John", "Smith");
    BLClient* american = contactAt({"1 Main St", "62701", "Springfield", "IL", "US"});
    setName(american, nullptr, "Ann", "Lee");
    american->setDepartment(std::string("Sales"));
    BLClient* domestic = contactAt({"Hauptstr. 1", "10115", "Berlin", nullptr, "DE"});
    setName(domestic, "Dr.", "Eva", "Muster");

    for (BLClient* client : {british, american, domestic}) {
        SCOPED_TRACE(client->displayName());
        const Value::Dictionary record = client->ABDictionary();
        EXPECT_EQ(BLContact::formattedAddressForDictionary(record, std::string("DE")), client->formattedAddress());
        EXPECT_EQ(BLContact::formattedNameForAddressForDictionary(record), client->formattedNameForAddress());
    }

    american->setEmail(std::string("ann@example.com"));
    american->setPhoneNumber(std::string("+1 555 0100"));
    const Value::Dictionary record = american->ABDictionary();
    EXPECT_EQ(record.at("Email").toString(), "ann@example.com");
    EXPECT_EQ(record.at("Phone").toString(), "+1 555 0100");
    EXPECT_EQ(record.at("State").toString(), "IL");
    EXPECT_EQ(record.count("Title"), 0u) << "absent fields are left out";
    EXPECT_EQ(record.count("Organization"), 0u);
    EXPECT_EQ(record.count("Note"), 0u);
}

}  // namespace
}  // namespace brassline
