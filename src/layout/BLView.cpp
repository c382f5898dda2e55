#include "layout/BLView.h"

#include <algorithm>

#include "core/Log.h"
#include "layout/LayoutClasses.h"

namespace brassline {

namespace {

// The platform view keeps "hidden" in the top bit of its flags.
constexpr int64_t kHiddenFlag = 0x80000000;

}  // namespace

BLView::~BLView() {
    for (const ViewPtr& view : m_subviews) {
        if (view && view->m_superview == this) {
            view->m_superview = nullptr;
        }
    }
}

std::vector<std::string> BLView::archivedSuperclassNames() const {
    return layoutSuperclassNames(m_className);
}

bool BLView::isKindOfClass(std::string_view name) const {
    return isLayoutClassKindOf(m_className, name);
}

void BLView::encodeWithCoder(KeyedEncoder& coder) const {
    coder.encodeString(stringFromRect(m_frame), "NSFrame");
    if (!m_subviews.empty()) {
        std::vector<KeyedNode> subviews;
        subviews.reserve(m_subviews.size());
        for (const ViewPtr& view : m_subviews) {
            subviews.push_back(KeyedNode::fromObject(view));
        }
        coder.encodeNode(KeyedNode::array(std::move(subviews), "NSMutableArray"), "NSSubviews");
    }
    if (m_hidden) {
        coder.encodeInt(kHiddenFlag, "NSvFlags");
    }
}

void BLView::initWithCoder(KeyedDecoder& coder) {
    if (coder.containsValueForKey("NSFrame")) {
        const std::string frame = coder.decodeStringForKey("NSFrame");
        if (const std::optional<Rect> rect = rectFromString(frame)) {
            m_frame = *rect;
        }
    }
    m_hidden = (coder.decodeIntForKey("NSvFlags") & kHiddenFlag) != 0;
    const KeyedNode subviews = coder.decodeNodeForKey("NSSubviews");
    for (const KeyedNode& element : subviews.elements) {
        if (auto view = std::dynamic_pointer_cast<BLView>(element.object)) {
            if (view.get() != this && view->m_superview == nullptr) {
                addSubview(std::move(view));
            }
        } else if (element.kind != KeyedNode::Kind::Null) {
            logMessage("Layout: a subview of %@ is no element and is left out", m_className);
        }
    }
}

void BLView::setFrame(const Rect& frame) {
    m_frame = frame;
}

void BLView::setLeft(double value) {
    Rect frame = m_frame;
    frame.x = value;
    setFrame(frame);
}

void BLView::setTop(double value) {
    Rect frame = m_frame;
    frame.y = value;
    setFrame(frame);
}

void BLView::setWidth(double value) {
    Rect frame = m_frame;
    frame.width = value;
    setFrame(frame);
}

void BLView::setHeight(double value) {
    Rect frame = m_frame;
    frame.height = value;
    setFrame(frame);
}

void BLView::setRight(double value) {
    setLeft(value - m_frame.width);
}

void BLView::setBottom(double value) {
    setTop(value - m_frame.height);
}

std::shared_ptr<BLBezierPath> BLView::spacingPath() const {
    const Rect rect = spacingRect();
    return rect.isEmpty() ? nullptr : BLBezierPath::pathWithRect(rect);
}

ViewPtr BLView::clone() const {
    return viewFromArchive(archiveOfView(*this));
}

void BLView::addSubview(ViewPtr view) {
    if (!view || view.get() == this) {
        return;
    }
    view->removeFromSuperview();
    view->m_superview = this;
    m_subviews.push_back(std::move(view));
}

void BLView::insertSubview(ViewPtr view, size_t index) {
    if (!view || view.get() == this) {
        return;
    }
    view->removeFromSuperview();
    view->m_superview = this;
    index = std::min(index, m_subviews.size());
    m_subviews.insert(m_subviews.begin() + static_cast<std::ptrdiff_t>(index), std::move(view));
}

void BLView::removeFromSuperview() {
    BLView* parent = m_superview;
    if (parent == nullptr) {
        return;
    }
    m_superview = nullptr;
    // The parent's entry may be the last owner of this view: keep it alive until we return.
    ViewPtr keep;
    auto& siblings = parent->m_subviews;
    const auto found =
        std::find_if(siblings.begin(), siblings.end(), [&](const ViewPtr& v) { return v.get() == this; });
    if (found != siblings.end()) {
        keep = std::move(*found);
        siblings.erase(found);
    }
}

void BLView::removeAllSubviews() {
    for (const ViewPtr& view : m_subviews) {
        view->m_superview = nullptr;
    }
    m_subviews.clear();
}

// The walks copy the list first: a step may remove an element from its superview.

void BLView::substituteValues(const Value::Dictionary* values) {
    std::vector<ViewPtr> ordered = m_subviews;
    // Lower elements first, and images before the rest: text flows around images.
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const ViewPtr& a, const ViewPtr& b) { return a->frame().y > b->frame().y; });
    for (const ViewPtr& view : ordered) {
        if (view->isKindOfClass("BLLayoutImageView")) {
            view->substituteValues(values);
        }
    }
    updateTextPaths();
    for (const ViewPtr& view : ordered) {
        if (!view->isKindOfClass("BLLayoutImageView")) {
            view->substituteValues(values);
        }
    }
}

void BLView::substituteValuesConditional(const Value::Dictionary& values) {
    for (const ViewPtr& view : std::vector<ViewPtr>(m_subviews)) {
        view->substituteValuesConditional(values);
    }
}

void BLView::hideItemsWithKey(std::string_view key) {
    for (const ViewPtr& view : std::vector<ViewPtr>(m_subviews)) {
        view->hideItemsWithKey(key);
    }
}

void BLView::localizeWithDictionary(const TranslationDictionary& dictionary) {
    for (const ViewPtr& view : m_subviews) {
        view->localizeWithDictionary(dictionary);
    }
}

void BLView::migrateLegacy() {
    for (const ViewPtr& view : m_subviews) {
        view->migrateLegacy();
    }
}

void BLView::migrateQuantity() {
    for (const ViewPtr& view : m_subviews) {
        view->migrateQuantity();
    }
}

void BLView::migrateLogoPlaceholder() {
    for (const ViewPtr& view : m_subviews) {
        view->migrateLogoPlaceholder();
    }
}

void BLView::setupDefaultsForDocument(Object* document) {
    for (const ViewPtr& view : m_subviews) {
        view->setupDefaultsForDocument(document);
    }
}

void BLView::appendTranslationDictionary(TranslationDictionary& dictionary) const {
    for (const ViewPtr& view : m_subviews) {
        view->appendTranslationDictionary(dictionary);
    }
}

void BLView::setTranslationDictionary(const TranslationDictionary& dictionary) {
    for (const ViewPtr& view : m_subviews) {
        view->setTranslationDictionary(dictionary);
    }
}

void BLView::collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const {
    for (const ViewPtr& view : m_subviews) {
        view->collectColors(colors);
    }
}

void BLView::collectStrings(std::vector<std::string>& strings) const {
    for (const ViewPtr& view : m_subviews) {
        view->collectStrings(strings);
    }
}

void BLView::collectClasses(std::set<std::string>& classes) const {
    classes.insert(m_className);
    for (const ViewPtr& view : m_subviews) {
        view->collectClasses(classes);
    }
}

void BLView::addFonts(std::set<std::string>& fonts) const {
    for (const ViewPtr& view : m_subviews) {
        view->addFonts(fonts);
    }
}

void BLView::replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) {
    for (const ViewPtr& view : m_subviews) {
        view->replaceColor(match, replacement);
    }
}

void BLView::adjustToSubviews() {
    for (const ViewPtr& view : m_subviews) {
        view->adjustToSubviews();
    }
}

void BLView::updateTextPaths() {}

Value::Dictionary BLView::compareDictionary() const {
    Value::Array subviews;
    subviews.reserve(m_subviews.size());
    for (const ViewPtr& view : m_subviews) {
        subviews.emplace_back(view->compareDictionary());
    }
    Value::Dictionary result{{"frame", Value(stringFromRect(m_frame))},
                             {"subviews", Value(std::move(subviews))},
                             {"className", Value(m_className)}};
    if (m_hidden) {
        result.emplace("hidden", Value(true));
    }
    return result;
}

Value BLView::layoutDictionaryRepresentation() const {
    Value::Array subviews;
    for (const ViewPtr& view : m_subviews) {
        subviews.push_back(view->layoutDictionaryRepresentation());
    }
    return Value(Value::Dictionary{{"className", Value(m_className)},
                                   {"frame", Value(Value::Dictionary{{"x", Value(m_frame.x)},
                                                                     {"y", Value(m_frame.y)},
                                                                     {"width", Value(m_frame.width)},
                                                                     {"height", Value(m_frame.height)}})},
                                   {"subViews", Value(std::move(subviews))}});
}

Value::Dictionary BLView::layoutInfoDictionary() const {
    return {{"className", Value(m_className)}, {"frame", Value(stringFromRect(m_frame))}};
}

void BLView::addColor(Value::Dictionary& dictionary, const char* key, const std::shared_ptr<BLColor>& color) {
    if (color) {
        dictionary.insert_or_assign(key, Value(color->hexString()));
    }
}

std::shared_ptr<BLColor> BLView::decodeColor(KeyedDecoder& coder, std::string_view key) {
    if (!coder.containsValueForKey(key)) {
        return nullptr;
    }
    auto object = coder.decodeObjectForKey(key);
    auto color = std::dynamic_pointer_cast<BLColor>(object);
    if (object && !color) {
        logMessage("Layout: the field %@ holds no colour and is ignored", std::string(key));
    }
    return color;
}

void BLView::replaceColorIn(std::shared_ptr<BLColor>& color, const ColorMatch& match,
                            const std::shared_ptr<BLColor>& replacement) {
    // An unset colour property keeps its default: only set colours are replaced here.
    if (color && match(color.get())) {
        color = replacement;
    }
}

ViewPtr viewFromArchive(const Bytes& data, std::string* error) {
    registerLayoutClasses();
    std::string reason;
    std::shared_ptr<KeyedArchivable> object = KeyedUnarchiver::unarchiveArchivableWithData(data, &reason);
    auto view = std::dynamic_pointer_cast<BLView>(object);
    if (!view && error != nullptr) {
        *error = object ? "Layout: the archive holds no element" : reason;
    }
    return view;
}

Bytes archiveOfView(const BLView& view) {
    return KeyedArchiver::archivedDataWithRootObject(view).value_or(Bytes());
}

}  // namespace brassline
