#include "store/CompanyFileCommands.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <ostream>
#include <string_view>

#include "core/Date.h"
#include "core/Decimal.h"
#include "core/Log.h"
#include "core/Value.h"
#include "model/FetchRequest.h"
#include "model/ManagedObject.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLBase.h"
#include "model/entities/UserEdits.h"
#include "model/entities/gen/BrasslineModel.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"
#include "store/BLSetupDefaultsController.h"
#include "store/CommandFile.h"
#include "store/SQLiteStore.h"
#include "store/StoreMessages.h"
#include "store/URLCommands.h"

namespace brassline::companyfile {

namespace {

using exitcode::kBadInput;
using exitcode::kNotAvailable;
using exitcode::kSaveFailed;

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return result;
}

std::string uidOf(const ManagedObject& object) {
    return object.valueForKey("uid").toString();
}

ManagedObject* objectWithUid(ManagedObjectContext& context, std::string_view uid) {
    const EntityDescription* base = context.entityNamed("Base");
    return base != nullptr ? context.objectWithUid(*base, uid) : nullptr;
}

std::optional<int64_t> parseInteger(std::string_view text, int64_t low, int64_t high) {
    int64_t value = 0;
    auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (code != std::errc() || end != text.data() + text.size() || value < low || value > high) {
        return std::nullopt;
    }
    return value;
}

// The text of a KEY=VALUE pair as a value of the key's attribute type or the target of a
// to-one relationship; nothing with the reason in `error`. An empty text clears any key
// but a string one.
std::optional<Value> parseValue(ManagedObjectContext& context, const EntityDescription& entity, std::string_view key,
                                std::string_view text, std::string& error) {
    const EntityDescription::Property* property = entity.propertyForKey(key);
    if (property == nullptr) {
        error = "unknown key '" + std::string(key) + "' for entity " + entity.name();
        return std::nullopt;
    }
    if (property->kind == EntityDescription::Property::Kind::ToOne) {
        if (text.empty()) {
            return Value();
        }
        const RelationshipDescription& relationship = *property->relationship;
        if (ManagedObject* target = context.objectWithUid(*relationship.destination, text)) {
            return Value(static_cast<Object*>(target));
        }
        if (ManagedObject* other = objectWithUid(context, text)) {
            error = "'" + std::string(text) + "' is a " + other->entityName() + ", but " + std::string(key) +
                    " takes a " + relationship.destination->name();
        } else {
            error = "no object with uid '" + std::string(text) + "' for " + std::string(key);
        }
        return std::nullopt;
    }
    if (property->kind == EntityDescription::Property::Kind::Derived && property->setter != nullptr) {
        // A derived key with a setter takes an object by uid, or the text itself.
        if (ManagedObject* target = text.empty() ? nullptr : objectWithUid(context, text)) {
            return Value(static_cast<Object*>(target));
        }
        return text.empty() ? Value() : Value(text);
    }
    if (property->kind != EntityDescription::Property::Kind::Attribute) {
        error = "'" + std::string(key) + "' of " + entity.name() + " can't be set here (not a stored value or to-one)";
        return std::nullopt;
    }
    const AttributeDescription& attribute = *property->attribute;
    if (text.empty() && attribute.type != AttributeType::String) {
        return Value();
    }
    auto bad = [&](std::string_view what) {
        error = "bad " + std::string(what) + " for " + std::string(key) + ": '" + std::string(text) + "'";
        return std::nullopt;
    };
    switch (attribute.type) {
        case AttributeType::String:
            return Value(text);
        case AttributeType::Decimal: {
            std::optional<Decimal> decimal = Decimal::parse(text);
            if (!decimal || decimal->isNaN()) {
                return bad("decimal");
            }
            return Value(*decimal);
        }
        case AttributeType::Date: {
            std::optional<Date> date = Date::parseISO8601(text);
            if (!date) {
                return bad("date (ISO 8601, such as 2026-11-22)");
            }
            return Value(*date);
        }
        case AttributeType::Bool: {
            std::string word = lower(text);
            if (word == "yes" || word == "true" || word == "1") {
                return Value(true);
            }
            if (word == "no" || word == "false" || word == "0") {
                return Value(false);
            }
            return bad("bool (yes/no/true/false/1/0)");
        }
        case AttributeType::Int16:
        case AttributeType::Int32:
        case AttributeType::Int64: {
            int64_t low = std::numeric_limits<int64_t>::min();
            int64_t high = std::numeric_limits<int64_t>::max();
            if (attribute.type == AttributeType::Int16) {
                low = std::numeric_limits<int16_t>::min();
                high = std::numeric_limits<int16_t>::max();
            } else if (attribute.type == AttributeType::Int32) {
                low = std::numeric_limits<int32_t>::min();
                high = std::numeric_limits<int32_t>::max();
            }
            std::optional<int64_t> integer = parseInteger(text, low, high);
            if (!integer) {
                return bad(std::string(attributeTypeName(attribute.type)) + " integer");
            }
            return Value(*integer);
        }
        case AttributeType::Double: {
            std::string copy(text);
            char* end = nullptr;
            errno = 0;
            double number = std::strtod(copy.c_str(), &end);
            if (end != copy.c_str() + copy.size() || errno != 0) {
                return bad("number");
            }
            return Value(number);
        }
        case AttributeType::Data:
            error = "'" + std::string(key) + "' holds data, which can't be set from the command line";
            return std::nullopt;
    }
    return bad("value");
}

using Assignment = std::pair<std::string, Value>;

// Every KEY=VALUE pair parsed against `entity`, or nothing after naming the first bad one.
std::optional<std::vector<Assignment>> parseAssignments(ManagedObjectContext& context, const EntityDescription& entity,
                                                        const std::vector<std::string>& assignments,
                                                        std::ostream& err) {
    std::vector<Assignment> result;
    for (const std::string& assignment : assignments) {
        size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0) {
            err << "brassline: expected KEY=VALUE, got '" << assignment << "'\n";
            return std::nullopt;
        }
        std::string key = assignment.substr(0, equals);
        std::string error;
        std::optional<Value> value =
            parseValue(context, entity, key, std::string_view(assignment).substr(equals + 1), error);
        if (!value) {
            err << "brassline: " << error << "\n";
            return std::nullopt;
        }
        result.emplace_back(std::move(key), std::move(*value));
    }
    return result;
}

// Whether the first step of `keyPath` names a property of `entity`; the reason otherwise.
// Later steps may pass through collections and operators and are left to key-value coding.
bool checkKeyPath(const EntityDescription& entity, std::string_view keyPath, std::ostream& err) {
    std::string_view first = keyPath.substr(0, keyPath.find('.'));
    if (!first.empty() && first.front() == '@') {
        return true;
    }
    if (first.empty() || entity.propertyForKey(first) == nullptr) {
        err << "brassline: unknown key '" << first << "' for entity " << entity.name() << "\n";
        return false;
    }
    return true;
}

// A value with the JSON-less kinds made plain: decimals as canonical text, dates as
// ISO 8601, objects as their uid.
Value plainValue(const Value& value) {
    switch (value.type()) {
        case Value::Type::Decimal:
            return Value(value.decimal()->toString());
        case Value::Type::Date:
            return Value(value.date()->iso8601String());
        case Value::Type::Object: {
            const auto* object = dynamic_cast<const ManagedObject*>(value.object());
            return object != nullptr ? Value(uidOf(*object)) : Value();
        }
        case Value::Type::Array: {
            Value::Array array;
            for (const Value& element : *value.array()) {
                array.push_back(plainValue(element));
            }
            return Value(std::move(array));
        }
        case Value::Type::Dictionary: {
            Value::Dictionary dictionary;
            for (const auto& [key, element] : *value.dictionary()) {
                dictionary[key] = plainValue(element);
            }
            return Value(std::move(dictionary));
        }
        default:
            return value;
    }
}

// One value on one line: bools 1/0, absent empty, collections as JSON.
std::string lineText(const Value& value) {
    switch (value.type()) {
        case Value::Type::Null:
            return "";
        case Value::Type::Bool:
            return *value.boolean() ? "1" : "0";
        case Value::Type::Array:
        case Value::Type::Dictionary:
        case Value::Type::Bytes:
            return plainValue(value).toJSON();
        default:
            return plainValue(value).toString();
    }
}

const EntityDescription* concreteEntity(ManagedObjectContext& context, const std::string& name, std::ostream& err,
                                        bool allowAbstract) {
    const EntityDescription* entity = context.entityNamed(name);
    if (entity == nullptr) {
        err << "brassline: unknown entity '" << name << "'\n";
        return nullptr;
    }
    if (entity->isAbstract() && !allowAbstract) {
        err << "brassline: entity " << name << " is abstract; name one of its concrete entities\n";
        return nullptr;
    }
    return entity;
}

// The preamble of the commands on one object: opens the file and finds the object by
// uid; null after naming what failed.
ManagedObject* openWithObject(std::optional<CommandFile>& file, const std::string& path, const std::string& uid,
                              std::ostream& err) {
    file = CommandFile::open(path, err);
    return file ? file->objectWithUid(uid, err) : nullptr;
}

// Whether the user may make these assignments by hand: an issued document and its items
// are read-only, and so is an issued document that an assignment would hang an item under.
bool checkAssignments(const ManagedObject& object, const std::vector<Assignment>& assignments, std::ostream& err) {
    for (const auto& [key, value] : assignments) {
        EditCheck check = checkUserEdit(object, key);
        const RelationshipDescription* relationship = object.entity().relationshipNamed(key);
        const auto* target = dynamic_cast<const ManagedObject*>(value.object());
        if (check.allowed() && relationship != nullptr && relationship->inverse != nullptr && target != nullptr) {
            check = checkUserEdit(*target, relationship->inverse->name);
        }
        if (!check.allowed()) {
            err << "brassline: " << check.refusal << "\n";
            return false;
        }
    }
    return true;
}

void applyAssignments(ManagedObject& object, const std::vector<Assignment>& assignments) {
    for (const auto& [key, value] : assignments) {
        object.setValueForKey(value, key);
    }
}

}  // namespace

int newFile(const std::string& path, const NewOptions& options, std::ostream& out, std::ostream& err) {
    Value::Array taxes;
    for (const std::string& tax : options.taxes) {
        size_t equals = tax.find('=');
        std::optional<Decimal> percent =
            equals == std::string::npos ? std::nullopt : Decimal::parse(std::string_view(tax).substr(equals + 1));
        if (equals == 0 || !percent || percent->isNaN()) {
            err << "brassline: expected --tax NAME=PERCENT, got '" << tax << "'\n";
            return kBadInput;
        }
        taxes.push_back(Value(Value::Dictionary{{"name", Value(tax.substr(0, equals))}, {"value", Value(*percent)}}));
    }
    Value::Dictionary setup{{"vatID", Value(options.vatID)},
                            {"taxable", Value(options.taxable)},
                            {"useGrossPrices", Value(options.useGrossPrices)},
                            {"taxes", Value(std::move(taxes))},
                            {"patterns", Value(options.patterns)}};
    std::optional<CommandFile> file = CommandFile::create(path, setup, err);
    if (!file) {
        return kBadInput;
    }
    out << "created " << path << " (" << file->store().documentIdentifier() << ")\n";
    return 0;
}

int info(const std::string& path, bool json, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    ManagedObjectContext& context = file->context();
    Value::Dictionary counts;
    for (const auto& entity : context.model().entities()) {
        if (entity->isAbstract()) {
            continue;
        }
        FetchRequest request(entity->name());
        request.setIncludesSubentities(false);
        size_t count = context.countForFetchRequest(request).value_or(0);
        if (count > 0) {
            counts[entity->name()] = Value(static_cast<int64_t>(count));
        }
    }
    const PackageInfo& package = file->store().packageInfo();
    if (json) {
        Value::Dictionary result{{"path", Value(path)},
                                 {"documentIdentifier", Value(package.documentIdentifier)},
                                 {"storeIdentifier", Value(package.storeIdentifier)},
                                 {"modelName", Value(package.modelName)},
                                 {"modelVersion", Value(file->store().modelVersion())},
                                 {"changeSets", Value(file->store().changeSetCount())},
                                 {"objects", Value(counts)}};
        out << Value(std::move(result)).toJSON(true) << "\n";
        return 0;
    }
    out << "file:       " << CompanyPackage::displayName(path) << "\n"
        << "identifier: " << package.documentIdentifier << "\n"
        << "store:      " << package.storeIdentifier << "\n"
        << "model:      " << package.modelName << " " << file->store().modelVersion() << "\n"
        << "change sets: " << file->store().changeSetCount() << "\n"
        << "objects:\n";
    for (const auto& [name, count] : counts) {
        out << "  " << name << ": " << count.toInt64() << "\n";
    }
    return 0;
}

int insert(const std::string& path, const std::string& entityName, const std::vector<std::string>& assignments,
           std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    ManagedObjectContext& context = file->context();
    const EntityDescription* entity = concreteEntity(context, entityName, err, false);
    if (entity == nullptr) {
        return kBadInput;
    }
    std::optional<std::vector<Assignment>> parsed = parseAssignments(context, *entity, assignments, err);
    if (!parsed) {
        return kBadInput;
    }
    auto* object = dynamic_cast<BLBase*>(context.insertNewObject(*entity));
    if (object == nullptr) {
        err << "brassline: can't insert an object of entity " << entityName << "\n";
        return kBadInput;
    }
    // As a user action: set-up first, then the values through their setters in order.
    // Refused, the new object goes unsaved with the rest of the command's context.
    object->setup();
    if (!checkAssignments(*object, *parsed, err)) {
        return kBadInput;
    }
    applyAssignments(*object, *parsed);
    if (!file->save(err)) {
        return kSaveFailed;
    }
    out << uidOf(*object) << "\n";
    return 0;
}

int set(const std::string& path, const std::string& uid, const std::vector<std::string>& assignments,
        std::ostream& /*out*/, std::ostream& err) {
    std::optional<CommandFile> file;
    ManagedObject* object = openWithObject(file, path, uid, err);
    if (object == nullptr) {
        return kBadInput;
    }
    std::optional<std::vector<Assignment>> parsed =
        parseAssignments(file->context(), object->entity(), assignments, err);
    if (!parsed || !checkAssignments(*object, *parsed, err)) {
        return kBadInput;
    }
    applyAssignments(*object, *parsed);
    return file->save(err) ? 0 : kSaveFailed;
}

int get(const std::string& path, const std::string& uid, const std::vector<std::string>& keyPaths, bool json,
        std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file;
    ManagedObject* object = openWithObject(file, path, uid, err);
    if (object == nullptr) {
        return kBadInput;
    }
    for (const std::string& keyPath : keyPaths) {
        if (!checkKeyPath(object->entity(), keyPath, err)) {
            return kBadInput;
        }
    }
    Value::Dictionary result;
    for (const std::string& keyPath : keyPaths) {
        Value value = object->valueForKeyPath(keyPath);
        if (json) {
            result[keyPath] = plainValue(value);
        } else {
            out << lineText(value) << "\n";
        }
    }
    if (json) {
        out << Value(std::move(result)).toJSON() << "\n";
    }
    return 0;
}

int fetch(const std::string& path, const std::string& entityName, const FetchOptions& options, std::ostream& out,
          std::ostream& err) {
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    ManagedObjectContext& context = file->context();
    const EntityDescription* entity = concreteEntity(context, entityName, err, true);
    if (entity == nullptr) {
        return kBadInput;
    }
    FetchRequest request(entity->name());
    std::string error;
    if (!options.predicate.empty() && !request.setPredicateFormat(options.predicate, {}, &error)) {
        err << "brassline: bad predicate '" << options.predicate << "': " << error << "\n";
        return kBadInput;
    }
    std::vector<SortDescriptor> sort;
    for (const std::string& item : options.sort) {
        SortDescriptor descriptor;
        size_t colon = item.find(':');
        descriptor.key = item.substr(0, colon);
        std::string direction = colon == std::string::npos ? "asc" : lower(item.substr(colon + 1));
        if (direction != "asc" && direction != "desc") {
            err << "brassline: bad sort direction in '" << item << "' (asc or desc)\n";
            return kBadInput;
        }
        descriptor.ascending = direction == "asc";
        if (!checkKeyPath(*entity, descriptor.key, err)) {
            return kBadInput;
        }
        sort.push_back(std::move(descriptor));
    }
    for (const std::string& key : options.keys) {
        if (!checkKeyPath(*entity, key, err)) {
            return kBadInput;
        }
    }
    request.setSortDescriptors(std::move(sort));
    std::optional<std::vector<ManagedObject*>> objects = context.executeFetchRequest(request, &error);
    if (!objects) {
        err << "brassline: the fetch failed: " << error << "\n";
        return kBadInput;
    }
    for (ManagedObject* object : *objects) {
        if (options.json) {
            Value::Dictionary record{{"uid", Value(uidOf(*object))}, {"entity", Value(object->entityName())}};
            for (const std::string& key : options.keys) {
                record[key] = plainValue(object->valueForKeyPath(key));
            }
            out << Value(std::move(record)).toJSON() << "\n";
            continue;
        }
        out << uidOf(*object);
        for (const std::string& key : options.keys) {
            out << "\t" << lineText(object->valueForKeyPath(key));
        }
        out << "\n";
    }
    return 0;
}

int remove(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file;
    ManagedObject* object = openWithObject(file, path, uid, err);
    if (object == nullptr) {
        return kBadInput;
    }
    std::string entityName = object->entityName();
    if (EditCheck check = checkUserDeletion(*object); !check.allowed()) {
        err << "brassline: " << check.refusal << "\n";
        return kBadInput;
    }
    std::string error;
    if (!file->context().deleteObject(object, &error)) {
        err << "brassline: " << entityName << " '" << uid << "' can't be deleted: " << error << "\n";
        return kBadInput;
    }
    if (!file->save(err)) {
        return kSaveFailed;
    }
    out << "deleted " << entityName << " " << uid << "\n";
    return 0;
}

int exportSQLite(const std::string& path, const std::string& outPath, std::ostream& out, std::ostream& err,
                 bool force) {
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    if (std::optional<StoreError> error = file->store().exportDatabaseToSQLite(outPath, force)) {
        err << "brassline: " << error->message;
        if (error->code == kExportSQLiteTargetExistsCode) {
            err << " Add --force to replace it.";
        }
        err << " (" << error->domain << " " << error->code << ")\n";
        const bool refused =
            error->code == kExportSQLiteTargetExistsCode || error->code == kExportSQLiteInsidePackageCode;
        return refused ? kBadInput : kSaveFailed;
    }
    out << "exported " << path << " to " << outPath << "\n";
    return 0;
}

int url(const std::string& path, const std::string& url, std::ostream& out, std::ostream& err) {
    std::string error;
    std::optional<URLRequest> request = URLRequest::parse(url, &error);
    if (!request) {
        err << "brassline: " << error << "\n";
        return kBadInput;
    }
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    BLDoc& document = file->document();
    if (std::string wanted = request->value("document"); !wanted.empty() && wanted != document.documentIdentifier()) {
        err << "brassline: " << CompanyPackage::displayName(path) << " is not the company file " << wanted << "\n";
        return kBadInput;
    }
    BLDocumentController& controller = BLDocumentController::shared();
    std::vector<BLDoc*> openBefore;
    for (size_t i = 0; i < controller.documentCount(); ++i) {
        openBefore.push_back(controller.documentAt(i));
    }
    URLResult result = handleURL(controller, &document, *request);
    // Documents that the command opened ("open") go with the command, like its own file.
    for (size_t i = controller.documentCount(); i-- > 0;) {
        BLDoc* opened = controller.documentAt(i);
        if (std::find(openBefore.begin(), openBefore.end(), opened) == openBefore.end()) {
            controller.closeDocument(opened);
        }
    }
    switch (result.status) {
        case URLResult::Status::Done:
            if (file->context().hasChanges() && !file->save(err)) {
                return kSaveFailed;
            }
            out << result.message << "\n";
            return 0;
        case URLResult::Status::NotAvailable:
            err << "brassline: " << result.message << "\n";
            return kNotAvailable;
        case URLResult::Status::Failed:
        case URLResult::Status::NotSupported:
            break;
    }
    err << "brassline: " << result.message << "\n";
    return kBadInput;
}

int recent(bool json, std::ostream& out, std::ostream& /*err*/) {
    BLDocumentController& controller = BLDocumentController::shared();
    Value::Dictionary records = controller.recentDocumentDictionaries();
    for (const std::string& path : controller.recentDocumentURLs()) {
        const Value& record = records[path];
        std::error_code code;
        bool exists = std::filesystem::exists(path, code);
        std::string identifier =
            record[BLDocumentController::kDocumentInfoKey][CompanyPackage::kDocumentIdentifierKey].toString();
        std::string opened = record[BLDocumentController::kLastDateOpenedKey].toString();
        if (json) {
            Value::Dictionary line{{"path", Value(path)},
                                   {"documentIdentifier", Value(identifier)},
                                   {"lastOpened", Value(opened)},
                                   {"exists", Value(exists)}};
            out << Value(std::move(line)).toJSON() << "\n";
        } else {
            out << path << "\t" << identifier << "\t" << opened << (exists ? "" : "\tmissing") << "\n";
        }
    }
    return 0;
}

}  // namespace brassline::companyfile
