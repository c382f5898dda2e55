#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace brassline {

// A point in time: seconds since 2001-01-01 00:00:00 UTC in a double. The calendar
// helpers work on whole calendar days of the Gregorian calendar in the current time zone
// (TimeZone::current), so a daylight-saving day still counts as one day.
class Date {
public:
    static constexpr double kUnixEpochOffset = 978307200.0;  // 1970 to 2001 in seconds.

    constexpr Date() = default;
    constexpr explicit Date(double secondsSinceReferenceDate) : m_seconds(secondsSinceReferenceDate) {}

    static Date fromUnixTime(double seconds) { return Date(seconds - kUnixEpochOffset); }
    // Now, through the clock seam (Clock::setNow fixes it in tests).
    static Date now();

    double timeIntervalSinceReferenceDate() const { return m_seconds; }
    double timeIntervalSince1970() const { return m_seconds + kUnixEpochOffset; }
    double timeIntervalSinceDate(Date other) const { return m_seconds - other.m_seconds; }
    Date dateByAddingTimeInterval(double seconds) const { return Date(m_seconds + seconds); }

    auto operator<=>(const Date&) const = default;

    // Calendar helpers, all in the current time zone.
    Date dayStart() const;  // 00:00:00 of the day.
    Date dayEnd() const;    // The last second of the day (23:59:59).
    Date dateByAddingDays(int days) const;
    // Adds months, clamping the day to the month's length (31 Jan + 1 month = 28/29 Feb).
    Date dateByAddingMonths(int months) const;
    // Whole calendar days from `other` to this date (negative when this is earlier).
    int daysSinceDate(Date other) const;
    // The start of the first day of that month.
    static Date dateWithYear(int year, int month);
    static Date dateWithYear(int year, int month, int day);
    int yearOfCommonEra() const;
    int monthOfYear() const;  // 1 to 12.
    int dayOfMonth() const;   // 1 to 31.

    // ISO 8601: "2024-03-01T12:00:00Z", with offset or fraction, or a bare date
    // ("2024-03-01", the start of that day in the current time zone).
    static std::optional<Date> parseISO8601(std::string_view text);
    // UTC with seconds, and milliseconds when the time has a fraction: "2024-03-01T12:00:00Z".
    std::string iso8601String() const;
    // The calendar date in the current time zone: "2024-03-01".
    std::string isoDateString() const;

private:
    double m_seconds = 0.0;
};

// The seams through which the logic reads the time and the time zone.
namespace Clock {
// Fixes "now" for tests; std::nullopt returns to the system clock.
void setNow(std::optional<Date> date);
}  // namespace Clock

namespace TimeZone {
// The zone of the calendar helpers: the system's, unless a test sets an Olson name. An
// empty name returns to the system's zone; an unknown name is refused with a log line.
// Process-wide; each thread keeps its own calendar and notices a change on its next call.
std::string current();
void setCurrent(std::string_view olsonName);
}  // namespace TimeZone

}  // namespace brassline
