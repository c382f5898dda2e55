#include <chrono>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include "core/Date.h"
#include "core/Log.h"

namespace brassline {
namespace {

// An instant from ISO text with an explicit zone (its parsing is checked against fixed
// Unix times in ParsesZonedTimesToFixedInstants).
Date zonedInstant(const char* text) {
    std::optional<Date> date = Date::parseISO8601(text);
    if (!date) {
        ADD_FAILURE() << "unparsable test instant " << text;
        return Date(std::nan(""));
    }
    return *date;
}

class DateTest : public ::testing::Test {
protected:
    void TearDown() override {
        TimeZone::setCurrent("");
        Clock::setNow(std::nullopt);
    }
};

TEST_F(DateTest, ParsesZonedTimesToFixedInstants) {
    // 2024-03-01T12:00:00Z is 19783 days after 1970-01-01 plus 12 hours: 1709294400.
    struct Row {
        const char* text;
        double unixSeconds;
    };
    const Row rows[] = {
        {"2024-03-01T12:00:00Z", 1709294400.0},
        {"2024-03-01T12:00:00z", 1709294400.0},
        {"2024-03-01T12:00Z", 1709294400.0},
        {"2024-03-01 12:00:00Z", 1709294400.0},
        {"2024-03-01T13:00:00+01:00", 1709294400.0},
        {"2024-03-01T13:00:00+0100", 1709294400.0},
        {"2024-03-01T13:00:00+01", 1709294400.0},
        {"2024-03-01T07:00:00-05:00", 1709294400.0},
        {"2024-03-01T17:30:00+05:30", 1709294400.0},
        {"2024-03-02T01:45:00+13:45", 1709294400.0},
        {"2024-03-01T12:00:00.250Z", 1709294400.25},
        {"2024-03-01T12:00:00,5Z", 1709294400.5},
        {"2024-03-01T12:00:00.123456789Z", 1709294400.123456789},
        {"  2024-03-01T12:00:00Z\n", 1709294400.0},
        // The reference date itself and the second before it.
        {"2001-01-01T00:00:00Z", 978307200.0},
        {"2000-12-31T23:59:59Z", 978307199.0},
        // 2000 is a leap year (divisible by 400), 2100 is not: 2100-03-01 is day 47540.
        {"2000-02-29T00:00:00Z", 951782400.0},
        {"2100-03-01T00:00:00Z", 4107542400.0},
        {"1970-01-01T00:00:00Z", 0.0},
        {"1969-12-31T23:00:00-01:00", 0.0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        std::optional<Date> date = Date::parseISO8601(row.text);
        ASSERT_TRUE(date.has_value());
        EXPECT_NEAR(date->timeIntervalSince1970(), row.unixSeconds, 1e-6);
    }
}

TEST_F(DateTest, RejectsMalformedISOText) {
    const char* rows[] = {
        "",
        "today",
        "2024/03/01",
        "24-03-01",
        "2024-3-1",
        "2024-02-30",
        "2023-02-29",
        "2100-02-29",
        "2024-13-01",
        "2024-00-10",
        "2024-04-31",
        "2024-03-01T",
        "2024-03-01T12",
        "2024-03-01T12:0",
        "2024-03-01T24:00:00Z",
        "2024-03-01T12:60Z",
        "2024-03-01T12:00:60Z",
        "2024-03-01T12:00:00.Z",
        "2024-03-01T12:00:00+1",
        "2024-03-01T12:00:00+01:",
        "2024-03-01T12:00:00+01:5",
        "2024-03-01T12:00:00+24:00",
        "2024-03-01T12:00:00+01:60",
        "2024-03-01T12:00:00Zjunk",
        "2024-03-01T12:00:00 Z",
        "2024-03-01X12:00:00Z",
        "2024-03-01junk",
    };
    for (const char* text : rows) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(Date::parseISO8601(text).has_value());
    }
}

TEST_F(DateTest, WritesUTCWithMillisecondsOnlyWhenPresent) {
    struct Row {
        double seconds;
        const char* expected;
    };
    const Row rows[] = {
        {0.0, "2001-01-01T00:00:00Z"},          {-1.0, "2000-12-31T23:59:59Z"},   {0.5, "2001-01-01T00:00:00.500Z"},
        {-0.25, "2000-12-31T23:59:59.750Z"},    {1.0004, "2001-01-01T00:00:01Z"},  // Below a millisecond: not written.
        {1.9996, "2001-01-01T00:00:02Z"},                                          // Rounds up into the next second.
        {730987200.0, "2024-03-01T12:00:00Z"},                                     // 1709294400 - 978307200.
        {-978307200.0, "1970-01-01T00:00:00Z"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.expected);
        EXPECT_EQ(Date(row.seconds).iso8601String(), row.expected);
        std::optional<Date> back = Date::parseISO8601(row.expected);
        ASSERT_TRUE(back.has_value());
        EXPECT_NEAR(back->timeIntervalSinceReferenceDate(), row.seconds, 0.0006);
    }
    EXPECT_EQ(Date(std::nan("")).iso8601String(), "");
}

TEST_F(DateTest, BareDatesAndLocalTimesUseTheCurrentZone) {
    struct Row {
        const char* zone;
        const char* text;
        const char* expectedUTC;
    };
    const Row rows[] = {
        {"Europe/Berlin", "2024-07-01", "2024-06-30T22:00:00Z"},
        {"Europe/Berlin", "2024-01-01", "2023-12-31T23:00:00Z"},
        {"Europe/Berlin", "2024-07-01T08:00:00", "2024-07-01T06:00:00Z"},
        {"America/New_York", "2024-07-01", "2024-07-01T04:00:00Z"},
        {"America/New_York", "2024-01-15T08:30", "2024-01-15T13:30:00Z"},
        // 02:30 does not exist on the spring-forward day: the next valid time, 03:00 EDT.
        {"America/New_York", "2024-03-10T02:30:00", "2024-03-10T07:00:00Z"},
        // 01:30 happens twice on the fall-back day: the first, still EDT.
        {"America/New_York", "2024-11-03T01:30:00", "2024-11-03T05:30:00Z"},
        {"UTC", "2024-07-01", "2024-07-01T00:00:00Z"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " " + row.text);
        TimeZone::setCurrent(row.zone);
        std::optional<Date> date = Date::parseISO8601(row.text);
        ASSERT_TRUE(date.has_value());
        EXPECT_EQ(date->iso8601String(), row.expectedUTC);
    }
}

TEST_F(DateTest, DayStartAndEndOfSwitchDays) {
    // Berlin: 2024-03-31 has 23 hours (02:00 CET -> 03:00 CEST), 2024-10-27 has 25 hours.
    // New York: 2024-03-10 has 23 hours, 2024-11-03 has 25 hours.
    struct Row {
        const char* zone;
        const char* at;
        const char* start;
        const char* end;
        double hours;
    };
    const Row rows[] = {
        {"Europe/Berlin", "2024-03-31T12:00:00+02:00", "2024-03-30T23:00:00Z", "2024-03-31T21:59:59Z", 23},
        {"Europe/Berlin", "2024-03-31T00:00:00+01:00", "2024-03-30T23:00:00Z", "2024-03-31T21:59:59Z", 23},
        {"Europe/Berlin", "2024-03-31T23:59:59+02:00", "2024-03-30T23:00:00Z", "2024-03-31T21:59:59Z", 23},
        {"Europe/Berlin", "2024-10-27T02:30:00+02:00", "2024-10-26T22:00:00Z", "2024-10-27T22:59:59Z", 25},
        {"Europe/Berlin", "2024-10-27T02:30:00+01:00", "2024-10-26T22:00:00Z", "2024-10-27T22:59:59Z", 25},
        {"Europe/Berlin", "2024-07-15T00:00:00+02:00", "2024-07-14T22:00:00Z", "2024-07-15T21:59:59Z", 24},
        {"America/New_York", "2024-03-10T01:59:59-05:00", "2024-03-10T05:00:00Z", "2024-03-11T03:59:59Z", 23},
        {"America/New_York", "2024-03-10T03:00:00-04:00", "2024-03-10T05:00:00Z", "2024-03-11T03:59:59Z", 23},
        {"America/New_York", "2024-11-03T23:59:59-05:00", "2024-11-03T04:00:00Z", "2024-11-04T04:59:59Z", 25},
        {"UTC", "2024-02-29T23:59:59.500Z", "2024-02-29T00:00:00Z", "2024-02-29T23:59:59Z", 24},
        {"UTC", "2000-12-31T23:59:59Z", "2000-12-31T00:00:00Z", "2000-12-31T23:59:59Z", 24},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " " + row.at);
        TimeZone::setCurrent(row.zone);
        Date date = zonedInstant(row.at);
        Date start = date.dayStart();
        Date end = date.dayEnd();
        EXPECT_EQ(start.iso8601String(), row.start);
        EXPECT_EQ(end.iso8601String(), row.end);
        EXPECT_DOUBLE_EQ(end.timeIntervalSinceDate(start) + 1.0, row.hours * 3600.0);
        EXPECT_EQ(start.dayStart(), start);
        EXPECT_EQ(end.dayStart(), start);
        EXPECT_EQ(end.dateByAddingTimeInterval(1).dayStart(), end.dateByAddingTimeInterval(1));
    }
}

TEST_F(DateTest, DaysSinceDateCountsCalendarDays) {
    struct Row {
        const char* zone;
        const char* from;
        const char* to;
        int days;
    };
    const Row rows[] = {
        // 47 hours across the Berlin spring switch, but two calendar days.
        {"Europe/Berlin", "2024-03-30T12:00:00+01:00", "2024-04-01T12:00:00+02:00", 2},
        {"Europe/Berlin", "2024-03-31T00:00:00+01:00", "2024-03-31T23:59:00+02:00", 0},
        // 25 hours on the autumn day, one calendar day.
        {"Europe/Berlin", "2024-10-26T23:30:00+02:00", "2024-10-27T23:30:00+01:00", 1},
        // 23 hours on the New York spring day: one calendar day, not 0.
        {"America/New_York", "2024-03-09T23:00:00-05:00", "2024-03-10T23:00:00-04:00", 1},
        // One second, one day, one year.
        {"Europe/Berlin", "2023-12-31T23:59:59+01:00", "2024-01-01T00:00:00+01:00", 1},
        // 2024 is a leap year: 1 January to 31 December is 365 days; backwards negative.
        {"Europe/Berlin", "2024-12-31T08:00:00+01:00", "2024-01-01T20:00:00+01:00", -365},
        {"UTC", "2023-01-01T00:00:00Z", "2024-01-01T00:00:00Z", 365},
        {"UTC", "2024-01-01T00:00:00Z", "2025-01-01T00:00:00Z", 366},
        // The same two instants are one day apart in Berlin (00:30 vs 23:30) but not in UTC.
        {"Europe/Berlin", "2024-05-01T21:30:00Z", "2024-05-01T22:30:00Z", 1},
        {"UTC", "2024-05-01T21:30:00Z", "2024-05-01T22:30:00Z", 0},
        {"America/New_York", "2024-05-01T21:30:00Z", "2024-05-02T03:30:00Z", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " " + row.from + " -> " + row.to);
        TimeZone::setCurrent(row.zone);
        EXPECT_EQ(zonedInstant(row.to).daysSinceDate(zonedInstant(row.from)), row.days);
        EXPECT_EQ(zonedInstant(row.from).daysSinceDate(zonedInstant(row.to)), -row.days);
    }
}

TEST_F(DateTest, AddingDaysKeepsTheWallTimeAcrossSwitches) {
    struct Row {
        const char* zone;
        const char* from;
        int days;
        const char* expected;
    };
    const Row rows[] = {
        // 12:00 CET + 1 day = 12:00 CEST, 23 hours later.
        {"Europe/Berlin", "2024-03-30T12:00:00+01:00", 1, "2024-03-31T10:00:00Z"},
        // 12:00 CEST + 1 day = 12:00 CET, 25 hours later.
        {"Europe/Berlin", "2024-10-26T12:00:00+02:00", 1, "2024-10-27T11:00:00Z"},
        {"Europe/Berlin", "2024-04-01T12:00:00+02:00", -2, "2024-03-30T11:00:00Z"},
        {"Europe/Berlin", "2024-03-01T00:00:00+01:00", 31, "2024-03-31T22:00:00Z"},
        {"America/New_York", "2024-03-09T08:00:00-05:00", 1, "2024-03-10T12:00:00Z"},
        {"America/New_York", "2024-11-02T08:00:00-04:00", 1, "2024-11-03T13:00:00Z"},
        {"UTC", "2024-02-28T06:00:00Z", 1, "2024-02-29T06:00:00Z"},
        {"UTC", "2024-02-28T06:00:00Z", 366, "2025-02-28T06:00:00Z"},
        {"UTC", "2024-12-31T06:00:00Z", 1, "2025-01-01T06:00:00Z"},
        {"UTC", "2024-01-01T00:00:00.250Z", 1, "2024-01-02T00:00:00.250Z"},
        {"UTC", "2024-01-01T09:00:00Z", 0, "2024-01-01T09:00:00Z"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " " + row.from);
        TimeZone::setCurrent(row.zone);
        Date date = zonedInstant(row.from).dateByAddingDays(row.days);
        EXPECT_EQ(date.iso8601String(), row.expected);
        EXPECT_EQ(date.daysSinceDate(zonedInstant(row.from)), row.days);
    }
}

TEST_F(DateTest, AddingMonthsClampsToTheMonthLength) {
    TimeZone::setCurrent("Europe/Berlin");
    struct Row {
        const char* from;
        int months;
        const char* expected;
    };
    const Row rows[] = {
        {"2024-01-31", 1, "2024-02-29"},  // Leap year.
        {"2023-01-31", 1, "2023-02-28"}, {"2024-03-31", -1, "2024-02-29"}, {"2024-05-31", 1, "2024-06-30"},
        {"2024-01-31", 2, "2024-03-31"},  // Clamped only at the target, not on the way.
        {"2024-08-31", 6, "2025-02-28"}, {"2024-02-29", 12, "2025-02-28"}, {"2020-02-29", 48, "2024-02-29"},
        {"2024-12-15", 1, "2025-01-15"}, {"2024-01-15", -1, "2023-12-15"}, {"2024-01-15", -13, "2022-12-15"},
        {"2024-03-15", 1, "2024-04-15"},  // Across the switch to summer time.
        {"2024-10-15", 1, "2024-11-15"},  // And back.
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.from) + " + " + std::to_string(row.months));
        Date date = zonedInstant(row.from).dateByAddingMonths(row.months);
        EXPECT_EQ(date.isoDateString(), row.expected);
        // Midnight stays midnight although the offset changed on the way.
        EXPECT_EQ(date.dayStart(), date);
    }
}

TEST_F(DateTest, CalendarFieldsAtYearBoundaries) {
    // 2024-12-31T23:30Z is 00:30 on New Year's day in Berlin and 18:30 on New Year's eve
    // in New York.
    struct Row {
        const char* zone;
        const char* at;
        int year;
        int month;
        int day;
        const char* isoDate;
    };
    const Row rows[] = {
        {"Europe/Berlin", "2024-12-31T23:30:00Z", 2025, 1, 1, "2025-01-01"},
        {"America/New_York", "2024-12-31T23:30:00Z", 2024, 12, 31, "2024-12-31"},
        {"UTC", "2024-12-31T23:30:00Z", 2024, 12, 31, "2024-12-31"},
        {"America/New_York", "2025-01-01T04:59:59Z", 2024, 12, 31, "2024-12-31"},
        {"America/New_York", "2025-01-01T05:00:00Z", 2025, 1, 1, "2025-01-01"},
        {"UTC", "2000-02-29T12:00:00Z", 2000, 2, 29, "2000-02-29"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " " + row.at);
        TimeZone::setCurrent(row.zone);
        Date date = zonedInstant(row.at);
        EXPECT_EQ(date.yearOfCommonEra(), row.year);
        EXPECT_EQ(date.monthOfYear(), row.month);
        EXPECT_EQ(date.dayOfMonth(), row.day);
        EXPECT_EQ(date.isoDateString(), row.isoDate);
    }
}

TEST_F(DateTest, DateWithYearStartsTheDayInTheCurrentZone) {
    struct Row {
        const char* zone;
        int year;
        int month;
        int day;
        const char* expected;
    };
    const Row rows[] = {
        {"Europe/Berlin", 2024, 3, 1, "2024-02-29T23:00:00Z"},
        {"Europe/Berlin", 2024, 4, 1, "2024-03-31T22:00:00Z"},
        {"Europe/Berlin", 2024, 3, 31, "2024-03-30T23:00:00Z"},
        {"Europe/Berlin", 2024, 13, 1, "2024-12-31T23:00:00Z"},  // Month 13: January next year.
        {"Europe/Berlin", 2025, 1, 0, "2024-12-30T23:00:00Z"},   // Day 0: the day before.
        {"America/New_York", 2024, 11, 1, "2024-11-01T04:00:00Z"},
        {"America/New_York", 2024, 11, 3, "2024-11-03T04:00:00Z"},
        {"UTC", 2001, 1, 1, "2001-01-01T00:00:00Z"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " " + std::to_string(row.year) + "-" + std::to_string(row.month));
        TimeZone::setCurrent(row.zone);
        EXPECT_EQ(Date::dateWithYear(row.year, row.month, row.day).iso8601String(), row.expected);
        if (row.day == 1) {
            EXPECT_EQ(Date::dateWithYear(row.year, row.month).iso8601String(), row.expected);
        }
    }
}

TEST_F(DateTest, ChangingTheZoneChangesAnswersForTheSameInstant) {
    Date date = zonedInstant("2024-05-01T22:30:00Z");
    TimeZone::setCurrent("UTC");
    EXPECT_EQ(TimeZone::current(), "UTC");
    EXPECT_EQ(date.dayStart().iso8601String(), "2024-05-01T00:00:00Z");
    TimeZone::setCurrent("Europe/Berlin");
    EXPECT_EQ(TimeZone::current(), "Europe/Berlin");
    EXPECT_EQ(date.dayStart().iso8601String(), "2024-05-01T22:00:00Z");
    TimeZone::setCurrent("UTC");
    EXPECT_EQ(date.dayStart().iso8601String(), "2024-05-01T00:00:00Z");
}

TEST_F(DateTest, UnknownZoneIsRefusedWithALogLine) {
    TimeZone::setCurrent("Europe/Berlin");
    LogCapture capture;
    TimeZone::setCurrent("Mars/Olympus_Mons");
    EXPECT_EQ(TimeZone::current(), "Europe/Berlin");
    EXPECT_TRUE(capture.contains("Mars/Olympus_Mons"));
}

TEST_F(DateTest, EveryHourOfASwitchMonthFallsInsideItsDay) {
    // Walks October 2024 hour by hour in Berlin: each instant lies within its own day, the
    // day count grows by one exactly when the date text changes, and 31 days pass.
    TimeZone::setCurrent("Europe/Berlin");
    Date first = zonedInstant("2024-10-01T00:00:00+02:00");
    std::string previousDate = first.isoDateString();
    int dayChanges = 0;
    for (int hour = 0; hour < 31 * 24 + 1; ++hour) {
        Date date = first.dateByAddingTimeInterval(hour * 3600.0 + 1800.0);
        ASSERT_LE(date.dayStart(), date) << hour;
        ASSERT_GE(date.dayEnd().dateByAddingTimeInterval(1), date) << hour;
        std::string isoDate = date.isoDateString();
        if (isoDate != previousDate) {
            ++dayChanges;
            previousDate = isoDate;
        }
        ASSERT_EQ(date.daysSinceDate(first), dayChanges) << hour;
    }
    // The last instant, 744.5 hours after midnight on 1 October, is 23:30 on the 31st because
    // the 27th has 25 hours.
    EXPECT_EQ(dayChanges, 30);
}

TEST_F(DateTest, HelpersAgreeAcrossThreads) {
    TimeZone::setCurrent("Europe/Berlin");
    Date base = zonedInstant("2024-01-01T10:00:00+01:00");
    std::vector<std::string> expected;
    for (int day = 0; day < 366; ++day) {
        Date date = base.dateByAddingDays(day);
        expected.push_back(date.isoDateString() + " " + date.dayStart().iso8601String());
    }
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 20; ++round) {
                for (int day = 0; day < 366; ++day) {
                    Date date = base.dateByAddingDays(day);
                    if (date.isoDateString() + " " + date.dayStart().iso8601String() != expected[day]) {
                        ++mismatches[t];
                    }
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

TEST_F(DateTest, CachedArithmeticAgreesWithICUCalendar) {
    // Most additions are answered from cached days; ICU's calendar, asked directly, is the
    // reference for random instants, amounts and both zones with daylight saving.
    std::mt19937_64 random(20240331);
    for (const char* zone : {"Europe/Berlin", "America/New_York"}) {
        SCOPED_TRACE(zone);
        TimeZone::setCurrent(zone);
        UErrorCode status = U_ZERO_ERROR;
        icu::GregorianCalendar calendar(icu::TimeZone::createTimeZone(zone), icu::Locale::getRoot(), status);
        ASSERT_TRUE(U_SUCCESS(status));
        calendar.setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
        calendar.setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
        for (int i = 0; i < 3000; ++i) {
            // Whole seconds between 2019 and 2027.
            double unixSeconds = 1546300800.0 + static_cast<double>(random() % (8ull * 365 * 86400));
            Date date = Date::fromUnixTime(unixSeconds);
            int days = static_cast<int>(random() % 801) - 400;
            int months = static_cast<int>(random() % 61) - 30;
            SCOPED_TRACE(date.iso8601String() + " days " + std::to_string(days) + " months " + std::to_string(months));

            calendar.setTime(unixSeconds * 1000.0, status);
            calendar.add(UCAL_DATE, days, status);
            EXPECT_EQ(date.dateByAddingDays(days).timeIntervalSince1970(), calendar.getTime(status) / 1000.0);

            calendar.setTime(unixSeconds * 1000.0, status);
            calendar.add(UCAL_MONTH, months, status);
            EXPECT_EQ(date.dateByAddingMonths(months).timeIntervalSince1970(), calendar.getTime(status) / 1000.0);

            calendar.setTime(unixSeconds * 1000.0, status);
            EXPECT_EQ(date.dayOfMonth(), calendar.get(UCAL_DATE, status));
            calendar.set(UCAL_HOUR_OF_DAY, 0);
            calendar.set(UCAL_MINUTE, 0);
            calendar.set(UCAL_SECOND, 0);
            EXPECT_EQ(date.dayStart().timeIntervalSince1970(), calendar.getTime(status) / 1000.0);
            ASSERT_TRUE(U_SUCCESS(status));
        }
    }
}

TEST_F(DateTest, ClockSeamFixesNow) {
    Clock::setNow(Date(730987200.0));
    EXPECT_EQ(Date::now().iso8601String(), "2024-03-01T12:00:00Z");
    Clock::setNow(std::nullopt);
    double system = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_NEAR(Date::now().timeIntervalSince1970(), system, 5.0);
}

TEST_F(DateTest, NonFiniteDatesAnswerNeutrally) {
    Date broken(std::nan(""));
    EXPECT_EQ(broken.yearOfCommonEra(), 0);
    EXPECT_EQ(broken.daysSinceDate(Date(0)), 0);
    EXPECT_EQ(broken.isoDateString(), "");
    EXPECT_TRUE(std::isnan(broken.dayStart().timeIntervalSinceReferenceDate()));
}

}  // namespace
}  // namespace brassline
