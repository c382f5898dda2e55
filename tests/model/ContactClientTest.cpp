#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ContactFixture.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLPayment.h"
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

TEST_F(ContactClientTest, BalanceCountsIssuedOpenInvoicesPerCurrencyName) {
    BLCurrency* euro = BLCurrency::defaultItemForContext(context());
    euro->setName(std::string("EUR"));
    BLCurrency* dollar = insert<BLCurrency>();
    dollar->setName(std::string("USD"));
    dollar->setRate(dec("0.9"));  // Euros for one dollar.
    BLClient* client = insert<BLClient>();
    client->setCurrency(euro);

    // An invoice of one untaxed line at `amount`, issued or not, below `parent`.
    auto invoice = [&](BLDocument* parent, BLCurrency* currency, const char* amount, bool issued) {
        BLInvoice* created = insert<BLInvoice>();
        created->setParentDocument(parent);
        created->setCurrency(currency);
        BLCost* line = insert<BLCost>();
        line->setUnitPrice(dec(amount));
        line->setQuantity(Decimal::one());
        line->setParent(created);
        if (issued) {
            created->setDateSent(Date::now());
        }
        created->resetCaches();
        return created;
    };
    // A client whose only invoice is a draft owes nothing.
    BLInvoice* draft = invoice(client, euro, "119", false);
    EXPECT_EQ(client->balance(), "");
    EXPECT_FALSE(client->hasOpen());
    EXPECT_FALSE(client->openAmount().has_value());

    invoice(client, euro, "10.5", true);
    invoice(client, nullptr, "2.25", true);  // Owed in the client's currency.
    invoice(client, dollar, "3", true);
    invoice(draft, euro, "4", true);  // Issued below the draft: counts.
    BLInvoice* settled = invoice(client, euro, "50", true);
    settled->setCompleteModeValue(1);
    BLInvoice* paid = invoice(client, euro, "20", true);
    BLPayment* payment = insert<BLPayment>();
    payment->setAmount(dec("5"));
    payment->setParentDocument(paid);
    paid->resetCaches();
    // Issued below an issued invoice: the one above speaks for it and isn't descended.
    invoice(paid, euro, "7", true);

    // Euros: 10.50 + 2.25 + 4.00 + (20 - 5) = 31.75; the settled 50 and the 119 draft
    // are out. Dollars: 3.00.
    EXPECT_EQ(client->balance(), "EUR 31.75, USD 3.00");
    EXPECT_TRUE(client->hasOpen());
    // In euros, each issued open invoice with its amount: 10.50 + 2.25 + 4.00 + 20.00 +
    // 7.00 + 3 x 0.9 = 46.45.
    ASSERT_TRUE(client->openAmount().has_value());
    EXPECT_EQ(client->openAmount()->fixedValue().toString(), "46.45");

    invoice(client, dollar, "-3", true);
    invoice(client, euro, "-31.75", true);
    EXPECT_EQ(client->balance(), "") << "sums of exactly 0 are left out";
    EXPECT_FALSE(client->hasOpen());

    invoice(client, euro, "1190.004", true);
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
