// modelgen: reads a model declaration and writes the machine classes, their accessors and
// the reflection tables of the object runtime.
//
//   modelgen <declaration> <output directory>
//
// Declaration format (one statement a line, '#' starts a comment, indentation free):
//   model <Name>                      names the model; the builder is gen::<name>Model()
//   classPrefix <Prefix>              class name = prefix + entity name ("TM" + "Cost")
//   include <path/>                   include prefix of hand-written and generated headers
//   entity <Name> [: <Super>] [abstract] [stub]
//   attribute <name> <string|decimal|date|data|bool|int16|int32|int64|double> [transient]
//   relationship <name> <toOne|toMany|toManyOrdered> <Destination> [inverse <name>]
//                [deleteRule <nullify|cascade|deny|noAction>]
// Superentities are declared before their subentities. `stub` makes the generator write a
// trivial hand-written class too, until a real one replaces it.
//
// Outputs (under <output directory>/<include prefix>): gen/<Class>.h and gen/<Class>.cpp
// per entity, gen/<Model>Model.h and gen/<Model>Model.cpp, and <Class>.h for stub
// entities. A file is only rewritten when its text changes, so builds stay incremental.

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Attribute {
    std::string name;
    std::string type;
    bool transient = false;
    int slot = 0;
};

struct Relationship {
    std::string name;
    std::string kind;  // toOne, toMany, toManyOrdered
    std::string destination;
    std::string inverse;
    std::string deleteRule = "nullify";
    int slot = 0;
    bool toMany() const { return kind != "toOne"; }
    bool ordered() const { return kind == "toManyOrdered"; }
};

struct Entity {
    std::string name;
    std::string superName;
    bool isAbstract = false;
    bool isStub = false;
    int line = 0;
    std::vector<Attribute> attributes;
    std::vector<Relationship> relationships;
    int firstAttributeSlot = 0;
    int firstToOneSlot = 0;
    int firstToManySlot = 0;
};

struct Model {
    std::string name;
    std::string classPrefix;
    std::string includePrefix;
    std::vector<Entity> entities;
    std::map<std::string, size_t> byName;

    const Entity* find(const std::string& entityName) const {
        auto found = byName.find(entityName);
        return found == byName.end() ? nullptr : &entities[found->second];
    }
    std::string className(const std::string& entityName) const { return classPrefix + entityName; }
};

std::vector<std::string> g_errors;
std::string g_declarationPath;

void fail(int line, const std::string& message) {
    g_errors.push_back(g_declarationPath + ":" + std::to_string(line) + ": " + message);
}

const std::set<std::string> kTypes = {"string", "decimal", "date", "data", "bool", "int16", "int32", "int64", "double"};
const std::set<std::string> kKinds = {"toOne", "toMany", "toManyOrdered"};
const std::set<std::string> kRules = {"nullify", "cascade", "deny", "noAction"};
const std::set<std::string> kCppKeywords = {
    "alignas", "alignof",  "and",      "asm",       "auto",     "bool",      "break",     "case",     "catch",
    "char",    "class",    "const",    "constexpr", "continue", "default",   "delete",    "do",       "double",
    "else",    "enum",     "explicit", "export",    "extern",   "false",     "float",     "for",      "friend",
    "goto",    "if",       "inline",   "int",       "long",     "mutable",   "namespace", "new",      "noexcept",
    "not",     "nullptr",  "operator", "or",        "private",  "protected", "public",    "register", "return",
    "short",   "signed",   "sizeof",   "static",    "struct",   "switch",    "template",  "this",     "throw",
    "true",    "try",      "typedef",  "typeid",    "typename", "union",     "unsigned",  "using",    "virtual",
    "void",    "volatile", "while",    "xor"};
// Members of ManagedObject that a property getter would hide.
const std::set<std::string> kReservedNames = {"entity",     "entityName", "className",     "managedObjectContext",
                                              "objectID",   "isInserted", "isDeleted",     "isUpdated",
                                              "hasChanges", "isFault",    "changedValues", "valueForKey",
                                              "willSave",   "didSave",    "self"};

bool isIdentifier(const std::string& text) {
    if (text.empty() || !(std::isalpha(static_cast<unsigned char>(text[0])) || text[0] == '_')) {
        return false;
    }
    for (char c : text) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') {
            return false;
        }
    }
    return true;
}

std::string capitalized(const std::string& name) {
    std::string result = name;
    result[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(result[0])));
    return result;
}

std::string lowerFirst(const std::string& name) {
    std::string result = name;
    result[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(result[0])));
    return result;
}

// The getter name: a C++ keyword gets a trailing underscore ("operator" reads operator_()).
std::string getterName(const std::string& name) {
    return kCppKeywords.count(name) != 0 ? name + "_" : name;
}

std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> result;
    std::istringstream stream(line.substr(0, line.find('#')));
    std::string word;
    while (stream >> word) {
        result.push_back(word);
    }
    return result;
}

bool parse(std::istream& input, Model& model) {
    std::string line;
    int number = 0;
    Entity* current = nullptr;
    std::set<std::string> seenStatements;
    while (std::getline(input, line)) {
        ++number;
        std::vector<std::string> w = words(line);
        if (w.empty()) {
            continue;
        }
        const std::string& keyword = w[0];
        if (keyword == "model" || keyword == "classPrefix" || keyword == "include") {
            if (w.size() != 2) {
                fail(number, keyword + " takes one word");
                continue;
            }
            if (!seenStatements.insert(keyword).second) {
                fail(number, keyword + " given twice");
            }
            (keyword == "model"         ? model.name
             : keyword == "classPrefix" ? model.classPrefix
                                        : model.includePrefix) = w[1];
        } else if (keyword == "entity") {
            if (w.size() < 2 || !isIdentifier(w[1])) {
                fail(number, "entity needs a name");
                continue;
            }
            Entity entity;
            entity.name = w[1];
            entity.line = number;
            size_t i = 2;
            if (i < w.size() && w[i] == ":") {
                if (i + 1 >= w.size()) {
                    fail(number, "':' needs a superentity");
                    continue;
                }
                entity.superName = w[i + 1];
                i += 2;
            }
            for (; i < w.size(); ++i) {
                if (w[i] == "abstract") {
                    entity.isAbstract = true;
                } else if (w[i] == "stub") {
                    entity.isStub = true;
                } else {
                    fail(number, "unknown entity flag '" + w[i] + "'");
                }
            }
            if (model.byName.count(entity.name) != 0) {
                fail(number, "entity " + entity.name + " declared twice");
                continue;
            }
            if (!entity.superName.empty() && model.byName.count(entity.superName) == 0) {
                fail(number, "superentity " + entity.superName + " must be declared before " + entity.name);
            }
            model.byName[entity.name] = model.entities.size();
            model.entities.push_back(entity);
            current = &model.entities.back();
        } else if (keyword == "attribute") {
            if (current == nullptr) {
                fail(number, "attribute outside an entity");
                continue;
            }
            if (w.size() < 3 || w.size() > 4 || !isIdentifier(w[1]) || kTypes.count(w[2]) == 0 ||
                (w.size() == 4 && w[3] != "transient")) {
                fail(number, "expected: attribute <name> <type> [transient]");
                continue;
            }
            Attribute attribute;
            attribute.name = w[1];
            attribute.type = w[2];
            attribute.transient = w.size() == 4;
            current->attributes.push_back(attribute);
        } else if (keyword == "relationship") {
            if (current == nullptr) {
                fail(number, "relationship outside an entity");
                continue;
            }
            if (w.size() < 4 || !isIdentifier(w[1]) || kKinds.count(w[2]) == 0 || !isIdentifier(w[3])) {
                fail(number, "expected: relationship <name> <toOne|toMany|toManyOrdered> <Destination> ...");
                continue;
            }
            Relationship relationship;
            relationship.name = w[1];
            relationship.kind = w[2];
            relationship.destination = w[3];
            bool ok = true;
            for (size_t i = 4; i < w.size(); i += 2) {
                if (i + 1 >= w.size()) {
                    fail(number, "'" + w[i] + "' needs a value");
                    ok = false;
                } else if (w[i] == "inverse") {
                    relationship.inverse = w[i + 1];
                } else if (w[i] == "deleteRule" && kRules.count(w[i + 1]) != 0) {
                    relationship.deleteRule = w[i + 1];
                } else {
                    fail(number, "unknown relationship option '" + w[i] + " " + w[i + 1] + "'");
                    ok = false;
                }
            }
            if (ok) {
                current->relationships.push_back(relationship);
            }
        } else {
            fail(number, "unknown statement '" + keyword + "'");
        }
    }
    if (model.name.empty() || !isIdentifier(model.name)) {
        fail(number, "the declaration needs 'model <Name>'");
    }
    return g_errors.empty();
}

// Slots, name clashes along each inheritance chain, destinations and inverses.
bool check(Model& model) {
    for (Entity& entity : model.entities) {
        std::set<std::string> names;
        const Entity* parent = entity.superName.empty() ? nullptr : model.find(entity.superName);
        if (parent != nullptr) {
            entity.firstAttributeSlot = parent->firstAttributeSlot + static_cast<int>(parent->attributes.size());
            int toOne = 0;
            int toMany = 0;
            for (const Relationship& relationship : parent->relationships) {
                (relationship.toMany() ? toMany : toOne)++;
            }
            entity.firstToOneSlot = parent->firstToOneSlot + toOne;
            entity.firstToManySlot = parent->firstToManySlot + toMany;
        }
        for (const Entity* ancestor = parent; ancestor != nullptr;
             ancestor = ancestor->superName.empty() ? nullptr : model.find(ancestor->superName)) {
            for (const Attribute& attribute : ancestor->attributes) {
                names.insert(attribute.name);
            }
            for (const Relationship& relationship : ancestor->relationships) {
                names.insert(relationship.name);
            }
        }
        int slot = entity.firstAttributeSlot;
        for (Attribute& attribute : entity.attributes) {
            attribute.slot = slot++;
            if (!names.insert(attribute.name).second) {
                fail(entity.line, entity.name + "." + attribute.name + " is declared twice in the inheritance chain");
            }
            if (kReservedNames.count(attribute.name) != 0) {
                fail(entity.line, entity.name + "." + attribute.name + " would hide a member of ManagedObject");
            }
        }
        int toOne = entity.firstToOneSlot;
        int toMany = entity.firstToManySlot;
        for (Relationship& relationship : entity.relationships) {
            relationship.slot = relationship.toMany() ? toMany++ : toOne++;
            if (!names.insert(relationship.name).second) {
                fail(entity.line,
                     entity.name + "." + relationship.name + " is declared twice in the inheritance chain");
            }
            if (kReservedNames.count(relationship.name) != 0) {
                fail(entity.line, entity.name + "." + relationship.name + " would hide a member of ManagedObject");
            }
            const Entity* destination = model.find(relationship.destination);
            if (destination == nullptr) {
                fail(entity.line,
                     entity.name + "." + relationship.name + ": unknown destination " + relationship.destination);
                continue;
            }
            if (relationship.inverse.empty()) {
                continue;
            }
            const Relationship* inverse = nullptr;
            for (const Entity* candidate = destination; candidate != nullptr && inverse == nullptr;
                 candidate = candidate->superName.empty() ? nullptr : model.find(candidate->superName)) {
                for (const Relationship& r : candidate->relationships) {
                    if (r.name == relationship.inverse) {
                        inverse = &r;
                    }
                }
            }
            if (inverse == nullptr) {
                fail(entity.line, entity.name + "." + relationship.name + ": inverse " + relationship.inverse +
                                      " not found in " + relationship.destination);
            } else if (inverse->inverse != relationship.name) {
                fail(entity.line, entity.name + "." + relationship.name + ": inverse " + relationship.inverse +
                                      " names '" + inverse->inverse + "' as its inverse");
            }
        }
    }
    return g_errors.empty();
}

struct CppType {
    std::string value;      // Getter result / setter argument.
    std::string toValue;    // attributes:: conversion from the typed value.
    std::string fromValue;  // attributes:: conversion to the typed value.
    std::string scalar;     // The Value-accessor type for bool/int16, else empty.
};

CppType cppType(const std::string& type) {
    if (type == "string")
        return {"std::optional<std::string>", "fromString", "toString", ""};
    if (type == "decimal")
        return {"std::optional<Decimal>", "fromDecimal", "toDecimal", ""};
    if (type == "date")
        return {"std::optional<Date>", "fromDate", "toDate", ""};
    if (type == "data")
        return {"const Bytes*", "fromData", "toData", ""};
    if (type == "bool")
        return {"std::optional<bool>", "fromBool", "toBool", "bool"};
    if (type == "int16")
        return {"std::optional<int16_t>", "fromInt16", "toInt16", "int16_t"};
    if (type == "int32")
        return {"std::optional<int32_t>", "fromInt32", "toInt32", ""};
    if (type == "int64")
        return {"std::optional<int64_t>", "fromInt64", "toInt64", ""};
    return {"std::optional<double>", "fromDouble", "toDouble", ""};
}

std::string attributeTypeEnum(const std::string& type) {
    static const std::map<std::string, std::string> names = {
        {"string", "String"}, {"decimal", "Decimal"}, {"date", "Date"},   {"data", "Data"},    {"bool", "Bool"},
        {"int16", "Int16"},   {"int32", "Int32"},     {"int64", "Int64"}, {"double", "Double"}};
    return "AttributeType::" + names.at(type);
}

std::string deleteRuleEnum(const std::string& rule) {
    return "DeleteRule::" + capitalized(rule);
}

std::string setterArgument(const std::string& type) {
    // Data setters take the bytes by value; the getter answers a pointer into the slot.
    return type == "data" ? "std::optional<Bytes>" : cppType(type).value;
}

int g_written = 0;

void writeIfChanged(const std::filesystem::path& path, const std::string& text) {
    std::ifstream existing(path, std::ios::binary);
    if (existing) {
        std::string old((std::istreambuf_iterator<char>(existing)), std::istreambuf_iterator<char>());
        if (old == text) {
            return;
        }
    }
    std::filesystem::create_directories(path.parent_path());
    std::ofstream output(path, std::ios::binary | std::ios::trunc);
    output << text;
    if (!output) {
        g_errors.push_back("cannot write " + path.string());
    }
    ++g_written;
}

std::string banner(const Model& model) {
    return "// Generated by tools/modelgen from the " + model.name + " model declaration. Do not edit.\n";
}

std::string handHeader(const Model& model, const std::string& entityName) {
    return model.includePrefix + model.className(entityName) + ".h";
}

std::string builderName(const Model& model) {
    return lowerFirst(model.name) + "Model";
}

std::string entityHeader(const Model& model, const Entity& entity) {
    const std::string cls = model.className(entity.name);
    std::ostringstream out;
    out << banner(model)
        << "#pragma once\n\n#include <cstdint>\n#include <optional>\n#include <string>\n#include <vector>\n\n";
    if (entity.superName.empty()) {
        out << "#include \"model/ManagedObject.h\"\n";
    } else {
        out << "#include \"" << handHeader(model, entity.superName) << "\"\n";
    }
    out << "\nnamespace brassline {\n\nclass ManagedObjectContext;\n";
    std::set<std::string> forwards = {cls};
    for (const Relationship& relationship : entity.relationships) {
        forwards.insert(model.className(relationship.destination));
    }
    for (const std::string& forward : forwards) {
        out << "class " << forward << ";\n";
    }
    const std::string base =
        entity.superName.empty() ? "ManagedObject" : "brassline::" + model.className(entity.superName);
    out << "\nnamespace gen {\n\n";
    out << "// The stored properties of the entity \"" << entity.name << "\"; logic belongs in brassline::" << cls
        << ".\n";
    out << "class " << cls << " : public " << base << " {\npublic:\n";
    out << "    static constexpr const char* kEntityName = \"" << entity.name << "\";\n";
    out << "    static const EntityDescription& entityDescription();\n";
    if (!entity.isAbstract) {
        out << "    static brassline::" << cls << "* insertInManagedObjectContext(ManagedObjectContext& context);\n";
    }
    out << "    // Registration of derived properties and dependent keys; the hand-written class\n"
           "    // hides this with its own.\n";
    out << "    static void setupClass(EntityDescription& entity) { (void)entity; }\n";
    for (const Attribute& attribute : entity.attributes) {
        const CppType type = cppType(attribute.type);
        const std::string cap = capitalized(attribute.name);
        out << "\n    " << type.value << " " << getterName(attribute.name) << "() const;\n";
        out << "    virtual void set" << cap << "(" << setterArgument(attribute.type) << " value);\n";
        out << "    " << type.value << " primitive" << cap << "() const;\n";
        out << "    void setPrimitive" << cap << "(" << setterArgument(attribute.type) << " value);\n";
        if (!type.scalar.empty()) {
            out << "    " << type.scalar << " " << attribute.name << "Value() const;\n";
            out << "    void set" << cap << "Value(" << type.scalar << " value);\n";
        }
    }
    for (const Relationship& relationship : entity.relationships) {
        const std::string target = "brassline::" + model.className(relationship.destination);
        const std::string cap = capitalized(relationship.name);
        if (!relationship.toMany()) {
            out << "\n    " << target << "* " << getterName(relationship.name) << "() const;\n";
            out << "    virtual void set" << cap << "(" << target << "* value);\n";
            out << "    " << target << "* primitive" << cap << "() const;\n";
            continue;
        }
        out << "\n    ManagedObjectRange<" << target << "> " << getterName(relationship.name) << "() const;\n";
        out << "    void add" << cap << "Object(" << target << "* value);\n";
        out << "    void remove" << cap << "Object(" << target << "* value);\n";
        out << "    void add" << cap << "(const std::vector<ManagedObject*>& values);\n";
        out << "    void remove" << cap << "(const std::vector<ManagedObject*>& values);\n";
        out << "    virtual void set" << cap << "(const std::vector<ManagedObject*>& values);\n";
        if (relationship.ordered()) {
            out << "    void insertObjectIn" << cap << "AtIndex(" << target << "* value, size_t index);\n";
            out << "    void removeObjectFrom" << cap << "AtIndex(size_t index);\n";
            out << "    void replaceObjectIn" << cap << "AtIndexWithObject(size_t index, " << target << "* value);\n";
            out << "    void move" << cap << "AtIndexToIndex(size_t from, size_t to);\n";
        }
    }
    out << "};\n\n}  // namespace gen\n}  // namespace brassline\n";
    return out.str();
}

std::string entitySource(const Model& model, const Entity& entity) {
    const std::string cls = model.className(entity.name);
    std::ostringstream out;
    out << banner(model) << "#include \"" << handHeader(model, entity.name) << "\"\n";
    std::set<std::string> includes;
    for (const Relationship& relationship : entity.relationships) {
        includes.insert(handHeader(model, relationship.destination));
    }
    for (const std::string& include : includes) {
        out << "#include \"" << include << "\"\n";
    }
    out << "#include \"" << model.includePrefix << "gen/" << model.name << "Model.h\"\n";
    out << "#include \"model/ManagedObjectContext.h\"\n\nnamespace brassline::gen {\n\n";
    out << "const EntityDescription& " << cls << "::entityDescription() {\n"
        << "    static const EntityDescription* const entity = " << builderName(model) << "().entityNamed(\""
        << entity.name << "\");\n    return *entity;\n}\n";
    if (!entity.isAbstract) {
        out << "\nbrassline::" << cls << "* " << cls
            << "::insertInManagedObjectContext(ManagedObjectContext& context) {\n"
            << "    return static_cast<brassline::" << cls << "*>(context.insertNewObject(entityDescription()));\n}\n";
    }
    for (const Attribute& attribute : entity.attributes) {
        const CppType type = cppType(attribute.type);
        const std::string cap = capitalized(attribute.name);
        const std::string slot = std::to_string(attribute.slot);
        out << "\n"
            << type.value << " " << cls << "::" << getterName(attribute.name) << "() const {\n"
            << "    return attributes::" << type.fromValue << "(attributeSlot(" << slot << "));\n}\n";
        out << "void " << cls << "::set" << cap << "(" << setterArgument(attribute.type) << " value) {\n"
            << "    setAttributeSlotWithNotices(" << slot << ", attributes::" << type.toValue
            << "(std::move(value)));\n}\n";
        out << type.value << " " << cls << "::primitive" << cap << "() const {\n"
            << "    return attributes::" << type.fromValue << "(attributeSlot(" << slot << "));\n}\n";
        out << "void " << cls << "::setPrimitive" << cap << "(" << setterArgument(attribute.type) << " value) {\n"
            << "    setAttributeSlot(" << slot << ", attributes::" << type.toValue << "(std::move(value)));\n}\n";
        if (!type.scalar.empty()) {
            out << type.scalar << " " << cls << "::" << attribute.name << "Value() const {\n"
                << "    return attributes::" << type.fromValue << "(attributeSlot(" << slot << ")).value_or(0);\n}\n";
            // Through the virtual setter, so hand-written side effects run for both forms.
            out << "void " << cls << "::set" << cap << "Value(" << type.scalar << " value) {\n"
                << "    set" << cap << "(value);\n}\n";
        }
    }
    for (const Relationship& relationship : entity.relationships) {
        const std::string target = "brassline::" + model.className(relationship.destination);
        const std::string cap = capitalized(relationship.name);
        const std::string slot = std::to_string(relationship.slot);
        const std::string rel =
            std::string("relationshipAt(") + (relationship.toMany() ? "true" : "false") + ", " + slot + ")";
        if (!relationship.toMany()) {
            out << "\n"
                << target << "* " << cls << "::" << getterName(relationship.name) << "() const {\n"
                << "    return static_cast<" << target << "*>(toOneSlot(" << slot << "));\n}\n";
            out << "void " << cls << "::set" << cap << "(" << target << "* value) {\n"
                << "    setToOneObject(" << rel << ", value);\n}\n";
            out << target << "* " << cls << "::primitive" << cap << "() const {\n"
                << "    return static_cast<" << target << "*>(toOneSlot(" << slot << "));\n}\n";
            continue;
        }
        out << "\nManagedObjectRange<" << target << "> " << cls << "::" << getterName(relationship.name)
            << "() const {\n    return ManagedObjectRange<" << target << ">(toManySlot(" << slot << "));\n}\n";
        out << "void " << cls << "::add" << cap << "Object(" << target << "* value) {\n"
            << "    addObjectToRelationship(" << rel << ", value);\n}\n";
        out << "void " << cls << "::remove" << cap << "Object(" << target << "* value) {\n"
            << "    removeObjectFromRelationship(" << rel << ", value);\n}\n";
        out << "void " << cls << "::add" << cap << "(const std::vector<ManagedObject*>& values) {\n"
            << "    for (ManagedObject* value : values) {\n        addObjectToRelationship(" << rel
            << ", value);\n    }\n}\n";
        out << "void " << cls << "::remove" << cap << "(const std::vector<ManagedObject*>& values) {\n"
            << "    for (ManagedObject* value : values) {\n        removeObjectFromRelationship(" << rel
            << ", value);\n    }\n}\n";
        out << "void " << cls << "::set" << cap << "(const std::vector<ManagedObject*>& values) {\n"
            << "    setRelationshipObjects(" << rel << ", values);\n}\n";
        if (relationship.ordered()) {
            out << "void " << cls << "::insertObjectIn" << cap << "AtIndex(" << target << "* value, size_t index) {\n"
                << "    insertObjectInRelationshipAtIndex(" << rel << ", value, index);\n}\n";
            out << "void " << cls << "::removeObjectFrom" << cap << "AtIndex(size_t index) {\n"
                << "    removeObjectFromRelationshipAtIndex(" << rel << ", index);\n}\n";
            out << "void " << cls << "::replaceObjectIn" << cap << "AtIndexWithObject(size_t index, " << target
                << "* value) {\n"
                << "    const auto& objects = toManySlot(" << slot << ");\n"
                << "    if (index >= objects.size() || objects[index] == value) {\n        return;\n    }\n"
                << "    removeObjectFromRelationshipAtIndex(" << rel << ", index);\n"
                << "    insertObjectInRelationshipAtIndex(" << rel << ", value, index);\n}\n";
            out << "void " << cls << "::move" << cap << "AtIndexToIndex(size_t from, size_t to) {\n"
                << "    moveObjectInRelationship(" << rel << ", from, to);\n}\n";
        }
    }
    out << "\n}  // namespace brassline::gen\n";
    return out.str();
}

std::string modelHeader(const Model& model) {
    std::ostringstream out;
    out << banner(model) << "#pragma once\n\n#include \"model/EntityDescription.h\"\n\n"
        << "namespace brassline::gen {\n\n"
        << "// The " << model.name << " model, built on first use (thread-safe) with every class's\n"
        << "// derived properties registered.\n"
        << "const ManagedObjectModel& " << builderName(model) << "();\n\n}  // namespace brassline::gen\n";
    return out.str();
}

std::string modelSource(const Model& model) {
    std::ostringstream out;
    out << banner(model) << "#include \"" << model.includePrefix << "gen/" << model.name << "Model.h\"\n\n"
        << "#include <cassert>\n#include <memory>\n\n#include \"core/Log.h\"\n";
    for (const Entity& entity : model.entities) {
        out << "#include \"" << handHeader(model, entity.name) << "\"\n";
    }
    out << "\nnamespace brassline::gen {\n\nnamespace {\n\n";
    out << "ManagedObjectModel* build() {\n"
        << "    auto* model = new ManagedObjectModel(\"" << model.name << "\");\n";
    for (size_t i = 0; i < model.entities.size(); ++i) {
        const Entity& entity = model.entities[i];
        const std::string cls = model.className(entity.name);
        const std::string var = "e" + std::to_string(i);
        out << "\n    auto& " << var << " = model->addEntity(\"" << entity.name << "\", \"" << cls << "\", \""
            << entity.superName << "\", " << (entity.isAbstract ? "true" : "false") << ", ";
        if (entity.isAbstract) {
            out << "nullptr);\n";
        } else {
            out << "[]() -> std::unique_ptr<ManagedObject> { return std::make_unique<brassline::" << cls
                << ">(); });\n";
        }
        for (const Attribute& attribute : entity.attributes) {
            const CppType type = cppType(attribute.type);
            std::string convert = "attributes::" + type.fromValue + "(value)";
            if (attribute.type == "data") {
                convert = "attributes::toData(value) ? std::optional<Bytes>(*attributes::toData(value)) : std::nullopt";
            }
            out << "    model->addAttribute(" << var << ", \"" << attribute.name << "\", "
                << attributeTypeEnum(attribute.type) << ", " << (attribute.transient ? "true" : "false") << ", "
                << attribute.slot
                << ",\n        [](ManagedObject& object, const Value& value) { static_cast<brassline::" << cls
                << "&>(object).set" << capitalized(attribute.name) << "(" << convert << "); });\n";
        }
        for (const Relationship& relationship : entity.relationships) {
            const std::string target = "brassline::" + model.className(relationship.destination);
            out << "    model->addRelationship(" << var << ", \"" << relationship.name << "\", \""
                << relationship.destination << "\", \"" << relationship.inverse << "\", "
                << (relationship.toMany() ? "true" : "false") << ", " << (relationship.ordered() ? "true" : "false")
                << ", " << deleteRuleEnum(relationship.deleteRule) << ", " << relationship.slot << ",\n";
            if (relationship.toMany()) {
                out << "        [](ManagedObject& object, const Value& value) {\n"
                    << "            std::vector<ManagedObject*> objects;\n"
                    << "            if (const Value::Array* array = value.array()) {\n"
                    << "                for (const Value& element : *array) {\n"
                    << "                    if (ManagedObject* target = attributes::toObject(element)) {\n"
                    << "                        objects.push_back(target);\n"
                    << "                    }\n                }\n            }\n"
                    << "            static_cast<brassline::" << cls << "&>(object).set"
                    << capitalized(relationship.name) << "(objects);\n        });\n";
            } else {
                // A target of the wrong entity is refused here rather than stored.
                out << "        [](ManagedObject& object, const Value& value) {\n"
                    << "            ManagedObject* target = attributes::toObject(value);\n"
                    << "            if (target != nullptr && !target->isKindOfEntity(\"" << relationship.destination
                    << "\")) {\n"
                    << "                logMessage(\"Refused %@ for " << entity.name << "." << relationship.name
                    << "\", target->entityName());\n                return;\n            }\n"
                    << "            static_cast<brassline::" << cls << "&>(object).set"
                    << capitalized(relationship.name) << "(static_cast<" << target << "*>(target));\n        });\n";
            }
        }
    }
    out << "\n";
    for (size_t i = 0; i < model.entities.size(); ++i) {
        out << "    brassline::" << model.className(model.entities[i].name) << "::setupClass(e" << i << ");\n";
    }
    out << "    std::string error;\n"
        << "    [[maybe_unused]] bool finished = model->finish(&error);\n"
        << "    assert(finished && \"the generated model is inconsistent\");\n"
        << "    return model;\n}\n\n}  // namespace\n\n";
    out << "const ManagedObjectModel& " << builderName(model) << "() {\n"
        << "    static const ManagedObjectModel* const model = build();\n    return *model;\n}\n\n"
        << "}  // namespace brassline::gen\n";
    return out.str();
}

std::string stubHeader(const Model& model, const Entity& entity) {
    const std::string cls = model.className(entity.name);
    std::ostringstream out;
    out << banner(model) << "#pragma once\n\n#include \"" << model.includePrefix << "gen/" << cls << ".h\"\n\n"
        << "namespace brassline {\n\n// No logic yet: the declaration marks this entity as a stub.\n"
        << "class " << cls << " : public gen::" << cls << " {};\n\n}  // namespace brassline\n";
    return out.str();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: modelgen <declaration> <output directory>\n";
        return 2;
    }
    g_declarationPath = argv[1];
    std::ifstream input(g_declarationPath);
    if (!input) {
        std::cerr << "modelgen: cannot read " << g_declarationPath << "\n";
        return 1;
    }
    Model model;
    if (parse(input, model)) {
        check(model);
    }
    if (!g_errors.empty()) {
        for (const std::string& error : g_errors) {
            std::cerr << error << "\n";
        }
        return 1;
    }
    const std::filesystem::path root = std::filesystem::path(argv[2]) / model.includePrefix;
    for (const Entity& entity : model.entities) {
        const std::string cls = model.className(entity.name);
        writeIfChanged(root / "gen" / (cls + ".h"), entityHeader(model, entity));
        writeIfChanged(root / "gen" / (cls + ".cpp"), entitySource(model, entity));
        if (entity.isStub) {
            writeIfChanged(root / (cls + ".h"), stubHeader(model, entity));
        }
    }
    writeIfChanged(root / "gen" / (model.name + "Model.h"), modelHeader(model));
    writeIfChanged(root / "gen" / (model.name + "Model.cpp"), modelSource(model));
    if (!g_errors.empty()) {
        for (const std::string& error : g_errors) {
            std::cerr << error << "\n";
        }
        return 1;
    }
    return 0;
}
