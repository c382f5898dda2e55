#include "lifecycle/TagCommands.h"

#include <optional>
#include <ostream>
#include <vector>

#include "core/Value.h"
#include "lifecycle/BLLayoutTags.h"
#include "lifecycle/BLPlaceHolderWrapper.h"
#include "lifecycle/CommandSupport.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLContainer.h"
#include "model/entities/BLSendable.h"

namespace brassline::tagcommands {

namespace {

using exitcode::kBadInput;

void printSection(const LayoutTagSection& section, const std::string& indent, std::ostream& out) {
    out << indent << section.name << ":\n";
    for (const std::string& tag : section.tags) {
        out << indent << "  " << tag << "\n";
    }
    for (const LayoutTagSection& child : section.sections) {
        printSection(child, indent + "  ", out);
    }
}

Value sectionRecord(const LayoutTagSection& section) {
    Value::Array tags(section.tags.begin(), section.tags.end());
    Value::Array children;
    for (const LayoutTagSection& child : section.sections) {
        children.push_back(sectionRecord(child));
    }
    Value::Dictionary record;
    record["name"] = Value(section.name);
    record["tags"] = Value(std::move(tags));
    record["sections"] = Value(std::move(children));
    return Value(std::move(record));
}

// The document's own object and every item below it, depth first in item order.
void collectItems(BLContainer& container, std::vector<BLBase*>& objects) {
    for (BLContainer* child : container.childs()) {
        objects.push_back(child);
        collectItems(*child, objects);
    }
}

}  // namespace

int tags(const std::string& path, bool json, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    BLLayoutTags catalogue;
    const std::vector<LayoutTagSection>& sections = catalogue.plainTags(file->context());
    if (json) {
        Value::Array records;
        for (const LayoutTagSection& section : sections) {
            records.push_back(sectionRecord(section));
        }
        out << Value(std::move(records)).toJSON() << "\n";
        return 0;
    }
    for (const LayoutTagSection& section : sections) {
        printSection(section, "", out);
    }
    return 0;
}

int placeholders(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    ManagedObject* object = file->objectWithUid(uid, err);
    if (object == nullptr) {
        return kBadInput;
    }
    auto* sendable = dynamic_cast<BLSendable*>(object);
    if (sendable == nullptr) {
        err << "brassline: " << uid << " is not a document\n";
        return kBadInput;
    }
    std::vector<BLBase*> objects = {sendable};
    collectItems(*sendable, objects);
    const std::vector<BLPlaceHolderWrapper> wrappers =
        BLPlaceHolderWrapper::wrappersForManagedObjects(objects, sendable);
    Value::Array records;
    for (const BLPlaceHolderWrapper& wrapper : wrappers) {
        const std::string text = wrapper.text();
        Value::Array fields;
        for (const TextRange& range : placeHolderRanges(text)) {
            fields.push_back(Value(text.substr(range.location, range.length)));
        }
        Value::Array tokens;
        for (const PlaceHolderToken& token : wrapper.tokens()) {
            tokens.push_back(Value(token.record()));
        }
        if (!json) {
            out << BLBase::fixedAttribute(wrapper.managedObject()->uid()) << "\t" << wrapper.field() << "\t" << text
                << "\n";
            for (const Value& field : fields) {
                out << "  field\t" << field.toString() << "\n";
            }
            for (const PlaceHolderToken& token : wrapper.tokens()) {
                out << "  " << token.type << "\t" << token.value << "\n";
            }
            continue;
        }
        Value::Dictionary record;
        record["uid"] = Value(BLBase::fixedAttribute(wrapper.managedObject()->uid()));
        record["field"] = Value(wrapper.field());
        record["text"] = Value(text);
        record["fields"] = Value(std::move(fields));
        record["tokens"] = Value(std::move(tokens));
        records.push_back(Value(std::move(record)));
    }
    if (json) {
        out << Value(std::move(records)).toJSON() << "\n";
    }
    return 0;
}

}  // namespace brassline::tagcommands
