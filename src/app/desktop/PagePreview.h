#pragma once

#include <QImage>
#include <QWidget>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace brassline {
class BLSendable;
}

namespace brassline::desktop {

// Where the layout engine plugs into the window. It paints a document's pages through its
// own cairo drawing into pixel buffers the preview owns (32-bit premultiplied ARGB in
// native byte order, cairo's CAIRO_FORMAT_ARGB32, which QImage reads as
// Format_ARGB32_Premultiplied), so the window shows exactly what the PDF will hold.
// Empty until the layout subsystem installs it; then the preview draws its pages.
struct PageRendererHooks {
    // The pages of the document laid out now, with their size in points; nothing when
    // the document can't be laid out (the reason goes to the log).
    std::function<std::optional<std::vector<std::pair<double, double>>>(BLSendable&)> layoutPages;
    // Draws page `page` scaled by `scale` into the buffer; false when it can't.
    std::function<bool(BLSendable&, size_t page, double scale, uint8_t* pixels, int width, int height, int stride)>
        drawPage;
};
PageRendererHooks& pageRendererHooks();

// The document's pages, one under the other, as the layout engine draws them. Until the
// engine is installed the preview says so instead of showing a page it can't draw.
class PagePreview : public QWidget {
    Q_OBJECT
public:
    explicit PagePreview(QWidget* parent = nullptr);
    // Lays the document out again and redraws; null clears the preview.
    void showDocument(BLSendable* document);
    size_t pageCount() const { return m_pages.size(); }
    const QString& message() const { return m_message; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::vector<QImage> m_pages;
    QString m_message;
};

}  // namespace brassline::desktop
