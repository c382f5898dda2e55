#include "app/desktop/PagePreview.h"

#include <QPainter>
#include <cmath>

#include "app/desktop/DesktopText.h"
#include "model/entities/BLSendable.h"

namespace brassline::desktop {

namespace {

// Pages are drawn for a column about this wide; the painter scales them to the widget.
constexpr double kPreviewWidthPixels = 520.0;
constexpr int kPageGap = 16;

}  // namespace

PageRendererHooks& pageRendererHooks() {
    static PageRendererHooks hooks;
    return hooks;
}

PagePreview::PagePreview(QWidget* parent) : QWidget(parent) {
    setMinimumWidth(240);
    setAutoFillBackground(true);
    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, QColor(0xe4, 0xe7, 0xeb));
    setPalette(palette);
    showDocument(nullptr);
}

QSize PagePreview::sizeHint() const {
    return {320, 480};
}

void PagePreview::showDocument(BLSendable* document) {
    m_pages.clear();
    m_message.clear();
    const PageRendererHooks& hooks = pageRendererHooks();
    if (document == nullptr) {
        update();
        return;
    }
    if (!hooks.layoutPages || !hooks.drawPage) {
        m_message = loc("The page preview comes with the layout engine.");
        update();
        return;
    }
    std::optional<std::vector<std::pair<double, double>>> sizes = hooks.layoutPages(*document);
    if (!sizes) {
        m_message = loc("This document can't be laid out.");
        update();
        return;
    }
    for (size_t page = 0; page < sizes->size(); ++page) {
        const auto [widthPoints, heightPoints] = (*sizes)[page];
        const double scale = widthPoints > 0 ? kPreviewWidthPixels / widthPoints : 1.0;
        QImage image(static_cast<int>(std::ceil(widthPoints * scale)),
                     static_cast<int>(std::ceil(heightPoints * scale)), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::white);
        if (!hooks.drawPage(*document, page, scale, image.bits(), image.width(), image.height(),
                            static_cast<int>(image.bytesPerLine()))) {
            m_message = loc("This document can't be laid out.");
            m_pages.clear();
            break;
        }
        m_pages.push_back(std::move(image));
    }
    update();
}

void PagePreview::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    if (m_pages.empty()) {
        painter.setPen(palette().color(QPalette::PlaceholderText));
        painter.drawText(rect().adjusted(24, 24, -24, -24), Qt::AlignCenter | Qt::TextWordWrap, m_message);
        return;
    }
    const int width = std::max(80, this->width() - 2 * kPageGap);
    int y = kPageGap;
    for (const QImage& page : m_pages) {
        const int height = page.width() > 0 ? page.height() * width / page.width() : 0;
        const QRect target(kPageGap, y, width, height);
        painter.fillRect(target.translated(2, 2), QColor(0, 0, 0, 40));
        painter.drawImage(target, page);
        y += height + kPageGap;
    }
}

}  // namespace brassline::desktop
