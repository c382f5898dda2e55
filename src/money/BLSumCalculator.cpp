#include "money/BLSumCalculator.h"

#include "core/ValueTransformers.h"
#include "model/ManagedObject.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/entities/BLCurrency.h"

namespace brassline {

namespace {

// The keys the sums read, so that every document class answers them by its own rules.
constexpr const char* kNetKey = "netCostInNativeCurrency";
constexpr const char* kGrossKey = "costInNativeCurrency";
constexpr const char* kTaxKey = "taxInNativeCurrency";

Decimal amountForKey(ManagedObject& object, const char* key) {
    return object.valueForKey(key).toDecimal().validNumber();
}

std::string formatSum(const Decimal& value, const std::string& currencyName) {
    const ValueTransformer* transformer = valueTransformerForName("ZPNumberTransformer");
    std::string number =
        transformer != nullptr ? transformer->transformedValue(Value(value)).toString() : value.toString();
    return number + " " + currencyName;
}

}  // namespace

BLSumCalculator::BLSumCalculator(ManagedObjectContext& context) : m_context(&context) {}

BLSumCalculator::~BLSumCalculator() {
    cancel();
    finishThread();
}

void BLSumCalculator::setItems(const std::vector<ManagedObject*>& items) {
    m_moIDs.clear();
    m_moIDs.reserve(items.size());
    for (const ManagedObject* item : items) {
        if (item != nullptr) {
            m_moIDs.push_back(item->URIString());
        }
    }
}

void BLSumCalculator::setDelegate(BLSumCalculatorDelegate* delegate) {
    std::lock_guard lock(m_mutex);
    m_delegate = delegate;
}

bool BLSumCalculator::hasDelegate() const {
    std::lock_guard lock(m_mutex);
    return m_delegate != nullptr;
}

BLSumCalculator::Sum BLSumCalculator::sum() const {
    std::lock_guard lock(m_mutex);
    return m_sum;
}

void BLSumCalculator::cancel() {
    std::lock_guard lock(m_mutex);
    m_delegate = nullptr;
    m_cancelled.store(true);
}

void BLSumCalculator::finishThread() {
    if (!m_thread.joinable()) {
        return;
    }
    // The thread may be waiting for the main loop (a fault filled from the main context,
    // a hand-over): keep driving it until the thread is done, or the join would deadlock.
    if (RunLoop::isMainThread()) {
        while (!m_finished.load()) {
            RunLoop::main().runUntil([this] { return m_finished.load(); }, 1.0);
        }
    }
    m_thread.join();
}

void BLSumCalculator::run() {
    {
        // A previous run is stopped first; its delegate is kept for this one.
        std::lock_guard lock(m_mutex);
        m_cancelled.store(true);
    }
    finishThread();
    m_sumContext.reset();
    m_sumContext = std::make_unique<ManagedObjectContext>(*m_context, "SumCalculator");
    BLCurrency* book = BLCurrency::defaultItemForContext(*m_context);
    m_currencyName = book != nullptr ? BLBase::fixedAttribute(book->name()) : std::string();
    {
        std::lock_guard lock(m_mutex);
        m_sum = Sum();
    }
    m_cancelled.store(false);
    m_finished.store(false);
    m_thread = std::thread([this] { runThread(); });
}

void BLSumCalculator::runThread() {
    Sum total;
    bool complete = true;
    m_sumContext->performBlockAndWait([&] {
        size_t done = 0;
        for (const std::string& uri : m_moIDs) {
            if (m_cancelled.load() || !hasDelegate()) {
                complete = false;
                return;
            }
            ManagedObject* object = m_sumContext->objectForURIString(uri);
            if (object != nullptr) {
                total.net += amountForKey(*object, kNetKey);
                total.gross += amountForKey(*object, kGrossKey);
                total.tax += amountForKey(*object, kTaxKey);
                std::lock_guard lock(m_mutex);
                m_sum = total;
            }
            ++done;
            if (m_objectObserver) {
                m_objectObserver(done);
            }
        }
    });
    if (complete && !m_cancelled.load()) {
        deliver(total);
    }
    m_finished.store(true);
    // Wakes a main loop that sleeps until the run is over (the destructor, a next run).
    RunLoop::main().perform([] {});
}

void BLSumCalculator::deliver(const Sum& total) {
    using Setter = void (BLSumCalculatorDelegate::*)(const std::string&);
    const std::pair<Setter, Decimal> steps[] = {
        {&BLSumCalculatorDelegate::setSum, total.gross},
        {&BLSumCalculatorDelegate::setNetSum, total.net},
        {&BLSumCalculatorDelegate::setTax, total.tax},
    };
    for (const auto& [setter, value] : steps) {
        dispatchSyncToMain([this, setter = setter, value = value] {
            // Read on the main thread, where cancel clears it: a delegate gone meanwhile
            // hears nothing.
            BLSumCalculatorDelegate* delegate = nullptr;
            {
                std::lock_guard lock(m_mutex);
                delegate = m_delegate;
            }
            if (delegate != nullptr) {
                (delegate->*setter)(formatSum(value, m_currencyName));
            }
        });
    }
}

}  // namespace brassline
