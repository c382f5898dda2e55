#include <gtest/gtest.h>

#include "EntityFixture.h"
#include "model/FetchRequest.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLThread.h"

namespace brassline {
namespace {

using ThreadAndTranslationTest = EntityFixture;

TEST_F(ThreadAndTranslationTest, AddDocumentInsertsAnInvoiceUnderTheThreadAfterTheDelay) {
    BLThread* thread = insert<BLThread>();
    thread->addDocument();
    // Nothing yet: the invoice comes on a later turn, once the delay has passed.
    RunLoop::main().runUntilIdle();
    EXPECT_TRUE(thread->childs().empty());
    RunLoop::main().runForInterval(0.3);
    ASSERT_EQ(thread->childs().size(), 1u);
    EXPECT_NE(dynamic_cast<BLInvoice*>(thread->childs()[0]), nullptr);
}

TEST_F(ThreadAndTranslationTest, AddDocumentOnADeletedThreadInsertsNothing) {
    BLThread* thread = insert<BLThread>();
    thread->addDocument();
    context().deleteObject(thread);
    RunLoop::main().runForInterval(0.3);
    EXPECT_EQ(context().countForFetchRequest(FetchRequest("Invoice")), std::optional<size_t>(0));
}

TEST_F(ThreadAndTranslationTest, TranslationUsesTheContactsLanguageThenTheClients) {
    BLLanguage* french = insert<BLLanguage>();
    french->setName(std::string("fr"));
    BLLanguage* german = insert<BLLanguage>();
    german->setName(std::string("de"));
    modelHooks().translateWithLanguage = [](const BLLanguage& language,
                                            std::string_view text) -> std::optional<std::string> {
        if (text != "Invoice") {
            return std::nullopt;
        }
        return language.name() == std::optional<std::string>("fr") ? "Facture" : "Rechnung";
    };
    BLClient* client = insert<BLClient>();
    client->setLanguage(german);
    BLInvoice* invoice = insert<BLInvoice>();
    invoice->setParentDocument(client);
    EXPECT_EQ(invoice->translateString("Invoice"), "Rechnung");
    // A text the table lacks stays as it is.
    EXPECT_EQ(invoice->translateString("Estimate"), "Estimate");

    BLContact* person = insert<BLContact>();
    person->setLanguage(french);
    invoice->setContact(person);
    EXPECT_EQ(invoice->translateString("Invoice"), "Facture");

    // Without a translation table installed, every text stays.
    modelHooks().translateWithLanguage = nullptr;
    EXPECT_EQ(invoice->translateString("Invoice"), "Invoice");
}

}  // namespace
}  // namespace brassline
