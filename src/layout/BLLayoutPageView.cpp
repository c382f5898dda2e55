#include "layout/BLLayoutPageView.h"

#include <algorithm>
#include <cmath>

#include "core/UniqueId.h"
#include "layout/LayoutClasses.h"
#include "layout/LayoutValues.h"

namespace brassline {

BackdropHooks& backdropHooks() {
    static BackdropHooks hooks;
    return hooks;
}

BLLayoutPageView::BLLayoutPageView(std::string className) : BLLayoutPastingView(std::move(className)) {
    if (this->className() == "ZPLayoutExtraPageView") {
        setIdentifier("extrapage_" + uniqueBase64String());
    }
}

void BLLayoutPageView::encodeWithCoder(KeyedEncoder& coder) const {
    BLLayoutPastingView::encodeWithCoder(coder);
    coder.encodeInt(m_backDropIndex, "backDropIndex");
    if (m_encodeImage) {
        if (m_image) {
            coder.encodeObject(m_image.get(), "image");
        }
        std::vector<const KeyedArchivable*> annotations;
        for (const auto& annotation : m_annotations) {
            annotations.push_back(annotation.get());
        }
        coder.encodeObjects(annotations, "annotations");
    } else if (!m_pdfData.empty()) {
        coder.encodeValue(Value(m_pdfData), "pdfData");
    }
    if (!m_source.empty()) {
        coder.encodeString(m_source, "source");
    }
    if (!m_sourcePath.empty()) {
        coder.encodeString(m_sourcePath, "sourcePath");
    }
}

void BLLayoutPageView::initWithCoder(KeyedDecoder& coder) {
    BLLayoutPastingView::initWithCoder(coder);
    m_backDropIndex = coder.decodeIntForKey("backDropIndex");
    m_pdfData = coder.decodeBytesForKey("pdfData");
    m_source = coder.decodeStringForKey("source");
    m_sourcePath = coder.decodeStringForKey("sourcePath");
    if (coder.containsValueForKey("image")) {
        m_image = std::dynamic_pointer_cast<BLImage>(coder.decodeObjectForKey("image"));
    }
    if (coder.containsValueForKey("annotations")) {
        std::vector<std::shared_ptr<BLPDFAnnotation>> annotations;
        for (const auto& object : coder.decodeObjectsForKey("annotations")) {
            if (auto annotation = std::dynamic_pointer_cast<BLPDFAnnotation>(object)) {
                annotations.push_back(std::move(annotation));
            }
        }
        setAnnotations(std::move(annotations));
    }
    if (!m_image && !coder.hasFailed()) {
        updateBackdrop();
    }
}

void BLLayoutPageView::awakeAfterDecoding() {
    if (className() != "ZPLayoutPageView") {
        return;
    }
    // Older pages mark the table area by four guide views.
    Rect table;
    bool hasLeftBound = false;
    for (const ViewPtr& view : std::vector<ViewPtr>(subviews())) {
        const std::string& name = view->className();
        if (name == "ZPLayoutHorizontalLeftBoundView") {
            table.y = view->top();
            hasLeftBound = true;
        } else if (name == "ZPLayoutVerticalTopBoundView") {
            table.x = view->left();
        } else if (name == "ZPLayoutHorizontalRightBoundView") {
            table.height = view->top() - table.y;
        } else if (name == "ZPLayoutVerticalBottomBoundView") {
            table.width = view->left() - table.x;
        } else {
            continue;
        }
        view->removeFromSuperview();
    }
    if (hasLeftBound) {
        auto preview = std::make_shared<BLLayoutTablePreviewView>();
        preview->setFrame(table);
        addSubview(std::move(preview));
    }
}

void BLLayoutPageView::setPdfData(Bytes data) {
    m_pdfData = std::move(data);
    updateBackdrop();
}

void BLLayoutPageView::setSource(std::string source) {
    m_source = std::move(source);
    m_image = nullptr;
    if (!m_source.empty() && backdropHooks().imageFromSource) {
        m_image = backdropHooks().imageFromSource(m_source, frame().size());
    }
}

void BLLayoutPageView::setAnnotations(std::vector<std::shared_ptr<BLPDFAnnotation>> annotations) {
    m_annotations = std::move(annotations);
    m_annotationsSet = true;
}

void BLLayoutPageView::updateBackdrop() {
    m_image = nullptr;
    if (!m_pdfData.empty() && backdropHooks().imageOfPage) {
        m_image = backdropHooks().imageOfPage(m_pdfData, m_backDropIndex);
    }
    if (!m_pdfData.empty() && backdropHooks().annotationsOfPage) {
        setAnnotations(backdropHooks().annotationsOfPage(m_pdfData, m_backDropIndex));
    } else {
        m_annotations.clear();
        m_annotationsSet = false;
    }
}

Value::Dictionary BLLayoutPageView::compareDictionary() const {
    Value::Dictionary result = BLLayoutPastingView::compareDictionary();
    if (!m_pdfData.empty()) {
        result.insert_or_assign("pdfData", Value(md5Hex(m_pdfData)));
    }
    result.insert_or_assign("frame", Value(stringFromSize(frame().size())));
    result.insert_or_assign("source", Value(m_source));
    return result;
}

Value::Dictionary BLLayoutPageView::layoutInfoDictionary() const {
    Value::Dictionary result = BLLayoutPastingView::layoutInfoDictionary();
    if (const BLLayoutTableView* table = tableView()) {
        result.emplace("tableView", Value(table->layoutInfoDictionary()));
    }
    return result;
}

BLLayoutTableView* BLLayoutPageView::tableView() const {
    for (const ViewPtr& view : subviews()) {
        if (view->className() == "BLLayoutTablePreviewView") {
            return dynamic_cast<BLLayoutTableView*>(view.get());
        }
    }
    return nullptr;
}

bool BLLayoutPageView::canTakeTable() {
    while (BLLayoutTableView* table = tableView()) {
        table->removeFromSuperview();
    }
    return identifier().rfind("extrapage", 0) != 0;
}

BLLayoutTableView* BLLayoutPageView::setupForPreview() {
    BLLayoutTableView* preview = tableView();
    if (preview == nullptr) {
        return nullptr;
    }
    auto table = std::make_shared<BLLayoutTableView>();
    table->setFrame(preview->frame().integral());
    table->takeSettingsFrom(*preview);
    const auto& views = subviews();
    const auto position = static_cast<size_t>(
        std::find_if(views.begin(), views.end(), [&](const ViewPtr& v) { return v.get() == preview; }) - views.begin());
    preview->removeFromSuperview();
    BLLayoutTableView* result = table.get();
    insertSubview(std::move(table), position);
    return result;
}

void BLLayoutPageView::applyPageModes(const std::vector<BLLayoutPageView*>& pages) {
    std::vector<BLLayoutPageView*> run;
    for (BLLayoutPageView* page : pages) {
        if (page != nullptr && page->identifier().find("extra") == std::string::npos) {
            run.push_back(page);
        }
    }
    const bool isFirst = !run.empty() && run.front() == this;
    const bool isLast = !run.empty() && run.back() == this;
    for (const ViewPtr& view : subviews()) {
        switch (view->pageMode()) {
            case -1:
                view->setHidden(!isFirst);
                break;
            case 1:
                view->setHidden(!isLast);
                break;
            case 0:
                view->setHidden(false);
                break;
            default:
                break;
        }
    }
}

}  // namespace brassline
