#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "core/Localization.h"
#include "core/Log.h"

namespace brassline {
namespace {

class LocalizationTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_folder = std::filesystem::path(::testing::TempDir()) / ("brassline-localization-" + std::to_string(getpid()));
        std::filesystem::create_directories(m_folder / "Localizable");
    }
    void TearDown() override {
        setLocalizationResourcesDirectory("");
        setCurrentLanguage("");
        std::error_code error;
        std::filesystem::remove_all(m_folder, error);
    }
    void writeTable(const std::string& language, const std::string& text) {
        std::ofstream(m_folder / "Localizable" / (language + ".json")) << text;
    }

    std::filesystem::path m_folder;
};

TEST_F(LocalizationTest, BuiltInTablesTranslateTheCommonWords) {
    setLocalizationResourcesDirectory(BRASSLINE_RESOURCES_DIR);
    struct Row {
        const char* key;
        const char* english;
        const char* german;
    };
    const Row rows[] = {
        {"untitled", "Untitled", "Unbenannt"},
        {"default", "Default", "Standard"},
        {"bank", "Bank", "Bank"},
        {"invoice", "Invoice", "Rechnung"},
        {"Credit note", "Credit note", "Gutschrift"},
        {"draft", "Draft", "Entwurf"},
        {"overdue", "Overdue", "Überfällig"},
        {"Subtotal", "Subtotal", "Zwischensumme"},
        {"no such word", "no such word", "no such word"},
        {"", "", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(localizedString(row.key, "en"), row.english);
        EXPECT_EQ(localizedString(row.key, "de"), row.german);
        setCurrentLanguage("de");
        EXPECT_EQ(localizedString(row.key), row.german);
        setCurrentLanguage("en");
        EXPECT_EQ(localizedString(row.key), row.english);
    }
}

TEST_F(LocalizationTest, EnglishAndGermanTablesHoldTheSameKeys) {
    auto keys = [](const std::string& language) {
        std::ifstream file(std::string(BRASSLINE_RESOURCES_DIR) + "/Localizable/" + language + ".json");
        nlohmann::json json = nlohmann::json::parse(file, nullptr, false);
        std::set<std::string> result;
        if (json.is_object()) {
            for (const auto& [key, value] : json.items()) {
                EXPECT_TRUE(value.is_string()) << language << ": " << key;
                result.insert(key);
            }
        }
        return result;
    };
    std::set<std::string> english = keys("en");
    EXPECT_GT(english.size(), 50u);
    EXPECT_EQ(keys("de"), english);
}

TEST_F(LocalizationTest, FallsBackToEnglishAndThenToTheKey) {
    writeTable("en", R"({"a": "A", "b": "B"})");
    writeTable("de", R"({"a": "Ä", "n": 5})");
    LogCapture capture;
    setLocalizationResourcesDirectory(m_folder.string());
    struct Row {
        const char* language;
        const char* key;
        const char* expected;
    };
    const Row rows[] = {
        {"de", "a", "Ä"}, {"de", "b", "B"},  // Missing in German: English.
        {"de", "c", "c"},                    // Missing everywhere: the key.
        {"de", "n", "n"},                    // Not a string: ignored.
        {"fr", "a", "A"},                    // No French table at all.
        {"en", "b", "B"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.language) + " " + row.key);
        EXPECT_EQ(localizedString(row.key, row.language), row.expected);
    }
    EXPECT_TRUE(capture.contains("\"n\" is not a string"));
    EXPECT_TRUE(capture.contains("no table for language \"fr\""));
}

TEST_F(LocalizationTest, BrokenTableIsReportedAndSkipped) {
    writeTable("en", R"({"a": "A"})");
    writeTable("de", "{\"a\": \"Ä\",");
    LogCapture capture;
    setLocalizationResourcesDirectory(m_folder.string());
    EXPECT_EQ(localizedString("a", "de"), "A");
    EXPECT_TRUE(capture.contains("de.json is not a JSON object of strings"));
}

TEST_F(LocalizationTest, TablesLoadOnceUntilTheFolderChanges) {
    writeTable("en", R"({"a": "first"})");
    setLocalizationResourcesDirectory(m_folder.string());
    EXPECT_EQ(localizedString("a", "en"), "first");
    writeTable("en", R"({"a": "second"})");
    EXPECT_EQ(localizedString("a", "en"), "first");
    setLocalizationResourcesDirectory(m_folder.string());
    EXPECT_EQ(localizedString("a", "en"), "second");
}

TEST_F(LocalizationTest, LanguageNamesReduceToTheirCode) {
    struct Row {
        const char* name;
        const char* expected;
    };
    const Row rows[] = {
        {"de", "de"},         {"DE", "de"}, {"de_DE.UTF-8", "de"}, {"de-CH", "de"},
        {"en_US@euro", "en"}, {"C", "en"},  {"POSIX", "en"},       {"1x", "en"},
    };
    LogCapture capture;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        setCurrentLanguage(row.name);
        EXPECT_EQ(currentLanguage(), row.expected);
    }
}

TEST_F(LocalizationTest, DefaultLanguageAndFolderComeFromTheEnvironment) {
    const char* savedAll = std::getenv("LC_ALL");
    std::string saved = savedAll != nullptr ? savedAll : "";
    setenv("LC_ALL", "de_AT.UTF-8", 1);
    setCurrentLanguage("");
    EXPECT_EQ(currentLanguage(), "de");
    setenv("LC_ALL", "C", 1);
    setCurrentLanguage("");
    EXPECT_EQ(currentLanguage(), "en");
    if (savedAll != nullptr) {
        setenv("LC_ALL", saved.c_str(), 1);
    } else {
        unsetenv("LC_ALL");
    }

    setenv("BRASSLINE_RESOURCES", m_folder.c_str(), 1);
    EXPECT_EQ(localizationResourcesDirectory(), m_folder.string());
    unsetenv("BRASSLINE_RESOURCES");
    EXPECT_EQ(localizationResourcesDirectory(), BRASSLINE_RESOURCES_DIR);
}

TEST_F(LocalizationTest, ConcurrentFirstLookupsAgree) {
    setLocalizationResourcesDirectory(BRASSLINE_RESOURCES_DIR);
    std::vector<std::string> answers(8);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < answers.size(); ++t) {
        threads.emplace_back([&answers, t] {
            for (int i = 0; i < 1000; ++i) {
                answers[t] = localizedString(t % 2 == 0 ? "invoice" : "paid", "de");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t t = 0; t < answers.size(); ++t) {
        EXPECT_EQ(answers[t], t % 2 == 0 ? "Rechnung" : "Bezahlt");
    }
}

}  // namespace
}  // namespace brassline
