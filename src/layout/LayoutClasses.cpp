#include "layout/LayoutClasses.h"

#include <functional>
#include <map>
#include <mutex>

#include "layout/BLLayoutElementView.h"
#include "layout/BLLayoutPageView.h"
#include "layout/BLLayoutTableSectionView.h"
#include "layout/BLLayoutTextView.h"
#include "layout/LayoutValues.h"

namespace brassline {

namespace {

using Factory = std::function<ViewPtr(std::string)>;

struct ClassEntry {
    std::string parent;
    Factory make;  // Empty for platform classes that only stand in chains.
};

template <typename Type>
Factory factory() {
    return [](std::string name) -> ViewPtr { return std::make_shared<Type>(std::move(name)); };
}

const std::map<std::string, ClassEntry, std::less<>>& classTable() {
    static const std::map<std::string, ClassEntry, std::less<>> table = {
        {"NSResponder", {"NSObject", {}}},
        {"NSView", {"NSResponder", factory<BLView>()}},
        {"NSText", {"NSView", {}}},
        {"NSTextView", {"NSText", {}}},
        {"NSControl", {"NSView", {}}},
        {"NSImageView", {"NSControl", {}}},
        {"BLLayoutEditingView", {"NSView", factory<BLLayoutEditingView>()}},
        {"BLLayoutDocumentView", {"BLLayoutEditingView", factory<BLLayoutEditingView>()}},
        {"BLLayoutPastingView", {"BLLayoutEditingView", factory<BLLayoutPastingView>()}},
        {"BLLayoutPageView", {"BLLayoutPastingView", factory<BLLayoutPageView>()}},
        {"ZPLayoutPageView", {"BLLayoutPageView", factory<BLLayoutPageView>()}},
        {"ZPLayoutExtraPageView", {"BLLayoutPageView", factory<BLLayoutPageView>()}},
        {"BLLayoutMarginView", {"BLLayoutPageView", factory<BLLayoutPageView>()}},
        {"BLLayoutTableSectionView", {"BLLayoutPastingView", factory<BLLayoutTableSectionView>()}},
        {"ZPLayoutTableSectionView", {"BLLayoutTableSectionView", factory<BLLayoutTableSectionView>()}},
        {"BLLayoutTableView", {"BLLayoutEditingView", factory<BLLayoutTableView>()}},
        {"ZPLayoutTableView", {"BLLayoutTableView", factory<BLLayoutTableView>()}},
        {"BLLayoutTablePreviewView", {"BLLayoutTableView", factory<BLLayoutTablePreviewView>()}},
        {"BLLayoutTextView", {"NSTextView", factory<BLLayoutTextView>()}},
        {"BLLayoutBlackTextView", {"BLLayoutTextView", factory<BLLayoutTextView>()}},
        {"ZPLayoutTextView", {"BLLayoutTextView", factory<BLLayoutTextView>()}},
        {"BLLayoutImageView", {"NSImageView", factory<BLLayoutImageView>()}},
        {"ZPLayoutImageView", {"BLLayoutImageView", factory<BLLayoutImageView>()}},
        {"BLLayoutElementView", {"NSView", factory<BLLayoutElementView>()}},
        {"BLLayoutPathView", {"BLLayoutElementView", factory<BLLayoutPathView>()}},
        {"BLLayoutRectangleView", {"BLLayoutElementView", factory<BLLayoutRectangleView>()}},
        {"BLLayoutSVGView", {"BLLayoutElementView", factory<BLLayoutSVGView>()}},
        {"BLLayoutElementGroupView", {"BLLayoutElementView", factory<BLLayoutElementGroupView>()}},
        {"BLLayoutElementFormView", {"BLLayoutElementView", factory<BLLayoutElementFormView>()}},
        {"BLLayoutTextFieldView", {"BLLayoutElementFormView", factory<BLLayoutElementFormView>()}},
        {"BLLayoutCheckboxView", {"BLLayoutElementFormView", factory<BLLayoutElementFormView>()}},
        {"BLLayoutSignatureView", {"BLLayoutTextFieldView", factory<BLLayoutElementFormView>()}},
        {"BLLayoutQRCodeView", {"BLLayoutElementView", factory<BLLayoutQRCodeView>()}},
        {"BLLayoutESRQRCodeView", {"BLLayoutQRCodeView", factory<BLLayoutQRCodeView>()}},
        {"BLLayoutSEPAQRCodeView", {"BLLayoutQRCodeView", factory<BLLayoutQRCodeView>()}},
        {"BLLayoutStripeQRCodeView", {"BLLayoutQRCodeView", factory<BLLayoutQRCodeView>()}},
        {"BLLayoutPayPalView", {"BLLayoutQRCodeView", factory<BLLayoutQRCodeView>()}},
        {"BLLayoutOCRBView", {"BLLayoutQRCodeView", factory<BLLayoutQRCodeView>()}},
        {"BLLayoutESRCostView", {"BLLayoutOCRBView", factory<BLLayoutQRCodeView>()}},
        {"BLLayoutMissingElementView", {"BLLayoutElementView", factory<BLLayoutMissingElementView>()}},
        // The guides with which older pages marked their table area.
        {"ZPLayoutHorizontalLeftBoundView", {"NSView", factory<BLView>()}},
        {"ZPLayoutVerticalTopBoundView", {"NSView", factory<BLView>()}},
        {"ZPLayoutHorizontalRightBoundView", {"NSView", factory<BLView>()}},
        {"ZPLayoutVerticalBottomBoundView", {"NSView", factory<BLView>()}},
    };
    return table;
}

std::shared_ptr<KeyedArchivable> decodeView(ViewPtr view, KeyedDecoder& coder) {
    view->initWithCoder(coder);
    if (coder.hasFailed()) {
        return nullptr;
    }
    view->awakeAfterDecoding();
    return view;
}

}  // namespace

ViewPtr makeView(std::string_view className) {
    const auto& table = classTable();
    const auto found = table.find(className);
    if (found == table.end() || !found->second.make) {
        return nullptr;
    }
    return found->second.make(std::string(className));
}

std::vector<std::string> layoutSuperclassNames(std::string_view className) {
    std::vector<std::string> chain;
    const auto& table = classTable();
    auto found = table.find(className);
    while (found != table.end() && chain.size() < 16) {
        chain.push_back(found->second.parent);
        found = table.find(found->second.parent);
    }
    if (chain.empty() || chain.back() != "NSObject") {
        chain.emplace_back("NSObject");
    }
    return chain;
}

bool isLayoutClassKindOf(std::string_view className, std::string_view ancestor) {
    if (className == ancestor) {
        return true;
    }
    for (const std::string& name : layoutSuperclassNames(className)) {
        if (name == ancestor) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> layoutClassNames() {
    std::vector<std::string> names;
    for (const auto& [name, entry] : classTable()) {
        if (entry.make) {
            names.push_back(name);
        }
    }
    return names;
}

void registerLayoutClasses() {
    static std::once_flag once;
    std::call_once(once, [] {
        registerPlatformValueClasses();
        KeyedArchiveRegistry& registry = KeyedArchiveRegistry::shared();
        for (const auto& [name, entry] : classTable()) {
            if (!entry.make) {
                continue;
            }
            registry.registerClass(
                name, [make = entry.make](KeyedDecoder& coder) { return decodeView(make(coder.className()), coder); });
        }
        registry.registerClass("BLLayoutRect", &BLLayoutRect::decode);
        registry.registerClass("BLPDFAnnotation", &BLPDFAnnotation::decode);
        // A class this build doesn't know becomes a missing element of that name.
        registry.setFallbackDecoder([](KeyedDecoder& coder) {
            return decodeView(std::make_shared<BLLayoutMissingElementView>(coder.className()), coder);
        });
    });
}

}  // namespace brassline
