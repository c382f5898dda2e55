#include <filesystem>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "EntityFixture.h"
#include "core/KeyedArchive.h"
#include "model/entities/BLCustomField.h"
#include "model/entities/BLCustomFieldSet.h"
#include "model/entities/BLCustomValue.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLMetaValue.h"
#include "model/entities/BLPreference.h"
#include "model/entities/SecretStore.h"

namespace brassline {
namespace {

using PreferenceTest = EntityFixture;

TEST_F(PreferenceTest, PayloadIsStoredInTheFieldItsTypeNames) {
    Value::Dictionary dictionary;
    dictionary["rate"] = Value(Decimal(19));
    struct Row {
        const char* what;
        Value value;
        const char* type;
    };
    const Row rows[] = {
        {"text", Value("Zahlbar sofort"), "NSString"},
        {"number", Value(Decimal::parse("2.5").value()), "NSNumber"},
        {"integer", Value(14), "NSNumber"},
        {"date", Value(Date(86400.0)), "NSDate"},
        {"bytes", Value(Bytes{0, 1, 2}), "NSData"},
        {"dictionary", Value(dictionary), "NSDictionary"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        BLPreference* preference = insert<BLPreference>();
        preference->setPayload(row.value);
        EXPECT_EQ(preference->type().value_or(""), row.type);
        EXPECT_EQ(preference->payload(), row.value);
    }
}

TEST_F(PreferenceTest, AnArrayReadsBackAsItsArchiveBytes) {
    BLPreference* preference = insert<BLPreference>();
    Value array(Value::Array{Value("a"), Value("b")});
    preference->setPayload(array);
    EXPECT_EQ(preference->type().value_or(""), "NSData");
    Value payload = preference->payload();
    const Bytes* bytes = payload.bytes();
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(*bytes), std::optional<Value>(array));
    EXPECT_EQ(preference->displayValue(), "Data of Size " + std::to_string(bytes->size()));
}

TEST_F(PreferenceTest, NullClearsTheFieldsAndAnUnsupportedClassChangesNothing) {
    BLPreference* preference = insert<BLPreference>();
    preference->setPayload(Value("kept"));
    BLPreference* other = insert<BLPreference>();
    preference->setPayload(Value(static_cast<Object*>(other)));
    EXPECT_EQ(preference->type().value_or(""), "NSString");
    EXPECT_EQ(preference->payload(), Value("kept"));

    preference->setNumber(Decimal(3));
    preference->setPayload(Value());
    EXPECT_EQ(preference->type().value_or(""), "NSNull");
    EXPECT_EQ(preference->string().value_or("?"), "");
    ASSERT_NE(preference->data(), nullptr);
    EXPECT_TRUE(preference->data()->empty());
    EXPECT_FALSE(preference->number().has_value());
    EXPECT_TRUE(preference->payload().isNull());

    Value::Dictionary record = preference->interchangeDictionary();
    EXPECT_EQ(record["type"], Value("NSNull"));
    EXPECT_EQ(record["entity"], Value("Preference"));
    EXPECT_EQ(record["uid"], Value(*preference->uid()));
}

TEST_F(PreferenceTest, KeychainPreferencesKeepTheirPayloadInTheSecretStore) {
    std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("brassline-secrets-" + *insert<BLPreference>()->uid());
    SecretStore::useDirectoryForTesting(directory.string());
    auto* preference = static_cast<BLPreference*>(
        BLBase::insertInManagedObjectContext(context(), "Preference", "BLPref.mail.password@keychain"));
    preference->setPayload(Value("s3cret"));
    ASSERT_TRUE(preference->string().has_value()) << "the account is made on first use";
    const std::string account = *preference->string();
    EXPECT_EQ(preference->type().value_or(""), "NSKeychain");
    EXPECT_EQ(preference->payload(), Value("s3cret"));

    preference->setPayload(Value("changed"));
    EXPECT_EQ(preference->string().value_or(""), account);
    EXPECT_EQ(preference->payload(), Value("changed"));

    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        ++files;
        struct stat info {};
        ASSERT_EQ(::stat(entry.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u);
    }
    EXPECT_EQ(files, 1u);
    SecretStore::useDirectoryForTesting("");
    std::filesystem::remove_all(directory);
}

TEST_F(PreferenceTest, MetaValuesAreFoundByNameAndRemovedByNull) {
    BLInvoice* invoice = insert<BLInvoice>();
    invoice->setMetaValue(Value("XRechnung"), "einvoice.profile");
    invoice->setMetaValue(Value(3), "einvoice.version", true);
    EXPECT_EQ(invoice->metaValueForKey("einvoice.profile"), Value("XRechnung"));
    EXPECT_EQ(invoice->metaValueForKey("einvoice.version"), Value(Decimal(3)));
    EXPECT_EQ(invoice->metaValues().size(), 2u);

    invoice->setMetaValue(Value("ZUGFeRD"), "einvoice.profile");
    EXPECT_EQ(invoice->metaValues().size(), 2u);
    EXPECT_EQ(invoice->metaValueForKey("einvoice.profile"), Value("ZUGFeRD"));

    auto* copy = dynamic_cast<BLInvoice*>(invoice->clone());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->metaValueForKey("einvoice.profile"), Value("ZUGFeRD"));
    EXPECT_TRUE(copy->metaValueForKey("einvoice.version").isNull()) << "doNotClone stays behind";

    BLMetaValue* removed = invoice->metaValues()[0];
    invoice->setMetaValue(Value(), std::string(removed->name().value_or("")));
    EXPECT_EQ(invoice->metaValues().size(), 1u);
    EXPECT_TRUE(removed->isDeleted());
}

TEST_F(PreferenceTest, CustomFieldsAreReachedThroughTheAccessorKey) {
    auto* set = static_cast<BLCustomFieldSet*>(BLBase::insertInManagedObjectContext(
        context(), "CustomFieldSet", "com.orvane.Brassline.customFieldSet.Invoice"));
    BLCustomField* field = insert<BLCustomField>();
    field->setName(std::string("Order number"));
    set->addFieldsObject(field);
    BLInvoice* invoice = insert<BLInvoice>();

    invoice->setValueForCustomField(Value("PO-77"), "Order number");
    EXPECT_EQ(invoice->customValues().size(), 1u);
    EXPECT_EQ(invoice->valueForKeyPath("customFieldAccessor.Order number"), Value("PO-77"));
    invoice->setValueForKey(Value("PO-78"), "customFieldAccessor.Order number");
    EXPECT_EQ(invoice->customValues().size(), 1u);
    EXPECT_EQ(invoice->valueForCustomField("Order number"), Value("PO-78"));

    invoice->setValueForCustomField(Value("x"), "No such field");
    EXPECT_EQ(invoice->customValues().size(), 1u);
    EXPECT_TRUE(invoice->valueForKeyPath("customFieldAccessor.No such field").isNull());
}

}  // namespace
}  // namespace brassline
