#pragma once

#include "layout/BLView.h"

namespace brassline {

// The free elements drawn by the layout itself: paths, rectangles, SVG, groups, form
// fields, payment codes, and the stand-in for a class this build doesn't know.
class BLLayoutElementView : public BLView {
public:
    explicit BLLayoutElementView(std::string className = "BLLayoutElementView") : BLView(std::move(className)) {}
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    bool frameLocked() const { return m_frameLocked; }
    void setFrameLocked(bool value) { m_frameLocked = value; }

private:
    bool m_frameLocked = false;
};

class BLLayoutPathView : public BLLayoutElementView {
public:
    explicit BLLayoutPathView(std::string className = "BLLayoutPathView") : BLLayoutElementView(std::move(className)) {}
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    Value::Dictionary compareDictionary() const override;
    Rect spacingRect() const override;
    void collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const override;
    void replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) override;

    std::shared_ptr<BLBezierPath> path;
    std::shared_ptr<BLBezierPath> clippingPath;
    std::shared_ptr<BLColor> fillColor;
    std::shared_ptr<BLColor> strokeColor;
    std::shared_ptr<BLImage> image;
    double spacing = 0.0;
    double lineWidth = 1.0;
    bool wrapText = false;
    bool useFillColor = false;
    bool useStrokeColor = false;
    // Text of an older form of the element, read and left to the drawing layer.
    Bytes legacyStringData;
};

class BLLayoutRectangleView : public BLLayoutElementView {
public:
    explicit BLLayoutRectangleView(std::string className = "BLLayoutRectangleView")
        : BLLayoutElementView(std::move(className)) {}
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    Value::Dictionary compareDictionary() const override;
    void collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const override;
    void replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) override;

    std::shared_ptr<BLColor> backgroundColor;
};

class BLLayoutSVGView : public BLLayoutElementView {
public:
    explicit BLLayoutSVGView(std::string className = "BLLayoutSVGView") : BLLayoutElementView(std::move(className)) {}
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    Value::Dictionary compareDictionary() const override;

    std::string source;
    Value substitutes;
    std::shared_ptr<BLImage> image;  // Made from the source when drawn; not stored.
};

// A group: only its children count as selectable.
class BLLayoutElementGroupView : public BLLayoutElementView {
public:
    explicit BLLayoutElementGroupView(std::string className = "BLLayoutElementGroupView")
        : BLLayoutElementView(std::move(className)) {}
};

// Form fields; their PDF widgets come with the PDF output.
class BLLayoutElementFormView : public BLLayoutElementView {
public:
    explicit BLLayoutElementFormView(std::string className = "BLLayoutElementFormView")
        : BLLayoutElementView(std::move(className)) {}
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    Value::Dictionary compareDictionary() const override;
    bool showOnInvoices = false;
};

// Payment codes. The payload and drawing of each kind belong to the payment-code layer;
// here are the stored settings.
class BLLayoutQRCodeView : public BLLayoutElementView {
public:
    explicit BLLayoutQRCodeView(std::string className = "BLLayoutQRCodeView")
        : BLLayoutElementView(std::move(className)) {}
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    Value::Dictionary compareDictionary() const override;
    int64_t pageMode() const override { return m_pageMode; }
    Rect spacingRect() const override;
    void collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const override;
    void replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) override;
    void setPageMode(int64_t mode) { m_pageMode = mode; }

    Value settings;  // Array of records: "parameterName", "key", "value".
    std::shared_ptr<BLColor> color;
    double spacing = 0.0;
    bool wrapText = false;
    bool useColor = false;
    bool hideOnDirectDebit = false;

private:
    int64_t m_pageMode = 0;
};

// An element of a class this build doesn't know: every archived value is kept and written
// back as it came, under the class name and superclass chain it came with.
class BLLayoutMissingElementView : public BLLayoutElementView {
public:
    explicit BLLayoutMissingElementView(std::string className = "BLLayoutMissingElementView")
        : BLLayoutElementView(std::move(className)) {}
    std::vector<std::string> archivedSuperclassNames() const override;
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    Value::Dictionary compareDictionary() const override;
    const ArchivedFields& archivedValues() const { return m_archivedValues; }
    // What the element shows instead of itself.
    std::string missingMessage() const;

private:
    ArchivedFields m_archivedValues;
    std::vector<std::string> m_superclasses;
};

}  // namespace brassline
