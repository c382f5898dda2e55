#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ContactFixture.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLPreference.h"

namespace brassline {
namespace {

using ContactClientTest = ContactFixture;

Decimal dec(const char* text) {
    return *Decimal::parse(text);
}

TEST_F(ContactClientTest, NumbersComeFromTheNumberingOnceAndAreKept) {
    BLClient* client = insert<BLClient>();
    EXPECT_FALSE(client->createNumber().has_value()) << "no numbering installed";
    EXPECT_FALSE(client->clientID().has_value());

    int calls = 0;
    std::optional<std::string> next = std::string("K-7");
    modelHooks().createClientNumber = [&](BLClient&) {
        ++calls;
        return next;
    };
    EXPECT_EQ(client->createNumber().value_or(""), "K-7");
    EXPECT_EQ(client->clientID().value_or(""), "K-7");
    next = std::string("K-8");
    EXPECT_EQ(client->createNumber().value_or(""), "K-7") << "a client keeps its number";
    EXPECT_EQ(calls, 1);

    BLClient* unnumbered = insert<BLClient>();
    next = std::string();
    EXPECT_FALSE(unnumbered->createNumber().has_value()) << "an empty number is no number";
    EXPECT_FALSE(unnumbered->clientID().has_value());

    // A numbering that stores the number itself is not overruled.
    modelHooks().createClientNumber = [](BLClient& target) -> std::optional<std::string> {
        target.setClientID(std::string("K-100"));
        return std::string("K-100");
    };
    BLClient* third = insert<BLClient>();
    third->setup();
    EXPECT_EQ(third->clientID().value_or(""), "K-100");
}

TEST_F(ContactClientTest, IncrementNumberAdvancesTheStoredCounter) {
    BLClient* client = insert<BLClient>();
    client->incrementNumber();
    EXPECT_EQ(BLPreference::preferenceValue(context(), "client.number").toInt64(), 1) << "absent counts as 0";
    client->incrementNumber();
    client->incrementNumber();
    EXPECT_EQ(BLPreference::preferenceValue(context(), "client.number").toInt64(), 3);
}

TEST_F(ContactClientTest, BalanceSumsOpenAmountsPerCurrency) {
    BLCurrency* euro = BLCurrency::defaultItemForContext(context());
    euro->setCode(std::string("EUR"));
    BLCurrency* dollar = insert<BLCurrency>();
    dollar->setCode(std::string("USD"));
    BLClient* client = insert<BLClient>();
    client->setCurrency(euro);

    std::map<const BLInvoice*, std::optional<Decimal>> open;
    auto invoice = [&](BLCurrency* currency, std::optional<Decimal> amount) {
        BLInvoice* created = insert<BLInvoice>();
        created->setParentDocument(client);
        created->setCurrency(currency);
        open[created] = amount;
        return created;
    };
    EXPECT_EQ(client->balance(), "");
    EXPECT_FALSE(client->hasOpen());
    EXPECT_FALSE(client->openAmount().has_value());

    invoice(euro, dec("10.5"));
    invoice(nullptr, dec("2.25"));  // The client's currency.
    invoice(dollar, dec("0"));
    BLInvoice* unknown = invoice(euro, std::nullopt);
    (void)unknown;
    EXPECT_EQ(client->balance(), "") << "totals not known yet: nothing is made up";
    EXPECT_FALSE(client->openAmount().has_value());

    modelHooks().invoiceBalance = [&](const BLInvoice& target) { return open[&target]; };
    // 10.5 + 2.25 = 12.75 euros; the dollar sum is 0 and left out.
    EXPECT_EQ(client->balance(), "EUR 12.75");
    EXPECT_TRUE(client->hasOpen());
    ASSERT_TRUE(client->openAmount().has_value());
    EXPECT_EQ(client->openAmount()->toString(), "12.75");

    invoice(dollar, dec("3"));
    EXPECT_EQ(client->balance(), "EUR 12.75, USD 3.00");
    EXPECT_FALSE(client->openAmount().has_value()) << "dollars cannot be added without a rate";

    invoice(dollar, dec("-3"));
    invoice(euro, dec("-12.75"));
    EXPECT_EQ(client->balance(), "") << "sums of exactly 0 are left out";
    EXPECT_FALSE(client->hasOpen());
    EXPECT_EQ(client->openAmount()->toString(), "0");

    invoice(euro, dec("1190.004"));
    EXPECT_EQ(client->balance(), "EUR 1,190.00") << "grouped, two digits, in the display locale";
}

TEST_F(ContactClientTest, AddressAsDefaultReachesEverySubContact) {
    BLClient* client = contactAt({"Hauptstr. 1", "10115", "Berlin", "BE", "DE"});
    BLContact* first = contactAt<BLContact>({"Alte Str. 9", "80331", "München", "BY", "DE"});
    first->setEmail(std::string("a@b.test"));
    first->setParent(client);
    BLContact* second = insert<BLContact>();
    second->setParent(client);
    client->setAddressAsDefault();
    for (BLContact* contact : {first, second}) {
        EXPECT_EQ(contact->address().value_or(""), "Hauptstr. 1");
        EXPECT_EQ(contact->zip().value_or(""), "10115");
        EXPECT_EQ(contact->city().value_or(""), "Berlin");
    }
    EXPECT_EQ(first->state().value_or(""), "BY") << "other fields stay";
    EXPECT_EQ(first->email().value_or(""), "a@b.test");
    EXPECT_FALSE(second->state().has_value());
}

}  // namespace
}  // namespace brassline
