#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/KeyedArchive.h"
#include "core/Value.h"
#include "layout/LayoutGeometry.h"
#include "layout/PlatformValues.h"

namespace brassline {

class BLView;
using ViewPtr = std::shared_ptr<BLView>;
// Which colours a replacement takes: nullptr stands for "no colour set".
using ColorMatch = std::function<bool(const BLColor* color)>;
using TranslationDictionary = std::map<std::string, std::string>;

// The base of every layout element, in the manner of the platform's view: a frame in its
// superview's coordinates (points, top-left origin, y down: every element is flipped), its
// subviews and a hidden flag. It archives as the platform view does ("NSFrame" as a
// rectangle string, "NSSubviews", "NSvFlags" with the hidden bit), and subclasses add their
// own keys. The operations below walk the subviews unless a class does its own part; those
// that fill or measure text do their work in the text element. Main thread only.
class BLView : public KeyedArchivable, public std::enable_shared_from_this<BLView> {
public:
    explicit BLView(std::string className = "NSView") : m_className(std::move(className)) {}
    ~BLView() override;
    BLView(const BLView&) = delete;
    BLView& operator=(const BLView&) = delete;

    // Archiving. `initWithCoder` reads what `encodeWithCoder` wrote; on damaged fields the
    // coder has failed and the archive as a whole answers nothing.
    std::string archivedClassName() const override { return m_className; }
    std::vector<std::string> archivedSuperclassNames() const override;
    void encodeWithCoder(KeyedEncoder& coder) const override;
    virtual void initWithCoder(KeyedDecoder& coder);
    // Called once the whole archive is read (legacy pages turn their guides into a table).
    virtual void awakeAfterDecoding() {}

    const std::string& className() const { return m_className; }
    // Whether the class is `name` or inherits from it, by the layout class table.
    bool isKindOfClass(std::string_view name) const;

    // Geometry.
    const Rect& frame() const { return m_frame; }
    virtual void setFrame(const Rect& frame);
    Rect bounds() const { return {0.0, 0.0, m_frame.width, m_frame.height}; }
    bool isFlipped() const { return true; }
    double left() const { return m_frame.x; }
    double top() const { return m_frame.y; }
    double width() const { return m_frame.width; }
    double height() const { return m_frame.height; }
    double right() const { return m_frame.right(); }
    double bottom() const { return m_frame.bottom(); }
    void setLeft(double value);
    void setTop(double value);
    void setWidth(double value);
    virtual void setHeight(double value);
    void setRight(double value);   // Moves the element so that its right edge is there.
    void setBottom(double value);  // Likewise for the bottom edge.
    virtual double displayHeight() const { return m_frame.height; }
    virtual Rect displayFrame() const { return {0.0, 0.0, m_frame.width, displayHeight()}; }
    // 0 every page, -1 only the first, 1 only the last; other values leave the element be.
    virtual int64_t pageMode() const { return 0; }
    virtual Rect spacingRect() const { return {}; }
    std::shared_ptr<BLBezierPath> spacingPath() const;
    // A deep copy through the archive; nullptr only if the element can't be archived.
    ViewPtr clone() const;
    virtual bool canRemove() const { return true; }

    bool isHidden() const { return m_hidden; }
    void setHidden(bool hidden) { m_hidden = hidden; }

    // The tree. A view belongs to one superview; adding it elsewhere moves it.
    const std::vector<ViewPtr>& subviews() const { return m_subviews; }
    BLView* superview() const { return m_superview; }
    virtual void addSubview(ViewPtr view);
    void insertSubview(ViewPtr view, size_t index);
    void removeFromSuperview();
    void removeAllSubviews();

    // Operations of every element.
    virtual void substituteValues(const Value::Dictionary* values);
    virtual void substituteValuesConditional(const Value::Dictionary& values);
    virtual void hideItemsWithKey(std::string_view key);
    virtual void localizeWithDictionary(const TranslationDictionary& dictionary);
    virtual void migrateLegacy();
    virtual void migrateQuantity();
    virtual void migrateLogoPlaceholder();
    virtual void setupDefaultsForDocument(Object* document);
    virtual void appendTranslationDictionary(TranslationDictionary& dictionary) const;
    virtual void setTranslationDictionary(const TranslationDictionary& dictionary);
    virtual void collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const;
    virtual void collectStrings(std::vector<std::string>& strings) const;
    virtual void collectClasses(std::set<std::string>& classes) const;
    virtual void addFonts(std::set<std::string>& fonts) const;
    virtual void replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement);
    virtual void adjustToSubviews();
    virtual void updateTextPaths();

    // Reference representations: what comparisons, exports and the editor read.
    virtual Value::Dictionary compareDictionary() const;
    virtual Value layoutDictionaryRepresentation() const;
    virtual Value::Dictionary layoutInfoDictionary() const;

protected:
    // For subclasses' compareDictionary: a colour as text, or nothing.
    static void addColor(Value::Dictionary& dictionary, const char* key, const std::shared_ptr<BLColor>& color);
    // A colour field of an element, read from the archive; nullptr when absent.
    static std::shared_ptr<BLColor> decodeColor(KeyedDecoder& coder, std::string_view key);
    static void replaceColorIn(std::shared_ptr<BLColor>& color, const ColorMatch& match,
                               const std::shared_ptr<BLColor>& replacement);

    std::string m_className;
    Rect m_frame;
    bool m_hidden = false;
    std::vector<ViewPtr> m_subviews;
    BLView* m_superview = nullptr;
};

// Makes a view from its archive under any class name of the layout class table; nullptr
// for a class that is no view.
ViewPtr viewFromArchive(const Bytes& data, std::string* error = nullptr);
Bytes archiveOfView(const BLView& view);

// A view cast to a class of the tree; nullptr when it is another kind.
template <typename Type>
Type* viewAs(const ViewPtr& view) {
    return dynamic_cast<Type*>(view.get());
}

}  // namespace brassline
