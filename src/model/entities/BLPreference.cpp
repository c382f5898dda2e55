#include "model/entities/BLPreference.h"

#include "core/KeyedArchive.h"
#include "core/Log.h"
#include "core/UniqueId.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"
#include "model/entities/SecretStore.h"

namespace brassline {

void BLPreference::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty(
        "payload",
        [](const ManagedObject& object) -> Value { return static_cast<const BLPreference&>(object).payload(); },
        [](ManagedObject& object, const Value& value) { static_cast<BLPreference&>(object).setPayload(value); });
    entity.registerDerivedProperty("displayValue", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLPreference&>(object).displayValue());
    });
}

Value BLPreference::preferenceValue(ManagedObjectContext& context, std::string_view key) {
    if (modelHooks().preferenceValue) {
        return modelHooks().preferenceValue(context, key);
    }
    std::string uid = std::string(kPreferenceUIDPrefix) + std::string(key);
    auto* preference = dynamic_cast<BLPreference*>(context.objectWithUid(entityDescription(), uid));
    return preference != nullptr ? preference->payload() : Value();
}

bool BLPreference::isKeychainItem() const {
    std::optional<std::string> ownUid = uid();
    const std::string_view suffix = kKeychainUIDSuffix;
    return ownUid && ownUid->size() >= suffix.size() &&
           std::string_view(*ownUid).substr(ownUid->size() - suffix.size()) == suffix;
}

Value BLPreference::payload() const {
    if (isKeychainItem()) {
        std::optional<std::string> account = string();
        if (!account) {
            return Value();
        }
        std::optional<std::string> secret = SecretStore::shared().readSecret(*uid(), *account);
        return secret ? Value(*secret) : Value();
    }
    const std::string kind = type().value_or(kPreferenceTypeNull);
    if (kind == kPreferenceTypeString) {
        std::optional<std::string> text = string();
        return text ? Value(*text) : Value();
    }
    if (kind == kPreferenceTypeNumber) {
        std::optional<Decimal> value = number();
        return value ? Value(*value) : Value();
    }
    if (kind == kPreferenceTypeDate) {
        std::optional<Date> value = date();
        return value ? Value(*value) : Value();
    }
    if (kind == kPreferenceTypeData) {
        const Bytes* bytes = data();
        return bytes != nullptr ? Value(*bytes) : Value();
    }
    if (kind == kPreferenceTypeDictionary) {
        const Bytes* bytes = data();
        if (bytes == nullptr) {
            return Value();
        }
        std::string error;
        std::optional<Value> dictionary = KeyedUnarchiver::unarchiveObjectWithData(*bytes, &error);
        if (!dictionary) {
            logMessage("Preference %@ holds no readable dictionary: %@", uid().value_or(""), error);
            return Value();
        }
        return *dictionary;
    }
    return Value();
}

void BLPreference::setPayload(const Value& value) {
    if (isKeychainItem()) {
        std::optional<std::string> account = string();
        if (!account) {
            account = uniqueBase64String();
            setString(*account);
        }
        SecretStore& store = SecretStore::shared();
        store.removeSecret(*uid(), *account);
        if (!value.isNull()) {
            store.storeSecret(*uid(), *account, value.toString());
        }
        if (type().value_or("") != kPreferenceTypeKeychain) {
            setType(std::string(kPreferenceTypeKeychain));
        }
        return;
    }
    switch (value.type()) {
        case Value::Type::Null:
            setType(std::string(kPreferenceTypeNull));
            setString(std::string());
            setData(Bytes());
            setNumber(std::nullopt);
            setDate(std::nullopt);
            return;
        case Value::Type::String:
            setType(std::string(kPreferenceTypeString));
            setString(*value.string());
            return;
        case Value::Type::Bool:
        case Value::Type::Integer:
        case Value::Type::Double:
        case Value::Type::Decimal:
            setType(std::string(kPreferenceTypeNumber));
            setNumber(value.toDecimal());
            return;
        case Value::Type::Date:
            setType(std::string(kPreferenceTypeDate));
            setDate(*value.date());
            return;
        case Value::Type::Bytes:
            setType(std::string(kPreferenceTypeData));
            setData(*value.bytes());
            return;
        case Value::Type::Dictionary:
            setType(std::string(kPreferenceTypeDictionary));
            setData(KeyedArchiver::archivedDataWithRootObject(value));
            return;
        case Value::Type::Array:
            // Archived like a dictionary but typed as bytes: it reads back as the archive's bytes.
            setType(std::string(kPreferenceTypeData));
            setData(KeyedArchiver::archivedDataWithRootObject(value));
            return;
        case Value::Type::Object:
            break;
    }
    logMessage("Preference %@: a value of class %@ can't be stored", uid().value_or(""),
               value.object() != nullptr ? std::string(value.object()->className()) : std::string("unknown"));
}

Value::Dictionary BLPreference::interchangeDictionary() const {
    Value::Dictionary result;
    result["payload"] = payload();
    result["type"] = type() ? Value(*type()) : Value();
    result["uid"] = uid() ? Value(*uid()) : Value();
    result["entity"] = Value(entityName());
    return result;
}

std::string BLPreference::displayValue() const {
    Value value = payload();
    if (const Bytes* bytes = value.bytes()) {
        return formatMessage(kDataOfSizeFormat, static_cast<long>(bytes->size()));
    }
    return value.toString();
}

}  // namespace brassline
