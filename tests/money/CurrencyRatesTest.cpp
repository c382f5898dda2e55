#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CurrencyTestSupport.h"
#include "core/Date.h"
#include "money/BLCurrencyConverter.h"
#include "money/BLExchangeRates.h"

namespace brassline {
namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// A static HTTP server on 127.0.0.1 serving a folder (queries ignored), run by python3 on
// a port the system picks. Stopped by the destructor or stop().
class LocalServer {
public:
    explicit LocalServer(const fs::path& root) {
        const fs::path script = root.parent_path() / "server.py";
        writeFile(script,
                  "import http.server, sys, os\n"
                  "os.chdir(sys.argv[1])\n"
                  "class Quiet(http.server.SimpleHTTPRequestHandler):\n"
                  "    def log_message(self, *args): pass\n"
                  "server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Quiet)\n"
                  "print(server.server_address[1], flush=True)\n"
                  "server.serve_forever()\n");
        int pipeEnds[2];
        if (pipe(pipeEnds) != 0) {
            return;
        }
        m_pid = fork();
        if (m_pid == 0) {
            dup2(pipeEnds[1], STDOUT_FILENO);
            close(pipeEnds[0]);
            execlp("python3", "python3", script.c_str(), root.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(pipeEnds[1]);
        // The first line is the port: reading it waits exactly until the server listens.
        FILE* output = fdopen(pipeEnds[0], "r");
        char line[32] = {};
        if (output != nullptr && std::fgets(line, sizeof line, output) != nullptr) {
            m_port = std::atoi(line);
        }
        if (output != nullptr) {
            std::fclose(output);
        }
    }
    ~LocalServer() { stop(); }
    void stop() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
            m_pid = -1;
        }
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }
    int port() const { return m_port; }

private:
    pid_t m_pid = -1;
    int m_port = 0;
};

class CurrencyRatesTest : public CurrencyFixture {
protected:
    void SetUp() override {
        CurrencyFixture::SetUp();
        m_root = fs::temp_directory_path() / ("brassline-rates-" + std::to_string(getpid()) + "-" +
                                              ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_root);
        fs::create_directories(m_root / "www");
        BLExchangeRates::resetSharedExchangeRates();
        BLExchangeRates::sharedExchangeRates().setRatesDirectory((m_root / "Rates").string());
    }
    void TearDown() override {
        setExchangeRatesServiceURLForTesting("");
        BLExchangeRates::resetSharedExchangeRates();
        fs::remove_all(m_root);
        CurrencyFixture::TearDown();
    }
    fs::path www() const { return m_root / "www"; }
    fs::path root() const { return m_root; }

private:
    fs::path m_root;
};

TEST_F(CurrencyRatesTest, UpdateDividesTheBookRateByEachRateInSinglePrecision) {
    BLCurrency* book = currency("EUR");
    book->setDefault(true);
    BLCurrency* dollar = currency("USD", "2");
    BLCurrency* franc = currency("CHF", "2");
    BLCurrency* unknown = currency("XQQ", "3.5");
    BLCurrencyConverter converter(context());
    converter.setDict({{"EUR", 0.9}, {"USD", 1.0}, {"CHF", 0.88}});
    converter.update();
    // 0.9f ÷ 1.0f and 0.9f ÷ 0.88f, each a float, read back through their shortest text.
    EXPECT_EQ(dollar->rate()->toString(), "0.8999999761581421");
    EXPECT_EQ(franc->rate()->toString(), "1.0227272510528564");
    EXPECT_EQ(unknown->rate()->toString(), "3.5");
    EXPECT_EQ(book->rate()->toString(), "1");

    // Without a book currency nothing moves.
    book->setDefault(false);
    converter.setDict({{"EUR", 2.0}, {"USD", 1.0}});
    converter.update();
    EXPECT_EQ(dollar->rate()->toString(), "0.8999999761581421");
}

TEST_F(CurrencyRatesTest, LoadTakesTheLatestRatesAndFailuresChangeNothing) {
    BLCurrency* book = currency("EUR");
    book->setDefault(true);
    BLCurrency* yen = currency("JPY", "0.007");
    BLCurrencyConverter converter(context());

    // No service set: no request, nothing changes.
    EXPECT_FALSE(converter.load());
    EXPECT_EQ(yen->rate()->toString(), "0.007");

    writeFile(www() / "api/openexchangerates.org/latest.json",
              R"({"base": "USD", "rates": {"EUR": 0.9, "JPY": 145.5, "USD": 1}})");
    LocalServer server(www());
    ASSERT_GT(server.port(), 0);
    setExchangeRatesServiceURLForTesting(server.url());
    ASSERT_TRUE(converter.load());
    EXPECT_EQ(converter.dict().size(), 3u);
    // 0.9f ÷ 145.5f.
    EXPECT_EQ(yen->rate()->toString(), "0.006185567006468773");

    // Malformed answer, missing file, server gone: all leave the rates as they are.
    yen->setRate(Decimal(1));
    writeFile(www() / "api/openexchangerates.org/latest.json", "{\"rates\": ");
    EXPECT_FALSE(converter.load());
    fs::remove(www() / "api/openexchangerates.org/latest.json");
    EXPECT_FALSE(converter.load());
    server.stop();
    EXPECT_FALSE(converter.load());
    EXPECT_EQ(yen->rate()->toString(), "1");
}

TEST_F(CurrencyRatesTest, HistoricRatesComeFromTheMonthEndpointThenFromTheYearFile) {
    writeFile(www() / "api/exchangerates.php", R"({"rates": {"02": {"USD": 1.08, "CHF": 0.95}, "03": {"USD": 1.09}}})");
    LocalServer server(www());
    ASSERT_GT(server.port(), 0);
    setExchangeRatesServiceURLForTesting(server.url());
    BLExchangeRates& rates = BLExchangeRates::sharedExchangeRates();

    int calls = 0;
    Value seen;
    auto remember = [&](const Value& value) {
        ++calls;
        seen = value;
    };
    rates.ratesForDate(Date::dateWithYear(2026, 3, 2), remember);
    ASSERT_EQ(calls, 1);
    EXPECT_EQ(seen["USD"].toString(), "1.08");
    const fs::path yearFile = root() / "Rates/2026.json";
    EXPECT_EQ(rates.ratesFilePathForYear("2026"), yearFile.string());
    ASSERT_TRUE(fs::exists(yearFile));
    EXPECT_FALSE(fs::exists(yearFile.string() + ".tmp"));
    std::optional<Value> stored = Value::fromJSON(readFile(yearFile));
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ((*stored)["03"]["03"]["USD"].toString(), "1.09");
    // Pretty-printed: one key a line.
    EXPECT_NE(readFile(yearFile).find('\n'), std::string::npos);

    // A day the month lacks: the completion runs with nothing.
    rates.ratesForDate(Date::dateWithYear(2026, 3, 9), remember);
    ASSERT_EQ(calls, 2);
    EXPECT_TRUE(seen.isNull());

    // With the server gone, known days come from memory, then from the file alone.
    server.stop();
    rates.ratesForDate(Date::dateWithYear(2026, 3, 3), remember);
    ASSERT_EQ(calls, 3);
    EXPECT_EQ(seen["USD"].toString(), "1.09");
    BLExchangeRates::resetSharedExchangeRates();
    BLExchangeRates& reread = BLExchangeRates::sharedExchangeRates();
    reread.setRatesDirectory((root() / "Rates").string());
    reread.ratesForDate(Date::dateWithYear(2026, 3, 2), remember);
    ASSERT_EQ(calls, 4);
    EXPECT_EQ(seen["CHF"].toString(), "0.95");

    // An unknown day with no server: only a log line, no completion.
    reread.ratesForDate(Date::dateWithYear(2026, 4, 1), remember);
    EXPECT_EQ(calls, 4);
}

TEST_F(CurrencyRatesTest, BadFilesAndAnswersNeverReachTheCompletion) {
    writeFile(root() / "Rates/2025.json", "[not json");
    writeFile(www() / "api/exchangerates.php", R"({"no rates": true})");
    LocalServer server(www());
    ASSERT_GT(server.port(), 0);
    setExchangeRatesServiceURLForTesting(server.url());
    BLExchangeRates& rates = BLExchangeRates::sharedExchangeRates();
    EXPECT_FALSE(rates.loadRatesForYear("2025"));
    EXPECT_FALSE(rates.loadRatesForYear("1999"));
    int calls = 0;
    rates.ratesForDate(Date::dateWithYear(2025, 6, 1), [&](const Value&) { ++calls; });
    EXPECT_EQ(calls, 0);
    // The bad file was not overwritten by a failed fetch.
    EXPECT_EQ(readFile(root() / "Rates/2025.json"), "[not json");
}

}  // namespace
}  // namespace brassline
