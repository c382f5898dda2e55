#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "ItemTestSupport.h"
#include "core/ValueTransformers.h"
#include "model/entities/BLTaxRule.h"
#include "money/BLSumCalculator.h"

namespace brassline {
namespace {

constexpr double kGenerousTimeoutSeconds = 20.0;

// Records what it is handed and on which thread.
class RecordingDelegate : public BLSumCalculatorDelegate {
public:
    void setSum(const std::string& text) override { record("sum", text); }
    void setNetSum(const std::string& text) override { record("net", text); }
    void setTax(const std::string& text) override { record("tax", text); }
    std::vector<std::string> calls() const {
        std::lock_guard lock(m_mutex);
        return m_calls;
    }
    bool allOnMainThread() const { return m_allOnMain; }

private:
    void record(const char* what, const std::string& text) {
        std::lock_guard lock(m_mutex);
        m_calls.push_back(std::string(what) + " " + text);
        m_allOnMain = m_allOnMain && RunLoop::isMainThread();
    }
    mutable std::mutex m_mutex;
    std::vector<std::string> m_calls;
    bool m_allOnMain = true;
};

class SumCalculatorTest : public ItemFixture {
protected:
    void SetUp() override {
        ItemFixture::SetUp();
        RunLoop::main();  // This thread is the main thread.
        setCurrentFormattingLocale("en_US");
        BLCurrency* euro = currencyNamed("EUR");
        euro->setRate(dec("1"));
        euro->setIsDefault(true);
        BLCurrency* dollar = currencyNamed("USD");
        dollar->setRate(dec("0.9"));
        auto* rule = insert<BLTaxRule>();
        rule->setTax1mode(int16_t{1});
        rule->setTax1value(dec("10"));
        // 100 at 10 %: 110.00 gross, 10.00 tax. 50 untaxed. 100 USD at 10 %: 110 USD is
        // 99.00 EUR, 90.00 net, 9.00 tax.
        m_invoices.push_back(invoiceWith(euro, "100", rule));
        m_invoices.push_back(invoiceWith(euro, "50", nullptr));
        m_invoices.push_back(invoiceWith(dollar, "100", rule));
    }
    BLInvoice* invoiceWith(BLCurrency* currency, const char* price, BLTaxRule* rule) {
        auto* invoice = insert<BLInvoice>();
        invoice->setCurrency(currency);
        addCost(invoice, price)->setTaxRule(rule);
        return invoice;
    }
    std::vector<ManagedObject*> items() const { return {m_invoices.begin(), m_invoices.end()}; }
    static bool waitFor(const std::function<bool()>& condition) {
        return RunLoop::main().runUntil(condition, kGenerousTimeoutSeconds);
    }

    std::vector<BLInvoice*> m_invoices;
};

TEST_F(SumCalculatorTest, AddsTheSelectionInTheDefaultCurrencyOnItsOwnThread) {
    RecordingDelegate delegate;
    BLSumCalculator calculator(context());
    calculator.setItems(items());
    calculator.setDelegate(&delegate);
    std::thread::id summingThread;
    calculator.setObjectObserver([&summingThread](size_t) { summingThread = std::this_thread::get_id(); });
    calculator.run();
    ASSERT_TRUE(waitFor([&] { return calculator.isFinished() && delegate.calls().size() == 3; }));

    // 110.00 + 50 + 99.00; 100 + 50 + 90.00; 10.00 + 0 + 9.00.
    const std::vector<std::string> expected = {"sum 259.00 EUR", "net 240.00 EUR", "tax 19.00 EUR"};
    EXPECT_EQ(delegate.calls(), expected);
    EXPECT_TRUE(delegate.allOnMainThread());
    EXPECT_NE(summingThread, std::this_thread::get_id());
    BLSumCalculator::Sum sum = calculator.sum();
    EXPECT_EQ(sum.gross, dec("259"));
    EXPECT_EQ(sum.net, dec("240"));
    EXPECT_EQ(sum.tax, dec("19"));
}

TEST_F(SumCalculatorTest, ReadsThroughItsChildContextOnly) {
    RecordingDelegate delegate;
    BLSumCalculator calculator(context());
    calculator.setItems(items());
    calculator.setDelegate(&delegate);
    calculator.run();
    ASSERT_TRUE(waitFor([&] { return calculator.isFinished(); }));
    ASSERT_NE(calculator.sumContext(), nullptr);
    EXPECT_EQ(calculator.sumContext()->parentContext(), &context());
    EXPECT_EQ(calculator.moIDs().size(), 3u);
    // The totals were computed on the child's copies: the main context's objects have
    // filled no cache, and the child holds the invoices and their lines.
    for (BLInvoice* invoice : m_invoices) {
        EXPECT_FALSE(invoice->holdfastCacheValueForKey("costWithTaxes").has_value());
    }
    EXPECT_GE(calculator.sumContext()->registeredObjectCount(), 6u);
    EXPECT_EQ(calculator.sum().gross, dec("259"));
}

TEST_F(SumCalculatorTest, CancelStopsMidwayAndHandsNothingOver) {
    RecordingDelegate delegate;
    BLSumCalculator calculator(context());
    calculator.setItems(items());
    calculator.setDelegate(&delegate);
    size_t seen = 0;
    calculator.setObjectObserver([&](size_t done) {
        seen = done;
        if (done == 1) {
            calculator.cancel();
        }
    });
    calculator.run();
    ASSERT_TRUE(waitFor([&] { return calculator.isFinished(); }));
    RunLoop::main().runUntilIdle();
    EXPECT_TRUE(calculator.cancelled());
    EXPECT_EQ(seen, 1u);
    EXPECT_TRUE(delegate.calls().empty());
    // Only the first invoice was added before the stop.
    EXPECT_EQ(calculator.sum().gross, dec("110"));

    // A new run starts over with the sum emptied and finishes.
    calculator.setObjectObserver(nullptr);
    calculator.setDelegate(&delegate);
    calculator.run();
    ASSERT_TRUE(waitFor([&] { return calculator.isFinished() && delegate.calls().size() == 3; }));
    EXPECT_EQ(calculator.sum().gross, dec("259"));
}

TEST_F(SumCalculatorTest, WithoutADelegateNothingIsAdded) {
    BLSumCalculator calculator(context());
    calculator.setItems(items());
    calculator.run();
    ASSERT_TRUE(waitFor([&] { return calculator.isFinished(); }));
    EXPECT_EQ(calculator.sum().gross, Decimal());
}

}  // namespace
}  // namespace brassline
