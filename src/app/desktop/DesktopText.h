#pragma once

#include <QString>
#include <optional>
#include <string>
#include <string_view>

#include "core/Date.h"
#include "core/Decimal.h"

namespace brassline::desktop {

// The words of the window in the current language, through the project's translation
// tables: an English key missing from a table reads as itself.
QString loc(std::string_view key);
// The same with "%1", "%2" filled in by QString::arg.
QString loc(std::string_view key, const QString& first);
QString loc(std::string_view key, const QString& first, const QString& second);

inline QString qs(const std::string& text) {
    return QString::fromStdString(text);
}
inline QString qs(const std::optional<std::string>& text) {
    return QString::fromStdString(text.value_or(std::string()));
}
inline std::string ss(const QString& text) {
    return text.toStdString();
}
// A message of the command layer ("brassline: <reason>\n") as a window shows it.
QString commandMessage(const std::string& text);
// An empty field clears the attribute.
std::optional<std::string> optionalText(const QString& text);

// Numbers and dates in the formatting locale: amounts with two digits and grouping,
// quantities with as many digits as they have (at least none, at most five).
QString formatAmount(const Decimal& amount);
QString formatQuantity(const Decimal& quantity);
QString formatDate(std::optional<Date> date);
// What a person typed as a number ("1.234,50" in German); empty for anything else.
std::optional<Decimal> parseNumber(const QString& text);

}  // namespace brassline::desktop
