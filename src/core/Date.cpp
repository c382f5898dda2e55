#include "core/Date.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include <unicode/gregocal.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include "core/Log.h"

namespace brassline {

namespace {

constexpr double kMillisPerDay = 86400000.0;
// ICU's calendars answer nonsense beyond about ±5 million years; no business date is near.
constexpr double kLargestMillis = 1.0e17;

double toMillis(double seconds) {
    return (seconds + Date::kUnixEpochOffset) * 1000.0;
}
Date fromMillis(double millis) {
    return Date(millis / 1000.0 - Date::kUnixEpochOffset);
}
bool isUsable(double millis) {
    return std::isfinite(millis) && std::fabs(millis) < kLargestMillis;
}

// Days from 1970-01-01 in the proleptic Gregorian calendar (H. Hinnant's days_from_civil).
int64_t daysFromCivil(int64_t year, unsigned month, unsigned day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<int64_t>(dayOfEra) - 719468;
}

struct CivilDate {
    int64_t year;
    unsigned month;
    unsigned day;
};

CivilDate civilFromDays(int64_t days) {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned shifted = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * shifted + 2) / 5 + 1;
    const unsigned month = shifted < 10 ? shifted + 3 : shifted - 9;
    return {static_cast<int64_t>(yearOfEra) + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

bool isLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysInMonth(int year, int month) {
    static constexpr int kLengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : kLengths[month - 1];
}

// The zone setting is process-wide; every change gets a new generation so that each
// thread notices it with one atomic read and rebuilds its cached calendar only then.
struct ZoneSetting {
    std::mutex mutex;
    std::string name;  // Empty: the system's zone.
    std::atomic<uint64_t> generation{1};
};

ZoneSetting& zoneSetting() {
    static ZoneSetting* setting = new ZoneSetting();
    return *setting;
}

const std::string& systemZoneName() {
    static const std::string name = [] {
        std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::detectHostTimeZone());
        icu::UnicodeString id;
        if (zone != nullptr) {
            zone->getID(id);
        }
        std::string text;
        id.toUTF8String(text);
        if (text.empty() || zone == nullptr || *zone == icu::TimeZone::getUnknown()) {
            return std::string("UTC");
        }
        return text;
    }();
    return name;
}

// The facts of one calendar day in one zone, kept so that loops over many dates of the
// same days never reach ICU.
struct DayInfo {
    uint64_t generation = 0;
    double startMillis = 0.0;
    double nextStartMillis = 0.0;
    int32_t julianDay = 0;
    int32_t year = 0;
    int32_t month = 0;
    int32_t day = 0;
};

// 4096 days are eleven years: after the first touch of each day, a loop over a company's
// documents answers from the cache.
constexpr std::size_t kDaySlots = 4096;
// ICU's Julian day of 1970-01-01, so that a day's index counts days since then in the zone.
constexpr int32_t kJulianDayOf1970 = 2440588;

// ICU calendars are not thread-safe and costly to build, so each thread keeps its own,
// one per zone it has used, plus a cache of the days it has seen.
struct ThreadCalendars {
    uint64_t generation = 0;
    icu::Calendar* current = nullptr;
    std::map<std::string, std::unique_ptr<icu::Calendar>, std::less<>> byZone;
    std::vector<DayInfo> days;  // kDaySlots entries, made on the thread's first use.
    double offsetGuessMillis = 0.0;
};

thread_local ThreadCalendars t_calendars;

std::unique_ptr<icu::Calendar> makeCalendar(const std::string& zoneName) {
    UErrorCode status = U_ZERO_ERROR;
    auto calendar = std::make_unique<icu::GregorianCalendar>(
        icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zoneName)), icu::Locale::getRoot(), status);
    if (U_FAILURE(status)) {
        // Only a broken ICU installation gets here; nothing in the program can work then.
        std::fprintf(stderr, "brassline: no calendar for time zone %s (%s)\n", zoneName.c_str(), u_errorName(status));
        std::abort();
    }
    // Proleptic Gregorian, as ISO 8601 counts, rather than Julian dates before 1582.
    calendar->setGregorianChange(-std::numeric_limits<double>::max(), status);
    // A day starts at its first instant: when midnight is repeated the earlier one counts,
    // and when it is skipped the day begins at the transition.
    calendar->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
    calendar->setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
    return calendar;
}

ThreadCalendars& calendars() {
    ThreadCalendars& cache = t_calendars;
    ZoneSetting& setting = zoneSetting();
    if (cache.current != nullptr && cache.generation == setting.generation.load(std::memory_order_acquire)) {
        return cache;
    }
    std::string name;
    {
        std::lock_guard lock(setting.mutex);
        name = setting.name.empty() ? systemZoneName() : setting.name;
        cache.generation = setting.generation.load(std::memory_order_relaxed);
    }
    auto found = cache.byZone.find(name);
    if (found == cache.byZone.end()) {
        found = cache.byZone.emplace(name, makeCalendar(name)).first;
    }
    cache.current = found->second.get();
    if (cache.days.empty()) {
        cache.days.resize(kDaySlots);
    }
    return cache;
}

bool holds(const DayInfo& info, uint64_t generation, double millis) {
    return info.generation == generation && info.startMillis <= millis && millis < info.nextStartMillis;
}

// The calendar day that holds `millis` (which must be usable). Days are filed by their
// index in the zone; the index of an instant is guessed from the last offset seen, which
// is never more than a day off, so the day is in the guessed slot or a neighbour.
DayInfo dayInfo(double millis) {
    ThreadCalendars& cache = calendars();
    auto guess = static_cast<int64_t>(std::floor((millis + cache.offsetGuessMillis) / kMillisPerDay));
    for (int64_t index : {guess, guess - 1, guess + 1}) {
        const DayInfo& slot = cache.days[static_cast<std::size_t>(index & (kDaySlots - 1))];
        if (holds(slot, cache.generation, millis)) {
            return slot;
        }
    }

    icu::Calendar& calendar = *cache.current;
    UErrorCode status = U_ZERO_ERROR;
    DayInfo info;
    info.generation = cache.generation;
    calendar.setTime(millis, status);
    info.year = calendar.get(UCAL_EXTENDED_YEAR, status);
    info.month = calendar.get(UCAL_MONTH, status) + 1;
    info.day = calendar.get(UCAL_DATE, status);
    info.julianDay = calendar.get(UCAL_JULIAN_DAY, status);
    calendar.set(UCAL_HOUR_OF_DAY, 0);
    calendar.set(UCAL_MINUTE, 0);
    calendar.set(UCAL_SECOND, 0);
    calendar.set(UCAL_MILLISECOND, 0);
    info.startMillis = calendar.getTime(status);
    calendar.add(UCAL_DATE, 1, status);
    calendar.set(UCAL_HOUR_OF_DAY, 0);
    info.nextStartMillis = calendar.getTime(status);

    // Should a zone ever answer a day that does not hold the instant, it is not cached.
    if (U_SUCCESS(status) && holds(info, cache.generation, millis)) {
        int64_t index = info.julianDay - kJulianDayOf1970;
        cache.days[static_cast<std::size_t>(index & (kDaySlots - 1))] = info;
        cache.offsetGuessMillis = static_cast<double>(index) * kMillisPerDay - info.startMillis;
    }
    return info;
}

bool isWholeDay(const DayInfo& info) {
    return info.nextStartMillis - info.startMillis == kMillisPerDay;
}

// The day with `index` (days since 1970-01-01 in the current zone), found through an instant
// near its noon; `offsetMillis` guesses the zone's offset and is corrected once if wrong.
std::optional<DayInfo> dayWithIndex(int64_t index, double offsetMillis) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        double noon = static_cast<double>(index) * kMillisPerDay + kMillisPerDay / 2 - offsetMillis;
        if (!isUsable(noon)) {
            return std::nullopt;
        }
        DayInfo info = dayInfo(noon);
        int64_t found = info.julianDay - kJulianDayOf1970;
        if (found == index) {
            return info;
        }
        offsetMillis += static_cast<double>(found - index) * kMillisPerDay;
    }
    return std::nullopt;
}

// Adds days or months keeping the wall time, with the day of month pinned to the target
// month's length. When neither day has a daylight-saving switch the cached days answer;
// otherwise ICU's calendar, which keeps the wall time across the switch.
Date addCalendarField(Date date, UCalendarDateFields field, int amount) {
    double millis = toMillis(date.timeIntervalSinceReferenceDate());
    if (amount == 0 || !isUsable(millis)) {
        return date;
    }
    DayInfo source = dayInfo(millis);
    if (isWholeDay(source)) {
        int64_t sourceIndex = source.julianDay - kJulianDayOf1970;
        int64_t targetIndex = sourceIndex + amount;
        if (field == UCAL_MONTH) {
            int64_t months = int64_t{source.year} * 12 + (source.month - 1) + amount;
            int64_t year = months >= 0 ? months / 12 : (months - 11) / 12;
            auto month = static_cast<int>(months - year * 12 + 1);
            int day = std::min(source.day, daysInMonth(static_cast<int>(year), month));
            targetIndex = daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
        }
        double offset = static_cast<double>(sourceIndex) * kMillisPerDay - source.startMillis;
        std::optional<DayInfo> target = dayWithIndex(targetIndex, offset);
        if (target && isWholeDay(*target)) {
            return fromMillis(target->startMillis + (millis - source.startMillis));
        }
    }

    double whole = std::floor(millis);
    icu::Calendar& calendar = *calendars().current;
    UErrorCode status = U_ZERO_ERROR;
    calendar.setTime(whole, status);
    calendar.add(field, amount, status);
    double result = calendar.getTime(status);
    if (U_FAILURE(status)) {
        logMessage("Date: cannot add %d to field %d of %@ (%s)", amount, static_cast<int>(field), date,
                   u_errorName(status));
        return date;
    }
    return fromMillis(result + (millis - whole));
}

// A cursor over ISO 8601 text; each read answers false when the text does not fit.
class IsoScanner {
public:
    explicit IsoScanner(std::string_view text) : m_text(text) {}

    bool atEnd() const { return m_pos == m_text.size(); }
    char peek() const { return atEnd() ? '\0' : m_text[m_pos]; }
    bool take(char c) {
        if (peek() != c) {
            return false;
        }
        ++m_pos;
        return true;
    }
    bool digits(int count, int& value) {
        value = 0;
        for (int i = 0; i < count; ++i) {
            char c = peek();
            if (c < '0' || c > '9') {
                return false;
            }
            value = value * 10 + (c - '0');
            ++m_pos;
        }
        return true;
    }
    // The digits after a decimal sign, as a fraction of a second.
    bool fraction(double& value) {
        value = 0.0;
        double scale = 0.1;
        std::size_t start = m_pos;
        while (peek() >= '0' && peek() <= '9') {
            value += (peek() - '0') * scale;
            scale /= 10.0;
            ++m_pos;
        }
        return m_pos > start;
    }

private:
    std::string_view m_text;
    std::size_t m_pos = 0;
};

std::string_view trimmed(std::string_view text) {
    auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// Wall time in the current zone; an ambiguous time means its first occurrence.
std::optional<Date> localDate(int year, int month, int day, int hour, int minute, int second) {
    icu::Calendar& calendar = *calendars().current;
    UErrorCode status = U_ZERO_ERROR;
    calendar.clear();
    calendar.set(UCAL_EXTENDED_YEAR, year);
    calendar.set(UCAL_MONTH, month - 1);
    calendar.set(UCAL_DATE, day);
    calendar.set(UCAL_HOUR_OF_DAY, hour);
    calendar.set(UCAL_MINUTE, minute);
    calendar.set(UCAL_SECOND, second);
    double millis = calendar.getTime(status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    return fromMillis(millis);
}

std::atomic<double> g_fixedNow{std::numeric_limits<double>::quiet_NaN()};

}  // namespace

Date Date::now() {
    double fixed = g_fixedNow.load(std::memory_order_acquire);
    if (!std::isnan(fixed)) {
        return Date(fixed);
    }
    auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return fromUnixTime(std::chrono::duration<double>(sinceEpoch).count());
}

Date Date::dayStart() const {
    double millis = toMillis(m_seconds);
    return isUsable(millis) ? fromMillis(dayInfo(millis).startMillis) : *this;
}

Date Date::dayEnd() const {
    double millis = toMillis(m_seconds);
    return isUsable(millis) ? fromMillis(dayInfo(millis).nextStartMillis - 1000.0) : *this;
}

Date Date::dateByAddingDays(int days) const {
    return addCalendarField(*this, UCAL_DATE, days);
}

Date Date::dateByAddingMonths(int months) const {
    return addCalendarField(*this, UCAL_MONTH, months);
}

int Date::daysSinceDate(Date other) const {
    double millis = toMillis(m_seconds);
    double otherMillis = toMillis(other.m_seconds);
    if (!isUsable(millis) || !isUsable(otherMillis)) {
        return 0;
    }
    int32_t day = dayInfo(millis).julianDay;
    return day - dayInfo(otherMillis).julianDay;
}

Date Date::dateWithYear(int year, int month) {
    return dateWithYear(year, month, 1);
}

Date Date::dateWithYear(int year, int month, int day) {
    // Lenient on purpose, as the calendar is: month 13 is January of the next year and day 0
    // the last day of the month before, which callers use for month arithmetic.
    int64_t months = int64_t{year} * 12 + (month - 1);
    int64_t normalYear = months >= 0 ? months / 12 : (months - 11) / 12;
    auto normalMonth = static_cast<unsigned>(months - normalYear * 12 + 1);
    int64_t index = daysFromCivil(normalYear, normalMonth, 1) + (int64_t{day} - 1);
    std::optional<DayInfo> info = dayWithIndex(index, 0.0);
    if (!info) {
        logMessage("Date: no date for year %d, month %d, day %d", year, month, day);
        return Date();
    }
    return fromMillis(info->startMillis);
}

int Date::yearOfCommonEra() const {
    double millis = toMillis(m_seconds);
    return isUsable(millis) ? dayInfo(millis).year : 0;
}

int Date::monthOfYear() const {
    double millis = toMillis(m_seconds);
    return isUsable(millis) ? dayInfo(millis).month : 0;
}

int Date::dayOfMonth() const {
    double millis = toMillis(m_seconds);
    return isUsable(millis) ? dayInfo(millis).day : 0;
}

std::optional<Date> Date::parseISO8601(std::string_view text) {
    IsoScanner scan(trimmed(text));
    int year = 0;
    int month = 0;
    int day = 0;
    if (!scan.digits(4, year) || !scan.take('-') || !scan.digits(2, month) || !scan.take('-') || !scan.digits(2, day)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month)) {
        return std::nullopt;
    }
    if (scan.atEnd()) {
        return dateWithYear(year, month, day);
    }
    if (!scan.take('T') && !scan.take('t') && !scan.take(' ')) {
        return std::nullopt;
    }
    int hour = 0;
    int minute = 0;
    int second = 0;
    double fraction = 0.0;
    if (!scan.digits(2, hour) || !scan.take(':') || !scan.digits(2, minute)) {
        return std::nullopt;
    }
    if (scan.take(':')) {
        if (!scan.digits(2, second)) {
            return std::nullopt;
        }
        if ((scan.take('.') || scan.take(',')) && !scan.fraction(fraction)) {
            return std::nullopt;
        }
    }
    if (hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    if (scan.atEnd()) {
        std::optional<Date> date = localDate(year, month, day, hour, minute, second);
        return date ? std::optional<Date>(date->dateByAddingTimeInterval(fraction)) : std::nullopt;
    }

    int offsetSeconds = 0;
    if (!scan.take('Z') && !scan.take('z')) {
        int sign = scan.take('+') ? 1 : (scan.take('-') ? -1 : 0);
        int offsetHours = 0;
        int offsetMinutes = 0;
        if (sign == 0 || !scan.digits(2, offsetHours)) {
            return std::nullopt;
        }
        if (!scan.atEnd()) {
            scan.take(':');
            if (!scan.digits(2, offsetMinutes)) {
                return std::nullopt;
            }
        }
        // Real offsets lie within ±14 hours; ISO 8601 caps the notation at 23:59.
        if (offsetHours > 23 || offsetMinutes > 59) {
            return std::nullopt;
        }
        offsetSeconds = sign * (offsetHours * 3600 + offsetMinutes * 60);
    }
    if (!scan.atEnd()) {
        return std::nullopt;
    }
    double unixSeconds =
        static_cast<double>(daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day))) * 86400.0 +
        hour * 3600.0 + minute * 60.0 + second - offsetSeconds;
    return fromUnixTime(unixSeconds).dateByAddingTimeInterval(fraction);
}

std::string Date::iso8601String() const {
    double millis = toMillis(m_seconds);
    if (!isUsable(millis)) {
        return {};
    }
    auto total = static_cast<int64_t>(std::llround(millis));
    int64_t days = total / 86400000;
    int64_t rest = total % 86400000;
    if (rest < 0) {
        rest += 86400000;
        days -= 1;
    }
    CivilDate civil = civilFromDays(days);
    int hour = static_cast<int>(rest / 3600000);
    int minute = static_cast<int>(rest / 60000 % 60);
    int second = static_cast<int>(rest / 1000 % 60);
    int milli = static_cast<int>(rest % 1000);
    char buffer[64];
    if (milli != 0) {
        std::snprintf(buffer, sizeof buffer, "%04lld-%02u-%02uT%02d:%02d:%02d.%03dZ",
                      static_cast<long long>(civil.year), civil.month, civil.day, hour, minute, second, milli);
    } else {
        std::snprintf(buffer, sizeof buffer, "%04lld-%02u-%02uT%02d:%02d:%02dZ", static_cast<long long>(civil.year),
                      civil.month, civil.day, hour, minute, second);
    }
    return buffer;
}

std::string Date::isoDateString() const {
    double millis = toMillis(m_seconds);
    if (!isUsable(millis)) {
        return {};
    }
    DayInfo info = dayInfo(millis);
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d", info.year, info.month, info.day);
    return buffer;
}

namespace Clock {

void setNow(std::optional<Date> date) {
    g_fixedNow.store(date ? date->timeIntervalSinceReferenceDate() : std::numeric_limits<double>::quiet_NaN(),
                     std::memory_order_release);
}

}  // namespace Clock

namespace TimeZone {

std::string current() {
    ZoneSetting& setting = zoneSetting();
    std::lock_guard lock(setting.mutex);
    return setting.name.empty() ? systemZoneName() : setting.name;
}

void setCurrent(std::string_view olsonName) {
    std::string name(olsonName);
    if (!name.empty()) {
        std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(name)));
        if (zone == nullptr || *zone == icu::TimeZone::getUnknown()) {
            logMessage("TimeZone: unknown time zone \"%@\", keeping %@", name, current());
            return;
        }
    }
    ZoneSetting& setting = zoneSetting();
    std::lock_guard lock(setting.mutex);
    if (setting.name != name) {
        setting.name = std::move(name);
        setting.generation.fetch_add(1, std::memory_order_release);
    }
}

}  // namespace TimeZone

}  // namespace brassline
