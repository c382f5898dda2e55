#include <map>
#include <string>

#include <gtest/gtest.h>

#include "../model/EntityFixture.h"
#include "core/Decimal.h"
#include "core/ValueTransformers.h"
#include "lifecycle/NumberTokens.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLPartialInvoice.h"

namespace brassline {
namespace {

class CashDiscountPreferences : public NumberingPreferences {
public:
    Value valueForKeyPath(std::string_view keyPath) override {
        auto it = values.find(keyPath);
        return it == values.end() ? Value() : it->second;
    }
    void setValueForKeyPath(const Value& value, std::string_view keyPath) override {
        values[std::string(keyPath)] = value;
    }
    std::map<std::string, Value, std::less<>> values;
};

class CashDiscountAmountTest : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        setCurrentFormattingLocale("en_US");
    }
    void TearDown() override {
        setCurrentFormattingLocale("");
        EntityFixture::TearDown();
    }
    template <typename T>
    T* documentOf(const char* code, const char* price) {
        auto* currency = insert<BLCurrency>();
        currency->setName(std::string(code));
        T* document = insert<T>();
        document->setCurrency(currency);
        auto* line = insert<BLCost>();
        line->setUnitPrice(*Decimal::parse(price));
        line->setQuantity(Decimal(1));
        line->setParent(document);
        return document;
    }
};

TEST_F(CashDiscountAmountTest, TokensGiveTheDeductionOfThePayableSum) {
    CashDiscountPreferences preferences;
    preferences.values["cashDiscount1"] = Value(*Decimal::parse("2.5"));
    struct Row {
        const char* name;
        const char* code;
        const char* price;
        const char* option;
        const char* amount;
    };
    const Row rows[] = {
        // 2 % of 106.25 is 2.125, taken off as 2.13.
        {"2 % EUR", "EUR", "106.25", "ZPCashDiscount2", "2.13"},
        // 3 % of 100.00.
        {"3 % EUR", "EUR", "100.00", "ZPCashDiscount3", "3.00"},
        // The user's 2.5 % of 80.10 is 2.0025 -> 2.00; 78.10 payable.
        {"custom", "EUR", "80.10", "ZPCustomCashDiscount1", "2.00"},
        // CHF: 2 % of 10.40 is 0.21 (0.208); 10.19 is paid as 10.20, so 0.20 is offered.
        {"2 % CHF", "CHF", "10.40", "ZPCashDiscount2", "0.20"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLInvoice* invoice = documentOf<BLInvoice>(row.code, row.price);
        TokenInput input{invoice, &preferences, 1};
        EXPECT_EQ(tokenValue(row.option, input), std::optional<std::string>(row.amount));
    }
    // An estimate offers the same; an instalment offers none.
    BLEstimate* estimate = documentOf<BLEstimate>("EUR", "106.25");
    EXPECT_EQ(tokenValue("ZPCashDiscount2", TokenInput{estimate, &preferences, 1}), std::optional<std::string>("2.13"));
    BLInvoice* invoice = documentOf<BLInvoice>("EUR", "106.25");
    auto* partial = insert<BLPartialInvoice>();
    partial->setCurrency(invoice->currency());
    partial->setPartialPortion(std::string("50"));
    partial->setParentDocument(invoice);
    EXPECT_EQ(tokenValue("ZPCashDiscount2", TokenInput{partial, &preferences, 1}), std::optional<std::string>("0.00"));
}

}  // namespace
}  // namespace brassline
