#include "app/desktop/Sources.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include "app/desktop/DesktopText.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLSendable.h"

namespace brassline::desktop {

namespace {

using Kind = ListColumn::Kind;

BLSendable& sendableOf(ManagedObject& object) {
    return static_cast<BLSendable&>(object);
}

QString amountWithCurrency(BLSendable& sendable, const Decimal& amount) {
    QString text = formatAmount(amount);
    if (const BLCurrency* currency = sendable.currency()) {
        const std::string symbol = currency->symbol().value_or(currency->name().value_or(""));
        if (!symbol.empty()) {
            text += QLatin1Char(' ') + qs(symbol);
        }
    }
    return text;
}

std::vector<ListColumn> sendableColumns(const QString& dueTitle) {
    return {
        {loc("Number"), "name", Kind::Text, [](ManagedObject& o) { return qs(sendableOf(o).name()); }, 110},
        {loc("Client"), "client.displayName", Kind::Text,
         [](ManagedObject& o) {
             BLClient* client = sendableOf(o).client();
             return client != nullptr ? qs(client->displayName()) : QString();
         },
         200},
        {loc("Subject"), "subject", Kind::Text, [](ManagedObject& o) { return qs(sendableOf(o).subject()); }, 0},
        {loc("Date"), "activityDate", Kind::Date,
         [](ManagedObject& o) { return formatDate(sendableOf(o).activityDate()); }, 110},
        {dueTitle, "dateDue", Kind::Date, [](ManagedObject& o) { return formatDate(sendableOf(o).dateDue()); }, 110},
        {loc("Amount"), "costWithTaxes", Kind::Amount,
         [](ManagedObject& o) {
             BLSendable& sendable = sendableOf(o);
             return amountWithCurrency(sendable, sendable.costWithTaxes());
         },
         120},
        {loc("State"), "status", Kind::Status, [](ManagedObject&) { return QString(); }, 120},
    };
}

std::vector<std::string> sendableSearchKeys() {
    return {"name", "subject", "client.name", "client.organization", "client.lastName"};
}

}  // namespace

QString sourceTitle(Source source) {
    switch (source) {
        case Source::Clients:
            return loc("Clients");
        case Source::Estimates:
            return loc("Estimates");
        case Source::Invoices:
            return loc("Invoices");
        case Source::CreditNotes:
            return loc("Credit notes");
        case Source::Catalog:
            return loc("Catalog");
        case Source::Layouts:
            return loc("Layouts");
    }
    return {};
}

std::string sourceNewEntity(Source source) {
    switch (source) {
        case Source::Clients:
            return "Client";
        case Source::Estimates:
            return "Estimate";
        case Source::Invoices:
            return "Invoice";
        case Source::Catalog:
            return "CatalogItem";
        case Source::CreditNotes:
        case Source::Layouts:
            break;
    }
    return {};
}

ListDefinition listDefinition(Source source) {
    ListDefinition definition;
    switch (source) {
        case Source::Clients:
            definition.entity = "Client";
            definition.searchKeys = {"name", "organization", "firstName", "lastName", "email", "city", "clientID"};
            definition.columns = {
                {loc("Number"), "clientID", Kind::Text,
                 [](ManagedObject& o) { return qs(static_cast<BLClient&>(o).clientID()); }, 90},
                {loc("Name"), "displayName", Kind::Text,
                 [](ManagedObject& o) { return qs(static_cast<BLClient&>(o).displayName()); }, 0},
                {loc("E-mail"), "email", Kind::Text,
                 [](ManagedObject& o) { return qs(static_cast<BLClient&>(o).email()); }, 220},
                {loc("City"), "city", Kind::Text, [](ManagedObject& o) { return qs(static_cast<BLClient&>(o).city()); },
                 140},
                {loc("Open"), "", Kind::Amount,
                 [](ManagedObject& o) { return qs(static_cast<BLClient&>(o).balance()); }, 140},
            };
            definition.sortColumn = 1;
            break;
        case Source::Estimates:
            definition.entity = "Estimate";
            definition.searchKeys = sendableSearchKeys();
            definition.columns = sendableColumns(loc("Valid until"));
            definition.sortColumn = 3;
            definition.ascending = false;
            break;
        case Source::Invoices:
        case Source::CreditNotes:
            // A credit note is an invoice whose total is below zero.
            definition.entity = "Invoice";
            definition.predicate = source == Source::Invoices ? "costWithTaxes >= 0" : "costWithTaxes < 0";
            definition.searchKeys = sendableSearchKeys();
            definition.columns = sendableColumns(loc("Due"));
            definition.sortColumn = 3;
            definition.ascending = false;
            break;
        case Source::Catalog:
            definition.entity = "CatalogItem";
            definition.searchKeys = {"name", "itemNumber", "notes", "ean"};
            definition.columns = {
                {loc("Item number"), "itemNumber", Kind::Text,
                 [](ManagedObject& o) { return qs(static_cast<BLCatalogItem&>(o).itemNumber()); }, 110},
                {loc("Name"), "name", Kind::Text,
                 [](ManagedObject& o) { return qs(static_cast<BLCatalogItem&>(o).name()); }, 0},
                {loc("Unit"), "unit", Kind::Text,
                 [](ManagedObject& o) { return qs(static_cast<BLCatalogItem&>(o).unit()); }, 90},
                {loc("Price"), "unitPrice", Kind::Amount,
                 [](ManagedObject& o) {
                     return formatAmount(static_cast<BLCatalogItem&>(o).unitPrice().value_or(Decimal()));
                 },
                 110},
                {loc("Item group"), "itemGroup.name", Kind::Text,
                 [](ManagedObject& o) {
                     const BLItemGroup* group = static_cast<BLCatalogItem&>(o).itemGroup();
                     return group != nullptr ? qs(group->name()) : QString();
                 },
                 160},
            };
            definition.sortColumn = 1;
            break;
        case Source::Layouts:
            definition.entity = "Layout";
            definition.searchKeys = {"name"};
            definition.columns = {
                {loc("Name"), "name", Kind::Text, [](ManagedObject& o) { return qs(static_cast<BLLayout&>(o).name()); },
                 0},
                {loc("Paper"), "paperFormat", Kind::Text,
                 [](ManagedObject& o) { return qs(static_cast<BLLayout&>(o).paperFormat()); }, 160},
            };
            break;
    }
    return definition;
}

Glyph sourceGlyph(Source source) {
    switch (source) {
        case Source::Clients:
            return Glyph::Client;
        case Source::Estimates:
            return Glyph::Estimate;
        case Source::Invoices:
            return Glyph::Invoice;
        case Source::CreditNotes:
            return Glyph::CreditNote;
        case Source::Catalog:
            return Glyph::Catalog;
        case Source::Layouts:
            return Glyph::Layout;
    }
    return Glyph::Invoice;
}

namespace {

void drawPage(QPainter& p, const QColor& color, const QString& mark) {
    QPainterPath page;
    page.moveTo(7, 3);
    page.lineTo(19, 3);
    page.lineTo(25, 9);
    page.lineTo(25, 29);
    page.lineTo(7, 29);
    page.closeSubpath();
    p.setPen(QPen(color.darker(130), 1.5));
    p.setBrush(color.lighter(185));
    p.drawPath(page);
    p.drawLine(QPointF(19, 3), QPointF(19, 9));
    p.drawLine(QPointF(19, 9), QPointF(25, 9));
    p.setPen(QPen(color.darker(110), 1.5));
    for (int y = 14; y <= 24; y += 4) {
        p.drawLine(QPointF(10, y), QPointF(y == 24 ? 16 : 22, y));
    }
    if (!mark.isEmpty()) {
        QFont font = p.font();
        font.setPixelSize(10);
        font.setBold(true);
        p.setFont(font);
        p.setPen(color.darker(140));
        p.drawText(QRectF(14, 18, 12, 12), Qt::AlignCenter, mark);
    }
}

}  // namespace

QIcon glyphIcon(Glyph glyph) {
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    const QColor blue(0x1e, 0x6f, 0xc8);
    const QColor green(0x2e, 0x8b, 0x57);
    const QColor orange(0xe0, 0x8a, 0x00);
    const QColor purple(0x7b, 0x4f, 0xa8);
    const QColor red(0xc6, 0x28, 0x28);
    const QColor grey(0x60, 0x66, 0x70);
    switch (glyph) {
        case Glyph::Client:
            p.setPen(Qt::NoPen);
            p.setBrush(blue);
            p.drawEllipse(QRectF(11, 4, 10, 10));
            p.drawPie(QRectF(5, 16, 22, 22), 0, 180 * 16);
            break;
        case Glyph::Estimate:
            drawPage(p, orange, QStringLiteral("?"));
            break;
        case Glyph::Invoice:
            drawPage(p, blue, QString());
            break;
        case Glyph::CreditNote:
            drawPage(p, purple, QStringLiteral("−"));
            break;
        case Glyph::Catalog:
            p.setPen(QPen(green.darker(120), 1.5));
            for (int n = 0; n < 3; ++n) {
                p.setBrush(green.lighter(140 + 20 * n));
                p.drawRoundedRect(QRectF(5 + n * 3, 5 + n * 7, 22 - n * 3, 8), 2, 2);
            }
            break;
        case Glyph::Layout:
            p.setPen(QPen(grey, 1.5));
            p.setBrush(Qt::white);
            p.drawRect(QRectF(6, 3, 20, 26));
            p.setBrush(grey.lighter(170));
            p.drawRect(QRectF(9, 6, 8, 6));
            p.drawRect(QRectF(9, 15, 14, 3));
            p.drawRect(QRectF(9, 21, 14, 3));
            break;
        case Glyph::Issue:
            p.setPen(Qt::NoPen);
            p.setBrush(green);
            p.drawPolygon(QPolygonF({QPointF(4, 16), QPointF(28, 5), QPointF(20, 28), QPointF(15, 19)}));
            p.setBrush(green.lighter(150));
            p.drawPolygon(QPolygonF({QPointF(15, 19), QPointF(28, 5), QPointF(17, 27)}));
            break;
        case Glyph::Unlock:
            p.setPen(QPen(orange.darker(120), 2.5));
            p.setBrush(Qt::NoBrush);
            p.drawArc(QRectF(14, 3, 12, 14), 0, 180 * 16);
            p.drawLine(QPointF(26, 10), QPointF(26, 13));
            p.setPen(Qt::NoPen);
            p.setBrush(orange);
            p.drawRoundedRect(QRectF(5, 14, 16, 14), 2, 2);
            break;
        case Glyph::Duplicate:
            p.setPen(QPen(grey, 1.5));
            p.setBrush(grey.lighter(180));
            p.drawRoundedRect(QRectF(4, 4, 16, 18), 2, 2);
            p.setBrush(Qt::white);
            p.drawRoundedRect(QRectF(12, 10, 16, 18), 2, 2);
            break;
        case Glyph::Convert:
            p.setPen(QPen(blue, 2.5, Qt::SolidLine, Qt::RoundCap));
            p.drawLine(QPointF(5, 11), QPointF(25, 11));
            p.drawLine(QPointF(20, 6), QPointF(25, 11));
            p.drawLine(QPointF(27, 21), QPointF(7, 21));
            p.drawLine(QPointF(12, 26), QPointF(7, 21));
            break;
        case Glyph::Settle:
            p.setPen(Qt::NoPen);
            p.setBrush(green);
            p.drawEllipse(QRectF(3, 3, 26, 26));
            p.setPen(QPen(Qt::white, 3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            p.drawPolyline(QPolygonF({QPointF(9, 16), QPointF(14, 21), QPointF(23, 11)}));
            break;
        case Glyph::Delete:
            p.setPen(QPen(red.darker(110), 1.5));
            p.setBrush(red.lighter(170));
            p.drawRect(QRectF(8, 9, 16, 19));
            p.drawLine(QPointF(5, 7), QPointF(27, 7));
            p.drawLine(QPointF(13, 4), QPointF(19, 4));
            p.drawLine(QPointF(13, 13), QPointF(13, 24));
            p.drawLine(QPointF(19, 13), QPointF(19, 24));
            break;
        case Glyph::Add:
            p.setPen(Qt::NoPen);
            p.setBrush(blue);
            p.drawEllipse(QRectF(3, 3, 26, 26));
            p.setPen(QPen(Qt::white, 3, Qt::SolidLine, Qt::RoundCap));
            p.drawLine(QPointF(16, 9), QPointF(16, 23));
            p.drawLine(QPointF(9, 16), QPointF(23, 16));
            break;
        case Glyph::Preview:
            drawPage(p, grey, QString());
            break;
    }
    return QIcon(pixmap);
}

}  // namespace brassline::desktop
