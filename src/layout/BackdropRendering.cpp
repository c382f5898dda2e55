#include "layout/BackdropRendering.h"

#include <cmath>
#include <map>
#include <mutex>

#include <cairo.h>
#include <poppler.h>

#include "core/Log.h"
#include "core/UniqueId.h"
#include "layout/BLLayoutPageView.h"
#include "layout/LayoutValues.h"

namespace brassline {

namespace {

std::mutex& collectorMutex() {
    static std::mutex mutex;
    return mutex;
}

std::map<std::string, Value>& collector() {
    static std::map<std::string, Value> annotations;
    return annotations;
}

// A poppler document over bytes, closed with its page on every path out.
class PDFPage {
public:
    PDFPage(const Bytes& pdf, int64_t index) {
        m_bytes = g_bytes_new(pdf.data(), pdf.size());
        GError* error = nullptr;
        m_document = poppler_document_new_from_bytes(m_bytes, nullptr, &error);
        if (m_document == nullptr) {
            logMessage("Backdrop: the PDF doesn't open (%@)", std::string(error != nullptr ? error->message : ""));
            g_clear_error(&error);
            return;
        }
        const int count = poppler_document_get_n_pages(m_document);
        m_exists = index >= 0 && index < count;
        if (count > 0) {
            m_page = poppler_document_get_page(m_document, m_exists ? static_cast<int>(index) : 0);
        }
    }
    ~PDFPage() {
        if (m_page != nullptr) {
            g_object_unref(m_page);
        }
        if (m_document != nullptr) {
            g_object_unref(m_document);
        }
        g_bytes_unref(m_bytes);
    }
    PDFPage(const PDFPage&) = delete;
    PDFPage& operator=(const PDFPage&) = delete;

    PopplerPage* page() const { return m_page; }
    // Whether the requested page itself exists (not the first page standing in).
    bool exists() const { return m_exists; }

private:
    GBytes* m_bytes = nullptr;
    PopplerDocument* m_document = nullptr;
    PopplerPage* m_page = nullptr;
    bool m_exists = false;
};

cairo_status_t appendToBytes(void* closure, const unsigned char* data, unsigned int length) {
    auto* bytes = static_cast<Bytes*>(closure);
    bytes->insert(bytes->end(), data, data + length);
    return CAIRO_STATUS_SUCCESS;
}

std::shared_ptr<BLImage> imageOfPage(const Bytes& pdf, int64_t index) {
    const PDFPage page(pdf, index);
    if (page.page() == nullptr) {
        return nullptr;
    }
    double width = 0.0;
    double height = 0.0;
    poppler_page_get_size(page.page(), &width, &height);
    if (!(width > 0.0 && height > 0.0)) {
        return nullptr;
    }
    // Twice the page size: sharp enough for previews and copies on screen.
    const int pixelsWide = static_cast<int>(std::ceil(std::min(width, 14400.0) * 2.0));
    const int pixelsHigh = static_cast<int>(std::ceil(std::min(height, 14400.0) * 2.0));
    if (pixelsWide <= 0 || pixelsHigh <= 0) {
        return nullptr;
    }
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pixelsWide, pixelsHigh);
    cairo_t* cairo = cairo_create(surface);
    cairo_set_source_rgb(cairo, 1.0, 1.0, 1.0);
    cairo_paint(cairo);
    cairo_scale(cairo, 2.0, 2.0);
    poppler_page_render(page.page(), cairo);
    cairo_destroy(cairo);
    Bytes png;
    cairo_surface_write_to_png_stream(surface, &appendToBytes, &png);
    cairo_surface_destroy(surface);
    return BLImage::imageWithData(std::move(png), {width, height});
}

std::shared_ptr<BLPDFAnnotation> collect(const char* type, const PopplerRectangle& area, Value::Dictionary extra) {
    const std::string uid = uniqueBase64String();
    extra.emplace("type", Value(type));
    extra.emplace("rect", Value(stringFromRect({area.x1, area.y1, area.x2 - area.x1, area.y2 - area.y1})));
    const std::lock_guard lock(collectorMutex());
    collector().insert_or_assign(uid, Value(std::move(extra)));
    return std::make_shared<BLPDFAnnotation>(type, uid);
}

std::vector<std::shared_ptr<BLPDFAnnotation>> annotationsOfPage(const Bytes& pdf, int64_t index) {
    std::vector<std::shared_ptr<BLPDFAnnotation>> result;
    const PDFPage page(pdf, index);
    if (page.page() == nullptr || !page.exists()) {
        return result;
    }
    // Only links and text fields are carried into the output.
    GList* links = poppler_page_get_link_mapping(page.page());
    for (GList* item = links; item != nullptr; item = item->next) {
        const auto* mapping = static_cast<PopplerLinkMapping*>(item->data);
        if (mapping->action != nullptr && mapping->action->type == POPPLER_ACTION_URI) {
            const char* uri = mapping->action->uri.uri;
            result.push_back(
                collect("PDFAnnotationLink", mapping->area, {{"uri", Value(std::string(uri != nullptr ? uri : ""))}}));
        }
    }
    poppler_page_free_link_mapping(links);
    GList* fields = poppler_page_get_form_field_mapping(page.page());
    for (GList* item = fields; item != nullptr; item = item->next) {
        const auto* mapping = static_cast<PopplerFormFieldMapping*>(item->data);
        if (poppler_form_field_get_field_type(mapping->field) == POPPLER_FORM_FIELD_TEXT) {
            gchar* name = poppler_form_field_get_name(mapping->field);
            result.push_back(collect("PDFAnnotationTextWidget", mapping->area,
                                     {{"name", Value(std::string(name != nullptr ? name : ""))}}));
            g_free(name);
        }
    }
    poppler_page_free_form_field_mapping(fields);
    return result;
}

}  // namespace

void installBackdropRendering() {
    BackdropHooks& hooks = backdropHooks();
    hooks.imageOfPage = &imageOfPage;
    hooks.annotationsOfPage = &annotationsOfPage;
}

Value backdropAnnotation(const std::string& uid) {
    const std::lock_guard lock(collectorMutex());
    const auto found = collector().find(uid);
    return found != collector().end() ? found->second : Value();
}

}  // namespace brassline
