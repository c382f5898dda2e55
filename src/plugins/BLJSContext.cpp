#include "plugins/BLJSContext.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <thread>

#include <JavaScriptCore/JavaScript.h>
#include <unicode/dtfmtsym.h>
#include <unicode/locid.h>

#include "core/Localization.h"
#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/StringFolding.h"
#include "model/entities/BLBase.h"
#include "model/entities/BLPreference.h"
#include "plugins/BLJSLogger.h"
#include "plugins/BrasslineRecord.h"
#include "plugins/InterchangeRecords.h"
#include "plugins/ScriptHostHooks.h"
#include "plugins/ScriptSupport.h"
#include "store/SQLiteConnection.h"

// The execution time limit is part of the engine's exported C API but its declaration
// sits in a private header that the Debian package does not ship.
extern "C" {
typedef bool (*JSShouldTerminateCallback)(JSContextRef ctx, void* context);
JS_EXPORT void JSContextGroupSetExecutionTimeLimit(JSContextGroupRef group, double limit,
                                                   JSShouldTerminateCallback callback, void* context);
JS_EXPORT void JSContextGroupClearExecutionTimeLimit(JSContextGroupRef group);
}

namespace brassline {

ScriptHostHooks& scriptHostHooks() {
    static ScriptHostHooks hooks;
    return hooks;
}

void resetScriptHostHooks() {
    scriptHostHooks() = ScriptHostHooks();
}

namespace {

constexpr const char* kApplicationVersion = "0.1";
// Deeper values than this are cut off when they cross into the host: a self-referencing
// object must not exhaust the stack.
constexpr int kMaximumDepth = 64;
// A sparse array's length can be huge; the host reads no more elements than this.
constexpr unsigned kMaximumArrayLength = 1u << 20;
constexpr int kMaximumDownloads = 10;

// Text. The engine speaks UTF-16; the host UTF-8. Invalid sequences on either side become
// U+FFFD rather than failures.
std::u16string utf16(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        size_t length = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : (lead >> 3) == 30 ? 4 : 0;
        uint32_t c = 0xFFFD;
        if (length != 0 && i + length <= text.size()) {
            uint32_t value = length == 1 ? lead : lead & (0x7f >> length);
            bool valid = true;
            for (size_t k = 1; k < length; ++k) {
                const auto next = static_cast<unsigned char>(text[i + k]);
                valid = valid && (next >> 6) == 2;
                value = (value << 6) | (next & 0x3f);
            }
            if (valid && value <= 0x10FFFF && !(value >= 0xD800 && value <= 0xDFFF)) {
                c = value;
            } else {
                length = 1;
            }
        } else {
            length = 1;
        }
        i += length;
        if (c >= 0x10000) {
            c -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (c >> 10));
            out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    }
    return out;
}

void appendUTF8(std::string& out, uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

std::string utf8(JSStringRef string) {
    const JSChar* characters = JSStringGetCharactersPtr(string);
    const size_t length = JSStringGetLength(string);
    std::string out;
    out.reserve(length);
    for (size_t i = 0; i < length; ++i) {
        uint32_t c = characters[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < length && characters[i + 1] >= 0xDC00 &&
            characters[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (characters[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        appendUTF8(out, c);
    }
    return out;
}

// An owned engine string.
class JSText {
public:
    explicit JSText(std::string_view text) {
        const std::u16string characters = utf16(text);
        m_string = JSStringCreateWithCharacters(reinterpret_cast<const JSChar*>(characters.data()), characters.size());
    }
    explicit JSText(JSStringRef adopted) : m_string(adopted) {}
    ~JSText() {
        if (m_string != nullptr) {
            JSStringRelease(m_string);
        }
    }
    JSText(const JSText&) = delete;
    JSText& operator=(const JSText&) = delete;
    JSStringRef get() const { return m_string; }

private:
    JSStringRef m_string = nullptr;
};

JSValueRef makeString(JSContextRef ctx, std::string_view text) {
    JSText string(text);
    return JSValueMakeString(ctx, string.get());
}

// The text of any value as `String(value)` gives it; "" when that throws.
std::string stringOf(JSContextRef ctx, JSValueRef value) {
    JSValueRef exception = nullptr;
    JSStringRef string = JSValueToStringCopy(ctx, value, &exception);
    if (string == nullptr) {
        return "";
    }
    JSText owned(string);
    return utf8(string);
}

JSValueRef property(JSContextRef ctx, JSObjectRef object, std::string_view name) {
    JSText key(name);
    JSValueRef exception = nullptr;
    JSValueRef value = JSObjectGetProperty(ctx, object, key.get(), &exception);
    return exception != nullptr || value == nullptr ? JSValueMakeUndefined(ctx) : value;
}

void setProperty(JSContextRef ctx, JSObjectRef object, std::string_view name, JSValueRef value) {
    JSText key(name);
    JSObjectSetProperty(ctx, object, key.get(), value, kJSPropertyAttributeNone, nullptr);
}

std::string lowerFirst(std::string_view text) {
    std::string out(text);
    if (!out.empty()) {
        out[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(out[0])));
    }
    return out;
}

bool contains(const std::vector<std::string>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

// The private state behind one context: the engine's objects, the plug-in, the document's
// child context and the outcome of the last run.
struct BLJSContext::Engine {
    struct Call;
    using Callback = std::function<JSValueRef(Engine&, Call&)>;
    struct NativeFunction {
        Engine* engine;
        Callback callback;
    };
    struct Call {
        JSContextRef ctx;
        JSObjectRef self;
        size_t argc;
        const JSValueRef* argv;
        JSValueRef* exception;

        JSValueRef arg(size_t index) const { return index < argc ? argv[index] : JSValueMakeUndefined(ctx); }
        bool isUndefined(size_t index) const { return index >= argc || JSValueIsUndefined(ctx, argv[index]); }
        bool isMissing(size_t index) const { return isUndefined(index) || JSValueIsNull(ctx, argv[index]); }
        std::string string(size_t index) const { return isMissing(index) ? std::string() : stringOf(ctx, argv[index]); }
        double number(size_t index) const {
            if (isMissing(index)) {
                return 0;
            }
            const double value = JSValueToNumber(ctx, argv[index], nullptr);
            return std::isfinite(value) ? value : 0;
        }
        bool boolean(size_t index) const { return index < argc && JSValueToBoolean(ctx, argv[index]); }
    };
    struct SQLiteHandle {
        std::unique_ptr<SQLiteConnection> database;
    };

    explicit Engine(BLJSContext& owner);
    ~Engine();

    // Classes and conversion.
    JSObjectRef makeFunction(Callback callback);
    JSObjectRef makeObject(const std::vector<std::pair<std::string, Callback>>& functions);
    JSValueRef toJS(JSContextRef ctx, const Value& value, bool editable, int depth = 0);
    JSValueRef toJS(JSContextRef ctx, const RecordValue& value);
    Value toValue(JSContextRef ctx, JSValueRef value, int depth = 0);
    JSObjectRef makeRecord(JSContextRef ctx, ManagedObject* object, bool editable);
    JSObjectRef makeQuery(JSContextRef ctx, BrasslineQuery query);
    BrasslineRecord* recordOf(JSContextRef ctx, JSValueRef value);
    BrasslineQuery* queryOf(JSContextRef ctx, JSValueRef value);
    SQLiteHandle* databaseOf(JSContextRef ctx, JSValueRef value);
    void setGlobal(std::string_view name, JSValueRef value);
    void setGlobalFunction(std::string_view name, Callback callback);

    // Runs.
    Value evaluate(std::string_view text, bool cleanUp, std::string_view sourceURL);
    Value finishRun(JSValueRef result, JSValueRef exception, bool cleanUp);
    void discardChild();
    void makeChild();
    void applySettings();
    void installGlobals();
    void log(std::string_view text);
    void sleepWithinLimit(double seconds);

    // Downloads on a queue of at most kMaximumDownloads workers.
    void enqueueDownload(std::string source, std::string destination);

    BLJSContext& owner;
    JSContextGroupRef group = nullptr;
    JSGlobalContextRef global = nullptr;
    JSClassRef functionClass = nullptr;
    JSClassRef recordClass = nullptr;
    JSClassRef queryClass = nullptr;
    JSClassRef databaseClass = nullptr;
    JSObjectRef recordPrototype = nullptr;
    JSObjectRef editableRecordPrototype = nullptr;
    JSObjectRef queryPrototype = nullptr;

    Value::Dictionary plugin;
    std::string pluginType;
    std::string pluginIdentifier;
    ManagedObjectContext* document = nullptr;
    std::unique_ptr<ManagedObjectContext> child;
    std::shared_ptr<ScriptScope> scope;
    double timeLimit = kDefaultTimeLimitSeconds;
    std::atomic<bool> timedOut{false};
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
    ScriptOutcome outcome;
    std::atomic<int> tasks{0};

    std::mutex downloadMutex;
    std::condition_variable downloadChanged;
    std::deque<std::pair<std::string, std::string>> downloads;
    std::vector<std::thread> downloadWorkers;
    int idleWorkers = 0;
    bool stopping = false;
};

namespace {

JSValueRef callNative(JSContextRef ctx, JSObjectRef function, JSObjectRef self, size_t argc, const JSValueRef argv[],
                      JSValueRef* exception) {
    auto* native = static_cast<BLJSContext::Engine::NativeFunction*>(JSObjectGetPrivate(function));
    if (native == nullptr || native->engine == nullptr) {
        return JSValueMakeUndefined(ctx);
    }
    BLJSContext::Engine::Call call{ctx, self, argc, argv, exception};
    JSValueRef result = native->callback(*native->engine, call);
    return result != nullptr ? result : JSValueMakeUndefined(ctx);
}

void finalizeNative(JSObjectRef object) {
    delete static_cast<BLJSContext::Engine::NativeFunction*>(JSObjectGetPrivate(object));
}

void finalizeRecord(JSObjectRef object) {
    delete static_cast<BrasslineRecord*>(JSObjectGetPrivate(object));
}

void finalizeQuery(JSObjectRef object) {
    delete static_cast<BrasslineQuery*>(JSObjectGetPrivate(object));
}

void finalizeDatabase(JSObjectRef object) {
    delete static_cast<BLJSContext::Engine::SQLiteHandle*>(JSObjectGetPrivate(object));
}

// Records: the scriptable names of the object's entity read through key-value coding;
// "setName" style calls on editable records write; the operations live on the prototype.
JSValueRef getRecordProperty(JSContextRef ctx, JSObjectRef object, JSStringRef nameRef, JSValueRef* exception) {
    (void)exception;
    auto* record = static_cast<BrasslineRecord*>(JSObjectGetPrivate(object));
    if (record == nullptr) {
        return nullptr;
    }
    const std::string name = utf8(nameRef);
    if (contains(recordOperationNames(true), name)) {
        return nullptr;
    }
    ManagedObject* target = record->object();
    if (target == nullptr) {
        return nullptr;
    }
    const std::vector<std::string>& names = scriptablePropertyNames(target->entity());
    if (contains(names, name)) {
        // The engine of this record is found through the global object's private slot.
        auto* owner = static_cast<BLJSContext::Engine*>(JSObjectGetPrivate(JSContextGetGlobalObject(ctx)));
        if (owner == nullptr) {
            return nullptr;
        }
        return owner->toJS(ctx, target->valueForKey(name), record->isEditable());
    }
    if (record->isEditable() && name.size() > 3 && name.rfind("set", 0) == 0) {
        const std::string key = lowerFirst(name.substr(3));
        auto* owner = static_cast<BLJSContext::Engine*>(JSObjectGetPrivate(JSContextGetGlobalObject(ctx)));
        if (contains(names, key) && owner != nullptr) {
            return owner->makeFunction([key](BLJSContext::Engine& engine, BLJSContext::Engine::Call& call) {
                if (BrasslineRecord* self = engine.recordOf(call.ctx, call.self)) {
                    self->setValueForKeyPath(engine.toValue(call.ctx, call.arg(0)), key);
                }
                return JSValueMakeUndefined(call.ctx);
            });
        }
    }
    return nullptr;
}

bool setRecordProperty(JSContextRef ctx, JSObjectRef object, JSStringRef nameRef, JSValueRef value,
                       JSValueRef* exception) {
    (void)exception;
    auto* record = static_cast<BrasslineRecord*>(JSObjectGetPrivate(object));
    ManagedObject* target = record != nullptr ? record->object() : nullptr;
    if (target == nullptr) {
        return false;
    }
    const std::string name = utf8(nameRef);
    if (!contains(scriptablePropertyNames(target->entity()), name)) {
        return false;
    }
    // A read-only record takes the assignment and keeps its object as it was.
    if (record->isEditable()) {
        auto* owner = static_cast<BLJSContext::Engine*>(JSObjectGetPrivate(JSContextGetGlobalObject(ctx)));
        if (owner != nullptr) {
            record->setValueForKeyPath(owner->toValue(ctx, value), name);
        }
    }
    return true;
}

void recordPropertyNames(JSContextRef ctx, JSObjectRef object, JSPropertyNameAccumulatorRef names) {
    (void)ctx;
    auto* record = static_cast<BrasslineRecord*>(JSObjectGetPrivate(object));
    ManagedObject* target = record != nullptr ? record->object() : nullptr;
    if (target == nullptr) {
        return;
    }
    // Enumeration lists the stored attributes only: relationships lead in circles, and
    // JSON.stringify of a record should stay the record's own values.
    for (const AttributeDescription* attribute : target->entity().attributes()) {
        if (!contains(recordOperationNames(true), attribute->name)) {
            JSText key(attribute->name);
            JSPropertyNameAccumulatorAddName(names, key.get());
        }
    }
}

JSValueRef getQueryProperty(JSContextRef ctx, JSObjectRef object, JSStringRef nameRef, JSValueRef* exception) {
    (void)exception;
    auto* query = static_cast<BrasslineQuery*>(JSObjectGetPrivate(object));
    if (query == nullptr) {
        return nullptr;
    }
    const std::string name = utf8(nameRef);
    if (name == "length") {
        return JSValueMakeNumber(ctx, static_cast<double>(query->count()));
    }
    if (!name.empty() && name.size() < 10 &&
        std::all_of(name.begin(), name.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); })) {
        const size_t index = std::stoul(name);
        std::vector<ManagedObject*> objects = query->objects();
        auto* owner = static_cast<BLJSContext::Engine*>(JSObjectGetPrivate(JSContextGetGlobalObject(ctx)));
        if (index < objects.size() && owner != nullptr) {
            return owner->makeRecord(ctx, objects[index], query->isEditable());
        }
        return JSValueMakeUndefined(ctx);
    }
    return nullptr;
}

bool shouldTerminate(JSContextRef ctx, void* context) {
    (void)ctx;
    static_cast<BLJSContext::Engine*>(context)->timedOut = true;
    return true;
}

std::vector<std::string> monthNames(bool shortForm) {
    UErrorCode status = U_ZERO_ERROR;
    icu::DateFormatSymbols symbols(icu::Locale::getDefault(), status);
    std::vector<std::string> names;
    if (U_FAILURE(status)) {
        return names;
    }
    int32_t count = 0;
    const icu::UnicodeString* months = shortForm ? symbols.getShortMonths(count) : symbols.getMonths(count);
    for (int32_t i = 0; i < count; ++i) {
        std::string name;
        months[i].toUTF8String(name);
        names.push_back(name);
    }
    return names;
}

}  // namespace

BLJSContext::Engine::Engine(BLJSContext& context) : owner(context) {
    group = JSContextGroupCreate();
    // The global object carries the engine, so callbacks of any class find it.
    JSClassDefinition globalDefinition = kJSClassDefinitionEmpty;
    globalDefinition.className = "BLJSGlobal";
    JSClassRef globalClass = JSClassCreate(&globalDefinition);
    global = JSGlobalContextCreateInGroup(group, globalClass);
    JSClassRelease(globalClass);
    JSObjectSetPrivate(JSContextGetGlobalObject(global), this);

    JSClassDefinition function = kJSClassDefinitionEmpty;
    function.className = "BLJSNativeFunction";
    function.callAsFunction = callNative;
    function.finalize = finalizeNative;
    functionClass = JSClassCreate(&function);

    JSClassDefinition record = kJSClassDefinitionEmpty;
    record.className = "BrasslineRecord";
    record.getProperty = getRecordProperty;
    record.setProperty = setRecordProperty;
    record.getPropertyNames = recordPropertyNames;
    record.finalize = finalizeRecord;
    recordClass = JSClassCreate(&record);

    JSClassDefinition query = kJSClassDefinitionEmpty;
    query.className = "BrasslineQuery";
    query.getProperty = getQueryProperty;
    query.finalize = finalizeQuery;
    queryClass = JSClassCreate(&query);

    JSClassDefinition database = kJSClassDefinitionEmpty;
    database.className = "BLJSSQLiteDataBase";
    database.finalize = finalizeDatabase;
    databaseClass = JSClassCreate(&database);
}

BLJSContext::Engine::~Engine() {
    {
        std::lock_guard lock(downloadMutex);
        stopping = true;
        downloads.clear();
    }
    downloadChanged.notify_all();
    for (std::thread& worker : downloadWorkers) {
        worker.join();
    }
    if (global != nullptr) {
        JSObjectSetPrivate(JSContextGetGlobalObject(global), nullptr);
        for (JSObjectRef prototype : {recordPrototype, editableRecordPrototype, queryPrototype}) {
            if (prototype != nullptr) {
                JSValueUnprotect(global, prototype);
            }
        }
        JSGlobalContextRelease(global);
    }
    for (JSClassRef cls : {functionClass, recordClass, queryClass, databaseClass}) {
        if (cls != nullptr) {
            JSClassRelease(cls);
        }
    }
    if (group != nullptr) {
        JSContextGroupRelease(group);
    }
    scope.reset();
    child.reset();
}

JSObjectRef BLJSContext::Engine::makeFunction(Callback callback) {
    return JSObjectMake(global, functionClass, new NativeFunction{this, std::move(callback)});
}

JSObjectRef BLJSContext::Engine::makeObject(const std::vector<std::pair<std::string, Callback>>& functions) {
    JSObjectRef object = JSObjectMake(global, nullptr, nullptr);
    for (const auto& [name, callback] : functions) {
        setProperty(global, object, name, makeFunction(callback));
    }
    return object;
}

void BLJSContext::Engine::setGlobal(std::string_view name, JSValueRef value) {
    setProperty(global, JSContextGetGlobalObject(global), name, value);
}

void BLJSContext::Engine::setGlobalFunction(std::string_view name, Callback callback) {
    setGlobal(name, makeFunction(std::move(callback)));
}

JSObjectRef BLJSContext::Engine::makeRecord(JSContextRef ctx, ManagedObject* object, bool editable) {
    auto* record = object != nullptr ? new BrasslineRecord(scope, *object, editable) : nullptr;
    JSObjectRef wrapper = JSObjectMake(ctx, recordClass, record);
    JSObjectSetPrototype(ctx, wrapper, editable ? editableRecordPrototype : recordPrototype);
    return wrapper;
}

JSObjectRef BLJSContext::Engine::makeQuery(JSContextRef ctx, BrasslineQuery query) {
    JSObjectRef wrapper = JSObjectMake(ctx, queryClass, new BrasslineQuery(std::move(query)));
    JSObjectSetPrototype(ctx, wrapper, queryPrototype);
    return wrapper;
}

BrasslineRecord* BLJSContext::Engine::recordOf(JSContextRef ctx, JSValueRef value) {
    if (value == nullptr || !JSValueIsObjectOfClass(ctx, value, recordClass)) {
        return nullptr;
    }
    return static_cast<BrasslineRecord*>(JSObjectGetPrivate(JSValueToObject(ctx, value, nullptr)));
}

BrasslineQuery* BLJSContext::Engine::queryOf(JSContextRef ctx, JSValueRef value) {
    if (value == nullptr || !JSValueIsObjectOfClass(ctx, value, queryClass)) {
        return nullptr;
    }
    return static_cast<BrasslineQuery*>(JSObjectGetPrivate(JSValueToObject(ctx, value, nullptr)));
}

BLJSContext::Engine::SQLiteHandle* BLJSContext::Engine::databaseOf(JSContextRef ctx, JSValueRef value) {
    if (value == nullptr || !JSValueIsObjectOfClass(ctx, value, databaseClass)) {
        return nullptr;
    }
    return static_cast<SQLiteHandle*>(JSObjectGetPrivate(JSValueToObject(ctx, value, nullptr)));
}

// Host values into the engine. Decimals become numbers (their exact text travels in the
// records' "AsString" keys), dates Date objects, store objects live records and lists of
// store objects queries.
JSValueRef BLJSContext::Engine::toJS(JSContextRef ctx, const Value& value, bool editable, int depth) {
    switch (value.type()) {
        case Value::Type::Null:
            return JSValueMakeNull(ctx);
        case Value::Type::Bool:
            return JSValueMakeBoolean(ctx, *value.boolean());
        case Value::Type::Integer:
            return JSValueMakeNumber(ctx, static_cast<double>(*value.integer()));
        case Value::Type::Double:
            return JSValueMakeNumber(ctx, *value.real());
        case Value::Type::Decimal:
            return JSValueMakeNumber(ctx, value.decimal()->toDouble());
        case Value::Type::String:
            return makeString(ctx, *value.string());
        case Value::Type::Date: {
            JSValueRef milliseconds = JSValueMakeNumber(ctx, value.date()->timeIntervalSince1970() * 1000.0);
            return JSObjectMakeDate(ctx, 1, &milliseconds, nullptr);
        }
        case Value::Type::Bytes: {
            const Bytes& bytes = *value.bytes();
            JSObjectRef array = JSObjectMakeTypedArray(ctx, kJSTypedArrayTypeUint8Array, bytes.size(), nullptr);
            if (array != nullptr && !bytes.empty()) {
                void* target = JSObjectGetTypedArrayBytesPtr(ctx, array, nullptr);
                if (target != nullptr) {
                    std::copy(bytes.begin(), bytes.end(), static_cast<uint8_t*>(target));
                }
            }
            return array != nullptr ? array : JSValueMakeNull(ctx);
        }
        case Value::Type::Array: {
            const Value::Array& array = *value.array();
            const bool allObjects = !array.empty() && std::all_of(array.begin(), array.end(), [](const Value& v) {
                return dynamic_cast<ManagedObject*>(v.object()) != nullptr;
            });
            if (allObjects) {
                std::vector<ManagedObject*> objects;
                for (const Value& element : array) {
                    objects.push_back(static_cast<ManagedObject*>(element.object()));
                }
                return makeQuery(ctx, BrasslineQuery(scope, objects, editable));
            }
            std::vector<JSValueRef> elements;
            elements.reserve(array.size());
            for (const Value& element : array) {
                elements.push_back(depth < kMaximumDepth ? toJS(ctx, element, editable, depth + 1)
                                                         : JSValueMakeNull(ctx));
            }
            return JSObjectMakeArray(ctx, elements.size(), elements.data(), nullptr);
        }
        case Value::Type::Dictionary: {
            JSObjectRef object = JSObjectMake(ctx, nullptr, nullptr);
            for (const auto& [key, element] : *value.dictionary()) {
                setProperty(ctx, object, key,
                            depth < kMaximumDepth ? toJS(ctx, element, editable, depth + 1) : JSValueMakeNull(ctx));
            }
            return object;
        }
        case Value::Type::Object: {
            auto* object = dynamic_cast<ManagedObject*>(value.object());
            return object != nullptr ? static_cast<JSValueRef>(makeRecord(ctx, object, editable))
                                     : JSValueMakeNull(ctx);
        }
    }
    return JSValueMakeNull(ctx);
}

JSValueRef BLJSContext::Engine::toJS(JSContextRef ctx, const RecordValue& value) {
    if (const InterchangeRecord* record = value.record()) {
        JSObjectRef object = JSObjectMake(ctx, nullptr, nullptr);
        for (const InterchangeRecord::Entry& entry : record->entries()) {
            setProperty(ctx, object, entry.key, toJS(ctx, entry.value));
        }
        return object;
    }
    if (const RecordValue::List* list = value.list()) {
        std::vector<JSValueRef> elements;
        elements.reserve(list->size());
        for (const RecordValue& element : *list) {
            elements.push_back(toJS(ctx, element));
        }
        return JSObjectMakeArray(ctx, elements.size(), elements.data(), nullptr);
    }
    return toJS(ctx, *value.value(), false);
}

// Engine values into the host. A number that is whole and exact stays an integer; any
// other finite number becomes the decimal of its shortest text, so 0.1 arrives as 0.1.
// null and undefined both arrive as null: callers that must tell them apart look first.
Value BLJSContext::Engine::toValue(JSContextRef ctx, JSValueRef value, int depth) {
    if (value == nullptr || depth > kMaximumDepth) {
        return Value();
    }
    switch (JSValueGetType(ctx, value)) {
        case kJSTypeUndefined:
        case kJSTypeNull:
            return Value();
        case kJSTypeBoolean:
            return Value(JSValueToBoolean(ctx, value));
        case kJSTypeNumber: {
            const double number = JSValueToNumber(ctx, value, nullptr);
            if (!std::isfinite(number)) {
                return Value(number);
            }
            if (number == std::trunc(number) && std::fabs(number) < 9007199254740992.0) {
                return Value(static_cast<int64_t>(number));
            }
            return Value(Decimal::fromDouble(number));
        }
        case kJSTypeString:
            return Value(stringOf(ctx, value));
        case kJSTypeObject:
            break;
        default:
            // Symbols and big integers have no host form.
            return Value();
    }
    if (BrasslineRecord* record = recordOf(ctx, value)) {
        return Value(static_cast<Object*>(record->object()));
    }
    if (BrasslineQuery* query = queryOf(ctx, value)) {
        Value::Array objects;
        for (ManagedObject* object : query->objects()) {
            objects.emplace_back(static_cast<Object*>(object));
        }
        return Value(std::move(objects));
    }
    JSObjectRef object = JSValueToObject(ctx, value, nullptr);
    if (object == nullptr || JSObjectIsFunction(ctx, object)) {
        return Value();
    }
    if (JSValueIsDate(ctx, value)) {
        const double milliseconds = JSValueToNumber(ctx, value, nullptr);
        return std::isfinite(milliseconds) ? Value(Date::fromUnixTime(milliseconds / 1000.0)) : Value();
    }
    if (JSValueGetTypedArrayType(ctx, value, nullptr) == kJSTypedArrayTypeUint8Array) {
        const size_t length = JSObjectGetTypedArrayByteLength(ctx, object, nullptr);
        const auto* bytes = static_cast<const uint8_t*>(JSObjectGetTypedArrayBytesPtr(ctx, object, nullptr));
        const size_t offset = JSObjectGetTypedArrayByteOffset(ctx, object, nullptr);
        return bytes != nullptr ? Value(Bytes(bytes + offset, bytes + offset + length)) : Value(Bytes{});
    }
    if (JSValueIsArray(ctx, value)) {
        const double length = JSValueToNumber(ctx, property(ctx, object, "length"), nullptr);
        const auto count = static_cast<unsigned>(
            std::clamp(std::isfinite(length) ? length : 0.0, 0.0, static_cast<double>(kMaximumArrayLength)));
        Value::Array elements;
        elements.reserve(count);
        for (unsigned i = 0; i < count; ++i) {
            JSValueRef exception = nullptr;
            JSValueRef element = JSObjectGetPropertyAtIndex(ctx, object, i, &exception);
            if (exception != nullptr) {
                break;
            }
            elements.push_back(toValue(ctx, element, depth + 1));
        }
        return Value(std::move(elements));
    }
    Value::Dictionary dictionary;
    JSPropertyNameArrayRef names = JSObjectCopyPropertyNames(ctx, object);
    const size_t count = JSPropertyNameArrayGetCount(names);
    for (size_t i = 0; i < count; ++i) {
        JSStringRef name = JSPropertyNameArrayGetNameAtIndex(names, i);
        JSValueRef exception = nullptr;
        JSValueRef element = JSObjectGetProperty(ctx, object, name, &exception);
        if (exception != nullptr) {
            break;
        }
        JSObjectRef elementObject = JSValueIsObject(ctx, element) ? JSValueToObject(ctx, element, nullptr) : nullptr;
        if (elementObject != nullptr && JSObjectIsFunction(ctx, elementObject)) {
            continue;
        }
        dictionary[utf8(name)] = toValue(ctx, element, depth + 1);
    }
    JSPropertyNameArrayRelease(names);
    return Value(std::move(dictionary));
}

// The engine's watchdog can't interrupt a native call: a sleep ends at the run's time
// limit at the latest, and the watchdog stops the script as soon as it resumes.
void BLJSContext::Engine::sleepWithinLimit(double seconds) {
    if (!(seconds > 0)) {
        return;
    }
    const auto requested =
        std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                               std::chrono::duration<double>(std::min(seconds, 86400.0)));
    std::this_thread::sleep_until(std::min(requested, deadline));
}

void BLJSContext::Engine::log(std::string_view text) {
    BLJSLogger::sharedLogger().log(text, pluginIdentifier);
}

void BLJSContext::Engine::makeChild() {
    scope.reset();
    child.reset();
    if (document == nullptr) {
        return;
    }
    child = std::make_unique<ManagedObjectContext>(*document, "RUNPLUGIN");
    scope = std::make_shared<ScriptScope>(ScriptScope{child.get()});
    // The global query follows the run's context.
    setGlobal("query", makeQuery(global, BrasslineQuery(scope, {}, false)));
}

void BLJSContext::Engine::discardChild() {
    // Every wrapper of the failed run answers null from now on; the document never saw
    // the child's changes.
    makeChild();
}

void BLJSContext::Engine::applySettings() {
    if (const Value::Array* settings = plugin["settings"].array()) {
        for (const Value& setting : *settings) {
            const std::string name = setting["name"].toString();
            if (!name.empty()) {
                setGlobal(name, toJS(global, setting["value"], false));
            }
        }
    }
}

Value BLJSContext::Engine::evaluate(std::string_view text, bool cleanUp, std::string_view sourceURL) {
    applySettings();
    outcome = ScriptOutcome();
    timedOut = false;
    JSValueRef result = nullptr;
    JSValueRef exception = nullptr;
    JSText script(text);
    JSText source(sourceURL);
    deadline = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                      std::chrono::duration<double>(timeLimit));
    JSContextGroupSetExecutionTimeLimit(group, timeLimit, shouldTerminate, this);
    auto run = [&] {
        result =
            JSEvaluateScript(global, script.get(), nullptr, sourceURL.empty() ? nullptr : source.get(), 1, &exception);
    };
    Value value;
    if (child) {
        child->performBlockAndWait([&] {
            run();
            value = finishRun(result, exception, cleanUp);
        });
    } else {
        run();
        value = finishRun(result, exception, cleanUp);
    }
    JSContextGroupClearExecutionTimeLimit(group);
    deadline = std::chrono::steady_clock::time_point::max();
    if (!outcome.succeeded() && child) {
        discardChild();
    }
    if (outcome.succeeded() && child && document != nullptr) {
        // The child's save hands its changes to the document's context; the objects a
        // script touched repair their derived values there.
        document->performBlockAndWait([&] {
            if (cleanUp) {
                for (ManagedObject* object : document->insertedObjects()) {
                    if (auto* base = dynamic_cast<BLBase*>(object)) {
                        base->resetCaches();
                    }
                }
                for (ManagedObject* object : document->updatedObjects()) {
                    if (auto* base = dynamic_cast<BLBase*>(object)) {
                        base->resetCaches();
                    }
                }
            }
            document->processPendingChanges();
        });
    }
    return value;
}

// Runs on the child's thread: reads the result while the engine still has it, and saves
// the child into the document's context when the run ended well.
Value BLJSContext::Engine::finishRun(JSValueRef result, JSValueRef exception, bool cleanUp) {
    (void)cleanUp;
    if (timedOut) {
        outcome.kind = ScriptOutcome::Kind::TimedOut;
        outcome.message =
            "The script ran longer than " + Decimal::fromDouble(timeLimit).toString() + " seconds and was stopped.";
        log(outcome.message);
        logMessage("JavaScript %@: %@", pluginIdentifier, outcome.message);
        return Value();
    }
    if (exception != nullptr) {
        outcome.kind = ScriptOutcome::Kind::Exception;
        outcome.message = stringOf(global, exception);
        if (JSValueIsObject(global, exception)) {
            JSValueRef line = property(global, JSValueToObject(global, exception, nullptr), "line");
            if (JSValueIsNumber(global, line)) {
                outcome.line = static_cast<int64_t>(JSValueToNumber(global, line, nullptr));
            }
        }
        const std::string lineText = std::to_string(outcome.line);
        logMessage("JavaScript Line %@ %@", lineText, outcome.message);
        log("Line " + lineText + ": " + outcome.message);
        return Value();
    }
    outcome.isUndefined = result == nullptr || JSValueIsUndefined(global, result);
    if (!outcome.isUndefined) {
        JSValueRef jsonException = nullptr;
        JSStringRef json = JSValueCreateJSONString(global, result, 0, &jsonException);
        if (json != nullptr) {
            JSText owned(json);
            outcome.resultJSON = utf8(json);
        }
    }
    Value value = outcome.isUndefined ? Value() : toValue(global, result);
    if (child) {
        std::string error;
        if (!child->save(&error)) {
            logMessage("JavaScript %@: the run's changes can't be saved: %@", pluginIdentifier, error);
        }
    }
    return value;
}

void BLJSContext::Engine::enqueueDownload(std::string source, std::string destination) {
    ++tasks;
    std::lock_guard lock(downloadMutex);
    downloads.emplace_back(std::move(source), std::move(destination));
    if (idleWorkers == 0 && static_cast<int>(downloadWorkers.size()) < kMaximumDownloads) {
        downloadWorkers.emplace_back([this] {
            std::unique_lock lock(downloadMutex);
            while (true) {
                ++idleWorkers;
                downloadChanged.wait(lock, [this] { return stopping || !downloads.empty(); });
                --idleWorkers;
                if (stopping) {
                    return;
                }
                auto [from, to] = std::move(downloads.front());
                downloads.pop_front();
                lock.unlock();
                if (!scriptsupport::downloadURLToFile(from, to)) {
                    logMessage("loadURLtoURL: %@ failed", from);
                }
                --tasks;
                lock.lock();
            }
        });
    }
    downloadChanged.notify_one();
}

void BLJSContext::Engine::installGlobals() {
    using Call = Engine::Call;
    auto undefined = [](Call& call) { return JSValueMakeUndefined(call.ctx); };
    auto fileManagerFunctions = []() -> std::vector<std::pair<std::string, Callback>> {
        return {
            {"homeDirectory", [](Engine&, Call& call) { return makeString(call.ctx, scriptsupport::homeDirectory()); }},
            {"temporaryDirectory",
             [](Engine&, Call& call) { return makeString(call.ctx, scriptsupport::temporaryDirectory()); }},
            {"saveFileDialog",
             [](Engine& engine, Call& call) -> JSValueRef {
                 if (!scriptHostHooks().saveFileDialog) {
                     engine.log("saveFileDialog: no user interface to ask");
                     return JSValueMakeNull(call.ctx);
                 }
                 std::optional<std::string> url = scriptHostHooks().saveFileDialog(call.string(0));
                 return url ? makeString(call.ctx, *url) : JSValueMakeNull(call.ctx);
             }},
            {"openFileDialog",
             [](Engine& engine, Call& call) -> JSValueRef {
                 if (!scriptHostHooks().openFileDialog) {
                     engine.log("openFileDialog: no user interface to ask");
                     return JSValueMakeNull(call.ctx);
                 }
                 std::optional<std::string> url = scriptHostHooks().openFileDialog(call.string(0));
                 return url ? makeString(call.ctx, *url) : JSValueMakeNull(call.ctx);
             }},
            {"contentsOfFile",
             [](Engine&, Call& call) -> JSValueRef {
                 std::optional<std::string> text = scriptsupport::contentsOfFile(call.string(0));
                 return text ? makeString(call.ctx, *text) : JSValueMakeNull(call.ctx);
             }},
            {"contentsOfDirectory",
             [](Engine& engine, Call& call) {
                 return engine.toJS(call.ctx, Value(scriptsupport::contentsOfDirectory(call.string(0))), false);
             }},
            {"contentsOfPlistFile",
             [](Engine& engine, Call& call) {
                 return engine.toJS(call.ctx, scriptsupport::contentsOfPlistFile(call.string(0)), false);
             }},
            {"contentsOfCSVFile",
             [](Engine& engine, Call& call) {
                 std::optional<std::string> text = scriptsupport::contentsOfFile(call.string(0));
                 return engine.toJS(call.ctx, Value(scriptsupport::parseCSVString(text.value_or(""))), false);
             }},
            {"contentsOfXLSFile",
             [](Engine& engine, Call& call) {
                 // Reading spreadsheets belongs to the file importer, which is not built yet.
                 engine.log("contentsOfXLSFile: spreadsheets can't be read here");
                 return JSValueMakeNull(call.ctx);
             }},
            {"isDirectory",
             [](Engine&, Call& call) {
                 return JSValueMakeBoolean(call.ctx, scriptsupport::isDirectory(call.string(0)));
             }},
            {"fileExists",
             [](Engine&, Call& call) {
                 return JSValueMakeBoolean(call.ctx, scriptsupport::fileExists(call.string(0)));
             }},
            {"fileAttributes",
             [](Engine& engine, Call& call) {
                 return engine.toJS(call.ctx, scriptsupport::fileAttributes(call.string(0)), false);
             }},
            // The platform's metadata search does not exist here.
            {"spotlightAttributes", [](Engine&, Call& call) { return JSValueMakeNull(call.ctx); }},
            {"fileModificationDate",
             [](Engine& engine, Call& call) {
                 return engine.toJS(call.ctx, scriptsupport::fileModificationDate(call.string(0)), false);
             }},
            {"relativeURL",
             [](Engine& engine, Call& call) -> JSValueRef {
                 namespace fs = std::filesystem;
                 const std::string base = engine.plugin["documentPath"].toString();
                 const std::string path = scriptsupport::convertURLIfNeeded(call.string(0));
                 if (base.empty()) {
                     return makeString(call.ctx, scriptsupport::fileURLForPath(path));
                 }
                 const fs::path relative = fs::path(path).lexically_relative(fs::path(base).parent_path());
                 return makeString(call.ctx, relative.empty() ? path : relative.string());
             }},
        };
    };
    auto databaseObject = [](Engine& engine, JSContextRef ctx,
                             std::unique_ptr<SQLiteConnection> database) -> JSValueRef {
        if (!database) {
            return JSValueMakeNull(ctx);
        }
        JSObjectRef object = JSObjectMake(ctx, engine.databaseClass, new SQLiteHandle{std::move(database)});
        setProperty(ctx, object, "executeQuery", engine.makeFunction([](Engine& inner, Call& call) {
            SQLiteHandle* handle = inner.databaseOf(call.ctx, call.self);
            Value::Array rows;
            if (handle != nullptr && handle->database) {
                rows = scriptsupport::executeQuery(*handle->database, call.string(0));
            }
            return inner.toJS(call.ctx, Value(std::move(rows)), false);
        }));
        setProperty(ctx, object, "close", engine.makeFunction([](Engine& inner, Call& call) {
            if (SQLiteHandle* handle = inner.databaseOf(call.ctx, call.self)) {
                handle->database.reset();
            }
            return JSValueMakeUndefined(call.ctx);
        }));
        return object;
    };

    JSContextRef ctx = global;
    // String.prototype.xmlEncode: a native function that reads `this`.
    {
        JSObjectRef stringConstructor =
            JSValueToObject(ctx, property(ctx, JSContextGetGlobalObject(ctx), "String"), nullptr);
        if (stringConstructor != nullptr) {
            JSObjectRef prototype = JSValueToObject(ctx, property(ctx, stringConstructor, "prototype"), nullptr);
            if (prototype != nullptr) {
                setProperty(ctx, prototype, "xmlEncode", makeFunction([](Engine&, Call& call) {
                                return makeString(call.ctx, scriptsupport::xmlEncode(stringOf(call.ctx, call.self)));
                            }));
            }
        }
    }
    if (document != nullptr) {
        ManagedObjectContext* main = document;
        while (main->parentContext() != nullptr) {
            main = main->parentContext();
        }
        const std::string identifier = plugin["documentIdentifier"].toString();
        if (!identifier.empty()) {
            setGlobal("documentIdentifier", makeString(ctx, identifier));
        }
    }
    setGlobal("pluginIdentifier", makeString(ctx, pluginIdentifier));
    setGlobal("query", makeQuery(ctx, BrasslineQuery(scope, {}, false)));
    // brassline: each tool is made fresh on every read.
    {
        JSObjectRef tools = JSObjectMake(ctx, nullptr, nullptr);
        auto getter = [this, ctx, tools](std::string_view name, Callback make) {
            JSObjectRef objectConstructor =
                JSValueToObject(ctx, property(ctx, JSContextGetGlobalObject(ctx), "Object"), nullptr);
            JSObjectRef defineProperty =
                JSValueToObject(ctx, property(ctx, objectConstructor, "defineProperty"), nullptr);
            JSObjectRef descriptor = JSObjectMake(ctx, nullptr, nullptr);
            setProperty(ctx, descriptor, "get", makeFunction(std::move(make)));
            setProperty(ctx, descriptor, "enumerable", JSValueMakeBoolean(ctx, true));
            setProperty(ctx, descriptor, "configurable", JSValueMakeBoolean(ctx, true));
            JSValueRef arguments[] = {tools, makeString(ctx, name), descriptor};
            JSObjectCallAsFunction(ctx, defineProperty, objectConstructor, 3, arguments, nullptr);
        };
        getter("progress", [](Engine& engine, Call& call) -> JSValueRef {
            JSObjectRef configuration = JSObjectMake(call.ctx, nullptr, nullptr);
            setProperty(call.ctx, configuration, "value", JSValueMakeNumber(call.ctx, 0));
            setProperty(call.ctx, configuration, "maxValue", JSValueMakeNumber(call.ctx, 100));
            setProperty(call.ctx, configuration, "message", makeString(call.ctx, ""));
            setProperty(call.ctx, configuration, "canCancel", JSValueMakeBoolean(call.ctx, false));
            JSObjectRef progress = JSObjectMake(call.ctx, nullptr, nullptr);
            setProperty(call.ctx, progress, "configuration", configuration);
            setProperty(call.ctx, progress, "cancelled", JSValueMakeBoolean(call.ctx, false));
            setProperty(call.ctx, configuration, "cancel", engine.makeFunction([progress](Engine&, Call& inner) {
                setProperty(inner.ctx, progress, "cancelled", JSValueMakeBoolean(inner.ctx, true));
                return JSValueMakeUndefined(inner.ctx);
            }));
            auto show = [configuration](Engine&, Call& inner) {
                if (scriptHostHooks().progress) {
                    scriptHostHooks().progress(
                        JSValueToNumber(inner.ctx, property(inner.ctx, configuration, "value"), nullptr),
                        JSValueToNumber(inner.ctx, property(inner.ctx, configuration, "maxValue"), nullptr),
                        stringOf(inner.ctx, property(inner.ctx, configuration, "message")));
                }
                return JSValueMakeUndefined(inner.ctx);
            };
            setProperty(call.ctx, progress, "start", engine.makeFunction([progress, show](Engine& inner, Call& c) {
                setProperty(c.ctx, progress, "cancelled", JSValueMakeBoolean(c.ctx, false));
                return show(inner, c);
            }));
            setProperty(call.ctx, progress, "end", engine.makeFunction([](Engine&, Call& c) {
                if (scriptHostHooks().progress) {
                    scriptHostHooks().progress(0, 0, "");
                }
                return JSValueMakeUndefined(c.ctx);
            }));
            return progress;
        });
        getter("pasteBoard", [](Engine& engine, Call& call) -> JSValueRef {
            return engine.makeObject({
                {"writeString",
                 [](Engine&, Call& inner) {
                     // Strings only; anything else leaves the pasteboard alone.
                     if (inner.argc > 0 && JSValueIsString(inner.ctx, inner.argv[0])) {
                         const std::string text = inner.string(0);
                         if (scriptHostHooks().writePasteboard) {
                             scriptHostHooks().writePasteboard(text);
                         }
                     }
                     return JSValueMakeUndefined(inner.ctx);
                 }},
                {"readString",
                 [](Engine&, Call& inner) -> JSValueRef {
                     std::optional<std::string> text =
                         scriptHostHooks().readPasteboard ? scriptHostHooks().readPasteboard() : std::nullopt;
                     return text ? makeString(inner.ctx, *text) : JSValueMakeNull(inner.ctx);
                 }},
            });
            (void)call;
        });
        getter("fileManager", [fileManagerFunctions](Engine& engine, Call&) -> JSValueRef {
            return engine.makeObject(fileManagerFunctions());
        });
        getter("SQLite", [databaseObject](Engine& engine, Call&) -> JSValueRef {
            return engine.makeObject({{"openDatabase", [databaseObject](Engine& inner, Call& call) {
                                           return databaseObject(inner, call.ctx,
                                                                 scriptsupport::openDatabase(call.string(0)));
                                       }}});
        });
        // The platform's address book does not exist here: no people, nothing found.
        getter("addressBook", [](Engine& engine, Call&) -> JSValueRef {
            return engine.makeObject({
                {"people",
                 [](Engine& inner, Call& call) { return inner.toJS(call.ctx, Value(Value::Array{}), false); }},
                {"save", [](Engine&, Call& call) { return JSValueMakeBoolean(call.ctx, false); }},
                {"recordsContaining",
                 [](Engine& inner, Call& call) { return inner.toJS(call.ctx, Value(Value::Array{}), false); }},
                {"findContactByNumber", [](Engine&, Call& call) { return JSValueMakeNull(call.ctx); }},
            });
        });
        setProperty(ctx, tools, "sleep", makeFunction([](Engine& engine, Call& call) {
                        engine.sleepWithinLimit(call.number(0));
                        return JSValueMakeUndefined(call.ctx);
                    }));
        setGlobal("brassline", tools);
    }
    setGlobal("pluginType", makeString(ctx, pluginType));
    auto uidsOfCosts = [](Engine& engine, Call& call, bool paidOnly) -> JSValueRef {
        Value::Array uids;
        ManagedObjectContext* context = engine.scope ? engine.scope->context : nullptr;
        if (context != nullptr) {
            FetchRequest request("Cost");
            request.setIncludesSubentities(false);
            const std::string prefix = foldedString(call.string(0), kFoldCase | kFoldDiacritics);
            for (ManagedObject* object :
                 context->executeFetchRequest(request).value_or(std::vector<ManagedObject*>{})) {
                const std::string uid = object->valueForKey("uid").toString();
                if (foldedString(uid, kFoldCase | kFoldDiacritics).rfind(prefix, 0) != 0) {
                    continue;
                }
                if (paidOnly && !object->valueForKeyPath("invoice.balanced").toBool()) {
                    continue;
                }
                uids.emplace_back(uid);
            }
        }
        return engine.toJS(call.ctx, Value(std::move(uids)), false);
    };
    setGlobalFunction("getBilledUIDs",
                      [uidsOfCosts](Engine& engine, Call& call) { return uidsOfCosts(engine, call, false); });
    setGlobalFunction("getPaidUIDs",
                      [uidsOfCosts](Engine& engine, Call& call) { return uidsOfCosts(engine, call, true); });
    setGlobalFunction("insertRecord", [](Engine& engine, Call& call) -> JSValueRef {
        ManagedObjectContext* context = engine.scope ? engine.scope->context : nullptr;
        ManagedObject* object = nullptr;
        const std::string entityName = call.string(0);
        const EntityDescription* entity = context != nullptr ? context->entityNamed(entityName) : nullptr;
        if (entity != nullptr && !entity->isAbstract()) {
            object = context->insertNewObject(*entity);
            if (auto* base = dynamic_cast<BLBase*>(object)) {
                base->setup();
            }
        }
        return engine.makeRecord(call.ctx, object, true);
    });
    setGlobalFunction("equalRecords", [](Engine& engine, Call& call) {
        BrasslineRecord* a = engine.recordOf(call.ctx, call.arg(0));
        BrasslineRecord* b = engine.recordOf(call.ctx, call.arg(1));
        return JSValueMakeBoolean(call.ctx, a != nullptr && b != nullptr && a->object() != nullptr && *a == *b);
    });
    setGlobalFunction("fetchRecords", [](Engine& engine, Call& call) -> JSValueRef {
        return engine.makeQuery(call.ctx, BrasslineQuery::newQuery(engine.scope, call.string(0), false));
    });
    auto fetchOne = [](Engine& engine, Call& call, const std::string& predicate, const std::vector<Value>& arguments,
                       bool editable) -> JSValueRef {
        ManagedObjectContext* context = engine.scope ? engine.scope->context : nullptr;
        ManagedObject* object =
            context != nullptr ? BrasslineQuery::fetchRecord(*context, call.string(0), predicate, arguments) : nullptr;
        return object != nullptr ? static_cast<JSValueRef>(engine.makeRecord(call.ctx, object, editable))
                                 : JSValueMakeNull(call.ctx);
    };
    setGlobalFunction("fetchRecordWithPredicate", [fetchOne](Engine& engine, Call& call) {
        return fetchOne(engine, call, call.string(1), {}, call.boolean(2));
    });
    setGlobalFunction("fetchRecordWithUID", [fetchOne](Engine& engine, Call& call) {
        return fetchOne(engine, call, "uid LIKE %@", {Value(call.string(1))}, call.boolean(2));
    });
    // The time importer sets the real rate itself: here only whether there is one.
    {
        Value rate;
        if (document != nullptr && !BLPreference::preferenceValue(*document, "timeImporter.defaultRate").isNull()) {
            rate = Value(Decimal());
        }
        setGlobal("defaultRate", toJS(ctx, rate, false));
    }
    setGlobal("applicationVersion", makeString(ctx, kApplicationVersion));
    auto showSettings = [](Engine& engine, Call& call) {
        if (scriptHostHooks().showPluginSettings) {
            dispatchSyncToMain([&engine] { scriptHostHooks().showPluginSettings(engine.plugin); });
        } else {
            engine.log("The plug-in's settings can't be shown here");
        }
        return JSValueMakeUndefined(call.ctx);
    };
    setGlobalFunction("displayPluginSetting", showSettings);
    setGlobalFunction("localize", [](Engine& engine, Call& call) {
        const std::string key = call.string(0);
        const Value table = engine.plugin["localizable"];
        const Value& own = table[key];
        return makeString(call.ctx, own.string() != nullptr ? *own.string() : localizedString(key));
    });
    setGlobalFunction("launchURL", [](Engine& engine, Call& call) {
        const std::string url = scriptsupport::convertPathIfNeeded(call.string(0));
        if (scriptHostHooks().launchURL) {
            scriptHostHooks().launchURL(url);
        } else {
            engine.log("launchURL: nothing here can open " + url);
        }
        return JSValueMakeUndefined(call.ctx);
    });
    setGlobalFunction("postNotification", [](Engine&, Call& call) {
        const std::string name = call.string(0);
        if (!name.empty()) {
            dispatchSyncToMain([name] { NotificationCenter::defaultCenter().postNotificationName(name); });
        }
        return JSValueMakeUndefined(call.ctx);
    });
    setGlobalFunction("writeDataToFile", [](Engine& engine, Call& call) {
        const Value data = engine.toValue(call.ctx, call.arg(0));
        const std::string path = call.string(1);
        bool written = false;
        if (!path.empty() && data.string() != nullptr) {
            written = scriptsupport::writeFileAtomically(path, *data.string());
        } else if (!path.empty() && data.bytes() != nullptr) {
            written = scriptsupport::writeFileAtomically(path, std::string(data.bytes()->begin(), data.bytes()->end()));
        }
        return JSValueMakeBoolean(call.ctx, written);
    });
    setGlobalFunction("findContactByNumber", [](Engine&, Call& call) { return JSValueMakeNull(call.ctx); });
    setGlobalFunction("pathToURL", [](Engine&, Call& call) {
        return makeString(call.ctx, scriptsupport::fileURLForPath(call.string(0)));
    });
    setGlobalFunction("displayUserNotification", [](Engine& engine, Call& call) {
        engine.log("Notification: " + call.string(0) + " " + call.string(1));
        return JSValueMakeNull(call.ctx);
    });
    setGlobalFunction("sanitizeXML", [](Engine&, Call& call) {
        const std::string text = call.string(0);
        return makeString(call.ctx, scriptsupport::sanitizeXML(text).value_or(text));
    });
    setGlobalFunction("writeToURL", [](Engine& engine, Call& call) {
        const std::string path = call.string(1);
        const int code = path.empty() ? -1 : scriptsupport::writeToURL(engine.toValue(call.ctx, call.arg(0)), path);
        return JSValueMakeNumber(call.ctx, code);
    });
    // No packaged library writes the Excel binary format: the call fails as a file call does.
    setGlobalFunction("writeXLSToURL", [](Engine& engine, Call& call) {
        engine.log("writeXLSToURL: spreadsheets in the Excel binary format can't be written here");
        return JSValueMakeNumber(call.ctx, -1);
    });
    setGlobalFunction("writeCSVToURL", [](Engine& engine, Call& call) {
        const std::string path = call.string(1);
        if (path.empty()) {
            return JSValueMakeNumber(call.ctx, -1);
        }
        const double encoding = call.isMissing(2) ? -1 : call.number(2);
        const std::string separator = call.isMissing(3) ? "," : call.string(3);
        const std::string lineBreak = call.isMissing(4) ? "\n" : call.string(4);
        const int code = scriptsupport::writeCSVToURL(engine.toValue(call.ctx, call.arg(0)), path,
                                                      static_cast<int64_t>(encoding), separator, lineBreak);
        return JSValueMakeNumber(call.ctx, code);
    });
    setGlobalFunction("createFolderAtURL", [](Engine& engine, Call& call) {
        const std::string text = call.string(0);
        const std::string url = scriptsupport::convertPathIfNeeded(text);
        if (text.empty() || !scriptsupport::filePathOfURL(url)) {
            engine.log("URL invalid: " + text);
            return JSValueMakeNumber(call.ctx, 0);
        }
        return JSValueMakeNumber(call.ctx, scriptsupport::createFolder(url));
    });
    setGlobalFunction("loadURLtoURL", [](Engine& engine, Call& call) {
        const std::string source = call.string(0);
        const std::string destination = call.string(1);
        if (!source.empty() && !destination.empty()) {
            engine.enqueueDownload(scriptsupport::convertPathIfNeeded(source),
                                   scriptsupport::convertPathIfNeeded(destination));
        }
        return JSValueMakeUndefined(call.ctx);
    });
    setGlobalFunction("loadURL", [](Engine& engine, Call& call) {
        const std::string answer =
            scriptsupport::loadURL(call.string(0), call.string(1), engine.toValue(call.ctx, call.arg(2)),
                                   engine.toValue(call.ctx, call.arg(3)), call.boolean(4));
        return makeString(call.ctx, answer);
    });
    setGlobalFunction("sanitizeFileName", [](Engine&, Call& call) {
        return makeString(call.ctx, scriptsupport::sanitizeFileName(call.string(0), "-"));
    });
    setGlobalFunction("sleep", [](Engine& engine, Call& call) {
        engine.sleepWithinLimit(std::floor(call.number(0)));
        return JSValueMakeUndefined(call.ctx);
    });
    setGlobalFunction("module", [undefined](Engine&, Call& call) { return undefined(call); });
    setGlobalFunction("log", [](Engine& engine, Call& call) {
        engine.log(call.isUndefined(0) ? "undefined" : stringOf(call.ctx, call.arg(0)));
        return JSValueMakeUndefined(call.ctx);
    });
    {
        JSObjectRef base64 = makeFunction(
            [](Engine&, Call& call) { return makeString(call.ctx, scriptsupport::base64Encode(call.string(0))); });
        setGlobal("base64Encode", base64);
        setGlobal("btoa", base64);
    }
    setGlobalFunction("ISO2CodeToISO3Code", [](Engine&, Call& call) {
        return makeString(call.ctx, scriptsupport::iso2ToISO3(call.string(0)));
    });
    setGlobalFunction("openSQLiteDatabase", [databaseObject](Engine& engine, Call& call) {
        return databaseObject(engine, call.ctx, scriptsupport::openDatabase(call.string(0)));
    });
    setGlobalFunction("runSQLiteQuery", [](Engine& engine, Call& call) {
        SQLiteHandle* handle = engine.databaseOf(call.ctx, call.arg(0));
        Value::Array rows;
        if (handle != nullptr && handle->database) {
            rows = scriptsupport::executeQuery(*handle->database, call.string(1));
        }
        return engine.toJS(call.ctx, Value(std::move(rows)), false);
    });
    // The platform's metadata search does not exist here: nothing is found.
    setGlobalFunction("findFiles",
                      [](Engine& engine, Call& call) { return engine.toJS(call.ctx, Value(Value::Array{}), false); });
    setGlobalFunction("md5",
                      [](Engine&, Call& call) { return makeString(call.ctx, scriptsupport::md5(call.string(0))); });
    setGlobal("PluginDirectory", makeString(ctx, plugin["path"].toString() + "/"));
    setGlobal("NSHomeDirectory", makeString(ctx, scriptsupport::homeDirectory()));
    setGlobal("NSHomeDirectoryURL", makeString(ctx, scriptsupport::fileURLForPath(scriptsupport::homeDirectory())));
    setGlobal("NSTemporaryDirectory", makeString(ctx, scriptsupport::temporaryDirectory()));
    setGlobal("NSTemporaryDirectoryURL",
              makeString(ctx, scriptsupport::fileURLForPath(scriptsupport::temporaryDirectory())));
    // No storage layer here knows Dropbox folders: the three paths stay unset.
    const std::vector<std::pair<std::string, std::string>> forwarded = {
        {"fileModificationDate", "fileModificationDate"},
        {"fileAttributes", "fileAttributes"},
        {"spotlightAttributes", "spotlightAttributes"},
        {"fileExists", "fileExists"},
        {"fileIsDirectory", "isDirectory"},
        {"contentsOfFile", "contentsOfFile"},
        {"contentsOfDirectory", "contentsOfDirectory"},
        {"contentsOfCSVFile", "contentsOfCSVFile"},
        {"contentsOfPlist", "contentsOfPlistFile"},
        {"contentsOfXLSFile", "contentsOfXLSFile"},
        {"saveFileDialog", "saveFileDialog"},
        {"openFileDialog", "openFileDialog"}};
    const std::vector<std::pair<std::string, Callback>> fileManager = fileManagerFunctions();
    for (const auto& [global, member] : forwarded) {
        for (const auto& [name, callback] : fileManager) {
            if (name == member) {
                setGlobalFunction(global, callback);
            }
        }
    }
    setGlobalFunction("showPluginSettings", showSettings);
    setGlobalFunction("moneymoneyPaymentUID", [](Engine& engine, Call& call) {
        const Value record = engine.toValue(call.ctx, call.arg(0));
        const Value& uid = record["paymentUID"];
        return makeString(call.ctx, uid.isNull() ? std::string() : uid.toString());
    });
    setGlobalFunction("beep", [](Engine&, Call& call) {
        if (scriptHostHooks().beep) {
            scriptHostHooks().beep();
        }
        return JSValueMakeUndefined(call.ctx);
    });
    setGlobalFunction("alert", [](Engine& engine, Call& call) -> JSValueRef {
        if (!scriptHostHooks().alert) {
            engine.log("alert: " + call.string(0) + " " + call.string(1));
            return JSValueMakeNull(call.ctx);
        }
        std::vector<std::string> buttons;
        if (const Value::Array* titles = engine.toValue(call.ctx, call.arg(2)).array()) {
            for (const Value& title : *titles) {
                buttons.push_back(title.toString());
            }
        }
        int64_t pressed = 0;
        const std::string title = call.string(0);
        const std::string text = call.string(1);
        dispatchSyncToMain([&] { pressed = scriptHostHooks().alert(title, text, buttons); });
        return JSValueMakeNumber(call.ctx, static_cast<double>(pressed));
    });
    // AppleScript is a platform of its own: here the answer is always null.
    setGlobalFunction("executeAppleScript", [](Engine& engine, Call& call) {
        logMessage("AppleScript: not available on this platform");
        engine.log("executeAppleScript: not available on this platform");
        return JSValueMakeNull(call.ctx);
    });
    setGlobalFunction("parseCSVString", [](Engine& engine, Call& call) {
        return engine.toJS(call.ctx, Value(scriptsupport::parseCSVString(call.string(0))), false);
    });
    setGlobalFunction("sendDistributedNotification", [](Engine& engine, Call& call) {
        engine.log("sendDistributedNotification: no other process listens here");
        return JSValueMakeUndefined(call.ctx);
    });
    setGlobalFunction("parseIntegerComponents", [](Engine& engine, Call& call) {
        return engine.toJS(call.ctx, Value(scriptsupport::parseIntegerComponents(call.string(0))), false);
    });
    // Asks that the parsed list be a record and an array at once, which never holds.
    setGlobalFunction("plistToJSON", [](Engine&, Call& call) { return makeString(call.ctx, ""); });
}

BLJSContext::BLJSContext() : m_engine(std::make_unique<Engine>(*this)) {
    Engine& engine = *m_engine;
    using Call = Engine::Call;
    // The prototypes carry the operations of records and queries; the classes' property
    // callbacks leave these names to them.
    auto recordFunctions = std::vector<std::pair<std::string, Engine::Callback>>{
        {"valueForKey",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return self != nullptr ? e.toJS(call.ctx, self->valueForKey(call.string(0)), self->isEditable())
                                    : JSValueMakeNull(call.ctx);
         }},
        {"valueForKeyPath",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return self != nullptr ? e.toJS(call.ctx, self->valueForKeyPath(call.string(0)), self->isEditable())
                                    : JSValueMakeNull(call.ctx);
         }},
        {"valueForCustomField",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return self != nullptr ? e.toJS(call.ctx, self->valueForCustomField(call.string(0)), false)
                                    : JSValueMakeNull(call.ctx);
         }},
        {"formattedDate",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return self != nullptr ? makeString(call.ctx, self->formattedDate(e.toValue(call.ctx, call.arg(0))))
                                    : JSValueMakeNull(call.ctx);
         }},
        {"formattedNumber",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return self != nullptr ? makeString(call.ctx, self->formattedNumber(e.toValue(call.ctx, call.arg(0))))
                                    : JSValueMakeNull(call.ctx);
         }},
        {"editableRecord",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return self != nullptr ? static_cast<JSValueRef>(e.makeRecord(call.ctx, self->object(), true))
                                    : JSValueMakeNull(call.ctx);
         }},
        {"entityName",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return makeString(call.ctx, self != nullptr ? self->entityName() : std::string());
         }},
        {"description",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return makeString(call.ctx, self != nullptr ? self->description() : std::string());
         }},
        {"toString",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return makeString(call.ctx, self != nullptr ? self->description() : std::string());
         }},
        {"interchangeRecord",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             ManagedObject* object = self != nullptr ? self->object() : nullptr;
             return object != nullptr ? e.toJS(call.ctx, RecordValue(interchangeRecord(*object)))
                                      : JSValueMakeNull(call.ctx);
         }},
        // The run's end saves what it changed; a save in between only gathers the changes,
        // so that a failure later in the run still leaves the document untouched.
        {"save",
         [](Engine& e, Call& call) -> JSValueRef {
             if (e.scope && e.scope->context != nullptr) {
                 e.scope->context->processPendingChanges();
             }
             return JSValueMakeBoolean(call.ctx, e.scope != nullptr);
         }},
        {"insertRecord",
         [](Engine& e, Call& call) -> JSValueRef {
             JSObjectRef insert = JSValueToObject(
                 call.ctx, property(call.ctx, JSContextGetGlobalObject(call.ctx), "insertRecord"), nullptr);
             if (insert == nullptr || !JSObjectIsFunction(call.ctx, insert)) {
                 return JSValueMakeNull(call.ctx);
             }
             JSValueRef argument = call.arg(0);
             (void)e;
             return JSObjectCallAsFunction(call.ctx, insert, nullptr, 1, &argument, call.exception);
         }},
        {"newQuery",
         [](Engine& e, Call& call) -> JSValueRef {
             return e.makeQuery(call.ctx, BrasslineQuery::newQuery(e.scope, call.string(0), false));
         }},
        {"fetchRecord",
         [](Engine& e, Call& call) -> JSValueRef {
             ManagedObjectContext* context = e.scope ? e.scope->context : nullptr;
             ManagedObject* object =
                 context != nullptr ? BrasslineQuery::fetchRecord(*context, call.string(0), call.string(1)) : nullptr;
             return object != nullptr ? static_cast<JSValueRef>(e.makeRecord(call.ctx, object, false))
                                      : JSValueMakeNull(call.ctx);
         }},
        {"log",
         [](Engine& e, Call& call) -> JSValueRef {
             e.log(call.string(0));
             return JSValueMakeUndefined(call.ctx);
         }},
        {"monthNames",
         [](Engine& e, Call& call) -> JSValueRef {
             Value::Array names;
             for (const std::string& name : monthNames(false)) {
                 names.emplace_back(name);
             }
             return e.toJS(call.ctx, Value(std::move(names)), false);
         }},
        {"shortMonthNames",
         [](Engine& e, Call& call) -> JSValueRef {
             Value::Array names;
             for (const std::string& name : monthNames(true)) {
                 names.emplace_back(name);
             }
             return e.toJS(call.ctx, Value(std::move(names)), false);
         }},
        // A query or list as a plain list (objects as records).
        {"fixArray",
         [](Engine& e, Call& call) -> JSValueRef {
             if (BrasslineQuery* query = e.queryOf(call.ctx, call.arg(0))) {
                 std::vector<JSValueRef> records;
                 for (ManagedObject* object : query->objects()) {
                     records.push_back(e.makeRecord(call.ctx, object, query->isEditable()));
                 }
                 return JSObjectMakeArray(call.ctx, records.size(), records.data(), nullptr);
             }
             return call.arg(0);
         }},
    };
    auto editableFunctions = std::vector<std::pair<std::string, Engine::Callback>>{
        {"delete",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return JSValueMakeBoolean(call.ctx, self != nullptr && self->deleteObject());
         }},
        {"setValueForCustomField",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return JSValueMakeBoolean(
                 call.ctx,
                 self != nullptr && self->setValueForCustomField(e.toValue(call.ctx, call.arg(0)), call.string(1)));
         }},
        {"setMetaValue",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return JSValueMakeBoolean(
                 call.ctx, self != nullptr && self->setMetaValue(e.toValue(call.ctx, call.arg(0)), call.string(1)));
         }},
        {"setCountryName",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineRecord* self = e.recordOf(call.ctx, call.self);
             return JSValueMakeBoolean(call.ctx, self != nullptr && self->setCountryName(call.string(0)));
         }},
    };
    for (const char* name : {"setValue", "setValueForKey", "setValueForKeyPath"}) {
        editableFunctions.emplace_back(name, [](Engine& e, Call& call) -> JSValueRef {
            BrasslineRecord* self = e.recordOf(call.ctx, call.self);
            return JSValueMakeBoolean(
                call.ctx,
                self != nullptr && self->setValueForKeyPath(e.toValue(call.ctx, call.arg(0)), call.string(1)));
        });
    }
    engine.recordPrototype = engine.makeObject(recordFunctions);
    engine.editableRecordPrototype = engine.makeObject(editableFunctions);
    JSObjectSetPrototype(engine.global, engine.editableRecordPrototype, engine.recordPrototype);

    auto queryResult = [](Engine& e, Call& call, const std::function<BrasslineQuery(const BrasslineQuery&)>& make) {
        BrasslineQuery* self = e.queryOf(call.ctx, call.self);
        return self != nullptr ? static_cast<JSValueRef>(e.makeQuery(call.ctx, make(*self)))
                               : JSValueMakeNull(call.ctx);
    };
    auto queryFunctions = std::vector<std::pair<std::string, Engine::Callback>>{
        {"filter",
         [queryResult](Engine& e, Call& call) {
             const std::string predicate = call.string(0);
             return queryResult(e, call, [&](const BrasslineQuery& self) { return self.filter(predicate); });
         }},
        {"sort",
         [queryResult](Engine& e, Call& call) {
             // A key sorts ascending; a list is [key, ascending]; a second argument is the flag.
             const Value order = e.toValue(call.ctx, call.arg(0));
             std::string key = order.toString();
             bool ascending = call.isUndefined(1) ? true : call.boolean(1);
             if (order.array() != nullptr) {
                 key = order[size_t{0}].toString();
                 ascending = order.count() < 2 || order[size_t{1}].toBool();
             }
             return queryResult(e, call, [&](const BrasslineQuery& self) { return self.sort(key, ascending); });
         }},
        {"valueForKeyPath",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineQuery* self = e.queryOf(call.ctx, call.self);
             return self != nullptr ? e.toJS(call.ctx, self->valueForKeyPath(call.string(0)), self->isEditable())
                                    : JSValueMakeNull(call.ctx);
         }},
        {"record",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineQuery* self = e.queryOf(call.ctx, call.self);
             std::vector<ManagedObject*> objects = self != nullptr ? self->objects() : std::vector<ManagedObject*>{};
             return objects.empty()
                        ? JSValueMakeNull(call.ctx)
                        : static_cast<JSValueRef>(e.makeRecord(call.ctx, objects.front(), self->isEditable()));
         }},
        {"editableRecord",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineQuery* self = e.queryOf(call.ctx, call.self);
             std::vector<ManagedObject*> objects = self != nullptr ? self->objects() : std::vector<ManagedObject*>{};
             return objects.empty() ? JSValueMakeNull(call.ctx)
                                    : static_cast<JSValueRef>(e.makeRecord(call.ctx, objects.front(), true));
         }},
        {"records",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineQuery* self = e.queryOf(call.ctx, call.self);
             std::vector<JSValueRef> records;
             if (self != nullptr) {
                 for (ManagedObject* object : self->objects()) {
                     records.push_back(e.makeRecord(call.ctx, object, self->isEditable()));
                 }
             }
             return JSObjectMakeArray(call.ctx, records.size(), records.data(), nullptr);
         }},
        {"editableRecords",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineQuery* self = e.queryOf(call.ctx, call.self);
             std::vector<JSValueRef> records;
             if (self != nullptr) {
                 for (ManagedObject* object : self->objects()) {
                     records.push_back(e.makeRecord(call.ctx, object, true));
                 }
             }
             return JSObjectMakeArray(call.ctx, records.size(), records.data(), nullptr);
         }},
        {"count",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineQuery* self = e.queryOf(call.ctx, call.self);
             return JSValueMakeNumber(call.ctx, self != nullptr ? static_cast<double>(self->count()) : 0);
         }},
        {"setEditable",
         [](Engine& e, Call& call) -> JSValueRef {
             if (BrasslineQuery* self = e.queryOf(call.ctx, call.self)) {
                 self->setEditable(call.boolean(0));
             }
             return JSValueMakeUndefined(call.ctx);
         }},
        {"description",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineQuery* self = e.queryOf(call.ctx, call.self);
             return makeString(call.ctx, self != nullptr ? self->description() : std::string());
         }},
        {"toString",
         [](Engine& e, Call& call) -> JSValueRef {
             BrasslineQuery* self = e.queryOf(call.ctx, call.self);
             return makeString(call.ctx, self != nullptr ? self->description() : std::string());
         }},
    };
    engine.queryPrototype = engine.makeObject(queryFunctions);
    for (JSObjectRef prototype : {engine.recordPrototype, engine.editableRecordPrototype, engine.queryPrototype}) {
        JSValueProtect(engine.global, prototype);
    }
}

BLJSContext::~BLJSContext() = default;

void BLJSContext::setupForPlugin(const Value::Dictionary& plugin, ManagedObjectContext* document) {
    if (document == nullptr) {
        return;
    }
    Engine& engine = *m_engine;
    engine.plugin = plugin;
    engine.pluginIdentifier = engine.plugin["uid"].toString();
    setPluginType(engine.plugin["type"].toString());
    engine.document = document;
    engine.applySettings();
    engine.makeChild();
    logMessage("JavaScript: set up %@", engine.pluginIdentifier);
    engine.installGlobals();
}

Value BLJSContext::runPlugin() {
    return runPluginAndCleanUp(true);
}

Value BLJSContext::runPluginAndCleanUp(bool cleanUp) {
    Engine& engine = *m_engine;
    std::optional<std::string> source;
    if (const std::string* text = engine.plugin["source"].string()) {
        source = *text;
    } else if (!engine.plugin["path"].isNull()) {
        source = scriptsupport::contentsOfFile(engine.plugin["path"].toString() + "/index.js");
    }
    if (!source) {
        engine.outcome = ScriptOutcome();
        return Value();
    }
    Value result = evaluateScript(*source, cleanUp);
    logMessage("Plugin result %@ %@", engine.plugin["path"].toString(), result.toString());
    return result;
}

Value BLJSContext::runFunction(std::string_view name) {
    Engine& engine = *m_engine;
    JSValueRef function = property(engine.global, JSContextGetGlobalObject(engine.global), name);
    if (!JSValueIsObject(engine.global, function) ||
        !JSObjectIsFunction(engine.global, JSValueToObject(engine.global, function, nullptr))) {
        return Value();
    }
    return evaluateScript(std::string(name) + "()", true);
}

Value BLJSContext::evaluateScript(std::string_view text) {
    return evaluateScript(text, true);
}

Value BLJSContext::evaluateScript(std::string_view text, bool cleanUp) {
    Engine& engine = *m_engine;
    std::string sourceURL;
    if (!engine.plugin["URL"].isNull()) {
        sourceURL = engine.plugin["URL"].toString() + "/index.js";
    }
    return engine.evaluate(text, cleanUp, sourceURL);
}

const ScriptOutcome& BLJSContext::lastOutcome() const {
    return m_engine->outcome;
}

void BLJSContext::setObjectForKeyedSubscript(const Value& value, std::string_view name) {
    m_engine->setGlobal(name, m_engine->toJS(m_engine->global, value, false));
}

void BLJSContext::setRecordForKeyedSubscript(const InterchangeRecord& record, std::string_view name) {
    m_engine->setGlobal(name, m_engine->toJS(m_engine->global, RecordValue(record)));
}

void BLJSContext::setLiveRecordForKeyedSubscript(ManagedObject* object, bool editable, std::string_view name) {
    Engine& engine = *m_engine;
    ManagedObject* target = object;
    // An object of the document is reached through the run's own context.
    if (object != nullptr && engine.scope && engine.scope->context != nullptr &&
        object->managedObjectContext() != engine.scope->context) {
        engine.scope->context->performBlockAndWait(
            [&] { target = engine.scope->context->objectWithID(object->objectID()); });
    }
    engine.setGlobal(name, target != nullptr
                               ? static_cast<JSValueRef>(engine.makeRecord(engine.global, target, editable))
                               : JSValueMakeNull(engine.global));
}

Value BLJSContext::objectForKeyedSubscript(std::string_view name) {
    return m_engine->toValue(m_engine->global,
                             property(m_engine->global, JSContextGetGlobalObject(m_engine->global), name));
}

Value BLJSContext::executeJavaScript(std::string_view script, ManagedObject* object, const Value::Dictionary& values) {
    Engine& engine = *m_engine;
    // A layout script reads the object where it lives and changes nothing.
    std::shared_ptr<ScriptScope> previous = engine.scope;
    std::shared_ptr<ScriptScope> layoutScope;
    if (object != nullptr && !engine.child) {
        layoutScope = std::make_shared<ScriptScope>(ScriptScope{object->managedObjectContext()});
        engine.scope = layoutScope;
    }
    JSValueRef record = object != nullptr ? static_cast<JSValueRef>(engine.makeRecord(engine.global, object, false))
                                          : JSValueMakeNull(engine.global);
    engine.setGlobal("brasslinerecord", record);
    engine.setGlobal("self", record);
    for (const auto& [key, value] : values) {
        engine.setGlobal("brassline_" + key, engine.toJS(engine.global, value, false));
    }
    const double limit = engine.timeLimit;
    engine.timeLimit = std::min(limit, kLayoutTimeLimitSeconds);
    Value result = evaluateScript(script, false);
    if (engine.outcome.succeeded() && engine.outcome.isUndefined) {
        const std::string wrapped = "function runScript() {" + std::string(script) + "\n return result;}";
        evaluateScript(wrapped, false);
        if (engine.outcome.succeeded()) {
            result = evaluateScript("runScript()", false);
        }
    }
    engine.timeLimit = limit;
    if (layoutScope) {
        engine.scope = previous;
    }
    return result;
}

void BLJSContext::setTimeLimit(double seconds) {
    m_engine->timeLimit = seconds > 0 ? seconds : kDefaultTimeLimitSeconds;
}

double BLJSContext::timeLimit() const {
    return m_engine->timeLimit;
}

const std::string& BLJSContext::pluginType() const {
    return m_engine->pluginType;
}

void BLJSContext::setPluginType(std::string_view type) {
    std::string lowered(type);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    m_engine->pluginType = lowered;
}

const std::string& BLJSContext::pluginIdentifier() const {
    return m_engine->pluginIdentifier;
}

ManagedObjectContext* BLJSContext::managedObjectContext() const {
    return m_engine->child.get();
}

int BLJSContext::tasks() const {
    return m_engine->tasks;
}

std::string BLJSContext::convertPathIfNeeded(std::string_view text) {
    return scriptsupport::convertPathIfNeeded(text);
}

std::string BLJSContext::convertURLIfNeeded(std::string_view text) {
    return scriptsupport::convertURLIfNeeded(text);
}

bool BLJSContext::ensureDirectoryExistsForURL(std::string_view url) {
    return scriptsupport::ensureDirectoryExistsForURL(url);
}

}  // namespace brassline
