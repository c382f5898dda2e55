#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "core/Date.h"
#include "core/Log.h"

namespace brassline {
namespace {

struct Amount {
    std::string toString() const { return "12.50"; }
};

enum class Mode { Open = 0, Settled = 1, Canceled = 2 };

TEST(LogTest, FormatsPrintfConversionsAndObjects) {
    const char* nullText = nullptr;
    int value = 7;
    struct Row {
        std::string actual;
        const char* expected;
    };
    const Row rows[] = {
        {formatMessage("plain text"), "plain text"},
        {formatMessage("%@ and %@", "a", std::string("b")), "a and b"},
        {formatMessage("%@", std::string_view("view")), "view"},
        {formatMessage("%d items", 3), "3 items"},
        {formatMessage("%ld/%lld/%lu/%zu", 3L, -4LL, 5UL, std::size_t{6}), "3/-4/5/6"},
        {formatMessage("%@", std::numeric_limits<uint64_t>::max()), "18446744073709551615"},
        {formatMessage("%@ %@", -42, true), "-42 1"},
        {formatMessage("%@", 0.1), "0.1"},
        {formatMessage("%@", 2.5f), "2.5"},
        {formatMessage("%5.2f|", 3.14159), " 3.14|"},
        {formatMessage("%08.3f", -1.5), "-001.500"},
        {formatMessage("%.0f", 2.5), "2"},     // printf rounds half to even.
        {formatMessage("%f", 3), "3.000000"},  // An int handed to %f is converted, not misread.
        {formatMessage("%d", 3.9), "3"},
        {formatMessage("%x %X %o", 255, 255u, 8), "ff FF 10"},
        {formatMessage("%-4s|%4s", "ab", "cd"), "ab  |  cd"},
        {formatMessage("%.3s", "abcdef"), "abc"},
        {formatMessage("%s", 42), "42"},
        {formatMessage("%c%c", 'O', 75), "OK"},
        {formatMessage("%*d", 5, 42), "   42"},
        {formatMessage("100%% sure"), "100% sure"},
        {formatMessage("%@", nullText), "(null)"},
        {formatMessage("%@", nullptr), "(null)"},
        {formatMessage("%@ %@", "a"), "a (null)"},
        {formatMessage("%@", "a", "unused"), "a"},
        {formatMessage("%d", "text"), "text"},
        {formatMessage("%y stays"), "%y stays"},
        {formatMessage("trailing %"), "trailing %"},
        {formatMessage("%@", Amount{}), "12.50"},
        {formatMessage("%@", Mode::Canceled), "2"},
        {formatMessage("%@", Date(0)), "2001-01-01T00:00:00Z"},
        {formatMessage("%@", &value).substr(0, 2), "0x"},
        {formatMessage("%s", std::string(300, 'x')).size() == 300 ? "long" : "short", "long"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.expected);
        EXPECT_EQ(row.actual, row.expected);
    }
}

TEST(LogTest, CaptureCollectsMessagesFromAllThreads) {
    LogCapture capture;
    logMessage("Import: %@ rows from %@", 3, "file.csv");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i) {
                logMessage("thread %d line %d", t, i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(lines.size(), 401u);
    EXPECT_EQ(lines[0], "Import: 3 rows from file.csv");
    EXPECT_TRUE(capture.contains("thread 3 line 99"));
    EXPECT_FALSE(capture.contains("thread 4"));
    capture.clear();
    EXPECT_TRUE(capture.lines().empty());
}

TEST(LogTest, NestedCapturesCollectIntoTheNewest) {
    LogCapture outer;
    logMessage("one");
    {
        LogCapture inner;
        logMessage("two");
        EXPECT_EQ(inner.lines(), std::vector<std::string>{"two"});
    }
    logMessage("three");
    EXPECT_EQ(outer.lines(), (std::vector<std::string>{"one", "three"}));
}

class LogFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_savedPath = logFilePath();
        m_folder = std::filesystem::path(::testing::TempDir()) / ("brassline-log-" + std::to_string(getpid()));
        std::filesystem::remove_all(m_folder);
        setLogEchoesToStandardError(false);
    }
    void TearDown() override {
        setLogFilePath(m_savedPath);
        setLogEchoesToStandardError(true);
        std::error_code error;
        std::filesystem::remove_all(m_folder, error);
    }

    std::string m_savedPath;
    std::filesystem::path m_folder;
};

TEST_F(LogFileTest, WritesTimestampedLinesAndCreatesFolders) {
    std::filesystem::path path = m_folder / "state" / "brassline" / "brassline.log";
    setLogFilePath(path.string());
    logMessage("first %@", 1);
    logMessage("second\n");
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 2u);
    // "2024-03-01 12:00:00.123 name[pid] first 1"
    const std::string pidTag = "[" + std::to_string(getpid()) + "] ";
    EXPECT_EQ(lines[0].substr(lines[0].size() - pidTag.size() - 7), pidTag + "first 1");
    EXPECT_EQ(lines[1].substr(lines[1].size() - pidTag.size() - 6), pidTag + "second");
    ASSERT_GE(lines[0].size(), 24u);
    EXPECT_EQ(lines[0][4], '-');
    EXPECT_EQ(lines[0][10], ' ');
    EXPECT_EQ(lines[0][19], '.');
    EXPECT_EQ(lines[0][23], ' ');
}

TEST_F(LogFileTest, UnwritableFileIsReportedOnceAndNeverStopsTheCaller) {
    std::filesystem::create_directories(m_folder);
    std::ofstream(m_folder / "plain-file") << "x";
    // A folder cannot be made below a regular file.
    setLogFilePath((m_folder / "plain-file" / "brassline.log").string());
    ::testing::internal::CaptureStderr();
    logMessage("lost one");
    logMessage("lost two");
    std::string errors = ::testing::internal::GetCapturedStderr();
    std::size_t first = errors.find("cannot write the log file");
    ASSERT_NE(first, std::string::npos) << errors;
    EXPECT_EQ(errors.find("cannot write the log file", first + 1), std::string::npos) << errors;
}

}  // namespace
}  // namespace brassline
