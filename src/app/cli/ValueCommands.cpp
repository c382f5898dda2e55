#include <cstdio>
#include <iomanip>
#include <iostream>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"
#include "core/Date.h"
#include "core/Decimal.h"
#include "core/DecimalFormula.h"
#include "core/UniqueId.h"

namespace brassline::cli {

namespace {

std::optional<RoundingMode> parseRoundingMode(const std::string& name) {
    if (name == "plain") {
        return RoundingMode::Plain;
    }
    if (name == "down") {
        return RoundingMode::Down;
    }
    if (name == "up") {
        return RoundingMode::Up;
    }
    if (name == "bankers") {
        return RoundingMode::Bankers;
    }
    return std::nullopt;
}

void addCalcCommand(CLI::App& app, int& exitCode) {
    struct Options {
        std::string formula;
        std::optional<int> round;
        std::string mode = "plain";
    };
    auto options = std::make_shared<Options>();
    CLI::App* calc = app.add_subcommand("calc", "Evaluate a formula in exact decimal arithmetic");
    calc->add_option("formula", options->formula, "Numbers with + - * / and parentheses")->required();
    calc->add_option("--round", options->round, "Round the result to this many fraction digits");
    calc->add_option("--mode", options->mode, "Rounding mode: plain (5 away from zero), down, up, bankers");
    calc->callback([options, &exitCode] {
        std::optional<RoundingMode> mode = parseRoundingMode(options->mode);
        if (!mode) {
            std::cerr << "brassline calc: unknown rounding mode '" << options->mode << "'\n";
            exitCode = 2;
            return;
        }
        std::string error;
        std::optional<Decimal> result = evaluateDecimalFormula(options->formula, &error);
        if (!result) {
            std::cerr << "brassline calc: " << error << "\n";
            exitCode = 1;
            return;
        }
        if (options->round) {
            *result = result->rounded(*options->round, *mode);
        }
        std::cout << result->toString() << "\n";
    });
}

void addUidCommand(CLI::App& app) {
    auto count = std::make_shared<int>(1);
    CLI::App* uid = app.add_subcommand("uid", "Print new unique identifiers");
    uid->add_option("--count", *count, "How many")->check(CLI::Range(1, 1000000));
    uid->callback([count] {
        for (int i = 0; i < *count; ++i) {
            std::cout << uniqueBase64String() << "\n";
        }
    });
}

void addDateCommand(CLI::App& app, int& exitCode) {
    struct Options {
        std::string date;
        int addDays = 0;
        int addMonths = 0;
        std::string zone;
    };
    auto options = std::make_shared<Options>();
    CLI::App* date = app.add_subcommand("date", "Show the calendar helpers for a date");
    date->add_option("date", options->date, "ISO 8601 date or time, or 'now'")->required();
    date->add_option("--add-days", options->addDays, "Calendar days to add");
    date->add_option("--add-months", options->addMonths, "Months to add (the day is clamped to the month)");
    date->add_option("--zone", options->zone, "Time zone (an Olson name such as Europe/Berlin)");
    date->callback([options, &exitCode] {
        if (!options->zone.empty()) {
            TimeZone::setCurrent(options->zone);
        }
        std::optional<Date> parsed =
            options->date == "now" ? std::optional<Date>(Date::now()) : Date::parseISO8601(options->date);
        if (!parsed) {
            std::cerr << "brassline date: not an ISO 8601 date: '" << options->date << "'\n";
            exitCode = 1;
            return;
        }
        Date result = parsed->dateByAddingMonths(options->addMonths).dateByAddingDays(options->addDays);
        std::cout << "date:      " << result.isoDateString() << "\n"
                  << "zone:      " << TimeZone::current() << "\n"
                  << "dayStart:  " << result.dayStart().iso8601String() << "\n"
                  << "dayEnd:    " << result.dayEnd().iso8601String() << "\n"
                  << "days from: " << result.daysSinceDate(*parsed) << "\n"
                  << "seconds since 2001: " << std::fixed << std::setprecision(3)
                  << result.timeIntervalSinceReferenceDate() << "\n";
    });
}

}  // namespace

void addValueCommands(CLI::App& app, int& exitCode) {
    addCalcCommand(app, exitCode);
    addUidCommand(app);
    addDateCommand(app, exitCode);
}

}  // namespace brassline::cli
