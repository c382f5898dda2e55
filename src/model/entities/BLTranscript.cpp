#include "model/entities/BLTranscript.h"

#include "core/KeyedArchive.h"
#include "core/Localization.h"
#include "core/Log.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

void BLTranscript::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("displayType", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLTranscript&>(object).displayType());
    });
}

std::string BLTranscript::displayType() const {
    std::string text = fixedAttribute(type());
    if (std::optional<std::string> number = name()) {
        text += " (" + *number + ")";
    }
    return text;
}

std::optional<Value> BLTranscript::record() const {
    const Bytes* data = recordData();
    if (data == nullptr) {
        return std::nullopt;
    }
    std::string error;
    std::optional<Value> value = KeyedUnarchiver::unarchiveObjectWithData(*data, &error);
    if (!value) {
        logMessage("Transcript %s: the stored record does not read: %s", fixedAttribute(uid()).c_str(), error.c_str());
    }
    return value;
}

Value::Dictionary BLTranscript::interchangeRecord() const {
    Value::Dictionary result;
    if (std::optional<Value> stored = record()) {
        result["record"] = *stored;
    }
    result["operation"] = Value(localizedString(fixedAttribute(operation())));
    result["type"] = Value(fixedAttribute(type()));
    if (std::optional<Date> when = date()) {
        result["date"] = Value(*when);
    }
    // The local document service hands the transcript out under this address; without the
    // service the port reads 0 and the address names no reachable place, as intended.
    int64_t port = 0;
    if (modelHooks().documentServicePort) {
        port = modelHooks().documentServicePort().value_or(0);
    }
    result["url"] = Value("http://localhost:" + std::to_string(port) + "/document/" + fixedAttribute(uid()));
    return result;
}

}  // namespace brassline
