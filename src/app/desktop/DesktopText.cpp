#include "app/desktop/DesktopText.h"

#include "core/Localization.h"
#include "core/ValueTransformers.h"

namespace brassline::desktop {

QString loc(std::string_view key) {
    return QString::fromStdString(localizedString(key));
}

QString loc(std::string_view key, const QString& first) {
    return loc(key).arg(first);
}

QString loc(std::string_view key, const QString& first, const QString& second) {
    return loc(key).arg(first, second);
}

QString commandMessage(const std::string& text) {
    QString message = QString::fromStdString(text).trimmed();
    const QString prefix = QStringLiteral("brassline: ");
    while (message.startsWith(prefix)) {
        message.remove(0, prefix.size());
    }
    return message;
}

std::optional<std::string> optionalText(const QString& text) {
    QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return std::nullopt;
    }
    return trimmed.toStdString();
}

QString formatAmount(const Decimal& amount) {
    static const NumberTransformer transformer(NumberStyle::Grouped, 2);
    return QString::fromStdString(transformer.format(amount.isNaN() ? Decimal() : amount));
}

QString formatQuantity(const Decimal& quantity) {
    static const NumberTransformer transformer(NumberStyle::Plain, 5);
    return QString::fromStdString(transformer.format(quantity.isNaN() ? Decimal() : quantity));
}

QString formatDate(std::optional<Date> date) {
    static const DateTransformer transformer(DateStyle::Medium);
    return date ? QString::fromStdString(transformer.format(*date)) : QString();
}

std::optional<Decimal> parseNumber(const QString& text) {
    static const NumberTransformer transformer(NumberStyle::Grouped, 5);
    QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return std::nullopt;
    }
    std::optional<Decimal> number = transformer.parse(trimmed.toStdString());
    if (!number || number->isNaN()) {
        return std::nullopt;
    }
    return number;
}

}  // namespace brassline::desktop
