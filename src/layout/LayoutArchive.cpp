#include "layout/LayoutArchive.h"

#include <algorithm>

#include "core/Localization.h"
#include "core/Log.h"
#include "layout/BLLayoutTextView.h"
#include "layout/LayoutClasses.h"

namespace brassline {

namespace {

std::string memberString(const KeyedNode& node) {
    return node.value.string() != nullptr ? *node.value.string() : std::string();
}

LayoutRecord recordFromNode(const KeyedNode& node) {
    LayoutRecord record;
    for (size_t i = 0; i < node.keys.size() && i < node.elements.size(); ++i) {
        const std::string& key = node.keys[i];
        const KeyedNode& member = node.elements[i];
        if (key == "view") {
            record.view = std::dynamic_pointer_cast<BLView>(member.object);
        } else if (key == "identifier") {
            record.identifier = memberString(member);
        } else if (key == "name") {
            record.name = memberString(member);
        } else if (key == "uid") {
            record.uid = memberString(member);
        } else {
            record.otherMembers.emplace_back(key, member);
        }
    }
    return record;
}

KeyedNode nodeFromRecord(const LayoutRecord& record) {
    std::vector<std::string> keys;
    std::vector<KeyedNode> values;
    if (record.view) {
        keys.emplace_back("view");
        values.push_back(KeyedNode::fromObject(record.view));
    }
    for (const auto& [key, text] : {std::pair<const char*, const std::string*>{"identifier", &record.identifier},
                                    {"name", &record.name},
                                    {"uid", &record.uid}}) {
        if (!text->empty()) {
            keys.emplace_back(key);
            values.push_back(KeyedNode::fromValue(Value(*text)));
        }
    }
    for (const auto& [key, member] : record.otherMembers) {
        keys.push_back(key);
        values.push_back(member);
    }
    return KeyedNode::dictionary(std::move(keys), std::move(values), "NSMutableDictionary");
}

ViewPtr copyOf(const BLView& view) {
    return view.clone();
}

// The system-dependent text colours become a fixed black.
ColorMatch systemTextColors() {
    return [](const BLColor* color) {
        if (color == nullptr) {
            return true;
        }
        const std::string name = color->colorName();
        return name == "controlTextColor" || name == "textColor";
    };
}

}  // namespace

std::string LayoutRecord::lookupIdentifier() const {
    if (!identifier.empty()) {
        return identifier;
    }
    const auto* editing = dynamic_cast<const BLLayoutEditingView*>(view.get());
    return editing != nullptr ? editing->identifier() : std::string();
}

bool matchesLike(std::string_view text, std::string_view pattern) {
    // Iterative wildcard match with one backtrack point: linear in practice, never recursive.
    size_t t = 0;
    size_t p = 0;
    size_t star = std::string_view::npos;
    size_t mark = 0;
    while (t < text.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++t;
            ++p;
        } else if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            mark = t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

std::optional<LayoutArchive> readLayoutArchive(const Bytes& data, std::string* error) {
    registerLayoutClasses();
    LayoutArchive archive;
    if (data.empty()) {
        return archive;
    }
    std::string reason;
    const std::optional<KeyedNode> root = KeyedUnarchiver::unarchiveNodeWithData(data, &reason);
    if (!root) {
        if (error != nullptr) {
            *error = reason;
        }
        return std::nullopt;
    }
    if (root->kind != KeyedNode::Kind::Dictionary && root->kind != KeyedNode::Kind::Null) {
        if (error != nullptr) {
            *error = "Layout: the archive's root is no dictionary";
        }
        return std::nullopt;
    }
    archive.pages = layoutRecordsFromNode(root->member("pages"));
    archive.tableSections = layoutRecordsFromNode(root->member("tableSections"));
    return archive;
}

Bytes writeLayoutArchive(const LayoutArchive& archive) {
    std::vector<std::string> keys;
    std::vector<KeyedNode> values;
    const auto add = [&](const char* key, const std::vector<LayoutRecord>& records) {
        if (records.empty()) {
            return;
        }
        std::vector<KeyedNode> list;
        for (const LayoutRecord& record : records) {
            list.push_back(nodeFromRecord(record));
        }
        keys.emplace_back(key);
        values.push_back(KeyedNode::array(std::move(list), "NSMutableArray"));
    };
    add("pages", archive.pages);
    add("tableSections", archive.tableSections);
    std::string error;
    std::optional<Bytes> bytes = KeyedArchiver::archivedDataWithRootNode(
        KeyedNode::dictionary(std::move(keys), std::move(values), "NSMutableDictionary"), &error);
    return bytes.value_or(Bytes());
}

std::vector<LayoutRecord> layoutRecordsFromNode(const KeyedNode* list) {
    std::vector<LayoutRecord> records;
    if (list == nullptr || list->kind != KeyedNode::Kind::Array) {
        return records;
    }
    for (const KeyedNode& element : list->elements) {
        if (element.kind == KeyedNode::Kind::Dictionary) {
            records.push_back(recordFromNode(element));
        }
    }
    return records;
}

const std::vector<std::string>& layoutTableOrder() {
    static const std::vector<std::string> order = {"lead",           "header", "item",     "title",
                                                   "options",        "notes",  "subtotal", "discount",
                                                   "partialinvoice", "net",    "tax",      "totalBeforePayments",
                                                   "payment",        "total",  "footer"};
    return order;
}

RestoredLayout restoreLayoutArchive(const Bytes& data) {
    registerLayoutClasses();
    RestoredLayout result;
    std::optional<LayoutArchive> archive = readLayoutArchive(data, &result.error);
    if (!archive) {
        logMessage("%@", result.error);
        archive = LayoutArchive();
    }
    std::vector<LayoutRecord> sections;
    double widest = 0.0;
    for (LayoutRecord& record : archive->tableSections) {
        if (std::dynamic_pointer_cast<BLLayoutTableSectionView>(record.view)) {
            widest = std::max(widest, singlePrecision(record.view->width()));
            sections.push_back(std::move(record));
        }
    }
    const auto findSection = [&](const std::string& identifier) -> LayoutRecord* {
        for (LayoutRecord& record : sections) {
            if (matchesLike(record.lookupIdentifier(), identifier)) {
                return &record;
            }
        }
        return nullptr;
    };
    for (const std::string& identifier : layoutTableOrder()) {
        if (identifier == "options" || identifier == "partialinvoice" || findSection(identifier) != nullptr) {
            continue;
        }
        auto view = std::make_shared<BLLayoutTableSectionView>("ZPLayoutTableSectionView");
        view->setFrame({0.0, 0.0, widest, 20.0});
        view->setIdentifier(identifier);
        sections.push_back({view, identifier, identifier, {}, {}});
    }
    const auto derive = [&](const std::string& identifier, const std::string& from) -> BLLayoutTableSectionView* {
        if (findSection(identifier) != nullptr) {
            return nullptr;
        }
        const LayoutRecord* source = findSection(from);
        auto copy =
            source != nullptr ? std::dynamic_pointer_cast<BLLayoutTableSectionView>(copyOf(*source->view)) : nullptr;
        if (!copy) {
            return nullptr;
        }
        copy->setIdentifier(identifier);
        sections.push_back({copy, identifier, identifier, {}, {}});
        return copy.get();
    };
    derive("options", "title");
    if (BLLayoutTableSectionView* partial = derive("partialinvoice", "totalBeforePayments")) {
        BLLayoutTextView* rightmost = nullptr;
        for (const ViewPtr& view : partial->subviews()) {
            auto* text = dynamic_cast<BLLayoutTextView*>(view.get());
            if (text != nullptr && (rightmost == nullptr || text->right() > rightmost->right())) {
                rightmost = text;
            }
        }
        if (rightmost != nullptr) {
            rightmost->setWidth(rightmost->right());
            rightmost->setLeft(0.0);
            rightmost->setString("<percentage/> " + localizedString("share of") + " <amount/> = <cost/>");
        }
    }
    const auto position = [](const LayoutRecord& record) {
        const auto& order = layoutTableOrder();
        return std::find(order.begin(), order.end(), record.lookupIdentifier()) - order.begin();
    };
    std::stable_sort(sections.begin(), sections.end(),
                     [&](const LayoutRecord& a, const LayoutRecord& b) { return position(a) < position(b); });
    if (sections.size() == layoutTableOrder().size()) {
        // The position in the list decides, whatever identifier a section held.
        for (size_t i = 0; i < sections.size(); ++i) {
            sections[i].identifier = layoutTableOrder()[i];
            if (auto* view = dynamic_cast<BLLayoutEditingView*>(sections[i].view.get())) {
                view->setIdentifier(layoutTableOrder()[i]);
            }
        }
    }
    std::vector<LayoutRecord> pages;
    for (LayoutRecord& record : archive->pages) {
        if (std::dynamic_pointer_cast<BLLayoutPageView>(record.view)) {
            pages.push_back(std::move(record));
        }
    }
    {
        const std::shared_ptr<BLColor> black = BLColor::black();
        Object* document = nullptr;
        for (LayoutRecord& record : pages) {
            record.view->migrateLegacy();
            record.view->setupDefaultsForDocument(document);
            record.view->replaceColor(systemTextColors(), black);
        }
        for (LayoutRecord& record : sections) {
            record.view->adjustToSubviews();
            record.view->migrateLegacy();
            record.view->setupDefaultsForDocument(document);
            record.view->replaceColor(systemTextColors(), black);
        }
    }
    result.archive = {std::move(pages), std::move(sections)};
    return result;
}

}  // namespace brassline
