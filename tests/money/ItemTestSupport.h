#pragma once

#include <ostream>
#include <string>

#include "../model/EntityFixture.h"
#include "core/Decimal.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItem.h"

namespace brassline {

// Failures show amounts as text.
inline void PrintTo(const Decimal& value, std::ostream* out) {
    *out << value.toString();
}

// Builds documents and item trees in a fresh context. Amounts are given as text so that
// every figure in a test reads as written.
class ItemFixture : public EntityFixture {
protected:
    static Decimal dec(const char* text) { return *Decimal::parse(text); }

    BLCurrency* currencyNamed(const std::string& code) {
        auto* currency = insert<BLCurrency>();
        currency->setName(code);
        return currency;
    }
    BLInvoice* invoiceIn(const std::string& code) {
        auto* invoice = insert<BLInvoice>();
        invoice->setCurrency(currencyNamed(code));
        return invoice;
    }
    BLEstimate* estimateIn(const std::string& code) {
        auto* estimate = insert<BLEstimate>();
        estimate->setCurrency(currencyNamed(code));
        return estimate;
    }
    // A line under `parent`: price, quantity and, when given, discount percent.
    BLCost* addCost(BLContainer* parent, const char* price, const char* quantity = "1",
                    const char* discount = nullptr) {
        auto* cost = insert<BLCost>();
        cost->setUnitPrice(dec(price));
        cost->setQuantity(dec(quantity));
        if (discount != nullptr) {
            cost->setDiscount(dec(discount));
        }
        cost->setParent(parent);
        return cost;
    }
    template <typename T>
    T* add(BLContainer* parent) {
        T* item = insert<T>();
        item->setParent(parent);
        return item;
    }
};

}  // namespace brassline
