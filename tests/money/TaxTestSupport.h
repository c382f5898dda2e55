#pragma once

#include <string>

#include "CurrencyTestSupport.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"

namespace brassline {

// Tax rules, the matrix and invoices with lines.
class TaxFixture : public CurrencyFixture {
protected:
    // A rule from three (mode, percent) slots; a null percent leaves the slot's value absent.
    BLTaxRule* rule(int16_t mode1, const char* value1, int16_t mode2 = 0, const char* value2 = nullptr,
                    int16_t mode3 = 0, const char* value3 = nullptr) {
        auto* made = insert<BLTaxRule>();
        made->setTax1name(std::string("tax1"));
        made->setTax2name(std::string("tax2"));
        made->setTax3name(std::string("tax3"));
        made->setTax1mode(mode1);
        made->setTax2mode(mode2);
        made->setTax3mode(mode3);
        if (value1 != nullptr) {
            made->setTax1value(dec(value1));
        }
        if (value2 != nullptr) {
            made->setTax2value(dec(value2));
        }
        if (value3 != nullptr) {
            made->setTax3value(dec(value3));
        }
        return made;
    }
    BLInvoice* invoice(const char* code = nullptr, bool gross = false) {
        auto* made = insert<BLInvoice>();
        if (code != nullptr) {
            made->setCurrency(currency(code));
        }
        made->setUseGrossPrices(gross);
        return made;
    }
    // A matrix cell made by hand (the groups' set-up makes the whole matrix instead).
    BLTaxRule* cell(BLClientGroup* clientGroup, BLTaxGroup* taxGroup, const char* percent) {
        BLTaxRule* made = rule(1, percent);
        made->setClientGroup(clientGroup);
        made->setTaxGroup(taxGroup);
        return made;
    }
    // A line below `parent` at a fixed price, in an item group.
    BLCost* line(BLContainer* parent, BLItemGroup* itemGroup, const char* price) {
        auto* cost = insert<BLCost>();
        cost->setUnitPrice(dec(price));
        cost->setQuantity(Decimal(1));
        cost->setItemGroup(itemGroup);
        cost->setParent(parent);
        return cost;
    }
};

}  // namespace brassline
