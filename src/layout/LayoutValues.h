#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/KeyedArchive.h"
#include "core/Value.h"
#include "layout/LayoutGeometry.h"

namespace brassline {

// A rectangle where one must be archived: "x", "y", "width", "height" as floats.
class BLLayoutRect : public KeyedArchivable {
public:
    static std::shared_ptr<BLLayoutRect> rectWithRect(const Rect& rect);
    const Rect& rect() const { return m_rect; }
    std::string description() const;  // "%f %f %f %f"
    std::string archivedClassName() const override { return "BLLayoutRect"; }
    void encodeWithCoder(KeyedEncoder& coder) const override;
    static std::shared_ptr<KeyedArchivable> decode(KeyedDecoder& coder);

private:
    Rect m_rect;
};

// A form field of a backdrop PDF that is carried into the output: the annotation's class
// ("PDFAnnotationTextWidget", "PDFAnnotationLink") and a uid under which the rendering
// layer keeps the annotation itself.
class BLPDFAnnotation : public KeyedArchivable {
public:
    BLPDFAnnotation(std::string classNameString, std::string uid)
        : m_classNameString(std::move(classNameString)), m_uid(std::move(uid)) {}
    const std::string& classNameString() const { return m_classNameString; }
    const std::string& uid() const { return m_uid; }
    std::string archivedClassName() const override { return "BLPDFAnnotation"; }
    void encodeWithCoder(KeyedEncoder& coder) const override;
    static std::shared_ptr<KeyedArchivable> decode(KeyedDecoder& coder);

private:
    std::string m_classNameString;
    std::string m_uid;
};

// A run of document items of one option block (the option may be none).
struct BLLayoutItems {
    std::vector<Object*> items;
    Object* option = nullptr;
    static BLLayoutItems itemsWithOption(Object* option) { return BLLayoutItems{{}, option}; }
};

}  // namespace brassline
