#pragma once

#include "model/entities/gen/BLPreference.h"

namespace brassline {

// One typed per-document setting. `payload` reads and writes the field that `type`
// names; a uid ending in "@keychain" keeps the payload in the secret store instead.
class BLPreference : public gen::BLPreference {
public:
    static void setupClass(EntityDescription& entity);

    // The preference "<group>.<key>" of the context: the installed controller, else the
    // stored object "BLPref.<group>.<key>"; null when neither knows it.
    static Value preferenceValue(ManagedObjectContext& context, std::string_view key);

    Value payload() const;
    // A value of a class that has no field here (an object reference) is dropped with a log
    // line, leaving type and fields as they were.
    void setPayload(const Value& value);
    bool isKeychainItem() const;
    // {"payload", "type", "uid", "entity"}.
    Value::Dictionary interchangeDictionary() const;
    // "Data of Size <n>" for bytes, the value's text otherwise.
    std::string displayValue() const;
};

}  // namespace brassline
