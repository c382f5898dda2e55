#include "layout/LayoutValues.h"

#include <cstdio>

namespace brassline {

std::shared_ptr<BLLayoutRect> BLLayoutRect::rectWithRect(const Rect& rect) {
    auto result = std::make_shared<BLLayoutRect>();
    result->m_rect = rect;
    return result;
}

std::string BLLayoutRect::description() const {
    char buffer[128];
    std::snprintf(buffer, sizeof buffer, "%f %f %f %f", m_rect.x, m_rect.y, m_rect.width, m_rect.height);
    return buffer;
}

void BLLayoutRect::encodeWithCoder(KeyedEncoder& coder) const {
    coder.encodeFloat(m_rect.x, "x");
    coder.encodeFloat(m_rect.y, "y");
    coder.encodeFloat(m_rect.width, "width");
    coder.encodeFloat(m_rect.height, "height");
}

std::shared_ptr<KeyedArchivable> BLLayoutRect::decode(KeyedDecoder& coder) {
    return rectWithRect({coder.decodeFloatForKey("x"), coder.decodeFloatForKey("y"), coder.decodeFloatForKey("width"),
                         coder.decodeFloatForKey("height")});
}

void BLPDFAnnotation::encodeWithCoder(KeyedEncoder& coder) const {
    coder.encodeString(m_classNameString, "classNameString");
    coder.encodeString(m_uid, "uid");
}

std::shared_ptr<KeyedArchivable> BLPDFAnnotation::decode(KeyedDecoder& coder) {
    return std::make_shared<BLPDFAnnotation>(coder.decodeStringForKey("classNameString"),
                                             coder.decodeStringForKey("uid"));
}

}  // namespace brassline
