#include "model/SortDescriptor.h"

#include <algorithm>
#include <functional>
#include <numeric>

#include <unicode/coll.h>
#include <unicode/locid.h>

#include "core/Localization.h"
#include "model/KeyPath.h"
#include "model/StringFolding.h"

namespace brassline {

namespace {

// Values of different kinds never compare by content; this rank gives them a fixed order
// so that the comparison stays a strict weak ordering, as std::stable_sort requires.
int typeRank(const Value& value) {
    switch (value.type()) {
        case Value::Type::Null:
            return 0;
        case Value::Type::Bool:
        case Value::Type::Integer:
        case Value::Type::Double:
        case Value::Type::Decimal:
            return 1;
        case Value::Type::String:
            return 2;
        case Value::Type::Date:
            return 3;
        default:
            return 4 + static_cast<int>(value.type());
    }
}

std::weak_ordering toWeak(std::partial_ordering order) {
    if (order < 0) {
        return std::weak_ordering::less;
    }
    if (order > 0) {
        return std::weak_ordering::greater;
    }
    return std::weak_ordering::equivalent;
}

const icu::Collator* collator(StringComparison comparison) {
    // Collators are not to be shared between threads while in use: one set per thread,
    // made again when the current language changes.
    struct Collators {
        std::string language;
        std::unique_ptr<icu::Collator> plain;
        std::unique_ptr<icu::Collator> caseless;
        std::unique_ptr<icu::Collator> standard;
        void make(const std::string& name) {
            language = name;
            icu::Locale locale(name.c_str());
            auto build = [&](UColAttributeValue strength, bool numeric) {
                UErrorCode status = U_ZERO_ERROR;
                std::unique_ptr<icu::Collator> made(icu::Collator::createInstance(locale, status));
                if (U_FAILURE(status) || !made) {
                    return std::unique_ptr<icu::Collator>();
                }
                made->setAttribute(UCOL_STRENGTH, strength, status);
                if (numeric) {
                    made->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
                }
                return made;
            };
            plain = build(UCOL_TERTIARY, false);
            caseless = build(UCOL_SECONDARY, false);
            standard = build(UCOL_TERTIARY, true);
        }
    };
    thread_local Collators collators;
    std::string language = currentLanguage();
    if (!collators.plain || collators.language != language) {
        collators.make(language);
    }
    switch (comparison) {
        case StringComparison::Localized:
            return collators.plain.get();
        case StringComparison::LocalizedCaseInsensitive:
            return collators.caseless.get();
        default:
            return collators.standard.get();
    }
}

std::weak_ordering compareStrings(const std::string& a, const std::string& b, StringComparison comparison) {
    switch (comparison) {
        case StringComparison::Compare:
            return a.compare(b) <=> 0;
        case StringComparison::CaseInsensitive:
            return foldedString(a, kFoldCase).compare(foldedString(b, kFoldCase)) <=> 0;
        default:
            break;
    }
    const icu::Collator* used = collator(comparison);
    if (used == nullptr) {
        return a.compare(b) <=> 0;
    }
    UErrorCode status = U_ZERO_ERROR;
    UCollationResult result = used->compareUTF8(icu::StringPiece(a.data(), static_cast<int32_t>(a.size())),
                                                icu::StringPiece(b.data(), static_cast<int32_t>(b.size())), status);
    if (U_FAILURE(status)) {
        return a.compare(b) <=> 0;
    }
    if (result == UCOL_EQUAL) {
        return std::weak_ordering::equivalent;
    }
    return result == UCOL_LESS ? std::weak_ordering::less : std::weak_ordering::greater;
}

}  // namespace

std::weak_ordering SortDescriptor::compareValues(const Value& a, const Value& b) const {
    std::weak_ordering order = std::weak_ordering::equivalent;
    int rankA = typeRank(a);
    int rankB = typeRank(b);
    if (rankA != rankB) {
        order = rankA <=> rankB;
    } else if (const std::string* textA = a.string()) {
        order = compareStrings(*textA, *b.string(), comparison);
    } else if (rankA == 1 || rankA == 3) {
        order = toWeak(a.compare(b));
    }
    if (!ascending) {
        order = 0 <=> order;
    }
    return order;
}

struct SortComparator::Impl {
    std::vector<SortDescriptor> descriptors;
    std::vector<KeyPath> paths;
};

SortComparator::SortComparator(const std::vector<SortDescriptor>& descriptors) : m_impl(std::make_unique<Impl>()) {
    m_impl->descriptors = descriptors;
    for (const auto& descriptor : descriptors) {
        m_impl->paths.push_back(KeyPath::parse(descriptor.key));
    }
}

SortComparator::~SortComparator() = default;
SortComparator::SortComparator(const SortComparator& other) : m_impl(std::make_unique<Impl>(*other.m_impl)) {}
SortComparator& SortComparator::operator=(const SortComparator& other) {
    if (this != &other) {
        m_impl = std::make_unique<Impl>(*other.m_impl);
    }
    return *this;
}

std::weak_ordering SortComparator::compare(const Value& a, const Value& b) const {
    for (size_t index = 0; index < m_impl->descriptors.size(); ++index) {
        const KeyPath& path = m_impl->paths[index];
        std::weak_ordering order = m_impl->descriptors[index].compareValues(path.evaluate(a), path.evaluate(b));
        if (order != 0) {
            return order;
        }
    }
    return std::weak_ordering::equivalent;
}

namespace {

// Evaluates every element's keys once, sorts positions stably by them, and answers the
// permutation.
std::vector<size_t> sortedOrder(size_t count, const std::vector<SortDescriptor>& descriptors,
                                const std::function<Value(size_t)>& element) {
    std::vector<KeyPath> paths;
    for (const auto& descriptor : descriptors) {
        paths.push_back(KeyPath::parse(descriptor.key));
    }
    std::vector<Value> keys(count * paths.size());
    for (size_t index = 0; index < count; ++index) {
        Value value = element(index);
        for (size_t key = 0; key < paths.size(); ++key) {
            keys[index * paths.size() + key] = paths[key].evaluate(value);
        }
    }
    std::vector<size_t> order(count);
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        for (size_t key = 0; key < paths.size(); ++key) {
            std::weak_ordering result =
                descriptors[key].compareValues(keys[a * paths.size() + key], keys[b * paths.size() + key]);
            if (result != 0) {
                return result < 0;
            }
        }
        return false;
    });
    return order;
}

}  // namespace

void sortValues(std::vector<Value>& values, const std::vector<SortDescriptor>& descriptors) {
    if (descriptors.empty() || values.size() < 2) {
        return;
    }
    std::vector<size_t> order = sortedOrder(values.size(), descriptors, [&](size_t index) { return values[index]; });
    std::vector<Value> sorted;
    sorted.reserve(values.size());
    for (size_t index : order) {
        sorted.push_back(std::move(values[index]));
    }
    values = std::move(sorted);
}

void sortObjects(std::vector<Object*>& objects, const std::vector<SortDescriptor>& descriptors) {
    if (descriptors.empty() || objects.size() < 2) {
        return;
    }
    std::vector<size_t> order =
        sortedOrder(objects.size(), descriptors, [&](size_t index) { return Value(objects[index]); });
    std::vector<Object*> sorted;
    sorted.reserve(objects.size());
    for (size_t index : order) {
        sorted.push_back(objects[index]);
    }
    objects = std::move(sorted);
}

}  // namespace brassline
