#pragma once

#include <string>

#include "../model/EntityFixture.h"
#include "core/Decimal.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/CurrencyTable.h"

namespace brassline {

// A context with currencies made by code; amounts are written as text so that every
// figure reads as the test states it.
class CurrencyFixture : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        CurrencyTable::resetSharedTable();
    }
    static Decimal dec(const char* text) { return *Decimal::parse(text); }
    BLCurrency* currency(const std::string& code, const char* rate = "1") {
        auto* made = insert<BLCurrency>();
        made->setName(code);
        made->setRate(dec(rate));
        return made;
    }
};

}  // namespace brassline
