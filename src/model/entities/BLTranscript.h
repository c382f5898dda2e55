#pragma once

#include "model/entities/gen/BLTranscript.h"

namespace brassline {

// An audit row: what a document was (label, number, record, frozen PDF) when it was
// unlocked or otherwise changed after issue. Owned by its context; main thread.
class BLTranscript : public gen::BLTranscript {
public:
    static void setupClass(EntityDescription& entity);

    // "<type> (<name>)", or the type alone for a nameless document.
    std::string displayType() const;
    std::optional<Date> dateSent() const { return date(); }
    std::optional<Date> datePaid() const { return date(); }
    // The stored record unarchived; nothing without recordData or when it does not read.
    std::optional<Value> record() const;
    // {"record" (when present), "operation" (localised), "type", "date", "url"}.
    Value::Dictionary interchangeRecord() const;
};

}  // namespace brassline
