#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/Decimal.h"

// Checks Decimal against vectors computed by Python's decimal module with the same
// precision, rounding and exponent range (tools/decimal_vectors.py describes the format).

namespace brassline {

namespace {

struct VectorRun {
    size_t checked = 0;
    size_t failures = 0;
    std::vector<std::string> firstFailures;

    void fail(size_t lineNumber, const std::string& line, const std::string& actual) {
        ++failures;
        if (firstFailures.size() < 8) {
            firstFailures.push_back("line " + std::to_string(lineNumber) + ": " + line + "  (got " + actual + ")");
        }
    }
    std::string report() const {
        std::string text = std::to_string(failures) + " of " + std::to_string(checked) + " vectors differ";
        for (const std::string& failure : firstFailures) {
            text += "\n  " + failure;
        }
        return text;
    }
};

std::vector<std::string> tokens(const std::string& line) {
    std::vector<std::string> parts;
    std::istringstream stream(line);
    std::string part;
    while (stream >> part) {
        parts.push_back(part);
    }
    return parts;
}

std::optional<RoundingMode> modeFromLetter(const std::string& letter) {
    if (letter == "P") {
        return RoundingMode::Plain;
    }
    if (letter == "D") {
        return RoundingMode::Down;
    }
    if (letter == "U") {
        return RoundingMode::Up;
    }
    if (letter == "B") {
        return RoundingMode::Bankers;
    }
    return std::nullopt;
}

// The result of one vector as text comparable with its last token; an empty optional
// for a line this reader does not understand.
std::optional<std::string> evaluate(const std::vector<std::string>& parts) {
    const std::string& op = parts[0];
    auto operand = [&](size_t index) { return Decimal::parse(parts[index]); };
    if (op == "parse" && parts.size() == 3) {
        std::optional<Decimal> value = operand(1);
        return value ? value->toString() : "rejected";
    }
    if ((op == "i64" || op == "dbl") && parts.size() == 3) {
        std::optional<Decimal> a = operand(1);
        if (!a) {
            return "unparsable operand";
        }
        if (op == "i64") {
            return std::to_string(a->toInt64());
        }
        const std::string& expectedText = parts[2];
        double expected = 0;
        std::from_chars(expectedText.data(), expectedText.data() + expectedText.size(), expected);
        double actual = a->toDouble();
        // Equal doubles answer the expected text itself, so that only a difference shows.
        if (actual == expected) {
            return expectedText;
        }
        char buffer[64];
        std::to_chars_result written = std::to_chars(buffer, buffer + sizeof buffer, actual);
        return std::string(buffer, written.ptr);
    }
    if (op == "rnd" && parts.size() == 5) {
        std::optional<Decimal> a = operand(1);
        std::optional<RoundingMode> mode = modeFromLetter(parts[3]);
        if (!a || !mode) {
            return "unparsable operand";
        }
        return a->rounded(std::atoi(parts[2].c_str()), *mode).toString();
    }
    if (parts.size() != 4) {
        return std::nullopt;
    }
    std::optional<Decimal> a = operand(1);
    std::optional<Decimal> b = operand(2);
    if (!a || !b) {
        return "unparsable operand";
    }
    if (op == "add") {
        return (*a + *b).toString();
    }
    if (op == "sub") {
        return (*a - *b).toString();
    }
    if (op == "mul") {
        return (*a * *b).toString();
    }
    if (op == "div") {
        return (*a / *b).toString();
    }
    if (op == "pct") {
        return a->decimalNumberCalculatePercentage(*b).toString();
    }
    if (op == "cmp") {
        std::strong_ordering order = *a <=> *b;
        return order < 0 ? "-1" : (order > 0 ? "1" : "0");
    }
    return std::nullopt;
}

VectorRun checkVectorFile(const std::filesystem::path& path) {
    VectorRun run;
    std::ifstream file(path);
    if (!file) {
        run.fail(0, path.string(), "cannot open");
        return run;
    }
    std::string line;
    size_t lineNumber = 0;
    while (std::getline(file, line)) {
        ++lineNumber;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        ++run.checked;
        std::vector<std::string> parts = tokens(line);
        std::optional<std::string> actual = parts.size() >= 3 ? evaluate(parts) : std::nullopt;
        if (!actual) {
            run.fail(lineNumber, line, "malformed vector");
        } else if (*actual != parts.back()) {
            run.fail(lineNumber, line, *actual);
        }
    }
    return run;
}

}  // namespace

TEST(DecimalDifferentialTest, AgreesWithCommittedVectors) {
    VectorRun run =
        checkVectorFile(std::filesystem::path(BRASSLINE_SOURCE_DIR) / "tests/data/core/decimal_vectors.txt");
    EXPECT_GE(run.checked, 20000u);
    EXPECT_EQ(run.failures, 0u) << run.report();
}

TEST(DecimalDifferentialTest, AgreesWithFreshVectorsFromPython) {
    if (std::system("command -v python3 >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "python3 is not on PATH";
    }
    const unsigned seed = std::random_device{}();
    const std::filesystem::path out =
        std::filesystem::temp_directory_path() / ("brassline_decimal_vectors_" + std::to_string(seed) + ".txt");
    const std::string command = "python3 '" BRASSLINE_SOURCE_DIR "/tools/decimal_vectors.py' --count 6000 --seed " +
                                std::to_string(seed) + " --out '" + out.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    VectorRun run = checkVectorFile(out);
    std::filesystem::remove(out);
    EXPECT_EQ(run.checked, 6000u) << "seed " << seed;
    EXPECT_EQ(run.failures, 0u) << "seed " << seed << ": " << run.report();
}

}  // namespace brassline
